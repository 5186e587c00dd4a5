// The statement and value reader: every literal, nesting, the concatenation rules and
// the columns of parse errors. Values are compared as their --json line, which shows the
// class, the size and every element in column-major order at once.
#include "qfs/Identifiers.hpp"
#include "qfs/Json.hpp"
#include "qfs/Parser.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

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

std::string J(const std::string& cls, const std::string& size, const std::string& value) {
    return R"({"class":")" + cls + R"(","size":)" + size + R"(,"value":)" + value + "}";
}

std::string num(const std::string& value) { return J("double", "[1,1]", "[" + value + "]"); }
std::string chr(const std::string& value) { return J("char", "[1,1]", "\"" + value + "\""); }

class QfsParserTest : public LiveArrayTest {};

TEST_F(QfsParserTest, ValuesHaveTheirClassSizeAndElements) {
    // clang-format off
    struct Row { std::string text, json; };
    const std::vector<Row> rows = {
        // Numbers; a sign after a blank starts a new element.
        {"[1 -2.5e3 .5 +3 1E-3 007 1e999 Inf -Inf NaN -NaN]", J("double", "[1,11]", R"([1.0,-2500.0,0.5,3.0,0.001,7.0,"Inf","Inf","-Inf","NaN","NaN"])")},
        {"-0.25", J("double", "[1,1]", "[-0.25]")},
        {"[1.5 NaN; Inf -Inf]", J("double", "[2,2]", R"([1.5,"Inf","NaN","-Inf"])")},
        {"true", J("logical", "[1,1]", "[true]")},
        // Quotes double inside their own kind of literal; '' is 0x0, "" is not missing.
        {"'it''s'", J("char", "[1,4]", R"("it's")")},
        {"'say \"x\"'", J("char", "[1,7]", R"("say \"x\"")")},
        {"''", J("char", "[0,0]", R"("")")},
        {"'\xc3\xa9t\xc3\xa9'", J("char", "[1,3]", "\"\xc3\xa9t\xc3\xa9\"")},
        {"'\xf0\x9f\x98\x80'", J("char", "[1,2]", "\"\xf0\x9f\x98\x80\"")},  // a pair
        {R"("say ""hi""")", J("string", "[1,1]", R"(["say \"hi\""])")},
        {"\"\"", J("string", "[1,1]", R"([""])")},
        {"missing", J("string", "[1,1]", "[null]")},
        // Concatenation, column-major; 0x0 pieces drop out; a trailing ';' adds no row.
        {"[]", J("double", "[0,0]", "[]")},
        {"[1, 2; 3 4]", J("double", "[2,2]", "[1.0,3.0,2.0,4.0]")},
        {"[[1;2] [3;4], [5;6]]", J("double", "[2,3]", "[1.0,2.0,3.0,4.0,5.0,6.0]")},
        {"[[1 2]; [3 4]; 5 6]", J("double", "[3,2]", "[1.0,3.0,5.0,2.0,4.0,6.0]")},
        {"[[] 7 []]", J("double", "[1,1]", "[7.0]")},
        {"[1, 2;]", J("double", "[1,2]", "[1.0,2.0]")},
        {"[true false; false true]", J("logical", "[2,2]", "[true,false,false,true]")},
        {R"(["a" missing; "" "d"])", J("string", "[2,2]", R"(["a","",null,"d"])")},
        {"['ab' 'cd']", J("char", "[1,4]", R"("abcd")")},
        {"['ab'; 'cd'; 'ef']", J("char", "[3,2]", R"("acebdf")")},
        {"[{1} {2, 3}]", J("cell", "[1,3]", "[" + num("1.0") + "," + num("2.0") + "," + num("3.0") + "]")},
        // Structs join by field name, not position.
        {"[struct('a', 1, 'b', 'x') struct('b', 'y', 'a', 2)]", R"({"class":"struct","size":[1,2],"fields":["a","b"],"value":[{"a":)" + num("1.0") + R"(,"b":)" + chr("x") + R"(},{"a":)" + num("2.0") + R"(,"b":)" + chr("y") + "}]}"},
        {"[struct('Name', \"a\", 'Size', 1); struct('Name', missing, 'Size', NaN)]", R"({"class":"struct","size":[2,1],"fields":["Name","Size"],"value":[)" R"({"Name":{"class":"string","size":[1,1],"value":["a"]},)" R"("Size":{"class":"double","size":[1,1],"value":[1.0]}},)" R"({"Name":{"class":"string","size":[1,1],"value":[null]},)" R"("Size":{"class":"double","size":[1,1],"value":["NaN"]}}]})"},
        // A struct literal keeps its field order; a cell stays one field value.
        {"struct('Zeta', [1 2], \"Alpha\", {'x'}, 'Mid', struct())", R"({"class":"struct","size":[1,1],"fields":["Zeta","Alpha","Mid"],"value":[)" R"({"Zeta":{"class":"double","size":[1,2],"value":[1.0,2.0]},)" R"("Alpha":{"class":"cell","size":[1,1],"value":[)" R"({"class":"char","size":[1,1],"value":"x"}]},)" R"("Mid":{"class":"struct","size":[1,1],"fields":[],"value":[{}]}}]})"},
        {"{}", J("cell", "[0,0]", "[]")},
        {"{1, 'a'; \"s\" {true, {}}}", J("cell", "[2,2]", "[" + num("1.0") + "," + J("string", "[1,1]", R"(["s"])") + "," + chr("a") + "," + J("cell", "[1,2]", "[" + J("logical", "[1,1]", "[true]") + "," + J("cell", "[0,0]", "[]") + "]") + "]")},
        // Sized constructors, reshape, logical and repmat.
        {"strings(2, 3)", J("string", "[2,3]", R"(["","","","","",""])")},
        {"strings(0, 2)", J("string", "[0,2]", "[]")},
        {"cell(1, 2)", J("cell", "[1,2]", "[null,null]")},
        {"zeros(2)", J("double", "[2,2]", "[0.0,0.0,0.0,0.0]")},
        {"zeros(2, 2, 1)", J("double", "[2,2]", "[0.0,0.0,0.0,0.0]")},
        {"zeros(2, 1, 3)", J("double", "[2,1,3]", "[0.0,0.0,0.0,0.0,0.0,0.0]")},
        {"false(0, 3)", J("logical", "[0,3]", "[]")},
        {"reshape([1 2 3 4 5 6 7 8], 2, 2, 2)", J("double", "[2,2,2]", "[1.0,2.0,3.0,4.0,5.0,6.0,7.0,8.0]")},
        {R"(reshape(["a" missing "c" "d"], 2, 1, 2))", J("string", "[2,1,2]", R"(["a",null,"c","d"])")},
        {"logical([1 0 -2 Inf])", J("logical", "[1,4]", "[true,false,true,true]")},
        {"repmat([1; 2], 1, 3)", J("double", "[2,3]", "[1.0,2.0,1.0,2.0,1.0,2.0]")},
        {"repmat('ab', 2, 2)", J("char", "[2,4]", R"("aabbaabb")")},
        {"repmat(missing, 2)", J("string", "[2,2]", "[null,null,null,null]")},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(qfs::jsonLine(qfs::toJson(parseValue(r.text).get())), r.json);
    }
    // What the --json line cannot show: the escaped byte and the separate copies.
    EXPECT_EQ(charsOf(parseValue("'a\xffz'").get()), (fl::ustring{u'a', char16_t{0xDCFF}, u'z'}));
    auto structs = parseValue("repmat(struct('a', {1}), 2, 1)");
    EXPECT_EQ(dimsOf(structs.get()), (Dims{2, 1}));
    EXPECT_NE(vqGetField(structs.get(), 0, "a"), vqGetField(structs.get(), 1, "a"));
}

TEST_F(QfsParserTest, ErrorsNameTheColumnWhereTheProblemStartsAndReleaseWhatWasBuilt) {
    // clang-format off
    struct Row { const char* text; long long column; bool statement = false; };
    // clang-format on
    // Concatenation of unlike classes, unequal char rows, column or row counts, fields,
    // three dimensions; unterminated text, ragged cells, unclosed brackets, empty elements,
    // arithmetic; malformed numbers; names that are not values; constructor sizes that are
    // missing, negative, fractional or text; struct fields unpaired, not text, not valid or
    // repeated; reshape changing the count or given one size; NaN and text as truth
    // values; repmat without count; two values, none, a non-ASCII character, and columns
    // that count characters, not bytes.
    for (const Row& r :
         {Row{"[1 'a']", 4}, Row{"[true 1]", 7}, Row{"[\"a\" 'b']", 6}, Row{"['ab'; 'c']", 8},
          Row{"[[1 2]; [1 2 3]]", 9}, Row{"[[1; 2] 3]", 9},
          Row{"[struct('a', 1) struct('b', 1)]", 17}, Row{"[reshape(zeros(1, 8), 2, 2, 2) 1]", 2},
          Row{"'abc", 1}, Row{"\"abc", 1}, Row{"{1, 2; 3}", 8}, Row{"[1 2", 1}, Row{"{1", 1},
          Row{"[1, , 2]", 5}, Row{"[1 - 2]", 4}, Row{"1abc", 2}, Row{"1.2.3", 4}, Row{"1e", 1},
          Row{"x", 1}, Row{"sqrt(2)", 1}, Row{"zeros", 6}, Row{"zeros()", 1}, Row{"zeros(-1)", 7},
          Row{"zeros(1.5)", 7}, Row{"zeros('a')", 7}, Row{"struct('a')", 1}, Row{"struct(1, 2)", 8},
          Row{"struct('1a', 2)", 8}, Row{"struct('a', 1, 'a', 2)", 16},
          Row{"reshape([1 2 3], 2, 2)", 1}, Row{"reshape([1 2], 2)", 1}, Row{"logical(NaN)", 1},
          Row{"logical('a')", 1}, Row{"repmat(1)", 1}, Row{"1 2", 3}, Row{"", 1},
          // Sizes past the element limit, also where the product would overflow.
          Row{"zeros(4097, 4097)", 1}, Row{"repmat([1 2], 1, 8388609)", 1},
          Row{"cell(1e12, 1e12, 1e12)", 1},
          Row{"\xc3\xa9", 1}, Row{"'\xc3\xa9\xc3\xa9' x", 6},
          // Statements; the last three fail after earlier arguments were built.
          Row{"f(1 2)", 5, true}, Row{"f(1", 2, true}, Row{"f(1) x", 6, true},
          Row{"x == f(1)", 3, true}, Row{"x = ", 5, true}, Row{"x = 3", 5, true},
          Row{"[a, b = f()", 7, true}, Row{"[a b] f()", 7, true}, Row{"[] = f()", 1, true},
          Row{"[a, 1] = f()", 5, true}, Row{"1 = f()", 1, true}, Row{"f(1);;", 6, true},
          Row{"f('a' % not closed", 2, true},
          Row{"f({1, 'a', [1 2 3], struct('a', {2})}, [1 'x'])", 43, true},
          Row{"f(strings(3), cell(2), reshape([1 2], 3, 1))", 24, true},
          Row{"f(repmat({1}, 2), struct('a', 1, 'a', 2))", 34, true}}) {
        SCOPED_TRACE(r.text);
        const LiveArrayGuard guard;
        EXPECT_EQ(errorColumn(r.text, r.statement), r.column);
    }
    // Deep nesting is an error at the limit, not a stack overflow.
    EXPECT_EQ(errorColumn(std::string(100000, '[') + "1" + std::string(100000, ']')), 201);
    EXPECT_EQ(errorColumn("f(" + std::string(5000, '{') + std::string(5000, '}') + ")", true), 203);
    EXPECT_TRUE(vqIsCell(parseValue(std::string(150, '{') + "1" + std::string(150, '}')).get()));
}

TEST_F(QfsParserTest, StatementsKindsNamesOutputsAndSuppression) {
    using K = Statement::Kind;
    struct Row {
        const char* text;
        K kind;
        const char* name;
        std::vector<std::string> outputs;
        std::size_t args;
        bool suppressed;
    };
    // clang-format off
    const std::vector<Row> rows = {
        {"x = pathFcn(\"a/b\", 'unix');  % split it", K::Call, "pathFcn", {"x"}, 2, true},
        {"  [tf, ~ targets] = isSymlinkFcn({'/a', '/b'})", K::Call, "isSymlinkFcn", {"tf", "~", "targets"}, 1, false},
        {"createWindowsShortcutFcn", K::Call, "createWindowsShortcutFcn", {}, 0, false},
        {"mkSymlinkFcn( )\r", K::Call, "mkSymlinkFcn", {}, 0, false},
        {"", K::Empty, "", {}, 0, false},
        {"   \t", K::Empty, "", {}, 0, false},
        {"% createFileURL('x')", K::Empty, "", {}, 0, false},
        {"help", K::Help, "", {}, 0, false},
        {"help pathFcn  % what does it do", K::Help, "pathFcn", {}, 0, false},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        const Statement s = parseStatement(r.text);
        EXPECT_EQ(s.kind, r.kind);
        EXPECT_EQ(s.name, r.name);
        EXPECT_EQ(s.outputs, r.outputs);
        EXPECT_EQ(s.args.size(), r.args);
        EXPECT_EQ(s.suppressed, r.suppressed);
    }
    const Statement a = parseStatement("x = pathFcn(\"a/b\", 'unix');");
    EXPECT_EQ(a.nameColumn, 5U);
    ASSERT_EQ(a.args.size(), 2U);
    EXPECT_TRUE(Hexfarrow::String::isString(a.args[0].get()));
    EXPECT_TRUE(vqIsChar(a.args[1].get()));
}

}  // namespace
