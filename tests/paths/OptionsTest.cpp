// The name-value option parser on its own: order of checks, the struct form, the value
// rule and the generic table (required names).
#include "quorin/gateway/Errors.hpp"
#include "validation/NameValueOptions.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace zkfs::test;
namespace validation = quorin::io::common::validation;
using quorin::io::filesystem::core::ResolvePathOptions;

constexpr const char* kOdd = "QUORIN:io:common:validation:OddNumberParameters";
constexpr const char* kUnknown = "QUORIN:io:common:validation:UnknownParameter";
constexpr const char* kInternal = "QUORIN:io:common:validation:InternalError";
constexpr const char* kScalarStruct = "QUORIN:io:common:validation:ExpectedScalarStruct";
const std::string kExpectedLogical = "Expected logical scalar";

ResolvePathOptions parse(const ArgList& args) {
    return validation::parseResolvePathOptions(args.data(), args.count());
}

struct Flags {
    bool links, fileScheme, caseCorrect;
};
void expectFlags(const ResolvePathOptions& o, Flags f) {
    EXPECT_EQ(o.ResolveSymbolicLinks, f.links);
    EXPECT_EQ(o.LocalPathFromFileScheme, f.fileScheme);
    EXPECT_EQ(o.CaseCorrectAndResolveOnWindows, f.caseCorrect);
}

class OptionParser : public LiveArrayTest {};

TEST_F(OptionParser, PathAloneGivesDefaults) {
    expectFlags(parse(ArgList(charRow(u"/x"))), {false, false, false});
    // The path argument itself is never looked at, not even for its kind.
    expectFlags(parse(ArgList(doubleScalar(3))), {false, false, false});
}

TEST_F(OptionParser, EachNameSetsItsOwnFlag) {
    expectFlags(
        parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"), logicalScalar(true))),
        {true, false, false});
    expectFlags(parse(ArgList(charRow(u"/x"), stringScalar(u"LocalPathFromFileScheme"),
                              logicalScalar(true))),
                {false, true, false});
    expectFlags(
        parse(ArgList(charRow(u"/x"), charRow(u"CaseCorrectAndResolveOnWindows"),
                      logicalScalar(true), charRow(u"ResolveSymbolicLinks"), logicalScalar(true))),
        {true, false, true});
}

TEST_F(OptionParser, LastValueOfARepeatedNameWins) {
    expectFlags(parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"), logicalScalar(true),
                              charRow(u"ResolveSymbolicLinks"), logicalScalar(false))),
                {false, false, false});
    expectFlags(
        parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"), logicalScalar(false),
                      charRow(u"ResolveSymbolicLinks"), logicalScalar(true))),
        {true, false, false});
}

TEST_F(OptionParser, LoneTextOptionIsAnUnpairedName) {
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"))), kOdd);
    // Not a text error either, whatever the lone argument is.
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), doubleScalar(1))), kOdd);
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), nullptr)), kOdd);
}

TEST_F(OptionParser, ParityIsCheckedBeforeAnyConversion) {
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"), logicalScalar(true),
                      charRow(u"LocalPathFromFileScheme"))),
        kOdd);
    // An unknown name and a name that is no text at all come later than the parity.
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"Bogus"), doubleScalar(5), doubleScalar(7))), kOdd);
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), doubleScalar(1), doubleScalar(5), doubleScalar(7))), kOdd);
}

TEST_F(OptionParser, NamesMatchWholeAndCaseSensitively) {
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"resolvesymboliclinks"), logicalScalar(true))),
        kUnknown, fl::ustring(u"resolvesymboliclinks"));
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"Resolve"), logicalScalar(true))), kUnknown,
        fl::ustring(u"Resolve"));
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinksX"), logicalScalar(true))),
        kUnknown, fl::ustring(u"ResolveSymbolicLinksX"));
    // The name travels as given: an embedded NUL is part of it.
    const fl::ustring withNul(u"ResolveSymbolicLinks\0", 21);
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(withNul), logicalScalar(true))),
                            kUnknown, withNul);
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(u""), logicalScalar(true))),
                            kUnknown, fl::ustring());
}

TEST_F(OptionParser, NameMustBeOneText) {
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), doubleScalar(1), logicalScalar(true))),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), missingString(), logicalScalar(true))),
                            "QUORIN:string:MissingNotSupported");
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), stringArray({1, 2}, {u"ResolveSymbolicLinks", u"x"}),
                      logicalScalar(true))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    // Names are read strictly: a char matrix is no name, even a single-row 3-D one.
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charMatrix({u"ab", u"cd"}), logicalScalar(true))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), cellRow(charRow(u"ResolveSymbolicLinks")),
                                          logicalScalar(true))),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
}

TEST_F(OptionParser, ValueMustBeANonSparseLogicalScalar) {
    auto bad = [](unique_vqarray_ptr value) {
        return ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"), std::move(value));
    };
    EXPECT_IDENTIFIED_ERROR(parse(bad(doubleScalar(1))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(doubleScalar(0))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(logicalArray({1, 2}, {true, true}))), kInternal,
                            kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(logicalArray({0, 0}, {}))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(sparse(logicalScalar(true)))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(charRow(u"true"))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(stringScalar(u"true"))), kInternal, kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(numericArray(vqINT8_CLASS, {1, 1}))), kInternal,
                            kExpectedLogical);
    EXPECT_IDENTIFIED_ERROR(parse(bad(nullptr)), kInternal, kExpectedLogical);
}

TEST_F(OptionParser, FirstFailingPairWins) {
    // The first pair's bad value is seen before the second pair's unknown name.
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"),
                                          doubleScalar(5), charRow(u"Bogus"), logicalScalar(true))),
                            kInternal, kExpectedLogical);
    // And the first pair's unknown name before the second pair's bad value.
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(u"Bogus"), logicalScalar(true),
                                          charRow(u"ResolveSymbolicLinks"), doubleScalar(5))),
                            kUnknown, fl::ustring(u"Bogus"));
    // Within a pair, the name before the value.
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), charRow(u"Bogus"), doubleScalar(5))),
                            kUnknown, fl::ustring(u"Bogus"));
}

TEST_F(OptionParser, ScalarStructSetsItsFieldsInOrder) {
    expectFlags(parse(ArgList(charRow(u"/x"),
                              structScalar(field("ResolveSymbolicLinks", logicalScalar(true))))),
                {true, false, false});
    expectFlags(
        parse(ArgList(charRow(u"/x"),
                      structScalar(field("LocalPathFromFileScheme", logicalScalar(true)),
                                   field("CaseCorrectAndResolveOnWindows", logicalScalar(true))))),
        {false, true, true});
    // Fields are taken in the struct's own order, so its first bad field is reported.
    EXPECT_IDENTIFIED_ERROR(
        parse(
            ArgList(charRow(u"/x"), structScalar(field("Zeta", logicalScalar(true)),
                                                 field("ResolveSymbolicLinks", doubleScalar(2))))),
        kUnknown, fl::ustring(u"Zeta"));
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), structScalar(field("ResolveSymbolicLinks", doubleScalar(2)),
                                                   field("Zeta", logicalScalar(true))))),
        kInternal, kExpectedLogical);
    // An empty field holds no logical scalar.
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), structScalar(field("ResolveSymbolicLinks", nullptr)))),
        kInternal, kExpectedLogical);
}

TEST_F(OptionParser, StructFieldNamesAreDecodedFromUtf8) {
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), structScalar(field("Größe", logicalScalar(true))))), kUnknown,
        fl::ustring(u"Größe"));
}

TEST_F(OptionParser, StructWithoutFieldsKeepsDefaults) {
    expectFlags(parse(ArgList(charRow(u"/x"), structScalar())), {false, false, false});
}

TEST_F(OptionParser, StructMustBeScalar) {
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(
            charRow(u"/x"),
            structArray({1, 2}, {"ResolveSymbolicLinks"},
                        [] {
                            std::vector<FieldValues> e;
                            e.push_back(fields(field("ResolveSymbolicLinks", logicalScalar(true))));
                            e.push_back(fields(field("ResolveSymbolicLinks", logicalScalar(true))));
                            return e;
                        }()))),
        kScalarStruct);
    EXPECT_IDENTIFIED_ERROR(parse(ArgList(charRow(u"/x"), structArray({0, 0}, {}, {}))),
                            kScalarStruct);
}

TEST_F(OptionParser, StructAmongPairsIsNotExpanded) {
    // In a name position it is no text; in a value position no logical.
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"),
                      structScalar(field("ResolveSymbolicLinks", logicalScalar(true))),
                      logicalScalar(true))),
        "QUORIN:string:MustBeStringScalarOrCharacterVector");
    EXPECT_IDENTIFIED_ERROR(
        parse(ArgList(charRow(u"/x"), charRow(u"ResolveSymbolicLinks"),
                      structScalar(field("ResolveSymbolicLinks", logicalScalar(true))))),
        kInternal, kExpectedLogical);
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
    {
        Record r;
        const ArgList args(charRow(u"/x"), charRow(u"Verbose"), logicalScalar(true));
        EXPECT_IDENTIFIED_ERROR(
            validation::parseOptionArguments(table, args.data(), 1, args.count(), r),
            "QUORIN:io:common:validation:MissingRequiredArg", fl::ustring(u"DryRun"));
    }
    {
        Record r;
        const ArgList args(charRow(u"/x"));
        EXPECT_IDENTIFIED_ERROR(
            validation::parseOptionArguments(table, args.data(), 1, args.count(), r),
            "QUORIN:io:common:validation:MissingRequiredArg", fl::ustring(u"DryRun"));
    }
    {
        Record r;
        const ArgList args(charRow(u"/x"), structScalar(field("DryRun", logicalScalar(true)),
                                                        field("Verbose", logicalScalar(true))));
        validation::parseOptionArguments(table, args.data(), 1, args.count(), r);
        EXPECT_TRUE(r.verbose);
        EXPECT_TRUE(r.dryRun);
    }
}

TEST_F(OptionParser, LogicalScalarReadsItsValue) {
    const auto t = logicalScalar(true);
    const auto f = logicalScalar(false);
    EXPECT_TRUE(validation::getLogicalScalar(t.get()));
    EXPECT_FALSE(validation::getLogicalScalar(f.get()));
}

}  // namespace
