// Text arguments through small gateways of our own: the scalar reader in both readings,
// and the many-text walk with its two errors.
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/unicode.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

namespace {

using namespace zkfs::test;
using quorin::gateway::CellErrorArgument;

// One text in, the same text out as a char row (0x0 when empty).
template <bool RequireRow>
void echoScalarFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                   const vqArray* const* args) {
    quorin::gateway::checkCounts(outCount, argCount, 1, 1, 1);
    auto result = vqCreateString(quorin::gateway::convertScalarText(args[0], RequireRow));
    quorin::gateway::handOver(outputs, 0, std::move(result));
}

// Many texts in, a string array of the same texts out (missing stays missing). The result
// is built before the walk and handed over only after it, as every built-in does.
template <CellErrorArgument CellError>
void echoManyFcn(int outCount, unique_vqarray_ptr* outputs, int argCount,
                 const vqArray* const* args) {
    quorin::gateway::checkCounts(outCount, argCount, 1, 1, 1);
    const auto dims = quorin::gateway::textResultDims(args[0]);
    auto result = Hexfarrow::String::createStringArray(dims.size(), dims.data());
    auto& strings = Hexfarrow::String::getMutableString(result.get());
    quorin::gateway::forEachText(
        args[0],
        [&](std::size_t i, std::optional<fl::ustring_view> text) {
            if (text) {
                strings.set(i, fl::ustring(*text));
            } else {
                strings.setMissing(i);
            }
        },
        CellError);
    quorin::gateway::handOver(outputs, 0, std::move(result));
}

fl::ustring englishInputName() {
    const auto text = fl::i18n::MessageCatalog::find_text("QUORIN:FileUtils:inputPath", "en");
    return text ? fl::i18n::to_ustring(*text) : fl::ustring();
}

constexpr const char* kNotScalar = "QUORIN:string:MustBeStringScalarOrCharacterVector";
constexpr const char* kMissing = "QUORIN:string:MissingNotSupported";
constexpr const char* kBadCell = "QUORIN:string:MustBeCellArrayOfStrings";
constexpr const char* kNotText = "QUORIN:string:MustBeCharCellArrayOrString";

// An expected outcome: the text, or the identifier of the refusal.
struct Outcome {
    std::optional<fl::ustring> text;
    const char* error = nullptr;
};
Outcome text(fl::ustring t) { return {std::move(t), nullptr}; }
Outcome refused(const char* id) { return {std::nullopt, id}; }

struct ScalarRow {
    const char* name;
    std::function<unique_vqarray_ptr()> make;  // null result: a null argument
    Outcome strict;
    Outcome lenient;
};

const std::vector<ScalarRow>& scalarRows() {
    static const std::vector<ScalarRow> rows = {
        {"1x3 char", [] { return charRow(u"abc"); }, text(u"abc"), text(u"abc")},
        {"1x0 char", [] { return charRow(u""); }, text(u""), text(u"")},
        {"0x0 char", [] { return charEmpty(); }, text(u""), text(u"")},
        {"0x3 char", [] { return charArray({0, 3}, u""); }, refused(kNotScalar), text(u"")},
        {"3x0 char", [] { return charArray({3, 0}, u""); }, refused(kNotScalar), text(u"")},
        {"2x3 char", [] { return charMatrix({u"abc", u"def"}); }, refused(kNotScalar),
         text(u"adbecf")},
        {"3x1 char", [] { return charArray({3, 1}, u"xyz"); }, refused(kNotScalar), text(u"xyz")},
        {"1x2x2 char", [] { return charArray({1, 2, 2}, u"wxyz"); }, refused(kNotScalar),
         text(u"wxyz")},
        {"1x1x1 char", [] { return charArray({1, 1, 1}, u"q"); }, text(u"q"), text(u"q")},
        {"embedded NUL", [] { return charRow(fl::ustring(u"a\0b", 3)); },
         text(fl::ustring(u"a\0b", 3)), text(fl::ustring(u"a\0b", 3))},
        {"surrogate pair and escaped byte", [] { return charRow(u"\U0001F600\xDC80 "); },
         text(u"\U0001F600\xDC80 "), text(u"\U0001F600\xDC80 ")},
        {"string scalar", [] { return stringScalar(u" a b "); }, text(u" a b "), text(u" a b ")},
        {"empty string scalar", [] { return stringScalar(u""); }, text(u""), text(u"")},
        {"string scalar with NUL", [] { return stringScalar(fl::ustring(u"\0", 1)); },
         text(fl::ustring(u"\0", 1)), text(fl::ustring(u"\0", 1))},
        {"missing string scalar", [] { return missingString(); }, refused(kMissing),
         refused(kMissing)},
        {"1x2 string", [] { return stringArray({1, 2}, {u"a", u"b"}); }, refused(kNotScalar),
         refused(kNotScalar)},
        {"1x2 string, one missing", [] { return stringArray({1, 2}, {std::nullopt, u"b"}); },
         refused(kNotScalar), refused(kNotScalar)},
        {"0x0 string", [] { return stringArray({0, 0}, {}); }, refused(kNotScalar),
         refused(kNotScalar)},
        {"null argument", [] { return unique_vqarray_ptr(); }, refused(kNotScalar),
         refused(kNotScalar)},
        {"double", [] { return doubleScalar(1); }, refused(kNotScalar), refused(kNotScalar)},
        {"uint16", [] { return numericArray(vqUINT16_CLASS, {1, 3}); }, refused(kNotScalar),
         refused(kNotScalar)},
        {"logical", [] { return logicalScalar(true); }, refused(kNotScalar), refused(kNotScalar)},
        {"1x1 cell of char", [] { return cellRow(charRow(u"a")); }, refused(kNotScalar),
         refused(kNotScalar)},
        {"struct", [] { return structScalar(field("A", charRow(u"a"))); }, refused(kNotScalar),
         refused(kNotScalar)},
    };
    return rows;
}

void expectOutcome(GatewayFunction* gateway, const ScalarRow& row, const Outcome& expected) {
    ArgList args;
    if (auto a = row.make()) {
        args.add(std::move(a));
    } else {
        args.add(nullptr);
    }
    LiveArrayGuard guard;
    OutputSlots out;
    if (expected.error != nullptr) {
        EXPECT_IDENTIFIED_ERROR(gateway(1, out.data(), args.count(), args.data()), expected.error);
        EXPECT_EQ(out[0], nullptr);
    } else {
        gateway(1, out.data(), args.count(), args.data());
        ASSERT_NE(out[0], nullptr);
        EXPECT_EQ(charsOf(out[0]), *expected.text);
    }
}

class ScalarText : public LiveArrayTest {};

TEST_F(ScalarText, StrictReading) {
    for (const auto& row : scalarRows()) {
        SCOPED_TRACE(row.name);
        expectOutcome(&echoScalarFcn<true>, row, row.strict);
    }
}

TEST_F(ScalarText, LenientReading) {
    for (const auto& row : scalarRows()) {
        SCOPED_TRACE(row.name);
        expectOutcome(&echoScalarFcn<false>, row, row.lenient);
    }
}

TEST_F(ScalarText, ViewBorrowsTheArgumentsStorage) {
    const auto c = charRow(u"abc");
    const auto v = quorin::gateway::readScalarText(c.get(), true);
    EXPECT_EQ(v.data, vqGetChars(c.get()));
    EXPECT_EQ(v.size, 3U);
    const auto s = stringScalar(u"xy");
    const auto w = quorin::gateway::readScalarText(s.get(), true);
    EXPECT_EQ(w.data, Hexfarrow::String::getString(s.get()).get(0)->text);
    EXPECT_EQ(w.view(), u"xy");
}

TEST_F(ScalarText, ConverterRefusesANullViewWithLength) {
    try {
        (void)quorin::gateway::toUstring({nullptr, 2});
        ADD_FAILURE() << "no exception";
    } catch (const std::logic_error& e) {
        EXPECT_STREQ(e.what(), "basic_string: construction from null is not valid");
    }
    EXPECT_EQ(quorin::gateway::toUstring({nullptr, 0}), u"");
}

// --- many texts ------------------------------------------------------------------------

class ManyTexts : public LiveArrayTest {
protected:
    template <CellErrorArgument E = CellErrorArgument::InputName>
    unique_vqarray_ptr echo(unique_vqarray_ptr arg) {
        ArgList args(std::move(arg));
        OutputSlots out;
        echoManyFcn<E>(1, out.data(), args.count(), args.data());
        return std::move(out.slot(0));
    }
};

TEST_F(ManyTexts, StringArraysKeepShapeAndMissingElements) {
    const auto r = echo(stringArray({2, 2}, {u"a", std::nullopt, u"", u"d"}));
    EXPECT_EQ(dimsOf(r.get()), (Dims{2, 2}));
    EXPECT_EQ(stringsOf(r.get()), (std::vector<StringElement>{u"a", std::nullopt, u"", u"d"}));
    EXPECT_EQ(dimsOf(echo(stringArray({1, 2, 2}, {u"1", u"2", u"3", u"4"})).get()),
              (Dims{1, 2, 2}));
    EXPECT_EQ(dimsOf(echo(stringArray({0, 3}, {})).get()), (Dims{0, 3}));
    EXPECT_EQ(stringsOf(echo(missingString()).get()), (std::vector<StringElement>{std::nullopt}));
}

TEST_F(ManyTexts, CharIsOneText) {
    for (auto make : {+[] { return charRow(u"abc"); }, +[] { return charRow(u""); },
                      +[] { return charEmpty(); }}) {
        const auto arg = make();
        const fl::ustring expected = charsOf(arg.get());
        const auto r = echo(make());
        EXPECT_EQ(dimsOf(r.get()), (Dims{1, 1}));
        EXPECT_EQ(stringsOf(r.get()), (std::vector<StringElement>{expected}));
    }
}

TEST_F(ManyTexts, CellsOfCharRows) {
    std::vector<unique_vqarray_ptr> e;
    e.push_back(charRow(u"a"));
    e.push_back(charEmpty());
    e.push_back(charRow(u""));
    e.push_back(charRow(fl::ustring(u"\0z", 2)));
    const auto r = echo(cellArray({2, 2}, std::move(e)));
    EXPECT_EQ(dimsOf(r.get()), (Dims{2, 2}));
    EXPECT_EQ(stringsOf(r.get()),
              (std::vector<StringElement>{u"a", u"", u"", fl::ustring(u"\0z", 2)}));
    EXPECT_EQ(dimsOf(echo(vqCreateCellArray({0, 0})).get()), (Dims{0, 0}));
}

struct BadElement {
    const char* name;
    unique_vqarray_ptr (*make)();
};

const BadElement kBadElements[] = {
    {"empty slot", [] { return unique_vqarray_ptr(); }},
    {"double", [] { return doubleScalar(1); }},
    {"string scalar", [] { return stringScalar(u"s"); }},
    {"missing string", [] { return missingString(); }},
    {"2x3 char", [] { return charMatrix({u"abc", u"def"}); }},
    {"0x3 char", [] { return charArray({0, 3}, u""); }},
    {"3x1 char", [] { return charArray({3, 1}, u"abc"); }},
    {"1x2x2 char", [] { return charArray({1, 2, 2}, u"abcd"); }},
    {"nested cell", [] { return cellRow(charRow(u"a")); }},
    {"struct", [] { return structScalar(field("A", nullptr)); }},
};

// A 1x4 cell whose element k is bad and the others good.
unique_vqarray_ptr cellWithBadAt(std::size_t k, const BadElement& bad) {
    std::vector<unique_vqarray_ptr> e;
    for (std::size_t i = 0; i < 4; ++i) e.push_back(i == k ? bad.make() : charRow(u"ok"));
    return cellArray({1, 4}, std::move(e));
}

TEST_F(ManyTexts, BadCellElementNamesTheInput) {
    const fl::ustring name = englishInputName();
    ASSERT_FALSE(name.empty());
    for (const auto& bad : kBadElements) {
        for (std::size_t k : {0U, 2U, 3U}) {
            SCOPED_TRACE(std::string(bad.name) + " at " + std::to_string(k));
            ArgList args(cellWithBadAt(k, bad));
            LiveArrayGuard guard;
            OutputSlots out;
            EXPECT_IDENTIFIED_ERROR(echoManyFcn<CellErrorArgument::InputName>(
                                        1, out.data(), args.count(), args.data()),
                                    kBadCell, name);
            EXPECT_EQ(out[0], nullptr);
        }
    }
}

TEST_F(ManyTexts, BadCellElementGivesItsIndex) {
    for (const auto& bad : kBadElements) {
        for (std::size_t k : {0U, 2U, 3U}) {
            SCOPED_TRACE(std::string(bad.name) + " at " + std::to_string(k));
            ArgList args(cellWithBadAt(k, bad));
            LiveArrayGuard guard;
            OutputSlots out;
            EXPECT_IDENTIFIED_ERROR(echoManyFcn<CellErrorArgument::ElementIndex>(
                                        1, out.data(), args.count(), args.data()),
                                    kBadCell, std::to_string(k));
            EXPECT_EQ(out[0], nullptr);
        }
    }
    // Linear order in a matrix: element (2,3) of a 3x4 cell is index 7.
    std::vector<unique_vqarray_ptr> e;
    for (std::size_t i = 0; i < 12; ++i) e.push_back(i == 7 ? doubleScalar(0) : charRow(u"x"));
    ArgList args(cellArray({3, 4}, std::move(e)));
    OutputSlots out;
    EXPECT_IDENTIFIED_ERROR(
        echoManyFcn<CellErrorArgument::ElementIndex>(1, out.data(), args.count(), args.data()),
        kBadCell, "7");
}

TEST_F(ManyTexts, WalkStopsAtTheBadElement) {
    const auto arg = cellWithBadAt(2, kBadElements[1]);
    std::vector<std::size_t> seen;
    EXPECT_IDENTIFIED_ERROR(
        quorin::gateway::forEachText(arg.get(), [&](std::size_t i, auto) { seen.push_back(i); }),
        kBadCell, englishInputName());
    EXPECT_EQ(seen, (std::vector<std::size_t>{0, 1}));
}

TEST_F(ManyTexts, OtherKindsBecomeTheNotTextReplacement) {
    const fl::ustring name = englishInputName();
    const std::vector<std::pair<const char*, unique_vqarray_ptr (*)()>> kinds = {
        {"null argument", [] { return unique_vqarray_ptr(); }},
        {"double", [] { return doubleScalar(1); }},
        {"int8 row", [] { return numericArray(vqINT8_CLASS, {1, 3}); }},
        {"logical", [] { return logicalScalar(false); }},
        {"sparse logical", [] { return sparse(logicalScalar(true)); }},
        {"struct", [] { return structScalar(field("A", charRow(u"a"))); }},
        {"2x3 char", [] { return charMatrix({u"abc", u"def"}); }},
        {"0x3 char", [] { return charArray({0, 3}, u""); }},
        {"3x1 char", [] { return charArray({3, 1}, u"abc"); }},
        {"1x2x2 char", [] { return charArray({1, 2, 2}, u"abcd"); }},
    };
    for (const auto& [kind, make] : kinds) {
        SCOPED_TRACE(kind);
        for (auto* gateway : {&echoManyFcn<CellErrorArgument::InputName>,
                              &echoManyFcn<CellErrorArgument::ElementIndex>}) {
            ArgList args;
            if (auto a = make()) args.add(std::move(a)); else args.add(nullptr);
            LiveArrayGuard guard;
            OutputSlots out;
            EXPECT_IDENTIFIED_ERROR(gateway(1, out.data(), args.count(), args.data()), kNotText,
                                    name);
            EXPECT_EQ(out[0], nullptr);
        }
    }
}

TEST_F(ManyTexts, OtherExceptionsPassUnchanged) {
    const auto arg = stringArray({1, 2}, {u"a", u"b"});
    EXPECT_THROW(quorin::gateway::forEachText(
                     arg.get(), [](std::size_t, auto) { throw std::runtime_error("visitor"); }),
                 std::runtime_error);
}

TEST_F(ManyTexts, ElementCountAndResultShape) {
    EXPECT_EQ(quorin::gateway::textElementCount(charEmpty().get()), 1U);
    EXPECT_EQ(quorin::gateway::textElementCount(vqCreateCellArray({2, 0}).get()), 0U);
    EXPECT_EQ(quorin::gateway::textResultDims(charRow(u"abc").get()), (Dims{1, 1}));
    EXPECT_EQ(quorin::gateway::textResultDims(vqCreateCellArray({2, 0}).get()), (Dims{2, 0}));
    EXPECT_IDENTIFIED_ERROR((void)quorin::gateway::textElementCount(doubleScalar(1).get()),
                            kNotText, englishInputName());
}

}  // namespace
