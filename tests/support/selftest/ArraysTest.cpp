#include <cmath>

#include <gtest/gtest.h>

#include "Hexfarrow/String/String.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

namespace zkfs::test {
namespace {

class ArrayBuilders : public LiveArrayTest {};

TEST_F(ArrayBuilders, CharShapes) {
    const auto row = charRow(u"abc");
    EXPECT_EQ(dimsOf(row.get()), (Dims{1, 3}));
    EXPECT_EQ(charsOf(row.get()), u"abc");

    // The empty row keeps its 1x0 shape; the 0x0 char is a different value.
    EXPECT_EQ(dimsOf(charRow(u"").get()), (Dims{1, 0}));
    EXPECT_EQ(dimsOf(charEmpty().get()), (Dims{0, 0}));
    EXPECT_EQ(dimsOf(charArray({0, 3}, u"").get()), (Dims{0, 3}));

    // Rows are stored column by column.
    const auto m = charMatrix({u"abc", u"def"});
    EXPECT_EQ(dimsOf(m.get()), (Dims{2, 3}));
    EXPECT_EQ(charsOf(m.get()), u"adbecf");

    const auto cube = charArray({1, 2, 2}, u"wxyz");
    EXPECT_EQ(dimsOf(cube.get()), (Dims{1, 2, 2}));
    EXPECT_EQ(vqGetClassID(cube.get()), vqCHAR_CLASS);

    // Embedded NULs are data like any other code unit.
    EXPECT_EQ(charsOf(charRow(fl::ustring(u"a\0b", 3)).get()).size(), 3U);
}

TEST_F(ArrayBuilders, RefusesInconsistentInput) {
    EXPECT_THROW((void)charArray({2, 2}, u"abc"), std::invalid_argument);
    EXPECT_THROW((void)charMatrix({u"ab", u"c"}), std::invalid_argument);
    EXPECT_THROW((void)doubleArray({1, 2}, {1.0}), std::invalid_argument);
    EXPECT_THROW((void)stringArray({2, 1}, {u"x"}), std::invalid_argument);
    EXPECT_THROW((void)structArray({1, 1}, {"A"}, {}), std::invalid_argument);
}

TEST_F(ArrayBuilders, NumericLogicalAndSparse) {
    const auto d = doubleArray({2, 2}, {1, 2, 3, 4});
    EXPECT_EQ(doublesOf(d.get()), (std::vector<double>{1, 2, 3, 4}));
    EXPECT_FALSE(vqIsSparse(d.get()));
    for (vqClassID cls : {vqINT8_CLASS, vqUINT8_CLASS, vqINT16_CLASS, vqUINT16_CLASS, vqINT32_CLASS,
                          vqUINT32_CLASS, vqINT64_CLASS, vqUINT64_CLASS, vqSINGLE_CLASS,
                          vqDOUBLE_CLASS}) {
        const auto a = numericArray(cls, {3, 1});
        EXPECT_EQ(vqGetClassID(a.get()), cls);
        EXPECT_TRUE(vqIsNumeric(a.get()));
    }
    const auto l = logicalArray({1, 3}, {true, false, true});
    EXPECT_EQ(logicalsOf(l.get()), (std::vector<bool>{true, false, true}));
    EXPECT_TRUE(vqIsSparse(sparse(logicalScalar(true)).get()));
    EXPECT_TRUE(vqIsSparse(sparse(doubleScalar(2)).get()));
    EXPECT_THROW((void)sparse(charRow(u"x")), std::invalid_argument);
}

TEST_F(ArrayBuilders, StringsWithMissingElements) {
    const auto s = stringArray({2, 2}, {u"a", std::nullopt, u"", u"d"});
    EXPECT_EQ(dimsOf(s.get()), (Dims{2, 2}));
    const auto elems = stringsOf(s.get());
    ASSERT_EQ(elems.size(), 4U);
    EXPECT_EQ(elems[0], fl::ustring(u"a"));
    EXPECT_FALSE(elems[1].has_value());
    EXPECT_EQ(elems[2], fl::ustring());
    EXPECT_TRUE(Hexfarrow::String::isMissingScalarString(missingString().get()));
    EXPECT_FALSE(Hexfarrow::String::isMissingScalarString(stringScalar(u"").get()));
}

TEST_F(ArrayBuilders, CellsAndStructsNest) {
    auto inner = cellRow(charRow(u"x"), nullptr);
    auto s = structScalar(field("Name", charRow(u"n")), field("Empty", nullptr),
                          field("Inner", std::move(inner)));
    const auto outer = cellRow(std::move(s), nullptr, stringScalar(u"t"));
    EXPECT_EQ(dimsOf(outer.get()), (Dims{1, 3}));
    EXPECT_EQ(vqGetCell(outer.get(), 1), nullptr);
    const vqArray* st = vqGetCell(outer.get(), 0);
    ASSERT_TRUE(vqIsStruct(st));
    EXPECT_EQ(st->get_struct_field_names(), (std::vector<std::string>{"Name", "Empty", "Inner"}));
    EXPECT_EQ(vqGetField(st, 0, "Empty"), nullptr);
    const vqArray* nested = vqGetField(st, 0, "Inner");
    ASSERT_TRUE(vqIsCell(nested));
    EXPECT_EQ(charsOf(vqGetCell(nested, 0)), u"x");
    EXPECT_EQ(vqGetCell(nested, 1), nullptr);

    const auto arr = structArray({2, 1}, {"A", "B"},
                                 [] {
                                     std::vector<FieldValues> e;
                                     e.push_back(fields(field("B", doubleScalar(1)), field("A", nullptr)));
                                     e.push_back(fields(field("A", charRow(u"a")), field("B", nullptr)));
                                     return e;
                                 }());
    EXPECT_EQ(doublesOf(vqGetField(arr.get(), 0, "B")), std::vector<double>{1});
    EXPECT_EQ(charsOf(vqGetField(arr.get(), 1, "A")), u"a");
    EXPECT_EQ(vqGetField(arr.get(), 1, "B"), nullptr);
}

TEST_F(ArrayBuilders, ArgListAndSlots) {
    ArgList args(charRow(u"a"), nullptr, doubleScalar(1));
    EXPECT_EQ(args.count(), 3);
    EXPECT_EQ(args[1], nullptr);
    EXPECT_EQ(args.data()[0], args[0]);
    OutputSlots none(0);
    EXPECT_EQ(none[0], nullptr);  // the host always gives at least one slot
}

}  // namespace
}  // namespace zkfs::test
