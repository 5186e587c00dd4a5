// createFileURL: "file" URLs for local paths, one per text, in the argument's shape.
#include "GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::createFileURL;

class CreateFileURL : public LiveArrayTest {};

std::vector<StringElement> urlsFor(const ArgList& args, const Dims& expectedDims) {
    unique_vqarray_ptr result = callForResult(createFileURL, args);
    EXPECT_NE(result, nullptr);
    if (result == nullptr) return {};
    EXPECT_TRUE(vqGetClassID(result.get()) == vqSTRING_CLASS);
    EXPECT_EQ(dimsOf(result.get()), expectedDims);
    return stringsOf(result.get());
}

fl::ustring urlOf(fl::ustring path) {
    return urlsFor(ArgList(charRow(path)), {1, 1}).at(0).value_or(u"<missing>");
}

// Absolute paths: the native form drops "." and repeated "/", keeps ".."; the URL
// percent-encodes everything outside RFC 3986's segment characters, as UTF-8.
TEST_F(CreateFileURL, AbsolutePathsTable) {
    struct Row {
        fl::ustring path;
        fl::ustring url;
    };
    const std::vector<Row> table = {
        {u"/", u"file:///"},
        {u"/data/raw/x.csv", u"file:///data/raw/x.csv"},
        {u"/data/./raw//x.csv", u"file:///data/raw/x.csv"},
        {u"/data/raw/", u"file:///data/raw"},
        {u"/data/../x", u"file:///data/../x"},
        {u"/d/sensor log (march).txt", u"file:///d/sensor%20log%20(march).txt"},
        {u"/d/a#b?c%d", u"file:///d/a%23b%3Fc%25d"},
        {u"/notes/caf\u00e9.txt", u"file:///notes/caf%C3%A9.txt"},
        {u"/x/\U0001F600", u"file:///x/%F0%9F%98%80"},
        // A name that is not UTF-8 on disk keeps its byte.
        {u"/x/\xDCFF", u"file:///x/%FF"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.path));
        EXPECT_EQ(urlOf(row.path), row.url);
    }
}

TEST_F(CreateFileURL, RelativePathIsTakenFromTheCurrentFolder) {
    const fl::ustring cwd = fl::i18n::to_ustring(std::filesystem::current_path().string());
    EXPECT_EQ(urlOf(u"data/./x.csv"), u"file://" + cwd + u"/data/x.csv");
}

TEST_F(CreateFileURL, EmptyCharSkipsTheNativeFormAndNamesNoFile) {
    EXPECT_EQ(urlsFor(ArgList(charEmpty()), {1, 1}), std::vector<StringElement>{u"file://"});
    EXPECT_EQ(urlsFor(ArgList(charRow(u"")), {1, 1}), std::vector<StringElement>{u"file://"});
}

TEST_F(CreateFileURL, StringArrayKeepsShapeAndOrder) {
    EXPECT_EQ(urlsFor(ArgList(stringArray({2, 2}, {u"/a", u"/b", u"/c", u""})), {2, 2}),
              (std::vector<StringElement>{u"file:///a", u"file:///b", u"file:///c", u"file://"}));
}

TEST_F(CreateFileURL, CellKeepsItsShape) {
    std::vector<unique_vqarray_ptr> cells;
    cells.push_back(charRow(u"/a b"));
    cells.push_back(charEmpty());
    EXPECT_EQ(urlsFor(ArgList(cellArray({2, 1}, std::move(cells))), {2, 1}),
              (std::vector<StringElement>{u"file:///a%20b", u"file://"}));
}

TEST_F(CreateFileURL, EmptyArraysGiveEmptyResultsOfTheirShape) {
    EXPECT_TRUE(urlsFor(ArgList(stringArray({0, 0}, {})), {0, 0}).empty());
    EXPECT_TRUE(urlsFor(ArgList(cellArray({0, 2}, {})), {0, 2}).empty());
}

TEST_F(CreateFileURL, ArgumentsAfterTheFirstAreIgnored) {
    EXPECT_EQ(urlsFor(ArgList(charRow(u"/a"), doubleScalar(1), structScalar()), {1, 1}),
              std::vector<StringElement>{u"file:///a"});
}

TEST_F(CreateFileURL, ResultFillsTheFirstSlotWhenNoOutputIsAskedFor) {
    OutputSlots out;
    callGateway(createFileURL, 0, out, ArgList(charRow(u"/a")));
    ASSERT_NE(out[0], nullptr);
    EXPECT_EQ(stringsOf(out[0]), std::vector<StringElement>{u"file:///a"});
}

TEST_F(CreateFileURL, BadCellElementIsNamedByItsZeroBasedIndex) {
    std::vector<unique_vqarray_ptr> cells;
    cells.push_back(charRow(u"/a"));
    cells.push_back(charRow(u"/b"));
    cells.push_back(doubleScalar(3));
    cells.push_back(stringScalar(u"/d"));
    OutputSlots out;
    ArgList args(cellArray({1, 4}, std::move(cells)));
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, args),
                            "QUORIN:string:MustBeCellArrayOfStrings", "2");
    EXPECT_EQ(out[0], nullptr);
}

TEST_F(CreateFileURL, IndexOfABadCellCountsInLinearOrder) {
    std::vector<unique_vqarray_ptr> cells;
    for (int i = 0; i < 11; ++i) cells.push_back(charRow(u"/ok"));
    cells.push_back(stringScalar(u"/not-char"));  // linear index 11, the (2,4) cell of 3x4
    OutputSlots out;
    ArgList args(cellArray({3, 4}, std::move(cells)));
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, args),
                            "QUORIN:string:MustBeCellArrayOfStrings", "11");
}

TEST_F(CreateFileURL, OtherBadCellsAreRefusedToo) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("empty slot", cellArray({1, 1}, [] {
                          std::vector<unique_vqarray_ptr> v;
                          v.push_back(nullptr);
                          return v;
                      }()));
    rows.emplace_back("char matrix", cellRow(charMatrix({u"/a", u"/b"})));
    rows.emplace_back("3-D char", cellRow(charArray({1, 1, 2}, u"/a")));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, args),
                                "QUORIN:string:MustBeCellArrayOfStrings", "0");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(CreateFileURL, MissingStringStopsTheWalk) {
    OutputSlots out;
    ArgList args(stringArray({1, 3}, {u"/a", std::nullopt, u"/c"}));
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, args),
                            "QUORIN:string:MissingNotSupported");
    EXPECT_EQ(out[0], nullptr);
}

TEST_F(CreateFileURL, WrongKindsNameTheInput) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("2x5 char", charMatrix({u"/abcd", u"/efgh"}));
    rows.emplace_back("1x1x2 char", charArray({1, 1, 2}, u"/a"));
    rows.emplace_back("0x3 char", charArray({0, 3}, u""));
    rows.emplace_back("double", doubleScalar(1));
    rows.emplace_back("logical", logicalScalar(false));
    rows.emplace_back("struct", structScalar(field("Path", charRow(u"/a"))));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, args),
                                "QUORIN:string:MustBeCharCellArrayOrString", u"Input path");
        EXPECT_EQ(out[0], nullptr);
    }
}

// Restores the current folder on the way out, whatever the test did to it.
class CurrentFolderGuard {
public:
    CurrentFolderGuard() : saved_(std::filesystem::current_path()) {}
    CurrentFolderGuard(const CurrentFolderGuard&) = delete;
    CurrentFolderGuard& operator=(const CurrentFolderGuard&) = delete;
    ~CurrentFolderGuard() { std::filesystem::current_path(saved_); }

private:
    std::filesystem::path saved_;
};

// A relative path needs the current folder; when that is gone the native form fails,
// and the error names the path as the user wrote it, not a half-made native form.
TEST_F(CreateFileURL, PathWithoutANativeFormIsAnInvalidFileURLPath) {
    CurrentFolderGuard restore;
    TempTree tree;
    std::filesystem::current_path(tree.makeFolder("gone"));
    std::filesystem::remove(tree.path("gone"));

    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, ArgList(charRow(u"data/./x.csv"))),
                            "QUORIN:io:common:file:InvalidFileURLPath", u"data/./x.csv");
    EXPECT_EQ(out[0], nullptr);

    // Absolute paths need no current folder; a bad one later in the array still fails the
    // whole call and stores nothing.
    ArgList mixed(stringArray({1, 3}, {u"/fine", u"rel", u"/also-fine"}));
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, mixed),
                            "QUORIN:io:common:file:InvalidFileURLPath", u"rel");
    EXPECT_EQ(out[0], nullptr);
    EXPECT_EQ(urlOf(u"/fine"), u"file:///fine");
}

TEST_F(CreateFileURL, CountsAreCheckedFirst) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 2, out, ArgList(charRow(u"/a"))),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(createFileURL, 1, out, ArgList()),
                            "QUORIN:NotEnoughInputs");
    EXPECT_EQ(out[0], nullptr);
}

}  // namespace
