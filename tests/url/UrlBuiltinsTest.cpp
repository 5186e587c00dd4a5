// The URL built-ins called as the host calls them: getContentTypeFcn (one location in,
// its media type out), isAbsolutePathNoIOFcn (one answer per text, in the argument's
// shape, never touching the file system), createFileURL ("file" URLs for local paths,
// one per text, in the argument's shape) and createURLFromPartsFcn (a base and a
// reference joined by RFC 3986 section 5; any failure answers the untouched 1x1 string
// array instead of an error).
#include "zkfs/test/GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::createFileURL;
using quorin::io::filesystem::quorin::getContentTypeFcn;

class UrlBuiltins : public LiveArrayTest {};

// One text in either form, its media type out; how the type is found is the core's.
TEST_F(UrlBuiltins, ContentTypeOfOneText) {
    TempTree tree;
    tree.makeFolder("sub");
    const auto typeOf = [](unique_vqarray_ptr location) {
        return stringsFrom(call<&getContentTypeFcn>, ArgList(std::move(location)), {1, 1});
    };
    EXPECT_EQ(typeOf(charRow(u"/nowhere/summary.PARQUET")),
              std::vector<StringElement>{u"application/vnd.apache.parquet"});
    EXPECT_EQ(typeOf(stringScalar(tree.upath("sub"))),
              std::vector<StringElement>{u"inode/directory"});
}

TEST_F(UrlBuiltins, ContentTypeRefusesWhatIsNotOneText) {
    // The strict reading of one text (the frame's tests hold every kind it refuses).
    expectRefused(call<&getContentTypeFcn>,
                  arrays(stringArray({1, 2}, {u"/a.csv", u"/b.csv"}), charMatrix({u"abc", u"def"})),
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
    // Cells in column-major order: (1,1) (2,1) (1,2) (2,2).
    EXPECT_EQ(absolute(ArgList(cellArray({2, 2}, arrays(charRow(u"/a"), charRow(u"b"), charEmpty(),
                                                        charRow(u"http://h/")))),
                       {2, 2}),
              (std::vector<bool>{true, false, false, true}));
    // A missing string answers false, the others as usual.
    EXPECT_EQ(absolute(ArgList(stringArray({1, 3}, {u"/a", std::nullopt, u"/b"})), {1, 3}),
              (std::vector<bool>{true, false, true}));
    EXPECT_TRUE(absolute(ArgList(cellArray({1, 0}, {})), {1, 0}).empty());
}

TEST_F(UrlBuiltins, AbsolutePathRefusalsNameTheInput) {
    expectRefused(call<&isAbsolutePathNoIOFcn>, arrays(cellRow(charRow(u"/a"), stringScalar(u"/b"))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {u"Input path"});
    expectRefused(call<&isAbsolutePathNoIOFcn>, arrays(charMatrix({u"/ab", u"/cd"})),
                  "QUORIN:string:MustBeCharCellArrayOrString", {u"Input path"});
}

class CreateFileURL : public LiveArrayTest {};

std::vector<StringElement> urlsFor(const ArgList& args, const Dims& dims) {
    return stringsFrom(call<&createFileURL>, args, dims);
}

fl::ustring urlOf(fl::ustring path) {
    return urlsFor(ArgList(charRow(path)), {1, 1}).at(0).value_or(u"<missing>");
}

// The native form drops "." and repeated "/", keeps ".."; the URL percent-encodes
// everything outside RFC 3986's segment characters, as UTF-8.
TEST_F(CreateFileURL, Table) {
    const fl::ustring cwd = fl::i18n::to_ustring(std::filesystem::current_path().string());
    const std::vector<std::pair<fl::ustring, fl::ustring>> table = {
        {u"/", u"file:///"},
        {u"/data/raw/x.csv", u"file:///data/raw/x.csv"},
        {u"/data/./raw//x.csv", u"file:///data/raw/x.csv"},
        {u"/data/raw/", u"file:///data/raw"},
        {u"/data/../x", u"file:///data/../x"},
        {u"/d/sensor log (march).txt", u"file:///d/sensor%20log%20(march).txt"},
        {u"/d/a#b?c%d", u"file:///d/a%23b%3Fc%25d"},
        {u"/notes/caf\u00e9.txt", u"file:///notes/caf%C3%A9.txt"},
        {u"/x/\U0001F600", u"file:///x/%F0%9F%98%80"},
        // A relative path is taken from the current folder; the empty one names no file.
        {u"data/./x.csv", u"file://" + cwd + u"/data/x.csv"},
        {u"", u"file://"},
    };
    for (const auto& [path, url] : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(path));
        EXPECT_EQ(urlOf(path), url);
    }
}

TEST_F(CreateFileURL, EveryFormKeepsItsShapeAndLaterArgumentsAreIgnored) {
    EXPECT_EQ(urlsFor(ArgList(charEmpty()), {1, 1}), std::vector<StringElement>{u"file://"});
    EXPECT_EQ(urlsFor(ArgList(stringArray({2, 2}, {u"/a", u"/b", u"/c", u""})), {2, 2}),
              (std::vector<StringElement>{u"file:///a", u"file:///b", u"file:///c", u"file://"}));
    EXPECT_EQ(urlsFor(ArgList(cellArray({2, 1}, arrays(charRow(u"/a b"), charEmpty()))), {2, 1}),
              (std::vector<StringElement>{u"file:///a%20b", u"file://"}));
    EXPECT_TRUE(urlsFor(ArgList(cellArray({0, 2}, {})), {0, 2}).empty());
    EXPECT_EQ(urlsFor(ArgList(charRow(u"/a"), doubleScalar(1), structScalar()), {1, 1}),
              std::vector<StringElement>{u"file:///a"});
}

// The zero-based linear index of the first bad cell is the error's argument; column-major
// order: the (2,1) cell of a 2x2 is index 1, not 2.
TEST_F(CreateFileURL, BadCellIsNamedByItsIndex) {
    expectRefused(call<&createFileURL>,
                  arrays(cellArray({2, 2}, arrays(charRow(u"/a"), doubleScalar(1), charRow(u"/c"),
                                                  charRow(u"/d")))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {"1"});
}

// A relative path needs the current folder; when that is gone the native form fails,
// and the error names the path as the user wrote it, not a half-made native form.
TEST_F(CreateFileURL, PathWithoutANativeFormIsAnInvalidFileURLPath) {
    TempTree tree;
    InFolder gone(tree.makeFolder("gone"));
    std::filesystem::remove(tree.path("gone"));
    expectRefused(call<&createFileURL>, arrays(charRow(u"data/./x.csv")),
                  "QUORIN:io:common:file:InvalidFileURLPath", {u"data/./x.csv"});
    // Absolute paths need no current folder, yet a bad text later in the array fails the
    // whole call.
    expectRefused(call<&createFileURL>,
                  arrays(stringArray({1, 3}, {u"/fine", u"rel", u"/also-fine"})),
                  "QUORIN:io:common:file:InvalidFileURLPath", {u"rel"});
    EXPECT_EQ(urlOf(u"/fine"), u"file:///fine");
}

class CreateURLFromParts : public LiveArrayTest {};

// What the host puts in a fresh 1x1 string array: the empty text, not missing.
const std::vector<StringElement> kUntouched{fl::ustring()};

std::vector<StringElement> joined(unique_vqarray_ptr base, unique_vqarray_ptr relative) {
    return stringsFrom(call<&createURLFromPartsFcn>, ArgList(std::move(base), std::move(relative)),
                       {1, 1});
}

std::vector<StringElement> joined(fl::ustring base, fl::ustring relative) {
    return joined(stringScalar(base), charRow(relative));
}

// Resolution itself is the IRI library's (its tests hold the RFC 3986 examples): a few
// references of each kind, then realistic links.
TEST_F(CreateURLFromParts, ResolutionExamples) {
    struct Row {
        fl::ustring relative;
        fl::ustring expected;
        fl::ustring base = u"http://a/b/c/d;p?q";
    };
    const std::vector<Row> table = {
        {u"g:h", u"g:h"},
        {u"g", u"http://a/b/c/g"},
        {u"//g", u"http://g"},
        {u"", u"http://a/b/c/d;p?q"},
        {u"../../../g", u"http://a/g"},
        {u"../files/summary.parquet?rev=3#top",
         u"https://data.example.org/v1/files/summary.parquet?rev=3#top",
         u"https://data.example.org/v1/datasets/"},
        // Text is percent-encoded; a local absolute path is its file URL.
        {u"r\u00e9sum\u00e9 final.pdf", u"https://h/d%C3%A9p%C3%B4t/r%C3%A9sum%C3%A9%20final.pdf",
         u"https://h/d\u00e9p\u00f4t/"},
        {u"x.csv", u"file:///data/raw/x.csv", u"/data/raw/"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.base + u" + " + row.relative));
        EXPECT_EQ(joined(row.base, row.relative), std::vector<StringElement>{row.expected});
    }
}

TEST_F(CreateURLFromParts, EveryTextForm) {
    EXPECT_EQ(joined(charRow(u"http://a/b/"), stringScalar(u"c")),
              std::vector<StringElement>{u"http://a/b/c"});
    EXPECT_EQ(joined(charRow(u"http://a/b/"), charEmpty()),
              std::vector<StringElement>{u"http://a/b/"});
}

TEST_F(CreateURLFromParts, EveryFailureAnswersUntouched) {
    const auto untouched = [](const char* what, unique_vqarray_ptr base, unique_vqarray_ptr ref) {
        SCOPED_TRACE(what);
        EXPECT_EQ(joined(std::move(base), std::move(ref)), kUntouched);
    };
    // A missing base answers without looking at the reference.
    untouched("missing base", missingString(), doubleScalar(7));
    untouched("numeric base", doubleScalar(1), charRow(u"g"));
    untouched("numeric reference", charRow(u"http://a/"), doubleScalar(1));
    untouched("missing reference", charRow(u"http://a/"), missingString());
    untouched("1x2 string base", stringArray({1, 2}, {u"http://a/", u"http://b/"}), charRow(u"g"));
    untouched("cell base", cellRow(charRow(u"http://a/")), charRow(u"g"));
    untouched("2x2 char reference", charRow(u"http://a/"), charMatrix({u"ab", u"cd"}));
    untouched("relative base", charRow(u"data/raw"), charRow(u"g"));
    untouched("empty base", charEmpty(), charRow(u"g"));
    untouched("malformed base", charRow(u"http://[bad/"), charRow(u"g"));
    untouched("malformed reference", charRow(u"http://a/"), charRow(u"http://[bad/"));
}

}  // namespace
