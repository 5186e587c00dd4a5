// The --json encoding of every class: exact lines, so a change of key order, a number
// written as text or a lost missing element shows.
#include "qfs/Json.hpp"
#include "qfs/Parser.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace zkfs::test;
using qfs::jsonLine;
using qfs::toJson;

std::string line(const std::string& value) {
    return jsonLine(toJson(qfs::parseValue(value).get()));
}

class QfsJsonTest : public LiveArrayTest {};

TEST_F(QfsJsonTest, DoublesWithNaNAndInfinitiesAsStrings) {
    EXPECT_EQ(line("[1.5 NaN; Inf -Inf]"),
              R"({"class":"double","size":[2,2],"value":[1.5,"Inf","NaN","-Inf"]})");
    EXPECT_EQ(line("[]"), R"({"class":"double","size":[0,0],"value":[]})");
    EXPECT_EQ(line("-0.25"), R"({"class":"double","size":[1,1],"value":[-0.25]})");
}

TEST_F(QfsJsonTest, OtherNumericClassesAreIntegers) {
    auto a = numericArray(vqINT32_CLASS, {1, 2});
    const std::int32_t v[2] = {-7, 2147483647};
    std::memcpy(vqGetData(a.get()), v, sizeof v);
    EXPECT_EQ(jsonLine(toJson(a.get())),
              R"({"class":"int32","size":[1,2],"value":[-7,2147483647]})");

    auto u = numericArray(vqUINT64_CLASS, {1, 1});
    const std::uint64_t big = 18446744073709551615ULL;
    std::memcpy(vqGetData(u.get()), &big, sizeof big);
    EXPECT_EQ(jsonLine(toJson(u.get())),
              R"({"class":"uint64","size":[1,1],"value":[18446744073709551615]})");
}

TEST_F(QfsJsonTest, Logicals) {
    EXPECT_EQ(line("[true; false]"), R"({"class":"logical","size":[2,1],"value":[true,false]})");
}

TEST_F(QfsJsonTest, CharIsOneStringInColumnMajorOrder) {
    EXPECT_EQ(line("['ab'; 'cd']"), R"({"class":"char","size":[2,2],"value":"acbd"})");
    EXPECT_EQ(line("''"), R"({"class":"char","size":[0,0],"value":""})");
    EXPECT_EQ(line("'\xc3\xa9'"), "{\"class\":\"char\",\"size\":[1,1],\"value\":\"\xc3\xa9\"}");
}

TEST_F(QfsJsonTest, StringsWithNullForMissing) {
    EXPECT_EQ(line("[\"a\" missing \"\"]"),
              R"({"class":"string","size":[1,3],"value":["a",null,""]})");
    EXPECT_EQ(line("strings(0, 2)"), R"({"class":"string","size":[0,2],"value":[]})");
}

TEST_F(QfsJsonTest, CellsNestValuesAndWriteEmptySlotsAsNull) {
    EXPECT_EQ(line("cell(1, 2)"), R"({"class":"cell","size":[1,2],"value":[null,null]})");
    EXPECT_EQ(
        line("{1; {'x'}}"),
        R"({"class":"cell","size":[2,1],"value":[)"
        R"({"class":"double","size":[1,1],"value":[1.0]},)"
        R"({"class":"cell","size":[1,1],"value":[{"class":"char","size":[1,1],"value":"x"}]}]})");
}

TEST_F(QfsJsonTest, StructArraysListFieldsThenOneObjectPerElement) {
    EXPECT_EQ(line("[struct('Name', \"a\", 'Size', 1); struct('Name', missing, 'Size', NaN)]"),
              R"({"class":"struct","size":[2,1],"fields":["Name","Size"],"value":[)"
              R"({"Name":{"class":"string","size":[1,1],"value":["a"]},)"
              R"("Size":{"class":"double","size":[1,1],"value":[1.0]}},)"
              R"({"Name":{"class":"string","size":[1,1],"value":[null]},)"
              R"("Size":{"class":"double","size":[1,1],"value":["NaN"]}}]})");
    EXPECT_EQ(line("struct()"), R"({"class":"struct","size":[1,1],"fields":[],"value":[{}]})");

    auto empty = vqCreateStructArray({1, 1}, {"Empty"});  // a field never set
    EXPECT_EQ(jsonLine(toJson(empty.get())),
              R"({"class":"struct","size":[1,1],"fields":["Empty"],"value":[{"Empty":null}]})");
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    EXPECT_EQ(jsonLine(toJson(none.get())),
              R"({"class":"struct","size":[0,0],"fields":["Name","Cause"],"value":[]})");
}

TEST_F(QfsJsonTest, ThreeDimensionalSizes) {
    EXPECT_EQ(line("reshape([true false true false], 1, 2, 2)"),
              R"({"class":"logical","size":[1,2,2],"value":[true,false,true,false]})");
    EXPECT_EQ(line("zeros(2, 2, 1)"),
              R"({"class":"double","size":[2,2],"value":[0.0,0.0,0.0,0.0]})");
}

TEST_F(QfsJsonTest, NullValueIsNull) { EXPECT_EQ(jsonLine(toJson(nullptr)), "null"); }

TEST_F(QfsJsonTest, TextThatIsNotUtf8IsReplacedNotThrown) {
    // A file name byte that is not UTF-8 travels as an escaped code unit; JSON cannot carry
    // it, so it becomes U+FFFD and the rest of the line survives.
    auto s =
        stringScalar(fl::i18n::to_ustring("a\xff"
                                          "b"));
    std::string out;
    ASSERT_NO_THROW(out = jsonLine(toJson(s.get())));
    EXPECT_EQ(out,
              "{\"class\":\"string\",\"size\":[1,1],\"value\":[\"a\xef\xbf\xbd"
              "b\"]}");
    auto lone = charRow(fl::ustring{u'x', char16_t{0xD800}});  // unpaired high surrogate
    ASSERT_NO_THROW(out = jsonLine(toJson(lone.get())));
    EXPECT_EQ(out, "{\"class\":\"char\",\"size\":[1,2],\"value\":\"x\xef\xbf\xbd\"}");
}

TEST(QfsJsonErrorTest, ArgumentsKeepTheirKinds) {
    const std::vector<resource_core::MessageArg> args{std::int64_t{12}, std::string("8-bit"),
                                                      fl::ustring(u"UTF-16 \u00e9")};
    EXPECT_EQ(jsonLine(qfs::errorJson("QUORIN:x:y", "text", args)),
              "{\"error\":{\"identifier\":\"QUORIN:x:y\",\"message\":\"text\","
              "\"arguments\":[12,\"8-bit\",\"UTF-16 \xc3\xa9\"]}}");
    EXPECT_EQ(jsonLine(qfs::errorJson("", "plain", {})),
              R"({"error":{"identifier":"","message":"plain","arguments":[]}})");
}

}  // namespace
