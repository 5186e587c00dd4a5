// getContentTypeFcn (one location in, its media type out) and isAbsolutePathNoIOFcn (one
// answer per text, in the argument's shape, never touching the file system); and the
// counts of every URL built-in, judged before any argument.
#include "GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::createFileURL;
using quorin::io::filesystem::quorin::getContentTypeFcn;

class UrlBuiltins : public LiveArrayTest {};

TEST_F(UrlBuiltins, CountsAreCheckedBeforeAnyArgument) {
    // createFileURL ignores arguments after its first, so it has no upper input count.
    expectCountErrors({
        {"getContentType", call<&getContentTypeFcn>, 2, 1, "QUORIN:TooManyOutputs"},
        {"getContentType", call<&getContentTypeFcn>, 1, 2, "QUORIN:TooManyInputs"},
        {"getContentType", call<&getContentTypeFcn>, 1, 0, "QUORIN:NotEnoughInputs"},
        {"isAbsolutePath", call<&isAbsolutePathNoIOFcn>, 2, 1, "QUORIN:TooManyOutputs"},
        {"isAbsolutePath", call<&isAbsolutePathNoIOFcn>, 1, 2, "QUORIN:TooManyInputs"},
        {"isAbsolutePath", call<&isAbsolutePathNoIOFcn>, 1, 0, "QUORIN:NotEnoughInputs"},
        {"createFileURL", call<&createFileURL>, 2, 1, "QUORIN:TooManyOutputs"},
        {"createFileURL", call<&createFileURL>, 1, 0, "QUORIN:NotEnoughInputs"},
        {"createURLFromParts", call<&createURLFromPartsFcn>, 2, 2, "QUORIN:TooManyOutputs"},
        {"createURLFromParts", call<&createURLFromPartsFcn>, 1, 3, "QUORIN:TooManyInputs"},
        {"createURLFromParts", call<&createURLFromPartsFcn>, 1, 1, "QUORIN:NotEnoughInputs"},
    });
}

TEST_F(UrlBuiltins, ContentTypeByExtensionOrKind) {
    TempTree tree;
    tree.makeFile("data/measurements.csv", "a,b\n1,2\n");
    tree.makeFolder("sub");
    const auto typeOf = [](unique_vqarray_ptr location) {
        return stringsFrom(call<&getContentTypeFcn>, ArgList(std::move(location)), {1, 1});
    };
    EXPECT_EQ(typeOf(charRow(tree.upath("data/measurements.csv"))),
              std::vector<StringElement>{u"text/csv"});
    // The file need not exist; the extension is matched without regard to case.
    EXPECT_EQ(typeOf(stringScalar(u"/nowhere/summary.PARQUET")),
              std::vector<StringElement>{u"application/vnd.apache.parquet"});
    EXPECT_EQ(typeOf(stringScalar(tree.upath("sub"))),
              std::vector<StringElement>{u"inode/directory"});
}

TEST_F(UrlBuiltins, ContentTypeRefusesWhatIsNotOneText) {
    expectRefused(
        call<&getContentTypeFcn>,
        arrays(stringArray({1, 2}, {u"/a.csv", u"/b.csv"}), stringArray({0, 0}, {}),
               charMatrix({u"abc", u"def"}), charArray({0, 3}, u""), charArray({1, 2, 2}, u"abcd"),
               cellRow(charRow(u"/a.csv")), doubleScalar(1)),
        "QUORIN:string:MustBeStringScalarOrCharacterVector", {});
    expectRefused(call<&getContentTypeFcn>, arrays(missingString()),
                  "QUORIN:string:MissingNotSupported", {});
}

std::vector<bool> absolute(const ArgList& args, const Dims& dims) {
    return logicalsFrom(call<&isAbsolutePathNoIOFcn>, args, dims);
}

// This platform's convention: "/" roots a path; any text with a scheme and "://" is a
// URL, which is absolute. Each row alone as a char row, then all as one string column.
TEST_F(UrlBuiltins, AbsolutePathTable) {
    const std::vector<std::pair<fl::ustring, bool>> table = {
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
    std::vector<StringElement> texts;
    std::vector<bool> expected;
    for (const auto& [text, isAbsolute] : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(text));
        // The empty text comes as the 0x0 char, as the host writes ''.
        EXPECT_EQ(absolute(ArgList(text.empty() ? charEmpty() : charRow(text)), {1, 1}),
                  std::vector<bool>{isAbsolute});
        texts.emplace_back(text);
        expected.push_back(isAbsolute);
    }
    const vqSize n = texts.size();
    EXPECT_EQ(absolute(ArgList(stringArray({n, 1}, texts)), {n, 1}), expected);
}

TEST_F(UrlBuiltins, AbsolutePathKeepsEveryShape) {
    EXPECT_EQ(absolute(ArgList(charRow(u"")), {1, 1}), std::vector<bool>{false});
    // Cells in column-major order: (1,1) (2,1) (1,2) (2,2).
    EXPECT_EQ(absolute(ArgList(cellArray({2, 2}, arrays(charRow(u"/a"), charRow(u"b"), charEmpty(),
                                                        charRow(u"http://h/")))),
                       {2, 2}),
              (std::vector<bool>{true, false, false, true}));
    // A missing string answers false, the others as usual.
    EXPECT_EQ(absolute(ArgList(stringArray({1, 3}, {u"/a", std::nullopt, u"/b"})), {1, 3}),
              (std::vector<bool>{true, false, true}));
    EXPECT_EQ(absolute(ArgList(stringArray({1, 2, 2}, {u"/a", u"a", u"b", u"/b"})), {1, 2, 2}),
              (std::vector<bool>{true, false, false, true}));
    EXPECT_TRUE(absolute(ArgList(stringArray({0, 3}, {})), {0, 3}).empty());
    EXPECT_TRUE(absolute(ArgList(cellArray({1, 0}, {})), {1, 0}).empty());
}

TEST_F(UrlBuiltins, AbsolutePathRefusalsNameTheInputInTheGlobalLocale) {
    expectRefused(call<&isAbsolutePathNoIOFcn>,
                  arrays(cellRow(charRow(u"/a"), stringScalar(u"/b")), cellRow(doubleScalar(3)),
                         cellArray({1, 2}, arrays(charRow(u"/a"), nullptr)),
                         cellRow(charMatrix({u"ab", u"cd"})), cellRow(charArray({0, 3}, u""))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {u"Input path"});
    expectRefused(
        call<&isAbsolutePathNoIOFcn>,
        arrays(charMatrix({u"/ab", u"/cd"}), charArray({1, 2, 2}, u"/abc"), doubleScalar(42),
               logicalScalar(true), structScalar(field("Name", charRow(u"/a"))), nullptr),
        "QUORIN:string:MustBeCharCellArrayOrString", {u"Input path"});
    ScopedLocale german("de_DE.UTF-8");
    expectRefused(call<&isAbsolutePathNoIOFcn>, arrays(doubleScalar(1)),
                  "QUORIN:string:MustBeCharCellArrayOrString", {u"Eingabepfad"});
}

}  // namespace
