// Display snapshots: the exact text qfs prints for each kind of value.
#include "qfs/Display.hpp"
#include "qfs/Parser.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using qfs::displayValue;

std::string show(const std::string& name, const std::string& value) {
    return displayValue(name, qfs::parseValue(value).get());
}

class QfsDisplayTest : public zkfs::test::LiveArrayTest {};

TEST_F(QfsDisplayTest, Scalars) {
    EXPECT_EQ(show("x", "8080"), "x =\n    8080\n");
    EXPECT_EQ(show("x", "-0.125"), "x =\n    -0.125\n");
    EXPECT_EQ(show("x", "NaN"), "x =\n    NaN\n");
    EXPECT_EQ(show("tf", "true"), "tf =\n  logical\n    1\n");
    EXPECT_EQ(show("s", "\"a b\""), "s =\n    \"a b\"\n");
    EXPECT_EQ(show("s", "missing"), "s =\n    <missing>\n");
    EXPECT_EQ(show("c", "'/tmp/x'"), "c =\n    '/tmp/x'\n");
}

TEST_F(QfsDisplayTest, NumberFormats) {
    EXPECT_EQ(qfs::formatNumber(1763764800123.0), "1763764800123");
    EXPECT_EQ(qfs::formatNumber(-0.0), "0");
    EXPECT_EQ(qfs::formatNumber(0.1), "0.1");
    EXPECT_EQ(qfs::formatNumber(1e300), "1e+300");
    EXPECT_EQ(qfs::formatNumber(INFINITY), "Inf");
    EXPECT_EQ(qfs::formatNumber(-INFINITY), "-Inf");
}

TEST_F(QfsDisplayTest, ArraysShowSizeClassAndAlignedRows) {
    EXPECT_EQ(show("tf", "[true false true]"), "tf =\n  1\u00d73 logical array\n    1   0   1\n");
    EXPECT_EQ(show("m", "[1 -20; 300 NaN]"),
              "m =\n"
              "  2\u00d72 double array\n"
              "      1   -20\n"
              "    300   NaN\n");
    EXPECT_EQ(show("s", "[\"file\" missing; \"\" \"longer one\"]"),
              "s =\n"
              "  2\u00d72 string array\n"
              "    \"file\"   <missing>\n"
              "    \"\"       \"longer one\"\n");
    EXPECT_EQ(show("c", "['ab'; 'cd']"), "c =\n  2\u00d72 char array\n    'ab'\n    'cd'\n");
}

TEST_F(QfsDisplayTest, EmptyArrays) {
    EXPECT_EQ(show("e", "[]"), "e =\n  0\u00d70 empty double array\n");
    EXPECT_EQ(show("e", "''"), "e =\n  0\u00d70 empty char array\n");
    EXPECT_EQ(show("e", "strings(0, 3)"), "e =\n  0\u00d73 empty string array\n");
    EXPECT_EQ(show("e", "{}"), "e =\n  0\u00d70 empty cell array\n");
}

TEST_F(QfsDisplayTest, CellsSummariseTheirElements) {
    EXPECT_EQ(show("c", "{'a', \"b\", 3, true; missing, [1 2], {1}, ['ab'; 'cd']}"),
              "c =\n"
              "  2\u00d74 cell array\n"
              "    {'a'}"
              "           "
              "{[\"b\"]}"
              "        "
              "{[3]}"
              "        "
              "{[1]}\n"
              "    {[<missing>]}   {1\u00d72 double}   {1\u00d71 cell}   {2\u00d72 char}\n");
    EXPECT_EQ(show("c", "cell(1, 1)"), "c =\n  1\u00d71 cell array\n    {0\u00d70 double}\n");
}

TEST_F(QfsDisplayTest, ScalarStructAlignsFieldNames) {
    EXPECT_EQ(show("info",
                   "struct('ResolvedPath', \"/tmp/a\", 'Type', \"File\", 'Readable', true, "
                   "'Port', NaN, 'Extension', missing, 'Empty', [], 'Parts', [1 2], "
                   "'Note', '', 'Cells', {1}, 'Inner', struct())"),
              "info =\n"
              "  struct with fields:\n"
              "    ResolvedPath: \"/tmp/a\"\n"
              "            Type: \"File\"\n"
              "        Readable: 1\n"
              "            Port: NaN\n"
              "       Extension: <missing>\n"
              "           Empty: []\n"
              "           Parts: [1\u00d72 double]\n"
              "            Note: ''\n"
              "           Cells: {1\u00d71 cell}\n"
              "           Inner: [1\u00d71 struct]\n");
    EXPECT_EQ(show("s", "struct()"), "s =\n  struct with no fields.\n");
}

TEST_F(QfsDisplayTest, StructArraysListFieldsThenElements) {
    EXPECT_EQ(show("f",
                   "[struct('Name', \"/a\", 'Cause', \"denied\"); struct('Name', \"/b\", 'Cause', "
                   "\"gone\")]"),
              "f =\n"
              "  2\u00d71 struct array with fields:\n"
              "    Name\n"
              "    Cause\n"
              "  f(1) =\n"
              "     Name: \"/a\"\n"
              "    Cause: \"denied\"\n"
              "  f(2) =\n"
              "     Name: \"/b\"\n"
              "    Cause: \"gone\"\n");
    auto none = vqCreateStructArray({0, 0}, {"Name", "Cause"});
    EXPECT_EQ(displayValue("f", none.get()),
              "f =\n  0\u00d70 empty struct array with fields:\n    Name\n    Cause\n");
}

TEST_F(QfsDisplayTest, ThreeDimensionalArraysShowPages) {
    EXPECT_EQ(show("p", "reshape([1 2 3 4], 1, 2, 2)"),
              "p =\n"
              "  1\u00d72\u00d72 double array\n"
              "  (:,:,1) =\n"
              "    1   2\n"
              "  (:,:,2) =\n"
              "    3   4\n");
    EXPECT_EQ(show("q", "reshape('abcd', 2, 1, 2)"),
              "q =\n"
              "  2\u00d71\u00d72 char array\n"
              "  (:,:,1) =\n"
              "    'a'\n"
              "    'b'\n"
              "  (:,:,2) =\n"
              "    'c'\n"
              "    'd'\n");
}

TEST_F(QfsDisplayTest, UnassignedOutput) {
    EXPECT_EQ(displayValue("x", nullptr), "x =\n  (not assigned)\n");
}

}  // namespace
