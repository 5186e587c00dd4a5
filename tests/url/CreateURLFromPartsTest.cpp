// createURLFromPartsFcn: a base and a reference joined by RFC 3986 section 5; any failure
// answers the untouched 1x1 string array instead of an error.
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

class CreateURLFromParts : public LiveArrayTest {};

// What the host puts in a fresh 1x1 string array: the empty text, not missing.
const std::vector<StringElement> kUntouched{fl::ustring()};

std::vector<StringElement> joined(unique_vqarray_ptr base, unique_vqarray_ptr relative) {
    unique_vqarray_ptr result =
        callForResult(createURLFromPartsFcn, ArgList(std::move(base), std::move(relative)));
    EXPECT_NE(result, nullptr);
    if (result == nullptr) return {};
    EXPECT_TRUE(vqGetClassID(result.get()) == vqSTRING_CLASS);
    EXPECT_EQ(dimsOf(result.get()), (Dims{1, 1}));
    return stringsOf(result.get());
}

std::vector<StringElement> joined(fl::ustring base, fl::ustring relative) {
    return joined(stringScalar(base), charRow(relative));
}

// RFC 3986 section 5.4, normal and abnormal examples.
TEST_F(CreateURLFromParts, ResolutionExamples) {
    const fl::ustring base = u"http://a/b/c/d;p?q";
    const std::vector<std::pair<fl::ustring, fl::ustring>> table = {
        {u"g:h", u"g:h"},
        {u"g", u"http://a/b/c/g"},
        {u"./g", u"http://a/b/c/g"},
        {u"g/", u"http://a/b/c/g/"},
        {u"/g", u"http://a/g"},
        {u"//g", u"http://g"},
        {u"?y", u"http://a/b/c/d;p?y"},
        {u"g?y", u"http://a/b/c/g?y"},
        {u"#s", u"http://a/b/c/d;p?q#s"},
        {u"g#s", u"http://a/b/c/g#s"},
        {u"", u"http://a/b/c/d;p?q"},
        {u".", u"http://a/b/c/"},
        {u"..", u"http://a/b/"},
        {u"../g", u"http://a/b/g"},
        {u"../../g", u"http://a/g"},
        {u"../../../g", u"http://a/g"},
        {u"/./g", u"http://a/g"},
        {u"g.", u"http://a/b/c/g."},
        {u"./../g", u"http://a/b/g"},
        {u"g;x=1/../y", u"http://a/b/c/y"},
    };
    for (const auto& [relative, expected] : table) {
        SCOPED_TRACE(fl::i18n::to_utf8(relative));
        EXPECT_EQ(joined(base, relative), std::vector<StringElement>{expected});
    }
}

TEST_F(CreateURLFromParts, RealisticDatasetLink) {
    EXPECT_EQ(
        joined(u"https://data.example.org/v1/datasets/", u"../files/summary.parquet?rev=3#top"),
        std::vector<StringElement>{u"https://data.example.org/v1/files/summary.parquet?rev=3#top"});
}

TEST_F(CreateURLFromParts, TextIsPercentEncoded) {
    EXPECT_EQ(
        joined(u"https://h/d\u00e9p\u00f4t/", u"r\u00e9sum\u00e9 final.pdf"),
        std::vector<StringElement>{u"https://h/d%C3%A9p%C3%B4t/r%C3%A9sum%C3%A9%20final.pdf"});
}

TEST_F(CreateURLFromParts, LocalAbsolutePathBaseIsItsFileURL) {
    EXPECT_EQ(joined(u"/data/raw/", u"x.csv"),
              std::vector<StringElement>{u"file:///data/raw/x.csv"});
}

TEST_F(CreateURLFromParts, EveryTextFormIsAccepted) {
    EXPECT_EQ(joined(charRow(u"http://a/b/"), stringScalar(u"c")),
              std::vector<StringElement>{u"http://a/b/c"});
    EXPECT_EQ(joined(charRow(u"http://a/b/"), charEmpty()),
              std::vector<StringElement>{u"http://a/b/"});
    EXPECT_EQ(joined(stringScalar(u"http://a/b/"), stringScalar(u"c")),
              std::vector<StringElement>{u"http://a/b/c"});
}

TEST_F(CreateURLFromParts, MissingBaseAnswersUntouchedWithoutLookingAtTheReference) {
    EXPECT_EQ(joined(missingString(), doubleScalar(7)), kUntouched);
    EXPECT_EQ(joined(missingString(), charRow(u"g")), kUntouched);
}

TEST_F(CreateURLFromParts, EveryFailureAnswersUntouched) {
    struct Row {
        const char* what;
        unique_vqarray_ptr base;
        unique_vqarray_ptr relative;
    };
    std::vector<Row> rows;
    rows.push_back({"numeric base", doubleScalar(1), charRow(u"g")});
    rows.push_back({"numeric reference", charRow(u"http://a/"), doubleScalar(1)});
    rows.push_back({"missing reference", charRow(u"http://a/"), missingString()});
    rows.push_back(
        {"1x2 string base", stringArray({1, 2}, {u"http://a/", u"http://b/"}), charRow(u"g")});
    rows.push_back({"cell base", cellRow(charRow(u"http://a/")), charRow(u"g")});
    rows.push_back({"2x2 char reference", charRow(u"http://a/"), charMatrix({u"ab", u"cd"})});
    rows.push_back({"relative base", charRow(u"data/raw"), charRow(u"g")});
    rows.push_back({"empty base", charEmpty(), charRow(u"g")});
    rows.push_back({"malformed base", charRow(u"http://[bad/"), charRow(u"g")});
    rows.push_back({"malformed reference", charRow(u"http://a/"), charRow(u"http://[bad/")});
    for (auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(joined(std::move(row.base), std::move(row.relative)), kUntouched);
    }
}

TEST_F(CreateURLFromParts, ResultFillsTheFirstSlotWhenNoOutputIsAskedFor) {
    OutputSlots out;
    callGateway(createURLFromPartsFcn, 0, out, ArgList(charRow(u"http://a/b/"), charRow(u"c")));
    ASSERT_NE(out[0], nullptr);
    EXPECT_EQ(stringsOf(out[0]), std::vector<StringElement>{u"http://a/b/c"});
}

TEST_F(CreateURLFromParts, OnlyTheCountErrorsLeave) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(
        callGateway(createURLFromPartsFcn, 2, out, ArgList(charRow(u"http://a/"), charRow(u"g"))),
        "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        callGateway(createURLFromPartsFcn, 1, out, ArgList(charRow(u"http://a/"))),
        "QUORIN:NotEnoughInputs");
    EXPECT_IDENTIFIED_ERROR(
        callGateway(createURLFromPartsFcn, 1, out,
                    ArgList(charRow(u"http://a/"), charRow(u"g"), charRow(u"h"))),
        "QUORIN:TooManyInputs");
    EXPECT_EQ(out[0], nullptr);
}

}  // namespace
