// The name-value option parser on its own: order of checks, the struct form, the value
// rule and the generic table (required names).
#include "PathsTestSupport.hpp"
#include "quorin/gateway/Errors.hpp"
#include "validation/NameValueOptions.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace zkfs::test;
using namespace zkfs::test::paths;
namespace validation = quorin::io::common::validation;

constexpr const char* kOdd = "QUORIN:io:common:validation:OddNumberParameters";
constexpr const char* kUnknown = "QUORIN:io:common:validation:UnknownParameter";
constexpr const char* kInternal = "QUORIN:io:common:validation:InternalError";
constexpr const char* kNotText = "QUORIN:string:MustBeStringScalarOrCharacterVector";
constexpr const char* kNotScalar = "QUORIN:io:common:validation:ExpectedScalarStruct";
const std::string kLogical = "Expected logical scalar";
const Make kPath = ch(u"/x");  // never looked at
const Make kRsl = ch(u"ResolveSymbolicLinks");
const Make kYes = lg(true);

class OptionParser : public LiveArrayTest {};

TEST_F(OptionParser, PairsAndStructsSetTheirFlags) {
    // clang-format off
    struct Row { const char* what; std::vector<Make> args; bool links, fileScheme, caseCorrect; };
    const Make caseCorrect = ch(u"CaseCorrectAndResolveOnWindows");
    const Row rows[] = {
        {"path alone", {kPath}, false, false, false},
        {"path of any kind", {num(3)}, false, false, false},
        {"one name", {kPath, kRsl, kYes}, true, false, false},
        {"string name", {kPath, str(u"LocalPathFromFileScheme"), kYes}, false, true, false},
        {"two names", {kPath, caseCorrect, kYes, kRsl, kYes}, true, false, true},
        {"last wins, false", {kPath, kRsl, kYes, kRsl, lg(false)}, false, false, false},
        {"last wins, true", {kPath, kRsl, lg(false), kRsl, kYes}, true, false, false},
        {"struct", {kPath, st({{"ResolveSymbolicLinks", kYes}})}, true, false, false},
        {"struct of two",
         {kPath, st({{"LocalPathFromFileScheme", kYes}, {"CaseCorrectAndResolveOnWindows", kYes}})},
         false, true, true},
        {"struct without fields", {kPath, st({})}, false, false, false},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const ArgList args = build(row.args);
        const auto o = validation::parseResolvePathOptions(args.data(), args.count());
        EXPECT_EQ(o.ResolveSymbolicLinks, row.links);
        EXPECT_EQ(o.LocalPathFromFileScheme, row.fileScheme);
        EXPECT_EQ(o.CaseCorrectAndResolveOnWindows, row.caseCorrect);
    }
}

// Parity first, then pair by pair in order: the name (a text, then a known one), then the
// value; a struct's fields in the struct's own order.
TEST_F(OptionParser, ErrorsComeInTheOrderOfTheChecks) {
    const Make bogus = ch(u"Bogus");
    const Make rslStruct = st({{"ResolveSymbolicLinks", kYes}});
    const Make structPair = [] {
        std::vector<FieldValues> e;
        for (int i = 0; i < 2; ++i)
            e.push_back(fields(field("ResolveSymbolicLinks", logicalScalar(true))));
        return structArray({1, 2}, {"ResolveSymbolicLinks"}, std::move(e));
    };
    const fl::ustring withNul(u"ResolveSymbolicLinks\0", 21);  // the name travels as given
    // clang-format off
    const std::vector<ErrorRow> rows = {
        {"lone name", {kPath, kRsl}, kOdd},
        {"lone null", {kPath, kNull}, kOdd},
        {"third unpaired", {kPath, kRsl, kYes, ch(u"LocalPathFromFileScheme")}, kOdd},
        {"odd before unknown", {kPath, bogus, num(5), num(7)}, kOdd},
        {"odd before no text", {kPath, num(1), num(5), num(7)}, kOdd},
        {"lower case", {kPath, ch(u"resolvesymboliclinks"), kYes}, kUnknown, {u"resolvesymboliclinks"}},
        {"prefix", {kPath, ch(u"Resolve"), kYes}, kUnknown, {u"Resolve"}},
        {"longer", {kPath, ch(u"ResolveSymbolicLinksX"), kYes}, kUnknown, {u"ResolveSymbolicLinksX"}},
        {"embedded NUL", {kPath, ch(withNul), kYes}, kUnknown, {withNul}},
        {"empty name", {kPath, ch(u""), kYes}, kUnknown, {fl::ustring()}},
        {"missing name", {kPath, [] { return missingString(); }, kYes}, "QUORIN:string:MissingNotSupported"},
        {"char matrix", {kPath, kMatrix, kYes}, kNotText},
        {"struct as name", {kPath, rslStruct, kYes}, kNotText},
        {"double value", {kPath, kRsl, num(1)}, kInternal, {kLogical}},
        {"two logicals", {kPath, kRsl, [] { return logicalArray({1, 2}, {true, true}); }}, kInternal, {kLogical}},
        {"empty logical", {kPath, kRsl, [] { return logicalArray({0, 0}, {}); }}, kInternal, {kLogical}},
        {"sparse", {kPath, kRsl, [] { return sparse(logicalScalar(true)); }}, kInternal, {kLogical}},
        {"char true", {kPath, kRsl, ch(u"true")}, kInternal, {kLogical}},
        {"null value", {kPath, kRsl, kNull}, kInternal, {kLogical}},
        {"struct as value", {kPath, kRsl, rslStruct}, kInternal, {kLogical}},
        {"bad value, later unknown", {kPath, kRsl, num(5), bogus, kYes}, kInternal, {kLogical}},
        {"unknown, later bad value", {kPath, bogus, kYes, kRsl, num(5)}, kUnknown, {u"Bogus"}},
        {"name before its value", {kPath, bogus, num(5)}, kUnknown, {u"Bogus"}},
        {"struct: first field unknown", {kPath, st({{"Zeta", kYes}, {"ResolveSymbolicLinks", num(2)}})}, kUnknown, {u"Zeta"}},
        {"struct: first field bad", {kPath, st({{"ResolveSymbolicLinks", num(2)}, {"Zeta", kYes}})}, kInternal, {kLogical}},
        {"struct: empty field", {kPath, st({{"ResolveSymbolicLinks", kNull}})}, kInternal, {kLogical}},
        {"struct: UTF-8 name", {kPath, st({{"Größe", kYes}})}, kUnknown, {u"Größe"}},
        {"struct 1x2", {kPath, structPair}, kNotScalar},
        {"struct 0x0", {kPath, [] { return structArray({0, 0}, {}, {}); }}, kNotScalar},
    };
    // clang-format on
    for (const ErrorRow& row : rows) {
        SCOPED_TRACE(row.what);
        const ArgList args = build(row.args);
        EXPECT_IDENTIFIED_ERROR(validation::parseResolvePathOptions(args.data(), args.count()),
                                row.id, row.expected);
    }
}

// A table of another built-in, with a required name: the parser is generic.
struct Record {
    bool verbose = false;
    bool dryRun = false;
};
void setVerbose(const vqArray* v, Record& r) { r.verbose = validation::getLogicalScalar(v); }
void setDryRun(const vqArray* v, Record& r) { r.dryRun = validation::getLogicalScalar(v); }

TEST_F(OptionParser, RequiredNamesAreCheckedLast) {
    const validation::OptionTable<Record> table(
        {{u"Verbose", &setVerbose}, {u"DryRun", &setDryRun}}, {u"DryRun"});
    Record r;
    auto parse = [&](const std::vector<Make>& args) {
        r = Record{};
        const ArgList list = build(args);
        validation::parseOptionArguments(table, list.data(), 1, list.count(), r);
    };
    const char* kRequired = "QUORIN:io:common:validation:MissingRequiredArg";
    EXPECT_IDENTIFIED_ERROR(parse({kPath, ch(u"Verbose"), kYes}), kRequired,
                            fl::ustring(u"DryRun"));
    EXPECT_IDENTIFIED_ERROR(parse({kPath}), kRequired, fl::ustring(u"DryRun"));
    parse({kPath, st({{"DryRun", kYes}, {"Verbose", kYes}})});
    EXPECT_TRUE(r.verbose);
    EXPECT_TRUE(r.dryRun);
}

}  // namespace
