// relativepath (destinations expressed relative to one source folder, in the
// destination's shape) and pathNameLengthValidation (an N-by-1 logical, true when a name
// has at most 4352 UTF-16 code units), called as the host calls them.
#include "zkfs/test/GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace zkfs::test;

class PathText : public LiveArrayTest {};

constexpr const char* kInvalidAbsolute = "QUORIN:io:filesystem:relativepath:InvalidAbsolutePath";

std::vector<StringElement> related(unique_vqarray_ptr source, unique_vqarray_ptr destination,
                                   const Dims& dims) {
    return stringsFrom(call<&relativepath>, ArgList(std::move(source), std::move(destination)),
                       dims);
}

// The route itself is the core's (its tests hold the table); the gateway adds the answer
// for locations without a common root: the destination as given.
TEST_F(PathText, RelativePathTable) {
    struct Row {
        fl::ustring source;
        fl::ustring destination;
        fl::ustring relative;
    };
    const std::vector<Row> table = {
        {u"/a/b/c", u"/x/y", u"../../../x/y"},
        {u"/proj/src", u"/proj/data/caf\u00e9.csv", u"../data/caf\u00e9.csv"},
        {u"https://h/a/", u"https://h/a/x.csv?rev=3#top", u"x.csv?rev=3#top"},
        // No common root: the destination is kept as given.
        {u"/a/b", u"https://h/a/b", u"https://h/a/b"},
        {u"https://h/a", u"/a/b", u"/a/b"},
        {u"https://h/a", u"https://other/a", u"https://other/a"},
        {u"https://h/a", u"s3://h/a", u"s3://h/a"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.source + u" -> " + row.destination));
        EXPECT_EQ(related(charRow(row.source), charRow(row.destination), {1, 1}),
                  std::vector<StringElement>{row.relative});
    }
}

// Every source form with every destination form; the result takes the destination's shape.
TEST_F(PathText, RelativePathReadsEveryFormAndKeepsTheDestinationsShape) {
    for (int s = 0; s < 3; ++s) {
        const auto source = [s] {
            return s == 0 ? charRow(u"/p") : s == 1 ? stringScalar(u"/p") : cellRow(charRow(u"/p"));
        };
        SCOPED_TRACE(kindOf(source().get()));
        EXPECT_EQ(related(source(), charRow(u"/p/q"), {1, 1}), std::vector<StringElement>{u"q"});
        EXPECT_EQ(related(source(), stringScalar(u"/p/q"), {1, 1}),
                  std::vector<StringElement>{u"q"});
        EXPECT_EQ(related(source(), cellRow(charRow(u"/p/q"), charRow(u"/r")), {1, 2}),
                  (std::vector<StringElement>{u"q", u"../r"}));
        EXPECT_EQ(related(source(), stringArray({2, 2}, {u"/p/a", u"/p", u"/", u"/p/b/c"}), {2, 2}),
                  (std::vector<StringElement>{u"a", u".", u"..", u"b/c"}));
    }
    EXPECT_TRUE(related(charRow(u"/a"), cellArray({1, 0}, {}), {1, 0}).empty());
    EXPECT_TRUE(related(charRow(u"/a"), stringArray({0, 3}, {}), {0, 3}).empty());
}

TEST_F(PathText, RelativePathRefusals) {
    // The destination is bad too: the source's error must win.
    expectRefused(call<&relativepath>,
                  arrays(doubleScalar(1), stringArray({1, 2}, {u"/a", u"/b"}),
                         cellRow(charRow(u"/a"), charRow(u"/b"))),
                  "QUORIN:io:filesystem:relativepath:InvalidSourcePathType", {},
                  [](unique_vqarray_ptr a) { return ArgList(std::move(a), doubleScalar(2)); });
    const auto asDestination = [](unique_vqarray_ptr a) {
        return ArgList(charRow(u"/a"), std::move(a));
    };
    expectRefused(call<&relativepath>,
                  arrays(doubleScalar(1), charMatrix({u"/ab", u"/cd"}),
                         cellRow(charRow(u"/a"), stringScalar(u"/b"))),
                  "QUORIN:io:filesystem:relativepath:InvalidDestinationPathType", {},
                  asDestination);
    // An invalid location stops the walk and names the text; the source is looked at first.
    expectRefused(call<&relativepath>, arrays(stringArray({1, 3}, {u"/a/b", u"data/x.csv", u"/c"})),
                  kInvalidAbsolute, {u"data/x.csv"}, asDestination);
    const auto asSource = [](unique_vqarray_ptr a) {
        return ArgList(std::move(a), charRow(u"dst"));
    };
    expectRefused(call<&relativepath>, arrays(charRow(u"src")), kInvalidAbsolute, {u"src"},
                  asSource);
    expectRefused(call<&relativepath>, arrays(charEmpty()), kInvalidAbsolute, {u""}, asSource);
    expectRefused(call<&relativepath>, arrays(stringArray({2, 1}, {u"/a/b", std::nullopt})),
                  "QUORIN:string:MissingNotSupported", {}, asDestination);
    expectRefused(call<&relativepath>, arrays(missingString()), "QUORIN:string:MissingNotSupported",
                  {}, [](unique_vqarray_ptr a) { return ArgList(std::move(a), charRow(u"/a/b")); });
}

std::vector<bool> valid(const ArgList& args, vqSize rows) {
    return logicalsFrom(call<&pathNameLengthValidation>, args, {rows, 1});
}

fl::ustring units(std::size_t n) { return fl::ustring(n, u'x'); }

TEST_F(PathText, NameLengthLimitIsInclusiveAt4352CodeUnits) {
    const fl::ustring pair = u"\U0001F600";  // two UTF-16 code units
    const std::vector<std::pair<fl::ustring, bool>> table = {
        {u"", true},
        {units(1), true},
        {units(4351), true},
        {units(10000), false},
        // A character outside the Basic Multilingual Plane counts twice (the fault tests
        // hold the exact limit on a real path).
        {units(4351) + pair, false},
        {u"/" + units(4351), true},
    };
    for (const auto& [text, ok] : table) {
        SCOPED_TRACE(text.size());
        EXPECT_EQ(valid(ArgList(charRow(text)), 1), std::vector<bool>{ok});
        EXPECT_EQ(valid(ArgList(stringScalar(text)), 1), std::vector<bool>{ok});
    }
    EXPECT_EQ(valid(ArgList(charEmpty()), 1), std::vector<bool>{true});
}

// Every array becomes one column in linear order; a missing string is valid.
TEST_F(PathText, NameLengthGivesOneColumn) {
    EXPECT_EQ(valid(ArgList(stringArray({1, 3}, {u"/a", units(4353), std::nullopt})), 3),
              (std::vector<bool>{true, false, true}));
    EXPECT_EQ(
        valid(ArgList(stringArray({2, 3}, {u"a", units(5000), u"b", u"c", units(4353), u"d"})), 6),
        (std::vector<bool>{true, false, true, true, false, true}));
    EXPECT_EQ(valid(ArgList(cellArray({2, 2}, arrays(charRow(u"/data"), charRow(units(4353)),
                                                     charEmpty(), charRow(units(4352))))),
                    4),
              (std::vector<bool>{true, false, true, true}));
    EXPECT_TRUE(valid(ArgList(cellArray({0, 0}, {})), 0).empty());
}

TEST_F(PathText, NameLengthRefusalsNameTheInput) {
    expectRefused(call<&pathNameLengthValidation>,
                  arrays(cellRow(charRow(u"/a"), stringScalar(u"/b"))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {u"Input path"});
    expectRefused(call<&pathNameLengthValidation>,
                  arrays(charMatrix({u"abc", u"def"}), doubleScalar(4352)),
                  "QUORIN:string:MustBeCharCellArrayOrString", {u"Input path"});
}

}  // namespace
