// pathFcn and getPathConstituentsCaller: fields, conventions, input forms.
#include "PathsTestSupport.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <tuple>

namespace {

using namespace zkfs::test;
using namespace zkfs::test::paths;
using quorin::io::filesystem::quorin::getPathConstituentsCaller;
using quorin::io::filesystem::quorin::PathConstituents;
using quorin::io::filesystem::quorin::pathFcn;

const std::vector<std::string> kFields = {"Parent", "Name", "Extension", "PathType", "IsAbsolute",
                                          "Host",   "Port", "Query",     "Fragment"};

// One element's fields, in order; nullopt for a missing string and for no port.
using Element = std::tuple<StringElement, StringElement, StringElement, StringElement, bool,
                           StringElement, std::optional<double>, StringElement, StringElement>;
constexpr auto no = std::nullopt;
const Element kDefault{no, no, no, no, false, no, no, no, no};

Element elementOf(const vqArray* s, std::size_t i) {
    const double port = doubleField(s, i, "Port");
    return {stringField(s, i, "Parent"),
            stringField(s, i, "Name"),
            stringField(s, i, "Extension"),
            stringField(s, i, "PathType"),
            logicalField(s, i, "IsAbsolute"),
            stringField(s, i, "Host"),
            std::isnan(port) ? std::optional<double>() : port,
            stringField(s, i, "Query"),
            stringField(s, i, "Fragment")};
}

class PathFcn : public LiveArrayTest {};

TEST_F(PathFcn, ConstituentsUnderEachConvention) {
    // clang-format off
    struct Row { fl::ustring path, convention; Element expected; };
    const fl::ustring drive = u"C:\\Users\\ana\\r.docx";
    const Row rows[] = {
        // The empty text is one path, with every constituent missing.
        {u"", u"unix", {no, no, no, u"Local", false, no, no, no, no}},
        // No extension: a missing string, never "".
        {u"notes/readme", u"unix", {u"notes", u"readme", no, u"Local", false, no, no, no, no}},
        {u"https://data.example.org:8080/v1/s.parquet?rev=3#top", u"schema",
         {u"https://data.example.org:8080/v1", u"s", u".parquet", u"URL", true, u"data.example.org", 8080, u"rev=3", u"top"}},
        // URLs are URLs under every convention.
        {u"http://h:81/a/b.c", u"unix", {u"http://h:81/a", u"b", u".c", u"URL", true, u"h", 81, no, no}},
        {drive, u"windows", {u"C:\\Users\\ana", u"r", u".docx", u"Local", true, no, no, no, no}},
        // Not a known convention: the platform's own rules, for which this is one relative name.
        {drive, u"Windows", {no, u"C:\\Users\\ana\\r", u".docx", u"Local", false, no, no, no, no}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.path + u" | " + row.convention));
        const auto r = call(pathFcn, ArgList(charRow(row.path), charRow(row.convention)));
        ASSERT_EQ(dimsOf(r.get()), (Dims{1, 1}));
        EXPECT_EQ(fieldNamesOf(r.get()), kFields);
        EXPECT_EQ(elementOf(r.get(), 0), row.expected);
    }
}

// Whatever the kinds, the n-th path takes the n-th convention; the result has the paths'
// shape. "C:\x" is absolute only under "windows".
TEST_F(PathFcn, PathsPairWithConventionsElementByElement) {
    // clang-format off
    struct Row { const char* what; std::vector<Make> args; Dims dims; std::vector<bool> absolute; };
    const Make x = ch(u"C:\\x"), w = ch(u"windows"), un = ch(u"unix");
    const Make xx = strs({1, 2}, {u"C:\\x", u"C:\\x"});
    const Row rows[] = {
        {"strings by strings", {xx, strs({1, 2}, {u"windows", u"unix"})}, {1, 2}, {true, false}},
        // Conventions match whole and case-sensitively.
        {"near misses", {strs({1, 5}, {u"C:\\x", u"C:\\x", u"C:\\x", u"C:\\x", u"C:\\x"}),
                         strs({1, 5}, {u"", u"WINDOWS", u"native", u"windows ", u"windowsx"})},
         {1, 5}, {false, false, false, false, false}},
        {"shapes differ", {strs({2, 1}, {u"C:\\x", u"C:\\x"}), strs({1, 2}, {u"unix", u"windows"})}, {2, 1}, {false, true}},
        {"char by string scalar", {x, str(u"windows")}, {1, 1}, {true}},
        {"char by cell", {x, cell({w})}, {1, 1}, {true}},
        {"third input unused", {x, w, num(7)}, {1, 1}, {true}},
        {"cells by char", {cell({x, x}), w}, {1, 2}, {true, true}},
        {"cells by strings", {cell({x, x}), strs({1, 2}, {u"unix", u"windows"})}, {1, 2}, {false, true}},
        {"cells by cells", {cell({x, x}), cell({w, un})}, {1, 2}, {true, false}},
        {"strings by a cell", {xx, cell({w, kCharEmpty})}, {1, 2}, {true, false}},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto r = call(pathFcn, build(row.args));
        ASSERT_EQ(dimsOf(r.get()), row.dims);
        for (std::size_t i = 0; i < row.absolute.size(); ++i)
            EXPECT_EQ(logicalField(r.get(), i, "IsAbsolute"), row.absolute[i]) << i;
    }
}

TEST_F(PathFcn, MissingAndEmptyInputs) {
    // A missing path gets the default element, its convention never consulted; so does a
    // text that cannot be analysed (a port out of range). Neither stops the next element.
    const auto r =
        call(pathFcn, ArgList(stringArray({1, 3}, {std::nullopt, u"http://h:99999/x", u"/x"}),
                              stringArray({1, 3}, {std::nullopt, u"schema", u"unix"})));
    EXPECT_EQ(elementOf(r.get(), 0), kDefault);
    EXPECT_EQ(elementOf(r.get(), 1), kDefault);
    EXPECT_EQ(stringField(r.get(), 2, "Name"), u"x");
    const auto s = call(pathFcn, ArgList(stringArray({0, 0}, {}), stringArray({0, 0}, {})));
    EXPECT_EQ(dimsOf(s.get()), (Dims{0, 0}));
    EXPECT_EQ(fieldNamesOf(s.get()), kFields);
}

TEST_F(PathFcn, BadCallsAreRefused) {
    const fl::ustring in = quorin::gateway::inputPathName();
    const char* kKind = "QUORIN:string:MustBeCharCellArrayOrString";
    const char* kCells = "QUORIN:string:MustBeCellArrayOfStrings";
    const Make a = ch(u"/a"), un = ch(u"unix"), ab = strs({1, 2}, {u"/a", u"/b"});
    // clang-format off
    const std::vector<ErrorRow> rows = {
        // The convention is read for every path: the path alone is refused, never read past.
        {"path alone", {a}, "QUORIN:NotEnoughInputs"},
        {"double alone", {num(1)}, "QUORIN:NotEnoughInputs"},
        // A scalar string is not broadcast over several paths.
        {"one for two", {ab, str(u"unix")}, "QUORIN:NotEnoughInputs"},
        {"three for two", {ab, strs({1, 3}, {u"unix", u"unix", u"unix"})}, "QUORIN:TooManyInputs"},
        {"two for one", {a, strs({1, 2}, {u"unix", u"unix"})}, "QUORIN:TooManyInputs"},
        {"one cell for two", {cell({a, a}), cell({un})}, "QUORIN:NotEnoughInputs"},
        {"missing convention", {ab, strs({1, 2}, {u"unix", std::nullopt})}, "QUORIN:string:MissingNotSupported"},
        {"bad cell after a good one", {cell({a, str(u"/b")}), un}, kCells, {in}},
        {"bad convention cell", {cell({a, a}), cell({un, num(1)})}, kCells, {in}},
        // The kinds themselves are the text reader's; each input goes through it.
        {"path of no text kind", {num(1), un}, kKind, {in}},
        {"convention of no text kind", {a, kNull}, kKind, {in}},
    };
    // clang-format on
    expectErrors(pathFcn, rows);
}

// The helper for other built-ins: the same analysis, but plain values ("" for no text,
// noPort) and an error where the gateway gives the default element.
TEST_F(PathFcn, HelperGivesTheSameConstituents) {
    auto all = [](const PathConstituents& c) {
        return std::tuple(c.Parent, c.Name, c.Extension, c.PathType, c.IsAbsolute, c.Host, c.Port,
                          c.Query, c.Fragment);
    };
    using T = decltype(all(PathConstituents{}));
    EXPECT_EQ(all(getPathConstituentsCaller(u"https://h.example:8443/a/b.tar.gz?x=1#y", u"schema")),
              T(u"https://h.example:8443/a", u"b.tar", u".gz", u"URL", true, u"h.example", 8443,
                u"x=1", u"y"));
    EXPECT_EQ(
        all(getPathConstituentsCaller(u"/home/.bashrc", u"unix")),
        T(u"/home", u".bashrc", u"", u"Local", true, u"", PathConstituents::noPort, u"", u""));
    EXPECT_TRUE(getPathConstituentsCaller(u"C:\\x", u"windows").IsAbsolute);
    EXPECT_FALSE(getPathConstituentsCaller(u"C:\\x", u"Windows").IsAbsolute);
    EXPECT_IDENTIFIED_ERROR(getPathConstituentsCaller(u"http://h:70000/", u"schema"),
                            "QUORIN:io:filesystem:core:InvalidURLPort",
                            fl::ustring(u"http://h:70000/"));
}

TEST_F(PathFcn, RecurringTextsAreRightForEveryElement) {
    // More distinct parents than are ever shared, each seen several times, with a few
    // extensions, hosts and queries that recur.
    std::vector<StringElement> paths;
    auto part = [](int k, int which) {
        const std::string s[] = {"/d" + std::to_string(k % 700), "f" + std::to_string(k),
                                 k % 3 == 0 ? "" : ".e" + std::to_string(k % 3)};
        return fl::i18n::to_ustring(s[which]);
    };
    for (int k = 0; k < 1500; ++k) paths.emplace_back(part(k, 0) + u"/" + part(k, 1) + part(k, 2));
    paths.emplace_back(u"http://h2:1/a/b.c?q2#f2");
    paths.emplace_back(u"http://h1/a/b.c?q1#f1");
    paths.emplace_back(u"http://h2:2/a/b.c?q2#f2");
    const vqSize n = paths.size();
    const auto r = call(pathFcn, ArgList(stringArray({1, n}, paths), charRow(u"unix")));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, n}));
    for (int k = 0; k < 1500; ++k) {
        const auto i = static_cast<std::size_t>(k);
        ASSERT_EQ(stringField(r.get(), i, "Parent"), part(k, 0)) << k;
        ASSERT_EQ(stringField(r.get(), i, "Name"), part(k, 1)) << k;
        ASSERT_EQ(stringField(r.get(), i, "Extension"),
                  k % 3 == 0 ? StringElement() : StringElement(part(k, 2)))
            << k;
    }
    EXPECT_EQ(elementOf(r.get(), 1500),
              Element(u"http://h2:1/a", u"b", u".c", u"URL", true, u"h2", 1, u"q2", u"f2"));
    EXPECT_EQ(elementOf(r.get(), 1501),
              Element(u"http://h1/a", u"b", u".c", u"URL", true, u"h1", no, u"q1", u"f1"));
    EXPECT_EQ(elementOf(r.get(), 1502),
              Element(u"http://h2:2/a", u"b", u".c", u"URL", true, u"h2", 2, u"q2", u"f2"));
    // A copy of the result is independent of it: freeing one leaves the other intact.
    unique_vqarray_ptr copy = vqDuplicateArray(r.get());
    EXPECT_EQ(stringField(copy.get(), 1501, "Host"), u"h1");
}
}  // namespace
