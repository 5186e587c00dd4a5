// The parts of the bundled host the frame stands on: dimensions, string payloads, the
// scalar-text test and the UTF-8 round trip.
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace zkfs::test;
namespace hs = Hexfarrow::String;

class HostFoundation : public LiveArrayTest {};

TEST_F(HostFoundation, TrailingSingletonsAreDropped) {
    EXPECT_EQ(dimsOf(vqCreateCharArray({1, 3, 1, 1}).get()), (Dims{1, 3}));
    EXPECT_EQ(dimsOf(vqCreateCharArray({2, 1, 1}).get()), (Dims{2, 1}));
    EXPECT_EQ(dimsOf(vqCreateCharArray({1, 1, 2}).get()), (Dims{1, 1, 2}));
    EXPECT_EQ(dimsOf(vqCreateCellArray({4}).get()), (Dims{4, 1}));
}

TEST_F(HostFoundation, StringPayloadAgreesWithItsArray) {
    for (const Dims& dims : {Dims{2, 3, 1}, Dims{1, 1, 1}, Dims{5}, Dims{0, 2, 1}, Dims{1, 2, 3}}) {
        SCOPED_TRACE(::testing::PrintToString(dims));
        const auto a = hs::createStringArray(dims.size(), dims.data());
        EXPECT_EQ(hs::getString(a.get()).dims(), dimsOf(a.get()));
        EXPECT_EQ(hs::getString(a.get()).numel(), vqGetNumberOfElements(a.get()));
        // Wrapping the same payload again must give the same shape.
        const auto again = hs::createStringArray(hs::make_String(dims.size(), dims.data()));
        EXPECT_EQ(dimsOf(again.get()), dimsOf(a.get()));
        if (vqGetNumberOfElements(a.get()) == 6) {
            const auto reshaped = vqReshape(a.get(), {3, 1, 2});
            EXPECT_EQ(hs::getString(reshaped.get()).dims(), dimsOf(reshaped.get()));
        }
    }
    // New elements are empty, not missing.
    EXPECT_EQ(stringsOf(hs::createStringArray(2, 2).get()),
              (std::vector<StringElement>(4, fl::ustring())));
}

TEST_F(HostFoundation, ScalarTextTest) {
    // clang-format off
    struct Row { const char* name; unique_vqarray_ptr value; bool plain, anyChar, scalarCell; };
    // clang-format on
    Row rows[] = {
        {"char row", charRow(u"ab"), true, true, false},
        {"1x0 char", charRow(u""), true, true, false},
        {"0x0 char", charEmpty(), true, true, false},
        {"2x2 char", charMatrix({u"ab", u"cd"}), false, true, false},
        {"1x2x2 char", charArray({1, 2, 2}, u"abcd"), false, true, false},
        {"string scalar", stringScalar(u"x"), true, true, true},
        {"missing string", missingString(), true, true, true},
        {"1x2 string", stringArray({1, 2}, {u"a", u"b"}), false, false, false},
        {"cell of char row", cellRow(charRow(u"a")), false, false, true},
        {"cell of 2x2 char", cellRow(charMatrix({u"ab", u"cd"})), false, false, false},
        {"1x2 cell", cellRow(charRow(u"a"), charRow(u"b")), false, false, false},
        {"cell with empty slot", cellRow(nullptr), false, false, false},
        {"double", doubleScalar(1), false, false, false},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(hs::isScalarText(r.value.get(), false, false), r.plain);
        EXPECT_EQ(hs::isScalarText(r.value.get(), true, false), r.anyChar);
        EXPECT_EQ(hs::isScalarText(r.value.get(), false, true), r.plain || r.scalarCell);
    }
    EXPECT_FALSE(hs::isScalarText(nullptr, true, true));
}

TEST(Unicode, RoundTripKeepsBytesThatAreNotUtf8) {
    // clang-format off
    const std::string samples[] = {
        "plain", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80",   // valid 2-, 3- and 4-byte forms
        "\xff\xfe", "a\x80z", "\xc0\xaf",                  // stray bytes, an overlong '/'
        "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe2\x82",    // a surrogate, above U+10FFFF, cut short
        std::string("nul\0in", 6)};
    // clang-format on
    for (const auto& s : samples) {
        SCOPED_TRACE(::testing::PrintToString(s));
        EXPECT_EQ(fl::i18n::to_utf8(fl::i18n::to_ustring(s)), s);
    }
    EXPECT_EQ(fl::i18n::to_ustring("a\xff"), fl::ustring(u"a\xDCFF"));
    EXPECT_EQ(fl::i18n::to_ustring("\xf0\x9f\x98\x80"), fl::ustring(u"\U0001F600"));
    // A lone surrogate that is not an escaped byte cannot be written as UTF-8.
    EXPECT_EQ(fl::i18n::to_utf8(u"\xD800x"), "\xef\xbf\xbdx");
}

}  // namespace
