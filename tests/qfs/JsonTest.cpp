// The --json encoding of what the value reader cannot write (it checks the rest through
// its own table): other numeric classes, unset fields, text that is not UTF-8, errors.
#include "qfs/Json.hpp"
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

class QfsJsonTest : public LiveArrayTest {};

TEST_F(QfsJsonTest, ValuesTheReaderCannotWrite) {
    auto a = numericArray(vqINT32_CLASS, {1, 2});
    const std::int32_t v[2] = {-7, 2147483647};
    std::memcpy(vqGetData(a.get()), v, sizeof v);
    auto u = numericArray(vqUINT64_CLASS, {1, 1});
    const std::uint64_t big = 18446744073709551615ULL;
    std::memcpy(vqGetData(u.get()), &big, sizeof big);
    auto unset = vqCreateStructArray({1, 1}, {"Empty"});
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    // A byte that is not UTF-8 travels as an escaped code unit; JSON cannot carry it, so
    // it becomes U+FFFD and the rest of the line survives. So does a lone surrogate.
    auto notUtf8 = stringScalar(fl::i18n::to_ustring(std::string("a\xff") + "b"));
    auto lone = charRow(fl::ustring{u'x', char16_t{0xD800}});
    // clang-format off
    struct Row { const vqArray* value; const char* json; };
    const Row rows[] = {
        Row{a.get(), R"({"class":"int32","size":[1,2],"value":[-7,2147483647]})"},
        Row{u.get(), R"({"class":"uint64","size":[1,1],"value":[18446744073709551615]})"},
        Row{unset.get(), R"({"class":"struct","size":[1,1],"fields":["Empty"],"value":[{"Empty":null}]})"},
        Row{none.get(), R"({"class":"struct","size":[0,0],"fields":["Name","Cause"],"value":[]})"},
        Row{notUtf8.get(), "{\"class\":\"string\",\"size\":[1,1],\"value\":[\"a\xef\xbf\xbd" "b\"]}"},
        Row{lone.get(), "{\"class\":\"char\",\"size\":[1,2],\"value\":\"x\xef\xbf\xbd\"}"},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.json);
        std::string out;
        ASSERT_NO_THROW(out = jsonLine(toJson(r.value)));
        EXPECT_EQ(out, r.json);
    }
}

TEST(QfsJsonErrorTest, ArgumentsKeepTheirKinds) {
    const std::vector<resource_core::MessageArg> args{std::int64_t{12}, std::string("8-bit"),
                                                      fl::ustring(u"UTF-16 \u00e9")};
    EXPECT_EQ(jsonLine(qfs::errorJson("QUORIN:x:y", "text", args)),
              "{\"error\":{\"identifier\":\"QUORIN:x:y\",\"message\":\"text\","
              "\"arguments\":[12,\"8-bit\",\"UTF-16 \xc3\xa9\"]}}");
}

}  // namespace
