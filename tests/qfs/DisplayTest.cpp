// Display snapshots: the exact text qfs prints for each kind of value. The simplest ones
// (a scalar of each class, a 2x2 logical, an unassigned output) are in the end-to-end run.
#include "qfs/Display.hpp"
#include "qfs/Parser.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

class QfsDisplayTest : public zkfs::test::LiveArrayTest {};

TEST_F(QfsDisplayTest, EachKindOfValue) {
    // clang-format off
    struct Row { const char* name; const char* value; const char* shown; };
    const Row rows[] = {
        Row{"x", "-0.125", "x =\n    -0.125\n"},
        Row{"x", "NaN", "x =\n    NaN\n"},
        Row{"s", "missing", "s =\n    <missing>\n"},
        // Numbers align right, text left.
        Row{"m", "[1 -20; 300 NaN]", "m =\n  2\u00d72 double array\n      1   -20\n    300   NaN\n"},
        Row{"s", "[\"file\" missing; \"\" \"longer one\"]", "s =\n  2\u00d72 string array\n" "    \"file\"   <missing>\n" "    \"\"       \"longer one\"\n"},
        Row{"c", "['ab'; 'cd']", "c =\n  2\u00d72 char array\n    'ab'\n    'cd'\n"},
        Row{"e", "[]", "e =\n  0\u00d70 empty double array\n"},
        Row{"e", "''", "e =\n  0\u00d70 empty char array\n"},
        Row{"e", "strings(0, 3)", "e =\n  0\u00d73 empty string array\n"},
        Row{"e", "{}", "e =\n  0\u00d70 empty cell array\n"},
        Row{"c", "{'a', \"b\", 3, true; missing, [1 2], {1}, ['ab'; 'cd']}", "c =\n  2\u00d74 cell array\n" "    {'a'}           {[\"b\"]}        {[3]}        {[1]}\n" "    {[<missing>]}   {1\u00d72 double}   {1\u00d71 cell}   {2\u00d72 char}\n"},
        Row{"c", "cell(1, 1)", "c =\n  1\u00d71 cell array\n    {0\u00d70 double}\n"},
        Row{"info", "struct('ResolvedPath', \"/tmp/a\", 'Type', \"File\", 'Readable', true, " "'Port', NaN, 'Extension', missing, 'Empty', [], 'Parts', [1 2], " "'Note', '', 'Cells', {1}, 'Inner', struct())", "info =\n  struct with fields:\n" "    ResolvedPath: \"/tmp/a\"\n" "            Type: \"File\"\n" "        Readable: 1\n" "            Port: NaN\n" "       Extension: <missing>\n" "           Empty: []\n" "           Parts: [1\u00d72 double]\n" "            Note: ''\n" "           Cells: {1\u00d71 cell}\n" "           Inner: [1\u00d71 struct]\n"},
        Row{"s", "struct()", "s =\n  struct with no fields.\n"},
        Row{"f", "[struct('Name', \"/a\", 'Cause', \"denied\"); " "struct('Name', \"/b\", 'Cause', \"gone\")]", "f =\n  2\u00d71 struct array with fields:\n    Name\n    Cause\n" "  f(1) =\n     Name: \"/a\"\n    Cause: \"denied\"\n" "  f(2) =\n     Name: \"/b\"\n    Cause: \"gone\"\n"},
        Row{"p", "reshape([1 2 3 4], 1, 2, 2)", "p =\n  1\u00d72\u00d72 double array\n" "  (:,:,1) =\n    1   2\n  (:,:,2) =\n    3   4\n"},
        Row{"q", "reshape('abcd', 2, 1, 2)", "q =\n  2\u00d71\u00d72 char array\n" "  (:,:,1) =\n    'a'\n    'b'\n  (:,:,2) =\n    'c'\n    'd'\n"},
    };
    // clang-format on
    for (const Row& r : rows) {
        SCOPED_TRACE(r.value);
        EXPECT_EQ(qfs::displayValue(r.name, qfs::parseValue(r.value).get()), r.shown);
    }
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    EXPECT_EQ(qfs::displayValue("f", none.get()),
              "f =\n  0\u00d70 empty struct array with fields:\n    Name\n    Cause\n");
}

TEST_F(QfsDisplayTest, NumberFormats) {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    // clang-format off
    struct Row { double value; const char* text; };
    // clang-format on
    for (const Row& r : {Row{1763764800123.0, "1763764800123"}, Row{-0.0, "0"}, Row{0.1, "0.1"},
                         Row{1e300, "1e+300"}, Row{kInf, "Inf"}, Row{-kInf, "-Inf"}}) {
        SCOPED_TRACE(r.text);
        EXPECT_EQ(qfs::formatNumber(r.value), r.text);
    }
}

}  // namespace
