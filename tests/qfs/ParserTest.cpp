// The statement and value reader: every literal, nesting, the concatenation rules and
// the columns of parse errors.
#include "qfs/Identifiers.hpp"
#include "qfs/Parser.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using namespace zkfs::test;
using qfs::parseStatement;
using qfs::parseValue;
using qfs::Statement;

// The column a parse error names; -1 when the text parsed, -2 for another exception.
long long errorColumn(const std::string& text, bool statement = false) {
    try {
        if (statement) {
            (void)parseStatement(text);
        } else {
            (void)parseValue(text);
        }
    } catch (const qfs::ParseErrorException& e) {
        const auto& args = e.GetBaseMsgIDObj().getArgs();
        EXPECT_EQ(e.GetID(), "QUORIN:qfs:ParseError");
        EXPECT_EQ(args.size(), 2U);
        return std::get<std::int64_t>(args.at(0));
    } catch (...) {
        return -2;
    }
    return -1;
}

constexpr double kInf = std::numeric_limits<double>::infinity();

class QfsParserTest : public LiveArrayTest {};

TEST_F(QfsParserTest, CharLiteralsDoubleTheirQuotesAndEmptyIsZeroByZero) {
    auto a = parseValue("'it''s'");
    ASSERT_TRUE(vqIsChar(a.get()));
    EXPECT_EQ(dimsOf(a.get()), (Dims{1, 4}));
    EXPECT_EQ(charsOf(a.get()), u"it's");

    auto empty = parseValue("''");
    ASSERT_TRUE(vqIsChar(empty.get()));
    EXPECT_EQ(dimsOf(empty.get()), (Dims{0, 0}));

    auto quotes = parseValue("'say \"x\"'");
    EXPECT_EQ(charsOf(quotes.get()), u"say \"x\"");
}

TEST_F(QfsParserTest, CharLiteralsAreUtf16InsideAndKeepBytesThatAreNotUtf8) {
    auto accent = parseValue("'\xc3\xa9t\xc3\xa9'");
    EXPECT_EQ(charsOf(accent.get()), u"\u00e9t\u00e9");
    auto astral = parseValue("'\xf0\x9f\x98\x80'");
    EXPECT_EQ(dimsOf(astral.get()), (Dims{1, 2}));  // one surrogate pair
    auto raw = parseValue("'a\xffz'");
    EXPECT_EQ(charsOf(raw.get()), (fl::ustring{u'a', char16_t{0xDCFF}, u'z'}));
}

TEST_F(QfsParserTest, StringLiteralsDoubleTheirQuotesAndEmptyIsNotMissing) {
    auto s = parseValue(R"("say ""hi""")");
    ASSERT_TRUE(Hexfarrow::String::isString(s.get()));
    EXPECT_EQ(stringsOf(s.get()), (std::vector<StringElement>{u"say \"hi\""}));

    auto empty = parseValue("\"\"");
    EXPECT_EQ(dimsOf(empty.get()), (Dims{1, 1}));
    EXPECT_EQ(stringsOf(empty.get()), (std::vector<StringElement>{u""}));

    auto m = parseValue("missing");
    EXPECT_EQ(stringsOf(m.get()), (std::vector<StringElement>{std::nullopt}));
}

TEST_F(QfsParserTest, NumbersNaNAndInf) {
    struct Row {
        const char* text;
        double value;
    };
    for (const Row& r :
         {Row{"1", 1}, Row{"-2.5e3", -2500}, Row{".5", 0.5}, Row{"+3", 3}, Row{"1E-3", 0.001},
          Row{"Inf", kInf}, Row{"-Inf", -kInf}, Row{"007", 7}, Row{"1e999", kInf}}) {
        SCOPED_TRACE(r.text);
        auto a = parseValue(r.text);
        ASSERT_TRUE(vqIsDouble(a.get()));
        ASSERT_TRUE(vqIsScalar(a.get()));
        EXPECT_EQ(*vqGetPr(a.get()), r.value);
    }
    for (const char* nan : {"NaN", "-NaN"}) {
        auto a = parseValue(nan);
        EXPECT_TRUE(std::isnan(*vqGetPr(a.get())));
    }
}

TEST_F(QfsParserTest, LogicalLiterals) {
    auto t = parseValue("true");
    auto f = parseValue("false");
    ASSERT_TRUE(vqIsLogical(t.get()));
    EXPECT_EQ(logicalsOf(t.get()), std::vector<bool>{true});
    EXPECT_EQ(logicalsOf(f.get()), std::vector<bool>{false});
}

TEST_F(QfsParserTest, BracketsConcatenateNumbersInColumnMajorOrder) {
    auto empty = parseValue("[]");
    EXPECT_TRUE(vqIsDouble(empty.get()));
    EXPECT_EQ(dimsOf(empty.get()), (Dims{0, 0}));

    auto m = parseValue("[1, 2; 3 4]");
    EXPECT_EQ(dimsOf(m.get()), (Dims{2, 2}));
    EXPECT_EQ(doublesOf(m.get()), (std::vector<double>{1, 3, 2, 4}));

    auto signs = parseValue("[1 -2 +3]");  // a sign after a blank starts a new element
    EXPECT_EQ(doublesOf(signs.get()), (std::vector<double>{1, -2, 3}));

    auto nested = parseValue("[[1;2] [3;4], [5;6]]");
    EXPECT_EQ(dimsOf(nested.get()), (Dims{2, 3}));
    EXPECT_EQ(doublesOf(nested.get()), (std::vector<double>{1, 2, 3, 4, 5, 6}));

    auto stacked = parseValue("[[1 2]; [3 4]; 5 6]");
    EXPECT_EQ(dimsOf(stacked.get()), (Dims{3, 2}));
    EXPECT_EQ(doublesOf(stacked.get()), (std::vector<double>{1, 3, 5, 2, 4, 6}));

    auto skipped = parseValue("[[] 7 []]");  // 0x0 pieces drop out
    EXPECT_EQ(dimsOf(skipped.get()), (Dims{1, 1}));
    EXPECT_EQ(doublesOf(skipped.get()), std::vector<double>{7});

    auto trailing = parseValue("[1, 2;]");
    EXPECT_EQ(dimsOf(trailing.get()), (Dims{1, 2}));
}

TEST_F(QfsParserTest, BracketsConcatenateLogicalsStringsAndCharRows) {
    auto l = parseValue("[true false; false true]");
    ASSERT_TRUE(vqIsLogical(l.get()));
    EXPECT_EQ(logicalsOf(l.get()), (std::vector<bool>{true, false, false, true}));

    auto s = parseValue(R"(["a" missing; "" "d"])");
    ASSERT_TRUE(Hexfarrow::String::isString(s.get()));
    EXPECT_EQ(dimsOf(s.get()), (Dims{2, 2}));
    EXPECT_EQ(stringsOf(s.get()), (std::vector<StringElement>{u"a", u"", std::nullopt, u"d"}));

    auto side = parseValue("['ab' 'cd']");
    EXPECT_EQ(dimsOf(side.get()), (Dims{1, 4}));
    EXPECT_EQ(charsOf(side.get()), u"abcd");

    auto matrix = parseValue("['ab'; 'cd'; 'ef']");
    EXPECT_EQ(dimsOf(matrix.get()), (Dims{3, 2}));
    EXPECT_EQ(charsOf(matrix.get()), u"acebdf");
}

TEST_F(QfsParserTest, BracketsMakeStructArraysFromStructsWithTheSameFields) {
    auto row = parseValue("[struct('a', 1, 'b', 'x') struct('b', 'y', 'a', 2)]");
    ASSERT_TRUE(vqIsStruct(row.get()));
    EXPECT_EQ(dimsOf(row.get()), (Dims{1, 2}));
    EXPECT_EQ(row->get_struct_field_names(), (std::vector<std::string>{"a", "b"}));
    // The second element's fields are matched by name, not position.
    EXPECT_EQ(doublesOf(vqGetField(row.get(), 1, "a")), std::vector<double>{2});
    EXPECT_EQ(charsOf(vqGetField(row.get(), 1, "b")), u"y");

    auto column = parseValue("[struct('a', 1); struct('a', 2); struct('a', 3)]");
    EXPECT_EQ(dimsOf(column.get()), (Dims{3, 1}));
    EXPECT_EQ(doublesOf(vqGetField(column.get(), 2, "a")), std::vector<double>{3});
}

TEST_F(QfsParserTest, CellsHoldAnyValueAndNest) {
    auto empty = parseValue("{}");
    ASSERT_TRUE(vqIsCell(empty.get()));
    EXPECT_EQ(dimsOf(empty.get()), (Dims{0, 0}));

    auto c = parseValue("{1, 'a'; \"s\" {true, {}}}");
    ASSERT_TRUE(vqIsCell(c.get()));
    EXPECT_EQ(dimsOf(c.get()), (Dims{2, 2}));
    EXPECT_EQ(doublesOf(vqGetCell(c.get(), 0)), std::vector<double>{1});
    EXPECT_TRUE(Hexfarrow::String::isString(vqGetCell(c.get(), 1)));
    EXPECT_EQ(charsOf(vqGetCell(c.get(), 2)), u"a");
    const vqArray* inner = vqGetCell(c.get(), 3);
    ASSERT_TRUE(vqIsCell(inner));
    EXPECT_EQ(dimsOf(inner), (Dims{1, 2}));
    EXPECT_TRUE(vqIsCell(vqGetCell(inner, 1)));

    auto joined = parseValue("[{1} {2, 3}]");  // brackets join cells like other values
    EXPECT_EQ(dimsOf(joined.get()), (Dims{1, 3}));
}

TEST_F(QfsParserTest, StructLiteralKeepsFieldOrderAndTakesAnyValue) {
    auto s = parseValue("struct('Zeta', [1 2], \"Alpha\", {'x'}, 'Mid', struct())");
    ASSERT_TRUE(vqIsStruct(s.get()));
    EXPECT_EQ(dimsOf(s.get()), (Dims{1, 1}));
    EXPECT_EQ(s->get_struct_field_names(), (std::vector<std::string>{"Zeta", "Alpha", "Mid"}));
    EXPECT_TRUE(vqIsCell(vqGetField(s.get(), 0, "Alpha")));  // a cell stays one field value
    const vqArray* mid = vqGetField(s.get(), 0, "Mid");
    ASSERT_TRUE(vqIsStruct(mid));
    EXPECT_EQ(vqGetNumberOfFields(mid), 0);
}

TEST_F(QfsParserTest, SizedConstructors) {
    auto s = parseValue("strings(2, 3)");
    EXPECT_EQ(dimsOf(s.get()), (Dims{2, 3}));
    EXPECT_EQ(stringsOf(s.get()), std::vector<StringElement>(6, u""));

    auto c = parseValue("cell(1, 2)");
    ASSERT_TRUE(vqIsCell(c.get()));
    EXPECT_EQ(vqGetCell(c.get(), 0), nullptr);
    EXPECT_EQ(vqGetCell(c.get(), 1), nullptr);

    auto z = parseValue("zeros(2)");
    EXPECT_EQ(dimsOf(z.get()), (Dims{2, 2}));
    EXPECT_EQ(doublesOf(z.get()), std::vector<double>(4, 0));

    auto f = parseValue("false(0, 3)");
    ASSERT_TRUE(vqIsLogical(f.get()));
    EXPECT_EQ(dimsOf(f.get()), (Dims{0, 3}));

    auto cube = parseValue("zeros(2, 1, 3)");
    EXPECT_EQ(dimsOf(cube.get()), (Dims{2, 1, 3}));
}

TEST_F(QfsParserTest, ReshapeLogicalAndRepmat) {
    auto r = parseValue("reshape([1 2 3 4 5 6 7 8], 2, 2, 2)");
    EXPECT_EQ(dimsOf(r.get()), (Dims{2, 2, 2}));
    EXPECT_EQ(doublesOf(r.get()), (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8}));

    auto sr = parseValue(R"(reshape(["a" missing "c" "d"], 2, 1, 2))");
    EXPECT_EQ(dimsOf(sr.get()), (Dims{2, 1, 2}));
    EXPECT_EQ(stringsOf(sr.get()), (std::vector<StringElement>{u"a", std::nullopt, u"c", u"d"}));

    auto l = parseValue("logical([1 0 -2 Inf])");
    ASSERT_TRUE(vqIsLogical(l.get()));
    EXPECT_EQ(logicalsOf(l.get()), (std::vector<bool>{true, false, true, true}));

    auto m = parseValue("repmat([1; 2], 1, 3)");
    EXPECT_EQ(dimsOf(m.get()), (Dims{2, 3}));
    EXPECT_EQ(doublesOf(m.get()), (std::vector<double>{1, 2, 1, 2, 1, 2}));

    auto chars = parseValue("repmat('ab', 2, 2)");
    EXPECT_EQ(dimsOf(chars.get()), (Dims{2, 4}));
    EXPECT_EQ(charsOf(chars.get()), u"aabbaabb");

    auto square = parseValue("repmat(missing, 2)");
    EXPECT_EQ(stringsOf(square.get()), std::vector<StringElement>(4, std::nullopt));

    auto structs = parseValue("repmat(struct('a', {1}), 2, 1)");
    EXPECT_EQ(dimsOf(structs.get()), (Dims{2, 1}));
    // Deep copies: each element owns its own field value.
    EXPECT_NE(vqGetField(structs.get(), 0, "a"), vqGetField(structs.get(), 1, "a"));
}

TEST_F(QfsParserTest, ErrorsNameTheColumnWhereTheProblemStarts) {
    struct Row {
        const char* text;
        long long column;
    };
    for (const Row& r : {
             Row{"[1 'a']", 4},                            // unlike classes
             Row{"[true 1]", 7},                           // logical with double
             Row{"[\"a\" 'b']", 6},                        // string with char
             Row{"['ab'; 'c']", 8},                        // char rows of unequal length
             Row{"[[1 2]; [1 2 3]]", 9},                   // column counts differ
             Row{"[[1; 2] 3]", 9},                         // row counts differ
             Row{"[struct('a', 1) struct('b', 1)]", 17},   // different fields
             Row{"[reshape(zeros(1, 8), 2, 2, 2) 1]", 2},  // three dimensions
             Row{"'abc", 1},                               // unterminated char
             Row{"\"abc", 1},                              // unterminated string
             Row{"{1, 2; 3}", 8},                          // ragged cell rows
             Row{"[1 2", 1},                               // unclosed bracket
             Row{"{1", 1},                                 // unclosed brace
             Row{"[1, , 2]", 5},                           // empty element
             Row{"[1 - 2]", 4},                            // no arithmetic
             Row{"1abc", 2},                               // letters after a number
             Row{"1.2.3", 4},                              // two points
             Row{"1e", 1},                                 // exponent without digits
             Row{"x", 1},                                  // no variables
             Row{"sqrt(2)", 1},                            // unknown value function
             Row{"zeros", 6},                              // constructor without '('
             Row{"zeros()", 1},                            // no size
             Row{"zeros(-1)", 7},                          // negative size
             Row{"zeros(1.5)", 7},                         // fractional size
             Row{"zeros('a')", 7},                         // text size
             Row{"struct('a')", 1},                        // unpaired field
             Row{"struct(1, 2)", 8},                       // field name not text
             Row{"struct('1a', 2)", 8},                    // not a valid field name
             Row{"struct('a', 1, 'a', 2)", 16},            // duplicate field
             Row{"reshape([1 2 3], 2, 2)", 1},             // count changes
             Row{"reshape([1 2], 2)", 1},                  // one size only
             Row{"logical(NaN)", 1},                       // NaN has no truth value
             Row{"logical('a')", 1},                       // text has none either
             Row{"repmat(1)", 1},                          // no count
             Row{"1 2", 3},                                // two values
             Row{"", 1},                                   // nothing
             Row{"\xc3\xa9", 1},                           // not a value
             Row{"'\xc3\xa9\xc3\xa9' x", 6},               // columns count characters
         }) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(errorColumn(r.text), r.column);
    }
}

TEST_F(QfsParserTest, StatementsWithOutputsArgumentsAndSuppression) {
    Statement a = parseStatement("x = pathFcn(\"a/b\", 'unix');  % split it");
    EXPECT_EQ(a.kind, Statement::Kind::Call);
    EXPECT_EQ(a.name, "pathFcn");
    EXPECT_EQ(a.nameColumn, 5U);
    EXPECT_EQ(a.outputs, std::vector<std::string>{"x"});
    ASSERT_EQ(a.args.size(), 2U);
    EXPECT_TRUE(Hexfarrow::String::isString(a.args[0].get()));
    EXPECT_TRUE(vqIsChar(a.args[1].get()));
    EXPECT_TRUE(a.suppressed);

    Statement b = parseStatement("  [tf, ~ targets] = isSymlinkFcn({'/a', '/b'})");
    EXPECT_EQ(b.outputs, (std::vector<std::string>{"tf", "~", "targets"}));
    ASSERT_EQ(b.args.size(), 1U);
    EXPECT_FALSE(b.suppressed);

    Statement c = parseStatement("createWindowsShortcutFcn");
    EXPECT_EQ(c.kind, Statement::Kind::Call);
    EXPECT_TRUE(c.outputs.empty());
    EXPECT_TRUE(c.args.empty());

    Statement d = parseStatement("mkSymlinkFcn( )\r");
    EXPECT_EQ(d.name, "mkSymlinkFcn");
    EXPECT_TRUE(d.args.empty());
}

TEST_F(QfsParserTest, EmptyLinesCommentsAndHelp) {
    EXPECT_EQ(parseStatement("").kind, Statement::Kind::Empty);
    EXPECT_EQ(parseStatement("   \t").kind, Statement::Kind::Empty);
    EXPECT_EQ(parseStatement("% createFileURL('x')").kind, Statement::Kind::Empty);

    Statement all = parseStatement("help");
    EXPECT_EQ(all.kind, Statement::Kind::Help);
    EXPECT_EQ(all.name, "");
    Statement one = parseStatement("help pathFcn  % what does it do");
    EXPECT_EQ(one.kind, Statement::Kind::Help);
    EXPECT_EQ(one.name, "pathFcn");
}

TEST_F(QfsParserTest, StatementErrorsNameTheColumn) {
    struct Row {
        const char* text;
        long long column;
    };
    for (const Row& r : {
             Row{"f(1 2)", 5},
             Row{"f(1", 2},
             Row{"f(1) x", 6},
             Row{"x == f(1)", 3},
             Row{"x = ", 5},
             Row{"x = 3", 5},
             Row{"[a, b = f()", 7},
             Row{"[a b] f()", 7},
             Row{"[] = f()", 1},
             Row{"[a, 1] = f()", 5},
             Row{"1 = f()", 1},
             Row{"f(1);;", 6},
             Row{"f('a' % not closed", 2},
         }) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(errorColumn(r.text, true), r.column);
    }
}

TEST_F(QfsParserTest, FailedParsesReleaseWhatTheyBuilt) {
    LiveArrayGuard guard;
    for (const char* text : {"f({1, 'a', [1 2 3], struct('a', {2})}, [1 'x'])",
                             "f(strings(3), cell(2), reshape([1 2], 3, 1))",
                             "f(repmat({1}, 2), struct('a', 1, 'a', 2))"}) {
        SCOPED_TRACE(text);
        EXPECT_GT(errorColumn(text, true), 0);
    }
    EXPECT_EQ(guard.change(), 0);
}

}  // namespace

namespace {

TEST(QfsParserLimitsTest, DeepNestingIsAParseErrorNotAStackOverflow) {
    const std::string deep = std::string(100000, '[') + "1" + std::string(100000, ']');
    EXPECT_EQ(errorColumn(deep), 201);
    const std::string cells = "f(" + std::string(5000, '{') + std::string(5000, '}') + ")";
    EXPECT_EQ(errorColumn(cells, true), 203);
    const std::string fine = std::string(150, '{') + "1" + std::string(150, '}');
    auto v = parseValue(fine);
    EXPECT_TRUE(vqIsCell(v.get()));
}

}  // namespace
