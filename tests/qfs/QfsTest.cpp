// qfs's pieces against tables: the value reader (each value as its --json line, which
// shows class, size and every element in column-major order), parse-error columns,
// statement shapes, the JSON of what the reader cannot write, the display of each kind of
// value, and the gateway table against the library's export map. The session and the
// binary run in tests/cases/qfs.cases.
#include "qfs/Display.hpp"
#include "qfs/Gateways.hpp"
#include "qfs/Identifiers.hpp"
#include "qfs/Json.hpp"
#include "qfs/Library.hpp"
#include "qfs/Parser.hpp"
#include "qfs/Session.hpp"
#include "qfs/Texts.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gtest/gtest.h>

#include <cstring>
#include <cxxabi.h>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace zkfs::test;
using qfs::parseStatement;
using qfs::parseValue;

std::string J(const std::string& cls, const std::string& size, const std::string& value) {
    return R"({"class":")" + cls + R"(","size":)" + size + R"(,"value":)" + value + "}";
}
std::string num(const std::string& v) { return J("double", "[1,1]", "[" + v + "]"); }
std::string chr(const std::string& v) { return J("char", "[1,1]", "\"" + v + "\""); }

class QfsTest : public LiveArrayTest {};

TEST_F(QfsTest, ValuesHaveTheirClassSizeAndElements) {
    // clang-format off
    struct Row { std::string text, json; };
    const std::vector<Row> rows = {
        // A sign after a blank starts a new element; 1e999 overflows to Inf.
        {"[1 -2.5e3 .5 +3 1E-3 007 1e999 Inf -Inf NaN -NaN]", J("double", "[1,11]", R"([1.0,-2500.0,0.5,3.0,0.001,7.0,"Inf","Inf","-Inf","NaN","NaN"])")},
        {"[1.5, NaN; Inf -Inf]", J("double", "[2,2]", R"([1.5,"Inf","NaN","-Inf"])")},
        // Quotes double inside their own kind of literal; '' is 0x0, "" is not missing.
        {"'it''s'", J("char", "[1,4]", R"("it's")")},
        {"'say \"x\"'", J("char", "[1,7]", R"("say \"x\"")")},
        {"''", J("char", "[0,0]", R"("")")},
        {"'\xc3\xa9t\xc3\xa9'", J("char", "[1,3]", "\"\xc3\xa9t\xc3\xa9\"")},
        {"'\xf0\x9f\x98\x80'", J("char", "[1,2]", "\"\xf0\x9f\x98\x80\"")},  // a surrogate pair
        {R"("say ""hi""")", J("string", "[1,1]", R"(["say \"hi\""])")},
        {"\"\"", J("string", "[1,1]", R"([""])")},
        {"missing", J("string", "[1,1]", "[null]")},
        // Concatenation, column-major; 0x0 pieces drop out; a trailing ';' adds no row.
        {"[]", J("double", "[0,0]", "[]")},
        {"[[1;2] [3;4], [5;6]]", J("double", "[2,3]", "[1.0,2.0,3.0,4.0,5.0,6.0]")},
        {"[[1 2]; [3 4]; 5 6]", J("double", "[3,2]", "[1.0,3.0,5.0,2.0,4.0,6.0]")},
        {"[[] 7 []]", J("double", "[1,1]", "[7.0]")},
        {"[1, 2;]", J("double", "[1,2]", "[1.0,2.0]")},
        {"[true false; false true]", J("logical", "[2,2]", "[true,false,false,true]")},
        {R"(["a" missing; "" "d"])", J("string", "[2,2]", R"(["a","",null,"d"])")},
        {"['ab' 'cd']", J("char", "[1,4]", R"("abcd")")},
        {"['ab'; 'cd'; 'ef']", J("char", "[3,2]", R"("acebdf")")},
        {"[{1} {2, 3}]", J("cell", "[1,3]", "[" + num("1.0") + "," + num("2.0") + "," + num("3.0") + "]")},
        // Structs join by field name, not position; a literal keeps the order written.
        {"[struct('a', 1, 'b', 'x') struct('b', 'y', 'a', 2)]", R"({"class":"struct","size":[1,2],"fields":["a","b"],"value":[{"a":)" + num("1.0") + R"(,"b":)" + chr("x") + R"(},{"a":)" + num("2.0") + R"(,"b":)" + chr("y") + "}]}"},
        {"struct('Zeta', [1 2], \"Alpha\", {'x'}, 'Mid', struct())", R"({"class":"struct","size":[1,1],"fields":["Zeta","Alpha","Mid"],"value":[{"Zeta":)" + J("double", "[1,2]", "[1.0,2.0]") + R"(,"Alpha":)" + J("cell", "[1,1]", "[" + chr("x") + "]") + R"(,"Mid":{"class":"struct","size":[1,1],"fields":[],"value":[{}]}}]})"},
        {"{}", J("cell", "[0,0]", "[]")},
        {"{1, 'a'; \"s\" {true, {}}}", J("cell", "[2,2]", "[" + num("1.0") + "," + J("string", "[1,1]", R"(["s"])") + "," + chr("a") + "," + J("cell", "[1,2]", "[" + J("logical", "[1,1]", "[true]") + "," + J("cell", "[0,0]", "[]") + "]") + "]")},
        // Sized constructors (trailing 1s drop), reshape, logical and repmat.
        {"strings(2, 3)", J("string", "[2,3]", R"(["","","","","",""])")},
        {"strings(0, 2)", J("string", "[0,2]", "[]")},
        {"cell(1, 2)", J("cell", "[1,2]", "[null,null]")},
        {"zeros(2)", J("double", "[2,2]", "[0.0,0.0,0.0,0.0]")},
        {"zeros(2, 2, 1)", J("double", "[2,2]", "[0.0,0.0,0.0,0.0]")},
        {"false(0, 3)", J("logical", "[0,3]", "[]")},
        {"reshape([1 2 3 4 5 6 7 8], 2, 2, 2)", J("double", "[2,2,2]", "[1.0,2.0,3.0,4.0,5.0,6.0,7.0,8.0]")},
        {R"(reshape(["a" missing "c" "d"], 2, 1, 2))", J("string", "[2,1,2]", R"(["a",null,"c","d"])")},
        {"logical([1 0 -2 Inf])", J("logical", "[1,4]", "[true,false,true,true]")},
        {"repmat([1; 2], 1, 3)", J("double", "[2,3]", "[1.0,2.0,1.0,2.0,1.0,2.0]")},
        {"repmat('ab', 2, 2)", J("char", "[2,4]", R"("aabbaabb")")},
        {"repmat(missing, 2)", J("string", "[2,2]", "[null,null,null,null]")},
        // Ranges (a last element a rounding short counts; none when the step points away)
        // and string() of numbers, logicals and text.
        {"[0:0.25:1, 3 : 1]", J("double", "[1,5]", "[0.0,0.25,0.5,0.75,1.0]")},
        {"0:0.1:0.3", J("double", "[1,4]", "[0.0,0.1,0.2,0.30000000000000004]")},
        {"5:-2:0", J("double", "[1,3]", "[5.0,3.0,1.0]")},
        {"string([-0 1e20 0.1 -2.5 NaN -Inf 12345678901])", J("string", "[1,7]", R"(["0","1e+20","0.1","-2.5","NaN","-Inf","12345678901"])")},
        {"string([true; false])", J("string", "[2,1]", R"(["true","false"])")},
        {"string('ab')", J("string", "[1,1]", R"(["ab"])")},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(qfs::jsonLine(qfs::toJson(parseValue(r.text).get())), r.json);
    }
    // What the --json line cannot show: the escaped byte and the separate copies.
    EXPECT_EQ(charsOf(parseValue("'a\xffz'").get()), (fl::ustring{u'a', char16_t{0xDCFF}, u'z'}));
    auto structs = parseValue("repmat(struct('a', {1}), 2, 1)");
    EXPECT_NE(vqGetField(structs.get(), 0, "a"), vqGetField(structs.get(), 1, "a"));
}

// The column a parse error names; -1 when the text parsed, -2 for another exception.
long long errorColumn(const std::string& text, bool statement) {
    try {
        statement ? (void)parseStatement(text) : (void)parseValue(text);
    } catch (const qfs::ParseErrorException& e) {
        const auto& args = e.GetBaseMsgIDObj().getArgs();
        EXPECT_EQ(args.size(), 2U);
        return std::get<std::int64_t>(args.at(0));
    } catch (...) {
        return -2;
    }
    return -1;
}

TEST_F(QfsTest, ParseErrorsNameTheColumnWhereTheProblemStartsAndReleaseWhatWasBuilt) {
    // clang-format off
    struct Row { std::string text; long long column; bool statement = false; };
    // Unlike classes, unequal rows or columns, fields or pages; unterminated text, ragged
    // cells, unclosed brackets, empty elements, arithmetic, malformed numbers; bad sizes;
    // unpaired, invalid or repeated fields; reshape changing the count; NaN and text as
    // truth values; sizes past the element limit (also where the product overflows); two
    // values, none; columns count characters, not bytes.
    const std::vector<Row> rows = {
        {"[1 'a']", 4}, {"[true 1]", 7}, {"[\"a\" 'b']", 6}, {"['ab'; 'c']", 8}, {"[[1 2]; [1 2 3]]", 9},
        {"[[1; 2] 3]", 9}, {"[struct('a', 1) struct('b', 1)]", 17}, {"[reshape(zeros(1, 8), 2, 2, 2) 1]", 2},
        {"'abc", 1}, {"\"abc", 1}, {"{1, 2; 3}", 8}, {"[1 2", 1}, {"{1", 1}, {"[1, , 2]", 5}, {"[1 - 2]", 4},
        {"1abc", 2}, {"1.2.3", 4}, {"1e", 1}, {"zeros", 6}, {"zeros()", 1},
        {"zeros(-1)", 7}, {"zeros(1.5)", 7}, {"zeros('a')", 7}, {"struct('a')", 1}, {"struct(1, 2)", 8},
        {"struct('1a', 2)", 8}, {"struct('a', 1, 'a', 2)", 16}, {"reshape([1 2 3], 2, 2)", 1},
        {"reshape([1 2], 2)", 1}, {"logical(NaN)", 1}, {"logical('a')", 1}, {"repmat(1)", 1},
        {"zeros(4097, 4097)", 1}, {"repmat([1 2], 1, 8388609)", 1}, {"cell(1e12, 1e12, 1e12)", 1},
        {"1:'a'", 3}, {"1:2:3:4", 6}, {"0:1e9", 1}, {"string({1})", 1}, {"string(1, 2)", 1},
        {"1 2", 3}, {"", 1}, {"\xc3\xa9", 1}, {"'\xc3\xa9\xc3\xa9' x", 6},
        // Statements; the last three fail after earlier arguments were built.
        {"f(1 2)", 5, true}, {"f(1", 2, true}, {"f(1) x", 6, true}, {"x == f(1)", 3, true}, {"x = ", 5, true},
        {"x = 3 4", 7, true}, {"[] = f()", 1, true},
        {"[a, 1] = f()", 5, true}, {"1 = f()", 3, true}, {"f(1);;", 6, true}, {"f('a' % not closed", 2, true},
        {"f({1, 'a', [1 2 3], struct('a', {2})}, [1 'x'])", 43, true},
        {"f(strings(3), cell(2), reshape([1 2], 3, 1))", 24, true},
        {"f(repmat({1}, 2), struct('a', 1, 'a', 2))", 34, true},
        // Deep nesting is an error at the limit, not a stack overflow.
        {std::string(100000, '[') + "1" + std::string(100000, ']'), 201},
        {"f(" + std::string(5000, '{') + std::string(5000, '}') + ")", 203, true},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text.substr(0, 60));
        const LiveArrayGuard guard;
        EXPECT_EQ(errorColumn(r.text, r.statement), r.column);
    }
    EXPECT_TRUE(vqIsCell(parseValue(std::string(150, '{') + "1" + std::string(150, '}')).get()));
}

TEST_F(QfsTest, StatementsKindsNamesOutputsAndSuppression) {
    using K = qfs::Statement::Kind;
    // clang-format off
    struct Row { const char* text; K kind; const char* name; std::vector<std::string> outputs; std::size_t args; bool suppressed; };
    const std::vector<Row> rows = {
        {"x = pathFcn(\"a/b\", 'unix');  % split it", K::Call, "pathFcn", {"x"}, 2, true},
        {"  [tf, ~ targets] = isSymlinkFcn({'/a', '/b'})", K::Call, "isSymlinkFcn", {"tf", "~", "targets"}, 1, false},
        {"createWindowsShortcutFcn", K::Call, "createWindowsShortcutFcn", {}, 0, false},
        {"mkSymlinkFcn( )\r", K::Call, "mkSymlinkFcn", {}, 0, false},
        {"   \t", K::Empty, "", {}, 0, false},
        {"% createFileURL('x')", K::Empty, "", {}, 0, false},
        {"help", K::Help, "", {}, 0, false},
        {"help pathFcn  % what does it do", K::Help, "pathFcn", {}, 0, false},
        // With a variable r: a bare name shows it, other values go to ans or a target.
        {"r", K::Value, "r", {}, 1, false},
        {"t = r(1).Type;", K::Value, "", {"t"}, 1, true},
        {"[1 2]", K::Value, "", {}, 1, false},
        {"who", K::Who, "", {}, 0, false},
        {"clear r t", K::Clear, "", {"r", "t"}, 0, false},
        {"nosuch(r)", K::Call, "nosuch", {}, 1, false},
    };
    // clang-format on
    auto known = parseValue("struct('Type', \"File\")");
    const qfs::Variables vars{
        [&](std::string_view n) -> const vqArray* { return n == "r" ? known.get() : nullptr; },
        [] { return std::vector<std::string>{"r"}; }};
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text);
        const qfs::Statement s = parseStatement(r.text, &vars);
        EXPECT_EQ(s.kind, r.kind);
        EXPECT_EQ(s.name, r.name);
        EXPECT_EQ(s.outputs, r.outputs);
        EXPECT_EQ(s.args.size(), r.args);
        EXPECT_EQ(s.suppressed, r.suppressed);
    }
}

TEST_F(QfsTest, JsonOfWhatTheReaderCannotWrite) {
    auto i32 = numericArray(vqINT32_CLASS, {1, 2});
    const std::int32_t v[2] = {-7, 2147483647};
    std::memcpy(vqGetData(i32.get()), v, sizeof v);
    auto u64 = numericArray(vqUINT64_CLASS, {1, 1});
    const std::uint64_t big = 18446744073709551615ULL;
    std::memcpy(vqGetData(u64.get()), &big, sizeof big);
    auto unset = vqCreateStructArray({1, 1}, {"Empty"});
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    // A byte that is not UTF-8 travels as an escaped code unit and is written as one, so
    // that a\xffb and a\xfeb stay apart; any other lone surrogate becomes U+FFFD.
    auto notUtf8 = stringScalar(fl::i18n::to_ustring(std::string("a\xff") + "b"));
    auto lone = charRow(fl::ustring{u'x', char16_t{0xD800}});
    // clang-format off
    struct Row { const vqArray* value; const char* json; };
    for (const Row& r : {
             Row{i32.get(), R"({"class":"int32","size":[1,2],"value":[-7,2147483647]})"},
             Row{u64.get(), R"({"class":"uint64","size":[1,1],"value":[18446744073709551615]})"},
             Row{unset.get(), R"({"class":"struct","size":[1,1],"fields":["Empty"],"value":[{"Empty":null}]})"},
             Row{none.get(), R"({"class":"struct","size":[0,0],"fields":["Name","Cause"],"value":[]})"},
             Row{notUtf8.get(), R"({"class":"string","size":[1,1],"value":["a\udcffb"]})"},
             Row{lone.get(), "{\"class\":\"char\",\"size\":[1,2],\"value\":\"x\xef\xbf\xbd\"}"}}) {
        // clang-format on
        SCOPED_TRACE(r.json);
        std::string out;
        ASSERT_NO_THROW(out = qfs::jsonLine(qfs::toJson(r.value)));
        EXPECT_EQ(out, r.json);
        std::string streamed;
        qfs::writeTyped(streamed, r.value);
        EXPECT_EQ(streamed, r.json);
    }
    // Error arguments keep their kinds; an exception without identifier keeps its text.
    const std::vector<resource_core::MessageArg> args{std::int64_t{12}, std::string("8-bit"),
                                                      fl::ustring(u"UTF-16 \u00e9")};
    EXPECT_EQ(
        qfs::jsonLine(qfs::errorJson("QUORIN:x:y", "text", args)),
        R"({"error":{"identifier":"QUORIN:x:y","message":"text","arguments":[12,"8-bit","UTF-16 )"
        "\xc3\xa9\"]}}");
    const qfs::ErrorReport plain =
        qfs::describeError(std::make_exception_ptr(std::runtime_error("refused")));
    EXPECT_EQ(plain.identifier + "|" + plain.message, "|refused");
}

// The plain form's shapes; the case tables check it against the typed form for every row.
TEST_F(QfsTest, PlainJsonShapes) {
    // clang-format off
    struct Row { const char* value; const char* plain; };
    for (const Row& r : {
             Row{"[1 2; 3 4]", "[[1.0,2.0],[3.0,4.0]]"},
             Row{"reshape([1 2 3 4], 1, 2, 2)", "[[[1.0,2.0]],[[3.0,4.0]]]"},
             Row{"['ab'; 'cd']", R"(["ab","cd"])"},
             Row{"{'a'}", R"(["a"])"},
             Row{"cell(1, 2)", "[null,null]"},
             Row{"[NaN missing]", "error"},
             Row{"[\"a\" missing]", R"(["a",null])"},
             Row{"struct('A', [], 'B', struct('C', true))", R"({"A":[],"B":{"C":true}})"},
             Row{"[struct('A', 1); struct('A', 2)]", R"([{"A":1.0},{"A":2.0}])"},
             Row{"zeros(0, 3)", "[]"}}) {
        // clang-format on
        SCOPED_TRACE(r.value);
        if (std::string(r.plain) == "error") {
            EXPECT_ANY_THROW(parseValue(r.value));
            continue;
        }
        std::string out;
        qfs::writePlain(out, parseValue(r.value).get());
        EXPECT_EQ(out, r.plain);
    }
}

TEST_F(QfsTest, VariablesFieldsAndSubscripts) {
    auto r = parseValue(
        "[struct('Type', \"File\", 'Size', [10 20 30]); struct('Type', \"Folder\", 'Size', [])]");
    auto c = parseValue("{'a', [1 2; 3 4]}");
    const qfs::Variables vars{[&](std::string_view n) -> const vqArray* {
                                  return n == "r" ? r.get() : n == "c" ? c.get() : nullptr;
                              },
                              [] {
                                  return std::vector<std::string>{"r", "c"};
                              }};
    const auto json = [&](const std::string& text) {
        const qfs::Statement s = parseStatement("v = " + text, &vars);
        return qfs::jsonLine(qfs::toJson(s.args.at(0).get()));
    };
    // clang-format off
    struct Row { const char* text; std::string json; };
    for (const Row& row : {
             Row{"r(2).Type", J("string", "[1,1]", R"(["Folder"])")},
             Row{"r(1).Size(end)", num("30.0")},
             Row{"r(1).Size([3 1])", J("double", "[1,2]", "[30.0,10.0]")},
             Row{"r(2).Size", J("double", "[0,0]", "[]")},
             Row{"c{2}(2, :)", J("double", "[1,2]", "[3.0,4.0]")},
             Row{"c{2}(:)", J("double", "[4,1]", "[1.0,3.0,2.0,4.0]")},
             Row{"c(1)", J("cell", "[1,1]", R"([{"class":"char","size":[1,1],"value":"a"}])")},
             Row{"{r(1).Type}", J("cell", "[1,1]", R"([{"class":"string","size":[1,1],"value":["File"]}])")}}) {
        // clang-format on
        SCOPED_TRACE(row.text);
        EXPECT_EQ(json(row.text), row.json);
    }
    // Mistakes are parse errors at the subscript or field they concern.
    for (const auto& [text, column] : std::vector<std::pair<const char*, std::int64_t>>{
             {"r(3)", 6}, {"r.Type", 7}, {"r(1).Name", 10}, {"c{[1 2]}", 6}, {"c{0}", 7}}) {
        SCOPED_TRACE(text);
        try {
            (void)parseStatement(std::string("v = ") + text, &vars);
            ADD_FAILURE() << "accepted";
        } catch (const foundation::core::except::IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), "QUORIN:qfs:ParseError");
            EXPECT_EQ(std::get<std::int64_t>(e.GetBaseMsgIDObj().getArgs().at(0)), column);
        }
    }
    // A near name is suggested; "..." continues a line outside quotes only.
    EXPECT_EQ(qfs::nearest("pathfcn", {"pathFcn", "relativepath"}), "pathFcn");
    EXPECT_EQ(qfs::nearest("zzz", {"pathFcn"}), "");
    EXPECT_EQ(qfs::continuedPart("x = [1 2 ...  % more"), "x = [1 2  ");
    EXPECT_EQ(qfs::continuedPart("x = '...'"), std::nullopt);
}

// Variables hold host arrays until clear or the session's end; nothing else stays.
TEST_F(QfsTest, ClearAndTheSessionsEndReleaseEveryVariable) {
    const qfs::Library library(qfs::Library::defaultPath());
    std::ostringstream err;
    const long start = vqLiveArrayCount();
    std::vector<qfs::Json> answers;
    {
        qfs::Session session(library, err, [&](qfs::Answer a) { answers.push_back(a.typed); });
        for (const char* s : {"r = resolvePathFcn({'/'; '/no/such'});",
                              "p = pathFcn(r(1).ResolvedPath, 'unix');", "isSymlinkFcn('/')"})
            session.run(s);
        EXPECT_EQ(session.variableNames(), (std::vector<std::string>{"ans", "p", "r"}));
        session.run("clear r");
        session.run("x = r");  // gone
        session.run("clear");
        EXPECT_EQ(vqLiveArrayCount(), start);
        session.run("c = {struct('a', {1}), 'b'}");
        EXPECT_GT(vqLiveArrayCount(), start);
    }
    EXPECT_EQ(vqLiveArrayCount(), start);
    EXPECT_EQ(err.str(), "");
    ASSERT_EQ(answers.size(), 5U);
    EXPECT_EQ(answers[3]["error"]["identifier"], "QUORIN:qfs:UnknownName");
}

TEST_F(QfsTest, DisplayOfEachKindOfValue) {
    // clang-format off
    struct Row { const char* name; const char* value; const char* shown; };
    const Row rows[] = {
        {"x", "-0.125", "x =\n    -0.125\n"},
        {"s", "missing", "s =\n    <missing>\n"},
        // Numbers align right, text left.
        {"m", "[1 -20; 300 NaN]", "m =\n  2\u00d72 double array\n      1   -20\n    300   NaN\n"},
        {"s", "[\"file\" missing; \"\" \"longer one\"]", "s =\n  2\u00d72 string array\n    \"file\"   <missing>\n    \"\"       \"longer one\"\n"},
        {"c", "['ab'; 'cd']", "c =\n  2\u00d72 char array\n    'ab'\n    'cd'\n"},
        {"e", "''", "e =\n  0\u00d70 empty char array\n"},
        {"e", "strings(0, 3)", "e =\n  0\u00d73 empty string array\n"},
        {"c", "{'a', \"b\", 3, true; missing, [1 2], {1}, ['ab'; 'cd']}", "c =\n  2\u00d74 cell array\n    {'a'}           {[\"b\"]}        {[3]}        {[1]}\n    {[<missing>]}   {1\u00d72 double}   {1\u00d71 cell}   {2\u00d72 char}\n"},
        {"c", "cell(1, 1)", "c =\n  1\u00d71 cell array\n    {0\u00d70 double}\n"},
        {"i", "struct('ResolvedPath', \"/tmp/a\", 'Readable', true, 'Extension', missing, 'Empty', [], 'Parts', [1 2], 'Note', '', 'Cells', {1}, 'Inner', struct())", "i =\n  struct with fields:\n    ResolvedPath: \"/tmp/a\"\n        Readable: 1\n       Extension: <missing>\n           Empty: []\n           Parts: [1\u00d72 double]\n            Note: ''\n           Cells: {1\u00d71 cell}\n           Inner: [1\u00d71 struct]\n"},
        {"s", "struct()", "s =\n  struct with no fields.\n"},
        {"f", "[struct('Name', \"/a\", 'Cause', \"denied\"); struct('Name', \"/b\", 'Cause', \"gone\")]", "f =\n  2\u00d71 struct array with fields:\n    Name\n    Cause\n  f(1) =\n     Name: \"/a\"\n    Cause: \"denied\"\n  f(2) =\n     Name: \"/b\"\n    Cause: \"gone\"\n"},
        {"p", "reshape([1 2 3 4], 1, 2, 2)", "p =\n  1\u00d72\u00d72 double array\n  (:,:,1) =\n    1   2\n  (:,:,2) =\n    3   4\n"},
        {"q", "reshape('abcd', 2, 1, 2)", "q =\n  2\u00d71\u00d72 char array\n  (:,:,1) =\n    'a'\n    'b'\n  (:,:,2) =\n    'c'\n    'd'\n"},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.value);
        EXPECT_EQ(qfs::displayValue(r.name, parseValue(r.value).get()), r.shown);
    }
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    EXPECT_EQ(qfs::displayValue("f", none.get()),
              "f =\n  0\u00d70 empty struct array with fields:\n    Name\n    Cause\n");
    EXPECT_EQ(qfs::displayValue("c", nullptr), "c =\n  (not assigned)\n");
    constexpr double kInf = std::numeric_limits<double>::infinity();
    std::string numbers;
    for (const double d : {1763764800123.0, -0.0, 0.1, 1e300, kInf, -kInf})
        numbers += qfs::formatNumber(d) + " ";
    EXPECT_EQ(numbers, "1763764800123 0 0.1 1e+300 Inf -Inf ");
}

TEST(QfsLibraryTest, ALibraryWithoutTheLoadHookIsRefused) {
    try {
        const qfs::Library library(QFS_HOOKLESS_LIBRARY);
        ADD_FAILURE() << "loaded";
    } catch (...) {
        const qfs::ErrorReport r = qfs::describeError(std::current_exception());
        EXPECT_EQ(r.identifier, "QUORIN:qfs:LibraryNotLoaded");
        EXPECT_NE(r.message.find(qfs::kLoadHook), std::string::npos) << r.message;
    }
}

// Each mangled symbol must demangle to a signature the library's export map lists, so
// dlsym finds every built-in, and the call must use the pointer type it declares.
TEST(QfsGatewayTableTest, TheSymbolsAreTheExportMapsSignatures) {
    std::ifstream map(ZKFS_EXPORT_MAP);
    ASSERT_TRUE(map) << ZKFS_EXPORT_MAP;
    std::set<std::string> exported;
    std::set<std::string> symbols;
    for (std::string line; std::getline(map, line);) {
        const auto open = line.find('"');
        const auto close = line.rfind('"');
        if (open != close && line.find('(') != std::string::npos)
            exported.insert(line.substr(open + 1, close - open - 1));
    }
    for (const auto& g : qfs::gateways()) {
        int status = 0;
        const std::unique_ptr<char, decltype(&std::free)> text(
            abi::__cxa_demangle(g.symbol, nullptr, nullptr, &status), &std::free);
        ASSERT_EQ(status, 0) << g.symbol;
        const std::string signature = text.get();
        symbols.insert(signature);
        const std::string call = std::string(g.name) + "(";
        EXPECT_TRUE(signature.starts_with(call) || signature.find("::" + call) != std::string::npos)
            << signature;
        EXPECT_EQ(g.mutableArgsPointer, signature.ends_with("vqArray const**)")) << signature;
    }
    EXPECT_EQ(symbols, exported);
}

}  // namespace
