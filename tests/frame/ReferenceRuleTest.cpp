// The hand-over of results and the host's reference rule, watched through the live-array
// counter.
#include <stdexcept>

#include <gtest/gtest.h>

#include "matrix/matrix.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

namespace {

using namespace zkfs::test;
using quorin::gateway::handOver;

class ReferenceRule : public LiveArrayTest {};

TEST_F(ReferenceRule, CounterFollowsCreationAndRelease) {
    const long start = vqLiveArrayCount();
    auto a = doubleScalar(1);
    EXPECT_EQ(vqLiveArrayCount(), start + 1);
    {
        // A cell owns its elements, nested ones included.
        auto c = cellRow(charRow(u"a"), cellRow(stringScalar(u"b"), nullptr), nullptr);
        EXPECT_EQ(vqLiveArrayCount(), start + 5);
    }
    EXPECT_EQ(vqLiveArrayCount(), start + 1);
    a.reset();
    EXPECT_EQ(vqLiveArrayCount(), start);
}

TEST_F(ReferenceRule, HandOverIntoAnEmptySlot) {
    OutputSlots out(2);
    auto result = charRow(u"r");
    const vqArray* raw = result.get();
    const long before = vqLiveArrayCount();
    handOver(out.data(), 1, std::move(result));
    EXPECT_EQ(result.get(), nullptr);  // NOLINT(bugprone-use-after-move): moved-from is empty
    EXPECT_EQ(out[1], raw);
    EXPECT_EQ(out[0], nullptr);
    EXPECT_EQ(vqLiveArrayCount(), before);
}

TEST_F(ReferenceRule, PlainPreviousValueIsFreed) {
    OutputSlots out;
    out.slot(0) = doubleScalar(1);
    ASSERT_EQ(out[0]->refCount_, 1U);
    const long before = vqLiveArrayCount();
    handOver(out.data(), 0, doubleScalar(2));
    EXPECT_EQ(vqLiveArrayCount(), before);  // one made, the old one freed
    EXPECT_EQ(doublesOf(out[0]), std::vector<double>{2});
}

TEST_F(ReferenceRule, SharedPreviousValueSurvives) {
    auto held = doubleScalar(1);
    vqArray* shared = held.get();
    shared->refCount_ = 2;  // a second holder, a host variable say
    OutputSlots out;
    out.slot(0).reset(held.release());
    const long before = vqLiveArrayCount();
    handOver(out.data(), 0, doubleScalar(2));
    EXPECT_EQ(vqLiveArrayCount(), before + 1);
    EXPECT_EQ(shared->refCount_, 1U);
    EXPECT_EQ(*vqGetPr(shared), 1.0);
    vqDestroy_deleter{}(shared);  // the other holder lets go: now it is freed
    EXPECT_EQ(vqLiveArrayCount(), before);
}

TEST_F(ReferenceRule, MarkedPreviousValueSurvives) {
    auto held = doubleScalar(1);
    vqArray* marked = held.get();
    marked->marker_ = 0x5A5A;
    OutputSlots out;
    out.slot(0).reset(held.release());
    const long before = vqLiveArrayCount();
    handOver(out.data(), 0, doubleScalar(2));
    EXPECT_EQ(vqLiveArrayCount(), before + 1);
    EXPECT_EQ(marked->refCount_, 0U);
    EXPECT_EQ(marked->marker_, 0x5A5AU);
    EXPECT_EQ(*vqGetPr(marked), 1.0);
    matrix::destroyArray(marked);
    EXPECT_EQ(vqLiveArrayCount(), before);
}

TEST_F(ReferenceRule, CellsAndStructsTakeOwnership) {
    const long start = vqLiveArrayCount();
    auto c = vqCreateCellArray({1, 2});
    vqSetCell(c.get(), 0, doubleScalar(1).release());
    vqReplaceCell(c.get(), 0, doubleScalar(2).release());  // the first value is released
    EXPECT_EQ(vqLiveArrayCount(), start + 2);
    EXPECT_EQ(*vqGetPr(vqGetCell(c.get(), 0)), 2.0);
    // A refused store still releases what it was given.
    EXPECT_THROW(vqSetCell(c.get(), 5, doubleScalar(3).release()), std::out_of_range);
    EXPECT_EQ(vqLiveArrayCount(), start + 2);

    auto s = vqCreateStructArray({1, 1}, {"A"});
    vqSetField(s.get(), 0, "A", charRow(u"x").release());
    EXPECT_THROW(vqSetField(s.get(), 0, "Nope", charRow(u"y").release()), std::out_of_range);
    EXPECT_EQ(vqLiveArrayCount(), start + 4);
    c.reset();
    s.reset();
    EXPECT_EQ(vqLiveArrayCount(), start);
}

TEST_F(ReferenceRule, StoringTheHeldValueAgainKeepsItAlive) {
    auto c = vqCreateCellArray({1, 1});
    vqArray* value = doubleScalar(7).release();
    vqSetCell(c.get(), 0, value);
    vqReplaceCell(c.get(), 0, value);  // the only reference: nothing to release
    EXPECT_EQ(*vqGetPr(vqGetCell(c.get(), 0)), 7.0);
    ++value->refCount_;                // a second reference handed over with it
    vqSetCell(c.get(), 0, value);
    EXPECT_EQ(value->refCount_, 1U);

    auto s = vqCreateStructArray({1, 1}, {"A"});
    vqArray* field = charRow(u"x").release();
    vqSetField(s.get(), 0, "A", field);
    vqSetField(s.get(), 0, "A", field);
    EXPECT_EQ(vqGetChars(vqGetField(s.get(), 0, "A"))[0], u'x');
}

TEST_F(ReferenceRule, DuplicateIsDeep) {
    auto original = cellRow(stringArray({1, 2}, {u"a", std::nullopt}), nullptr);
    const long before = vqLiveArrayCount();
    auto copy = vqDuplicateArray(original.get());
    EXPECT_EQ(vqLiveArrayCount(), before + 2);
    original.reset();
    EXPECT_EQ(stringsOf(vqGetCell(copy.get(), 0)),
              (std::vector<StringElement>{u"a", std::nullopt}));
}

}  // namespace
