// The hand-over of results and the host's reference rule, watched through the live-array
// counter.
#include "quorin/gateway/Gateway.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "matrix/matrix.hpp"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace zkfs::test;
using quorin::gateway::handOver;

class ReferenceRule : public LiveArrayTest {};

TEST_F(ReferenceRule, CounterFollowsCreationAndRelease) {
    const long start = vqLiveArrayCount();
    {
        // A cell owns its elements, nested ones included.
        auto c = cellRow(charRow(u"a"), cellRow(stringScalar(u"b"), nullptr), nullptr);
        EXPECT_EQ(vqLiveArrayCount(), start + 4);
    }
    EXPECT_EQ(vqLiveArrayCount(), start);
}

// The previous value of a result slot: freed when plain, left alone when another holder
// has it (a reference count or a host marker).
TEST_F(ReferenceRule, HandOverReleasesOnlyAPlainPreviousValue) {
    enum class Previous { None, Plain, Shared, Marked };
    for (const auto previous :
         {Previous::None, Previous::Plain, Previous::Shared, Previous::Marked}) {
        SCOPED_TRACE(static_cast<int>(previous));
        OutputSlots out(2);
        vqArray* old = nullptr;
        if (previous != Previous::None) {
            old = doubleScalar(1).release();
            if (previous == Previous::Shared) old->refCount_ = 2;
            if (previous == Previous::Marked) old->marker_ = 0x5A5A;
            out.slot(1).reset(old);
        }
        auto result = charRow(u"r");
        const vqArray* raw = result.get();
        const long before = vqLiveArrayCount();
        handOver(out.data(), 1, std::move(result));
        EXPECT_EQ(result.get(), nullptr);  // NOLINT(bugprone-use-after-move): moved-from is empty
        EXPECT_EQ(out[1], raw);
        EXPECT_EQ(out[0], nullptr);
        const bool survives = previous == Previous::Shared || previous == Previous::Marked;
        EXPECT_EQ(vqLiveArrayCount(), before - (previous == Previous::Plain ? 1 : 0));
        if (!survives) continue;
        EXPECT_EQ(*vqGetPr(old), 1.0);
        if (previous == Previous::Shared) {
            EXPECT_EQ(old->refCount_, 1U);
            vqDestroy_deleter{}(old);  // the other holder lets go: now it is freed
        } else {
            EXPECT_EQ(old->refCount_, 0U);
            EXPECT_EQ(old->marker_, 0x5A5AU);
            matrix::destroyArray(old);
        }
        EXPECT_EQ(vqLiveArrayCount(), before - 1);
    }
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
    auto s = vqCreateStructArray({1, 1}, {"A"});
    vqSetField(s.get(), 0, "A", charRow(u"x").release());
    EXPECT_THROW(vqSetField(s.get(), 0, "Nope", charRow(u"y").release()), std::out_of_range);
    EXPECT_EQ(vqLiveArrayCount(), start + 4);
    // Storing the value a slot already holds keeps it alive.
    vqArray* value = vqGetCell(c.get(), 0);
    vqReplaceCell(c.get(), 0, value);
    EXPECT_EQ(*vqGetPr(vqGetCell(c.get(), 0)), 2.0);
    ++value->refCount_;  // a second reference handed over with it
    vqSetCell(c.get(), 0, value);
    EXPECT_EQ(value->refCount_, 1U);
    vqArray* field = vqGetField(s.get(), 0, "A");
    vqSetField(s.get(), 0, "A", field);
    EXPECT_EQ(vqGetChars(vqGetField(s.get(), 0, "A"))[0], u'x');
    EXPECT_EQ(vqLiveArrayCount(), start + 4);
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
