// relativepath: destinations expressed relative to one source folder, in the
// destination's shape.
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

class RelativePath : public LiveArrayTest {};

std::vector<StringElement> related(unique_vqarray_ptr source, unique_vqarray_ptr destination,
                                   const Dims& expectedDims) {
    unique_vqarray_ptr result =
        callForResult(relativepath, ArgList(std::move(source), std::move(destination)));
    EXPECT_NE(result, nullptr);
    if (result == nullptr) return {};
    EXPECT_TRUE(vqGetClassID(result.get()) == vqSTRING_CLASS);
    EXPECT_EQ(dimsOf(result.get()), expectedDims);
    return stringsOf(result.get());
}

fl::ustring relate(const fl::ustring& source, const fl::ustring& destination) {
    return related(charRow(source), charRow(destination), {1, 1}).at(0).value_or(u"<missing>");
}

TEST_F(RelativePath, Table) {
    struct Row {
        fl::ustring source;
        fl::ustring destination;
        fl::ustring relative;
    };
    const std::vector<Row> table = {
        {u"/a/b", u"/a/b", u"."},
        {u"/a/b", u"/a/b/c/d.txt", u"c/d.txt"},
        {u"/a/b/", u"/a/b/c", u"c"},
        {u"/a/b", u"/a/x", u"../x"},
        {u"/a/b/c", u"/x/y", u"../../../x/y"},
        {u"/", u"/etc/hosts", u"etc/hosts"},
        {u"/a/./b//c/..", u"/a/b/d", u"d"},
        {u"/proj/src", u"/proj/data/caf\u00e9.csv", u"../data/caf\u00e9.csv"},
        {u"https://h/a/b", u"https://h/a/c/d", u"../c/d"},
        {u"https://h/a/", u"https://h/a/x.csv?rev=3#top", u"x.csv?rev=3#top"},
        // No common root: the destination is kept as given.
        {u"/a/b", u"https://h/a/b", u"https://h/a/b"},
        {u"https://h/a", u"/a/b", u"/a/b"},
        {u"https://h/a", u"https://other/a", u"https://other/a"},
        {u"https://h/a", u"s3://h/a", u"s3://h/a"},
    };
    for (const Row& row : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(row.source + u" -> " + row.destination));
        EXPECT_EQ(relate(row.source, row.destination), row.relative);
    }
}

TEST_F(RelativePath, EverySourceFormIsRead) {
    const std::vector<StringElement> expected{u"c"};
    EXPECT_EQ(related(charRow(u"/a/b"), charRow(u"/a/b/c"), {1, 1}), expected);
    EXPECT_EQ(related(stringScalar(u"/a/b"), charRow(u"/a/b/c"), {1, 1}), expected);
    EXPECT_EQ(related(cellRow(charRow(u"/a/b")), charRow(u"/a/b/c"), {1, 1}), expected);
}

TEST_F(RelativePath, EveryDestinationFormIsRead) {
    for (int s = 0; s < 3; ++s) {
        SCOPED_TRACE(s);
        auto source = [s] {
            return s == 0 ? charRow(u"/p") : s == 1 ? stringScalar(u"/p") : cellRow(charRow(u"/p"));
        };
        EXPECT_EQ(related(source(), charRow(u"/p/q"), {1, 1}), std::vector<StringElement>{u"q"});
        EXPECT_EQ(related(source(), stringScalar(u"/p/q"), {1, 1}),
                  std::vector<StringElement>{u"q"});
        EXPECT_EQ(related(source(), cellRow(charRow(u"/p/q"), charRow(u"/r")), {1, 2}),
                  (std::vector<StringElement>{u"q", u"../r"}));
        EXPECT_EQ(related(source(), stringArray({2, 2}, {u"/p/a", u"/p", u"/", u"/p/b/c"}), {2, 2}),
                  (std::vector<StringElement>{u"a", u".", u"..", u"b/c"}));
    }
}

TEST_F(RelativePath, EmptyDestinationsGiveEmptyResultsOfTheirShape) {
    EXPECT_TRUE(related(charRow(u"/a"), cellArray({0, 0}, {}), {0, 0}).empty());
    EXPECT_TRUE(related(charRow(u"/a"), cellArray({1, 0}, {}), {1, 0}).empty());
    EXPECT_TRUE(related(charRow(u"/a"), stringArray({0, 3}, {}), {0, 3}).empty());
}

TEST_F(RelativePath, SourceIsJudgedFirst) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("double", doubleScalar(1));
    rows.emplace_back("1x2 string", stringArray({1, 2}, {u"/a", u"/b"}));
    rows.emplace_back("2x3 char", charMatrix({u"/ab", u"/cd"}));
    rows.emplace_back("1x2 cell", cellRow(charRow(u"/a"), charRow(u"/b")));
    rows.emplace_back("cell of a string", cellRow(stringScalar(u"/a")));
    rows.emplace_back("struct", structScalar(field("Path", charRow(u"/a"))));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        // The destination is bad too: the source's error must win.
        ArgList args(std::move(arg), doubleScalar(2));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:io:filesystem:relativepath:InvalidSourcePathType");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(RelativePath, BadDestinationKinds) {
    std::vector<std::pair<const char*, unique_vqarray_ptr>> rows;
    rows.emplace_back("double", doubleScalar(1));
    rows.emplace_back("logical", logicalScalar(true));
    rows.emplace_back("2x3 char", charMatrix({u"/ab", u"/cd"}));
    rows.emplace_back("cell holding a string", cellRow(charRow(u"/a"), stringScalar(u"/b")));
    rows.emplace_back("cell holding a number", cellRow(doubleScalar(1)));
    rows.emplace_back("cell with an empty slot", cellArray({1, 2}, [] {
                          std::vector<unique_vqarray_ptr> v;
                          v.push_back(charRow(u"/a"));
                          v.push_back(nullptr);
                          return v;
                      }()));
    rows.emplace_back("struct", structScalar(field("Path", charRow(u"/a"))));
    for (auto& [what, arg] : rows) {
        SCOPED_TRACE(what);
        OutputSlots out;
        ArgList args(charRow(u"/a"), std::move(arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:io:filesystem:relativepath:InvalidDestinationPathType");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(RelativePath, InvalidLocationStopsTheWalkAndNamesTheText) {
    {
        OutputSlots out;
        ArgList args(charRow(u"/a"), stringArray({1, 3}, {u"/a/b", u"data/x.csv", u"/c"}));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:io:filesystem:relativepath:InvalidAbsolutePath",
                                u"data/x.csv");
        EXPECT_EQ(out[0], nullptr);
    }
    {
        // The core looks at the source first.
        OutputSlots out;
        ArgList args(charRow(u"src"), charRow(u"dst"));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:io:filesystem:relativepath:InvalidAbsolutePath", u"src");
    }
    {
        OutputSlots out;
        ArgList args(charEmpty(), charRow(u"/a"));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:io:filesystem:relativepath:InvalidAbsolutePath", u"");
    }
}

TEST_F(RelativePath, MissingStringsAreRefused) {
    {
        OutputSlots out;
        ArgList args(charRow(u"/a"), stringArray({2, 1}, {u"/a/b", std::nullopt}));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:string:MissingNotSupported");
        EXPECT_EQ(out[0], nullptr);
    }
    {
        OutputSlots out;
        ArgList args(missingString(), charRow(u"/a/b"));
        EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, args),
                                "QUORIN:string:MissingNotSupported");
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(RelativePath, CountsAreCheckedBeforeAnyType) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(
        callGateway(relativepath, 2, out, ArgList(doubleScalar(1), doubleScalar(2))),
        "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out, ArgList(doubleScalar(1))),
                            "QUORIN:NotEnoughInputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(relativepath, 1, out,
                                        ArgList(doubleScalar(1), doubleScalar(2), doubleScalar(3))),
                            "QUORIN:TooManyInputs");
    EXPECT_EQ(out[0], nullptr);
}

}  // namespace
