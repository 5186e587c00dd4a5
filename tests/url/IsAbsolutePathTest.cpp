// isAbsolutePathNoIOFcn: one answer per text, in the argument's shape, never touching
// the file system.
#include "GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zkfs::test;

class IsAbsolutePath : public LiveArrayTest {};

std::vector<bool> answersFor(const ArgList& args, const Dims& expectedDims) {
    unique_vqarray_ptr result = callForResult(isAbsolutePathNoIOFcn, args);
    EXPECT_NE(result, nullptr);
    if (result == nullptr) return {};
    EXPECT_EQ(vqGetClassID(result.get()), vqLOGICAL_CLASS);
    EXPECT_EQ(dimsOf(result.get()), expectedDims);
    return logicalsOf(result.get());
}

// This platform's convention: "/" roots a path; any text with a scheme and "://" is a
// URL, which is absolute.
struct Row {
    fl::ustring text;
    bool absolute;
};
const std::vector<Row> kTable = {
    {u"", false},
    {u".", false},
    {u"/", true},
    {u"/data/raw/x.csv", true},
    {u"//server/share", true},
    {u"data/raw", false},
    {u"./data", false},
    {u"~/notes", false},
    {u"C:\\Users\\ana", false},  // another platform's convention
    {u"C:/Users/ana", false},
    {u"C://x", false},  // a one-letter scheme is a drive, not a URL
    {u"https://data.example.org/v1", true},
    {u"file:///tmp/x", true},
    {u"s3://bucket/key", true},
    {u"caf\u00e9/x", false},
    {u"/caf\u00e9/\U0001F600", true},
    {u"/\xDCFF/not-utf8", true},
};

TEST_F(IsAbsolutePath, TableOneCharRowAtATime) {
    for (const Row& row : kTable) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.text));
        // The empty text comes as the 0x0 char, as the host writes ''.
        ArgList args(row.text.empty() ? charEmpty() : charRow(row.text));
        EXPECT_EQ(answersFor(args, {1, 1}), std::vector<bool>{row.absolute});
    }
}

TEST_F(IsAbsolutePath, TableAsOneStringColumnKeepsOrder) {
    std::vector<StringElement> texts;
    std::vector<bool> expected;
    for (const Row& row : kTable) {
        texts.emplace_back(row.text);
        expected.push_back(row.absolute);
    }
    const vqSize n = texts.size();
    EXPECT_EQ(answersFor(ArgList(stringArray({n, 1}, texts)), {n, 1}), expected);
}

TEST_F(IsAbsolutePath, EmptyCharRowIsOneFalse) {
    EXPECT_EQ(answersFor(ArgList(charRow(u"")), {1, 1}), std::vector<bool>{false});
}

TEST_F(IsAbsolutePath, CellKeepsItsShape) {
    std::vector<unique_vqarray_ptr> cells;
    cells.push_back(charRow(u"/a"));         // (1,1)
    cells.push_back(charRow(u"b"));          // (2,1)
    cells.push_back(charEmpty());            // (1,2)
    cells.push_back(charRow(u"http://h/"));  // (2,2)
    EXPECT_EQ(answersFor(ArgList(cellArray({2, 2}, std::move(cells))), {2, 2}),
              (std::vector<bool>{true, false, false, true}));
}

TEST_F(IsAbsolutePath, MissingStringAnswersFalseOthersAsUsual) {
    EXPECT_EQ(answersFor(ArgList(stringArray({1, 3}, {u"/a", std::nullopt, u"/b"})), {1, 3}),
              (std::vector<bool>{true, false, true}));
}

TEST_F(IsAbsolutePath, EmptyArraysGiveEmptyAnswersOfTheirShape) {
    EXPECT_TRUE(answersFor(ArgList(stringArray({0, 0}, {})), {0, 0}).empty());
    EXPECT_TRUE(answersFor(ArgList(stringArray({0, 3}, {})), {0, 3}).empty());
    EXPECT_TRUE(answersFor(ArgList(cellArray({1, 0}, {})), {1, 0}).empty());
}

TEST_F(IsAbsolutePath, ThreeDimensionalStringArrayKeepsItsShape) {
    EXPECT_EQ(answersFor(ArgList(stringArray({1, 2, 2}, {u"/a", u"a", u"b", u"/b"})), {1, 2, 2}),
              (std::vector<bool>{true, false, false, true}));
}

TEST_F(IsAbsolutePath, ResultFillsTheFirstSlotWhenNoOutputIsAskedFor) {
    OutputSlots out;
    callGateway(isAbsolutePathNoIOFcn, 0, out, ArgList(charRow(u"/")));
    ASSERT_NE(out[0], nullptr);
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
}

TEST_F(IsAbsolutePath, BadCellElementsNameTheInput) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("string scalar in a cell", cellRow(charRow(u"/a"), stringScalar(u"/b")));
    rows.emplace_back("number in a cell", cellRow(doubleScalar(3)));
    rows.emplace_back("empty slot", cellArray({1, 2}, [] {
                          std::vector<unique_vqarray_ptr> v;
                          v.push_back(charRow(u"/a"));
                          v.push_back(nullptr);
                          return v;
                      }()));
    rows.emplace_back("char matrix in a cell", cellRow(charMatrix({u"ab", u"cd"})));
    rows.emplace_back("0x3 char in a cell", cellRow(charArray({0, 3}, u"")));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(isAbsolutePathNoIOFcn, 1, out, args),
                                "QUORIN:string:MustBeCellArrayOfStrings", u"Input path");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(IsAbsolutePath, WrongKindsAreRefusedWithTheInputName) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("2x3 char", charMatrix({u"/ab", u"/cd"}));
    rows.emplace_back("1x2x2 char", charArray({1, 2, 2}, u"/abc"));
    rows.emplace_back("double", doubleScalar(42));
    rows.emplace_back("logical", logicalScalar(true));
    rows.emplace_back("struct", structScalar(field("Name", charRow(u"/a"))));
    rows.emplace_back("null argument", nullptr);
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args;
        if (arg) {
            args.add(std::move(arg));
        } else {
            args.add(nullptr);
        }
        EXPECT_IDENTIFIED_ERROR(callGateway(isAbsolutePathNoIOFcn, 1, out, args),
                                "QUORIN:string:MustBeCharCellArrayOrString", u"Input path");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(IsAbsolutePath, InputNameFollowsTheGlobalLocale) {
    ScopedLocale german("de_DE.UTF-8");
    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(callGateway(isAbsolutePathNoIOFcn, 1, out, ArgList(doubleScalar(1))),
                            "QUORIN:string:MustBeCharCellArrayOrString", u"Eingabepfad");
}

TEST_F(IsAbsolutePath, CountsAreCheckedBeforeTheArgument) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(callGateway(isAbsolutePathNoIOFcn, 2, out, ArgList(doubleScalar(1))),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        callGateway(isAbsolutePathNoIOFcn, 1, out, ArgList(charRow(u"/"), charRow(u"/"))),
        "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(isAbsolutePathNoIOFcn, 1, out, ArgList()),
                            "QUORIN:NotEnoughInputs");
}

}  // namespace
