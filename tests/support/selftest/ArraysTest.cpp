// The builders every test relies on: shapes, storage order, refusals, nesting.
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"

#include <gtest/gtest.h>

namespace zkfs::test {
namespace {

class ArrayBuilders : public LiveArrayTest {};

TEST_F(ArrayBuilders, ShapesAndStorageOrder) {
    // The empty row keeps its 1x0 shape; the 0x0 char is a different value.
    EXPECT_EQ(dimsOf(charRow(u"").get()), (Dims{1, 0}));
    EXPECT_EQ(dimsOf(charEmpty().get()), (Dims{0, 0}));
    EXPECT_EQ(dimsOf(charArray({1, 2, 2}, u"wxyz").get()), (Dims{1, 2, 2}));
    EXPECT_EQ(charsOf(charRow(fl::ustring(u"a\0b", 3)).get()).size(), 3U);
    // Rows are stored column by column.
    const auto m = charMatrix({u"abc", u"def"});
    EXPECT_EQ(dimsOf(m.get()), (Dims{2, 3}));
    EXPECT_EQ(charsOf(m.get()), u"adbecf");
    for (vqClassID cls : {vqINT8_CLASS, vqUINT64_CLASS, vqSINGLE_CLASS, vqDOUBLE_CLASS}) {
        EXPECT_EQ(vqGetClassID(numericArray(cls, {3, 1}).get()), cls);
    }
    EXPECT_EQ(logicalsOf(logicalArray({1, 3}, {true, false, true}).get()),
              (std::vector<bool>{true, false, true}));
    EXPECT_TRUE(vqIsSparse(sparse(logicalScalar(true)).get()));
    EXPECT_TRUE(vqIsSparse(sparse(doubleScalar(2)).get()));
    EXPECT_EQ(stringsOf(stringArray({2, 2}, {u"a", std::nullopt, u"", u"d"}).get()),
              (std::vector<StringElement>{u"a", std::nullopt, u"", u"d"}));
    EXPECT_TRUE(Hexfarrow::String::isMissingScalarString(missingString().get()));
    EXPECT_FALSE(Hexfarrow::String::isMissingScalarString(stringScalar(u"").get()));
}

TEST_F(ArrayBuilders, RefusesInconsistentInput) {
    EXPECT_THROW((void)charArray({2, 2}, u"abc"), std::invalid_argument);
    EXPECT_THROW((void)charMatrix({u"ab", u"c"}), std::invalid_argument);
    EXPECT_THROW((void)logicalArray({1, 2}, {true}), std::invalid_argument);
    EXPECT_THROW((void)stringArray({2, 1}, {u"x"}), std::invalid_argument);
    EXPECT_THROW((void)structArray({1, 1}, {"A"}, {}), std::invalid_argument);
    EXPECT_THROW((void)sparse(charRow(u"x")), std::invalid_argument);
}

TEST_F(ArrayBuilders, CellsStructsAndArguments) {
    auto s = structScalar(field("Name", charRow(u"n")), field("Empty", nullptr),
                          field("Inner", cellRow(charRow(u"x"), nullptr)));
    const auto outer = cellRow(std::move(s), nullptr);
    EXPECT_EQ(vqGetCell(outer.get(), 1), nullptr);
    const vqArray* st = vqGetCell(outer.get(), 0);
    ASSERT_TRUE(vqIsStruct(st));
    EXPECT_EQ(st->get_struct_field_names(), (std::vector<std::string>{"Name", "Empty", "Inner"}));
    EXPECT_EQ(vqGetField(st, 0, "Empty"), nullptr);
    EXPECT_EQ(charsOf(vqGetCell(vqGetField(st, 0, "Inner"), 0)), u"x");
    // Struct array elements may name their fields in any order.
    std::vector<FieldValues> e;
    e.push_back(fields(field("B", doubleScalar(1)), field("A", nullptr)));
    e.push_back(fields(field("A", charRow(u"a")), field("B", nullptr)));
    const auto arr = structArray({2, 1}, {"A", "B"}, std::move(e));
    EXPECT_EQ(doublesOf(vqGetField(arr.get(), 0, "B")), std::vector<double>{1});
    EXPECT_EQ(charsOf(vqGetField(arr.get(), 1, "A")), u"a");
    EXPECT_EQ(vqGetField(arr.get(), 1, "B"), nullptr);

    ArgList args(charRow(u"a"), nullptr, unique_vqarray_ptr());
    EXPECT_EQ(args.count(), 3);
    EXPECT_EQ(args[1], nullptr);
    EXPECT_EQ(args[2], nullptr);
    EXPECT_EQ(args.data()[0], args[0]);
    EXPECT_EQ(OutputSlots(0)[0], nullptr);  // the host always gives at least one slot
}

}  // namespace
}  // namespace zkfs::test
