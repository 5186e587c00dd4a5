// pathNameLengthValidation: one entry per path name, as an N-by-1 logical, true when the
// name has at most 4352 UTF-16 code units.
#include "GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zkfs::test;

class PathNameLength : public LiveArrayTest {};

std::vector<bool> validity(const ArgList& args, vqSize expectedRows) {
    unique_vqarray_ptr result = callForResult(pathNameLengthValidation, args);
    EXPECT_NE(result, nullptr);
    if (result == nullptr) return {};
    EXPECT_EQ(vqGetClassID(result.get()), vqLOGICAL_CLASS);
    EXPECT_EQ(dimsOf(result.get()), (Dims{expectedRows, 1}));
    return logicalsOf(result.get());
}

fl::ustring units(std::size_t n) { return fl::ustring(n, u'x'); }

const fl::ustring kPair = u"\U0001F600";  // two UTF-16 code units

TEST_F(PathNameLength, LimitIsInclusiveAt4352CodeUnits) {
    const std::vector<std::pair<fl::ustring, bool>> table = {
        {units(1), true},
        {units(4351), true},
        {units(4352), true},
        {units(4353), false},
        {units(10000), false},
        // A character outside the Basic Multilingual Plane counts twice.
        {units(4350) + kPair, true},
        {units(4351) + kPair, false},
        {u"/" + units(4351), true},
    };
    for (const auto& [text, ok] : table) {
        SCOPED_TRACE(text.size());
        EXPECT_EQ(validity(ArgList(charRow(text)), 1), std::vector<bool>{ok});
        EXPECT_EQ(validity(ArgList(stringScalar(text)), 1), std::vector<bool>{ok});
    }
}

TEST_F(PathNameLength, EmptyCharIsValid) {
    EXPECT_EQ(validity(ArgList(charEmpty()), 1), std::vector<bool>{true});
    EXPECT_EQ(validity(ArgList(charRow(u"")), 1), std::vector<bool>{true});
}

TEST_F(PathNameLength, StringArraysBecomeAColumnInLinearOrder) {
    EXPECT_EQ(validity(ArgList(stringArray({1, 3}, {u"/a", units(4353), u""})), 3),
              (std::vector<bool>{true, false, true}));
    EXPECT_EQ(
        validity(ArgList(stringArray({2, 3}, {u"a", units(5000), u"b", u"c", units(4353), u"d"})),
                 6),
        (std::vector<bool>{true, false, true, true, false, true}));
    EXPECT_EQ(validity(ArgList(stringArray({1, 2, 2}, {units(4353), u"a", u"b", u"c"})), 4),
              (std::vector<bool>{false, true, true, true}));
}

TEST_F(PathNameLength, EmptyStringArraysGiveZeroRows) {
    EXPECT_TRUE(validity(ArgList(stringArray({0, 0}, {})), 0).empty());
    EXPECT_TRUE(validity(ArgList(stringArray({3, 0}, {})), 0).empty());
    EXPECT_TRUE(validity(ArgList(cellArray({0, 0}, {})), 0).empty());
}

TEST_F(PathNameLength, MissingStringIsValid) {
    EXPECT_EQ(validity(ArgList(stringArray({1, 2}, {std::nullopt, units(4353)})), 2),
              (std::vector<bool>{true, false}));
}

TEST_F(PathNameLength, CellOfCharRowsBecomesAColumn) {
    std::vector<unique_vqarray_ptr> cells;
    cells.push_back(charRow(u"/data"));
    cells.push_back(charRow(units(4353)));
    cells.push_back(charEmpty());
    cells.push_back(charRow(units(4352)));
    EXPECT_EQ(validity(ArgList(cellArray({2, 2}, std::move(cells))), 4),
              (std::vector<bool>{true, false, true, true}));
}

TEST_F(PathNameLength, BadCellsNameTheInput) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("string scalar", cellRow(charRow(u"/a"), stringScalar(u"/b")));
    rows.emplace_back("number", cellRow(doubleScalar(1)));
    rows.emplace_back("char matrix", cellRow(charMatrix({u"ab", u"cd"})));
    rows.emplace_back("nested cell", cellRow(cellRow(charRow(u"/a"))));
    rows.emplace_back("empty slot", cellArray({1, 2}, [] {
                          std::vector<unique_vqarray_ptr> v;
                          v.push_back(charRow(u"/a"));
                          v.push_back(nullptr);
                          return v;
                      }()));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(pathNameLengthValidation, 1, out, args),
                                "QUORIN:string:MustBeCellArrayOfStrings", u"Input path");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(PathNameLength, WrongKindsNameTheInput) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("2x3 char", charMatrix({u"abc", u"def"}));
    rows.emplace_back("0x3 char", charArray({0, 3}, u""));
    rows.emplace_back("3-D char", charArray({1, 2, 2}, u"abcd"));
    rows.emplace_back("double", doubleScalar(4352));
    rows.emplace_back("logical", logicalScalar(true));
    rows.emplace_back("struct", structScalar(field("Name", charRow(u"/a"))));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(pathNameLengthValidation, 1, out, args),
                                "QUORIN:string:MustBeCharCellArrayOrString", u"Input path");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(PathNameLength, InputNameFollowsTheGlobalLocale) {
    ScopedLocale german("de_DE.UTF-8");
    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(
        callGateway(pathNameLengthValidation, 1, out, ArgList(cellRow(doubleScalar(1)))),
        "QUORIN:string:MustBeCellArrayOfStrings", u"Eingabepfad");
}

TEST_F(PathNameLength, CountsAreCheckedBeforeTheArgument) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(callGateway(pathNameLengthValidation, 2, out, ArgList(doubleScalar(1))),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        callGateway(pathNameLengthValidation, 1, out, ArgList(charRow(u"a"), charRow(u"b"))),
        "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(pathNameLengthValidation, 1, out, ArgList()),
                            "QUORIN:NotEnoughInputs");
    EXPECT_EQ(out[0], nullptr);
}

}  // namespace
