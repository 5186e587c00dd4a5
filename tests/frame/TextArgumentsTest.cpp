// Text arguments through small gateways of our own: the scalar reader in both readings,
// and the many-text walk with its two errors.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

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

// The lenient reading differs only where given.
struct ScalarRow {
    const char* name;
    std::function<unique_vqarray_ptr()> make;  // null result: a null argument
    Outcome strict;
    std::optional<Outcome> lenient = std::nullopt;
};

const std::vector<ScalarRow>& scalarRows() {
    const fl::ustring nul(u"a\0b", 3);
    // clang-format off
    static const std::vector<ScalarRow> rows = {
        {"1x3 char", [] { return charRow(u"abc"); }, text(u"abc")},
        {"1x0 char", [] { return charRow(u""); }, text(u"")},
        {"0x0 char", [] { return charEmpty(); }, text(u"")},
        {"0x3 char", [] { return charArray({0, 3}, u""); }, refused(kNotScalar), text(u"")},
        {"3x0 char", [] { return charArray({3, 0}, u""); }, refused(kNotScalar), text(u"")},
        {"2x3 char", [] { return charMatrix({u"abc", u"def"}); }, refused(kNotScalar), text(u"adbecf")},
        {"3x1 char", [] { return charArray({3, 1}, u"xyz"); }, refused(kNotScalar), text(u"xyz")},
        {"1x2x2 char", [] { return charArray({1, 2, 2}, u"wxyz"); }, refused(kNotScalar), text(u"wxyz")},
        {"1x1x1 char", [] { return charArray({1, 1, 1}, u"q"); }, text(u"q")},
        {"embedded NUL", [nul] { return charRow(nul); }, text(nul)},
        {"surrogate pair, escaped byte", [] { return charRow(u"\U0001F600\xDC80 "); }, text(u"\U0001F600\xDC80 ")},
        {"string scalar", [] { return stringScalar(u" a b "); }, text(u" a b ")},
        {"empty string scalar", [] { return stringScalar(u""); }, text(u"")},
        {"string scalar with NUL", [nul] { return stringScalar(nul); }, text(nul)},
        {"missing string scalar", [] { return missingString(); }, refused(kMissing)},
        {"1x2 string", [] { return stringArray({1, 2}, {u"a", u"b"}); }, refused(kNotScalar)},
        {"1x2 string, one missing", [] { return stringArray({1, 2}, {std::nullopt, u"b"}); }, refused(kNotScalar)},
        {"0x0 string", [] { return stringArray({0, 0}, {}); }, refused(kNotScalar)},
        {"null argument", [] { return unique_vqarray_ptr(); }, refused(kNotScalar)},
        {"double", [] { return doubleScalar(1); }, refused(kNotScalar)},
        {"uint16", [] { return numericArray(vqUINT16_CLASS, {1, 3}); }, refused(kNotScalar)},
        {"logical", [] { return logicalScalar(true); }, refused(kNotScalar)},
        {"1x1 cell of char", [] { return cellRow(charRow(u"a")); }, refused(kNotScalar)},
        {"struct", [] { return structScalar(field("A", charRow(u"a"))); }, refused(kNotScalar)},
    };
    // clang-format on
    return rows;
}

void expectOutcome(GatewayFunction* gateway, const ScalarRow& row, const Outcome& expected) {
    ArgList args(row.make());
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

TEST_F(ScalarText, StrictAndLenientReadings) {
    for (const auto& row : scalarRows()) {
        SCOPED_TRACE(row.name);
        expectOutcome(&echoScalarFcn<true>, row, row.strict);
        expectOutcome(&echoScalarFcn<false>, row, row.lenient.value_or(row.strict));
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
    // A null view with a length is refused, never read.
    EXPECT_THROW((void)quorin::gateway::toUstring({nullptr, 2}), std::logic_error);
    EXPECT_EQ(quorin::gateway::toUstring({nullptr, 0}), u"");
}

// --- many texts ------------------------------------------------------------------------

class ManyTexts : public LiveArrayTest {};

TEST_F(ManyTexts, ShapeAndMissingElementsAreKept) {
    using Strings = std::vector<StringElement>;
    const fl::ustring nul(u"\0z", 2);
    const auto cellOfRows = [&] {
        std::vector<unique_vqarray_ptr> e;
        e.push_back(charRow(u"a"));
        e.push_back(charEmpty());
        e.push_back(charRow(u""));
        e.push_back(charRow(nul));
        return cellArray({2, 2}, std::move(e));
    };
    struct Row {
        const char* name;
        std::function<unique_vqarray_ptr()> make;
        Dims dims;
        Strings texts;
    };
    // clang-format off
    const Row rows[] = {
        {"2x2 string", [] { return stringArray({2, 2}, {u"a", std::nullopt, u"", u"d"}); }, {2, 2}, {u"a", std::nullopt, u"", u"d"}},
        {"1x2x2 string", [] { return stringArray({1, 2, 2}, {u"1", u"2", u"3", u"4"}); }, {1, 2, 2}, {u"1", u"2", u"3", u"4"}},
        {"0x3 string", [] { return stringArray({0, 3}, {}); }, {0, 3}, {}},
        {"missing string", [] { return missingString(); }, {1, 1}, {std::nullopt}},
        {"char row", [] { return charRow(u"abc"); }, {1, 1}, {u"abc"}},
        {"1x0 char", [] { return charRow(u""); }, {1, 1}, {u""}},
        {"0x0 char", [] { return charEmpty(); }, {1, 1}, {u""}},
        {"2x2 cell: char row, 0x0, 1x0, NUL", cellOfRows, {2, 2}, {u"a", u"", u"", nul}},
        {"0x0 cell", [] { return vqCreateCellArray({0, 0}); }, {0, 0}, {}},
    };
    // clang-format on
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ArgList args(row.make());
        OutputSlots out;
        echoManyFcn<CellErrorArgument::InputName>(1, out.data(), args.count(), args.data());
        ASSERT_NE(out[0], nullptr);
        EXPECT_EQ(dimsOf(out[0]), row.dims);
        EXPECT_EQ(stringsOf(out[0]), row.texts);
    }
}

// Values that are not one text: refused as a cell element, and (most of them) as the
// whole argument.
struct NotOneText {
    const char* name;
    unique_vqarray_ptr (*make)();
    bool refusedAsArgument;
};

// clang-format off
const NotOneText kNotOneText[] = {
    {"empty slot / null argument", [] { return unique_vqarray_ptr(); }, true},
    {"double", [] { return doubleScalar(1); }, true},
    {"int8 row", [] { return numericArray(vqINT8_CLASS, {1, 3}); }, true},
    {"logical", [] { return logicalScalar(false); }, true},
    {"sparse logical", [] { return sparse(logicalScalar(true)); }, true},
    {"struct", [] { return structScalar(field("A", charRow(u"a"))); }, true},
    {"2x3 char", [] { return charMatrix({u"abc", u"def"}); }, true},
    {"0x3 char", [] { return charArray({0, 3}, u""); }, true},
    {"3x1 char", [] { return charArray({3, 1}, u"abc"); }, true},
    {"1x2x2 char", [] { return charArray({1, 2, 2}, u"abcd"); }, true},
    {"string scalar", [] { return stringScalar(u"s"); }, false},
    {"missing string", [] { return missingString(); }, false},
    {"nested cell", [] { return cellRow(charRow(u"a")); }, false},
};
// clang-format on

// A 1x4 cell whose element k is bad and the others good.
unique_vqarray_ptr cellWithBadAt(std::size_t k, const NotOneText& bad) {
    std::vector<unique_vqarray_ptr> e;
    for (std::size_t i = 0; i < 4; ++i) e.push_back(i == k ? bad.make() : charRow(u"ok"));
    return cellArray({1, 4}, std::move(e));
}

// The cell error names the input, or gives the bad element's index, as the caller chose;
// any other kind of argument is the not-text error naming the input.
TEST_F(ManyTexts, RefusalsAreIdentified) {
    const fl::ustring name = englishInputName();
    ASSERT_FALSE(name.empty());
    // The refusal each way of naming the cell error, with no result and nothing leaked.
    const auto expectRefused = [](unique_vqarray_ptr arg, const char* id,
                                  const resource_core::MessageArg& byName,
                                  const resource_core::MessageArg& byIndex) {
        ArgList args(std::move(arg));
        LiveArrayGuard guard;
        OutputSlots out;
        using enum CellErrorArgument;
        EXPECT_IDENTIFIED_ERROR(echoManyFcn<InputName>(1, out.data(), 1, args.data()), id, byName);
        EXPECT_IDENTIFIED_ERROR(echoManyFcn<ElementIndex>(1, out.data(), 1, args.data()), id,
                                byIndex);
        EXPECT_EQ(out[0], nullptr);
    };
    for (const auto& bad : kNotOneText) {
        for (std::size_t k : {0U, 2U, 3U}) {
            SCOPED_TRACE(std::string(bad.name) + " at " + std::to_string(k));
            expectRefused(cellWithBadAt(k, bad), kBadCell, name, std::to_string(k));
        }
        SCOPED_TRACE(std::string(bad.name) + " as the argument");
        if (bad.refusedAsArgument) expectRefused(bad.make(), kNotText, name, name);
    }
    // Linear order in a matrix: element (2,3) of a 3x4 cell is index 7.
    std::vector<unique_vqarray_ptr> e;
    for (std::size_t i = 0; i < 12; ++i) e.push_back(i == 7 ? doubleScalar(0) : charRow(u"x"));
    expectRefused(cellArray({3, 4}, std::move(e)), kBadCell, name, "7");
    EXPECT_IDENTIFIED_ERROR((void)quorin::gateway::textElementCount(doubleScalar(1).get()),
                            kNotText, name);
}

TEST_F(ManyTexts, WalkStopsAtTheBadElementAndPassesOtherErrors) {
    const auto arg = cellWithBadAt(2, kNotOneText[1]);
    std::vector<std::size_t> seen;
    EXPECT_IDENTIFIED_ERROR(
        quorin::gateway::forEachText(arg.get(), [&](std::size_t i, auto) { seen.push_back(i); }),
        kBadCell, englishInputName());
    EXPECT_EQ(seen, (std::vector<std::size_t>{0, 1}));
    const auto strings = stringArray({1, 2}, {u"a", u"b"});
    EXPECT_THROW(quorin::gateway::forEachText(
                     strings.get(), [](std::size_t, auto) { throw std::runtime_error("visitor"); }),
                 std::runtime_error);
    EXPECT_EQ(quorin::gateway::textElementCount(charEmpty().get()), 1U);
    EXPECT_EQ(quorin::gateway::textElementCount(vqCreateCellArray({2, 0}).get()), 0U);
    EXPECT_EQ(quorin::gateway::textResultDims(vqCreateCellArray({2, 0}).get()), (Dims{2, 0}));
}

}  // namespace
