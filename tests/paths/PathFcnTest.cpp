// pathFcn and getPathConstituentsCaller: fields, conventions, input forms.
#include "PathsTestSupport.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

namespace {

using namespace zkfs::test;
using namespace zkfs::test::paths;
using quorin::io::filesystem::quorin::getPathConstituentsCaller;
using quorin::io::filesystem::quorin::PathConstituents;
using quorin::io::filesystem::quorin::pathFcn;

const std::vector<std::string> kFields = {"Parent", "Name", "Extension", "PathType", "IsAbsolute",
                                          "Host",   "Port", "Query",     "Fragment"};
const char* const kTextFields[] = {"Parent", "Name",  "Extension", "PathType",
                                   "Host",   "Query", "Fragment"};

// One element's fields; nullopt text for a missing string.
struct Element {
    StringElement parent, name, extension, pathType;
    bool isAbsolute;
    StringElement host;
    double port;  // NaN for none
    StringElement query, fragment;
};

void expectElement(const vqArray* s, std::size_t i, const Element& e) {
    SCOPED_TRACE("element " + std::to_string(i));
    EXPECT_EQ(stringField(s, i, "Parent"), e.parent);
    EXPECT_EQ(stringField(s, i, "Name"), e.name);
    EXPECT_EQ(stringField(s, i, "Extension"), e.extension);
    EXPECT_EQ(stringField(s, i, "PathType"), e.pathType);
    EXPECT_EQ(logicalField(s, i, "IsAbsolute"), e.isAbsolute);
    EXPECT_EQ(stringField(s, i, "Host"), e.host);
    const double port = doubleField(s, i, "Port");
    if (std::isnan(e.port)) {
        EXPECT_TRUE(std::isnan(port)) << port;
    } else {
        EXPECT_EQ(port, e.port);
    }
    EXPECT_EQ(stringField(s, i, "Query"), e.query);
    EXPECT_EQ(stringField(s, i, "Fragment"), e.fragment);
}

const double kNaN = std::nan("");
const StringElement kMissing = std::nullopt;
const Element kDefault{kMissing, kMissing, kMissing, kMissing, false,
                       kMissing, kNaN,     kMissing, kMissing};

class PathFcn : public LiveArrayTest {};

TEST_F(PathFcn, CountsAreCheckedFirst) {
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(doubleScalar(1), doubleScalar(1)), 2),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        call(pathFcn, ArgList(charRow(u"/a"), charRow(u"unix"), charRow(u"x"), charRow(u"y"))),
        "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList()), "QUORIN:NotEnoughInputs");
    // The convention is read for every path: the path alone is refused, never read past.
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(charRow(u"/a"))), "QUORIN:NotEnoughInputs");
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(doubleScalar(1))), "QUORIN:NotEnoughInputs");
}

TEST_F(PathFcn, ThirdInputIsNotUsed) {
    const auto r = call(pathFcn, ArgList(charRow(u"/a/b.txt"), charRow(u"unix"), doubleScalar(7)));
    EXPECT_EQ(stringField(r.get(), 0, "Name"), u"b");
}

TEST_F(PathFcn, UnixPathConstituents) {
    const auto r = call(
        pathFcn,
        ArgList(stringArray({1, 2}, {u"/data/raw/m-2024.csv", u"notes/readme"}), charRow(u"unix")));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, 2}));
    EXPECT_EQ(fieldNamesOf(r.get()), kFields);
    expectElement(
        r.get(), 0,
        {u"/data/raw", u"m-2024", u".csv", u"Local", true, kMissing, kNaN, kMissing, kMissing});
    // No extension: a missing string, never "".
    expectElement(
        r.get(), 1,
        {u"notes", u"readme", kMissing, u"Local", false, kMissing, kNaN, kMissing, kMissing});
}

TEST_F(PathFcn, UrlConstituents) {
    const auto r =
        call(pathFcn,
             ArgList(stringArray({2, 1}, {u"https://data.example.org:8080/v1/s.parquet?rev=3#top",
                                          u"https://data.example.org/v1/"}),
                     charRow(u"schema")));
    ASSERT_EQ(dimsOf(r.get()), (Dims{2, 1}));
    expectElement(r.get(), 0,
                  {u"https://data.example.org:8080/v1", u"s", u".parquet", u"URL", true,
                   u"data.example.org", 8080, u"rev=3", u"top"});
    expectElement(r.get(), 1,
                  {u"https://data.example.org/", u"v1", kMissing, u"URL", true, u"data.example.org",
                   kNaN, kMissing, kMissing});
}

TEST_F(PathFcn, ConventionsAreMatchedCaseSensitively) {
    const auto windows =
        call(pathFcn, ArgList(charRow(u"C:\\Users\\ana\\r.docx"), charRow(u"windows")));
    expectElement(
        windows.get(), 0,
        {u"C:\\Users\\ana", u"r", u".docx", u"Local", true, kMissing, kNaN, kMissing, kMissing});
    // "Windows" is no known convention: the platform's own rules apply, for which this
    // text is one relative name.
    for (const char16_t* other : {u"Windows", u"", u"WINDOWS", u"native", u"windows "}) {
        SCOPED_TRACE(fl::i18n::to_utf8(other));
        const auto r = call(pathFcn, ArgList(charRow(u"C:\\Users\\ana\\r.docx"), charRow(other)));
        expectElement(r.get(), 0,
                      {kMissing, u"C:\\Users\\ana\\r", u".docx", u"Local", false, kMissing, kNaN,
                       kMissing, kMissing});
    }
    const auto unc = call(pathFcn, ArgList(charRow(u"\\\\srv\\share\\f.txt"), charEmpty()));
    EXPECT_EQ(stringField(unc.get(), 0, "PathType"), u"Local");
    const auto uncWindows =
        call(pathFcn, ArgList(charRow(u"\\\\srv\\share\\f.txt"), charRow(u"windows")));
    EXPECT_EQ(stringField(uncWindows.get(), 0, "PathType"), u"UNC");
    EXPECT_EQ(stringField(uncWindows.get(), 0, "Host"), u"srv");
}

TEST_F(PathFcn, UrlsAreUrlsUnderEveryConvention) {
    const auto r = call(pathFcn, ArgList(charRow(u"http://h:81/a/b.c"), charRow(u"unix")));
    expectElement(r.get(), 0,
                  {u"http://h:81/a", u"b", u".c", u"URL", true, u"h", 81, kMissing, kMissing});
}

TEST_F(PathFcn, StringConventionsPairWithPathsElementByElement) {
    const auto r = call(
        pathFcn, ArgList(stringArray({1, 3}, {u"C:\\a\\b.txt", u"C:\\a\\b.txt", u"C:\\a\\b.txt"}),
                         stringArray({1, 3}, {u"windows", u"unix", u"schema"})));
    EXPECT_TRUE(logicalField(r.get(), 0, "IsAbsolute"));
    EXPECT_EQ(stringField(r.get(), 0, "Name"), u"b");
    EXPECT_FALSE(logicalField(r.get(), 1, "IsAbsolute"));
    EXPECT_EQ(stringField(r.get(), 1, "Name"), u"C:\\a\\b");
    EXPECT_EQ(stringField(r.get(), 2, "PathType"), u"URL");
    // A scalar string is not broadcast over several paths.
    EXPECT_IDENTIFIED_ERROR(
        call(pathFcn, ArgList(stringArray({1, 2}, {u"/a", u"/b"}), stringScalar(u"unix"))),
        "QUORIN:NotEnoughInputs");
    EXPECT_IDENTIFIED_ERROR(
        call(pathFcn, ArgList(stringArray({1, 2}, {u"/a", u"/b"}),
                              stringArray({1, 3}, {u"unix", u"unix", u"unix"}))),
        "QUORIN:TooManyInputs");
    // The shapes may differ; only the element order pairs them.
    const auto reshaped = call(pathFcn, ArgList(stringArray({2, 1}, {u"C:\\x", u"C:\\x"}),
                                                stringArray({1, 2}, {u"unix", u"windows"})));
    EXPECT_FALSE(logicalField(reshaped.get(), 0, "IsAbsolute"));
    EXPECT_TRUE(logicalField(reshaped.get(), 1, "IsAbsolute"));
}

TEST_F(PathFcn, SingleCharPathTakesAScalarArrayConvention) {
    const auto r = call(pathFcn, ArgList(charRow(u"C:\\x"), stringScalar(u"windows")));
    EXPECT_TRUE(logicalField(r.get(), 0, "IsAbsolute"));
    const auto c = call(pathFcn, ArgList(charRow(u"C:\\x"), cellRow(charRow(u"windows"))));
    EXPECT_TRUE(logicalField(c.get(), 0, "IsAbsolute"));
    EXPECT_IDENTIFIED_ERROR(
        call(pathFcn, ArgList(charRow(u"C:\\x"), stringArray({1, 2}, {u"windows", u"unix"}))),
        "QUORIN:TooManyInputs");
}

TEST_F(PathFcn, CellPathsWithEachKindOfConvention) {
    auto paths = [] { return cellRow(charRow(u"C:\\d\\f.txt"), charRow(u"C:\\d\\f.txt")); };
    const auto byChar = call(pathFcn, ArgList(paths(), charRow(u"windows")));
    ASSERT_EQ(dimsOf(byChar.get()), (Dims{1, 2}));
    EXPECT_TRUE(logicalField(byChar.get(), 0, "IsAbsolute"));
    EXPECT_TRUE(logicalField(byChar.get(), 1, "IsAbsolute"));
    const auto byString =
        call(pathFcn, ArgList(paths(), stringArray({1, 2}, {u"unix", u"windows"})));
    EXPECT_FALSE(logicalField(byString.get(), 0, "IsAbsolute"));
    EXPECT_TRUE(logicalField(byString.get(), 1, "IsAbsolute"));
    const auto byCell =
        call(pathFcn, ArgList(paths(), cellRow(charRow(u"windows"), charRow(u"unix"))));
    EXPECT_TRUE(logicalField(byCell.get(), 0, "IsAbsolute"));
    EXPECT_FALSE(logicalField(byCell.get(), 1, "IsAbsolute"));
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(paths(), cellRow(charRow(u"unix")))),
                            "QUORIN:NotEnoughInputs");
}

TEST_F(PathFcn, StringPathsWithACellConvention) {
    const auto r =
        call(pathFcn, ArgList(stringArray({1, 2}, {u"C:\\x", u"C:\\x"}), cellArray({2, 1}, [] {
                                  std::vector<unique_vqarray_ptr> v;
                                  v.push_back(charRow(u"windows"));
                                  v.push_back(charEmpty());
                                  return v;
                              }())));
    EXPECT_TRUE(logicalField(r.get(), 0, "IsAbsolute"));
    EXPECT_FALSE(logicalField(r.get(), 1, "IsAbsolute"));
}

TEST_F(PathFcn, MissingPathElementGetsTheDefaultElement) {
    const auto r = call(pathFcn, ArgList(stringArray({1, 3}, {u"/a/b.c", std::nullopt, u"/x"}),
                                         stringArray({1, 3}, {u"unix", u"unix", u"unix"})));
    expectElement(r.get(), 1, kDefault);
    EXPECT_EQ(stringField(r.get(), 2, "Name"), u"x");
    // Its convention is never consulted.
    const auto m = call(pathFcn, ArgList(stringArray({1, 2}, {std::nullopt, u"/x"}),
                                         stringArray({1, 2}, {std::nullopt, u"unix"})));
    expectElement(m.get(), 0, kDefault);
}

TEST_F(PathFcn, MissingConventionIsRefused) {
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(stringArray({1, 2}, {u"/a", u"/b"}),
                                                  stringArray({1, 2}, {u"unix", std::nullopt}))),
                            "QUORIN:string:MissingNotSupported");
}

TEST_F(PathFcn, UnanalysableTextGetsTheDefaultElement) {
    const auto r = call(
        pathFcn,
        ArgList(stringArray({1, 2}, {u"http://h:99999/x", u"http://h:99/x"}), charRow(u"schema")));
    expectElement(r.get(), 0, kDefault);
    EXPECT_EQ(doubleField(r.get(), 1, "Port"), 99.0);
}

TEST_F(PathFcn, EmptyInputsGiveEmptyStructs) {
    const auto s = call(pathFcn, ArgList(stringArray({0, 0}, {}), stringArray({0, 0}, {})));
    EXPECT_EQ(dimsOf(s.get()), (Dims{0, 0}));
    EXPECT_EQ(fieldNamesOf(s.get()), kFields);
    const auto c = call(pathFcn, ArgList(cellArray({0, 0}, {}), charRow(u"unix")));
    EXPECT_EQ(dimsOf(c.get()), (Dims{0, 0}));
    // The empty text is one path, with every constituent missing.
    const auto e = call(pathFcn, ArgList(charEmpty(), charRow(u"unix")));
    ASSERT_EQ(dimsOf(e.get()), (Dims{1, 1}));
    expectElement(
        e.get(), 0,
        {kMissing, kMissing, kMissing, u"Local", false, kMissing, kNaN, kMissing, kMissing});
}

TEST_F(PathFcn, WrongKindsAreRefused) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    for (auto make : {+[] { return doubleScalar(1); }, +[] { return structScalar(); },
                      +[] {
                          return charMatrix({u"ab", u"cd"});
                      },
                      +[] { return logicalScalar(true); }}) {
        EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(make(), charRow(u"unix"))),
                                "QUORIN:string:MustBeCharCellArrayOrString", inputName);
        EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(charRow(u"/a"), make())),
                                "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    }
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(nullptr, charRow(u"unix"))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(charRow(u"/a"), nullptr)),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
}

TEST_F(PathFcn, BadCellsAreRefusedAfterGoodOnes) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    EXPECT_IDENTIFIED_ERROR(
        call(pathFcn, ArgList(cellRow(charRow(u"/a"), stringScalar(u"/b")), charRow(u"unix"))),
        "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(cellRow(charRow(u"/a"), charRow(u"/b")),
                                                  cellRow(charRow(u"unix"), doubleScalar(1)))),
                            "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(call(pathFcn, ArgList(cellRow(charRow(u"/a"), nullptr),
                                                  stringArray({1, 2}, {u"unix", u"unix"}))),
                            "QUORIN:string:MustBeCellArrayOfStrings", inputName);
}

TEST_F(PathFcn, HelperGivesTheSameConstituents) {
    const PathConstituents c =
        getPathConstituentsCaller(u"https://h.example:8443/a/b.tar.gz?x=1#y", u"schema");
    EXPECT_EQ(c.Parent, u"https://h.example:8443/a");
    EXPECT_EQ(c.Name, u"b.tar");
    EXPECT_EQ(c.Extension, u".gz");
    EXPECT_EQ(c.PathType, u"URL");
    EXPECT_TRUE(c.IsAbsolute);
    EXPECT_EQ(c.Host, u"h.example");
    EXPECT_EQ(c.Port, 8443U);
    EXPECT_EQ(c.Query, u"x=1");
    EXPECT_EQ(c.Fragment, u"y");

    const PathConstituents local = getPathConstituentsCaller(u"/home/.bashrc", u"unix");
    EXPECT_EQ(local.Parent, u"/home");
    EXPECT_EQ(local.Name, u".bashrc");
    EXPECT_EQ(local.Extension, u"");
    EXPECT_EQ(local.Port, PathConstituents::noPort);
    EXPECT_TRUE(getPathConstituentsCaller(u"C:\\x", u"windows").IsAbsolute);
    EXPECT_FALSE(getPathConstituentsCaller(u"C:\\x", u"Windows").IsAbsolute);
    EXPECT_IDENTIFIED_ERROR(getPathConstituentsCaller(u"http://h:70000/", u"schema"),
                            "QUORIN:io:filesystem:core:InvalidURLPort",
                            fl::ustring(u"http://h:70000/"));
}

TEST_F(PathFcn, NonUtf8NamesSurviveAsStored) {
    const fl::ustring name = u"/d/\xDCFF\xDCFE.bin";
    const auto r = call(pathFcn, ArgList(stringScalar(name), charRow(u"unix")));
    EXPECT_EQ(stringField(r.get(), 0, "Name"), fl::ustring(u"\xDCFF\xDCFE"));
    EXPECT_EQ(stringField(r.get(), 0, "Extension"), u".bin");
}

TEST_F(PathFcn, RecurringTextsAreRightForEveryElement) {
    // More distinct parents than are ever shared, each seen several times, with a few
    // extensions, hosts and queries that recur.
    std::vector<StringElement> paths;
    std::vector<fl::ustring> parents, names, extensions;
    for (int k = 0; k < 1500; ++k) {
        const std::string parent = "/d" + std::to_string(k % 700);
        const std::string name = "f" + std::to_string(k);
        const std::string ext = k % 3 == 0 ? "" : ".e" + std::to_string(k % 3);
        parents.push_back(fl::i18n::to_ustring(parent));
        names.push_back(fl::i18n::to_ustring(name));
        extensions.push_back(fl::i18n::to_ustring(ext));
        paths.emplace_back(fl::i18n::to_ustring(parent + "/" + name + ext));
    }
    paths.emplace_back(u"http://h2:1/a/b.c?q2#f2");
    paths.emplace_back(u"http://h1/a/b.c?q1#f1");
    paths.emplace_back(u"http://h2:2/a/b.c?q2#f2");
    const vqSize n = paths.size();
    const auto r = call(pathFcn, ArgList(stringArray({1, n}, paths), charRow(u"unix")));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, n}));
    for (std::size_t k = 0; k < 1500; ++k) {
        ASSERT_EQ(stringField(r.get(), k, "Parent"), parents[k]) << k;
        ASSERT_EQ(stringField(r.get(), k, "Name"), names[k]) << k;
        const StringElement ext =
            extensions[k].empty() ? StringElement() : StringElement(extensions[k]);
        ASSERT_EQ(stringField(r.get(), k, "Extension"), ext) << k;
    }
    expectElement(r.get(), 1500,
                  {u"http://h2:1/a", u"b", u".c", u"URL", true, u"h2", 1, u"q2", u"f2"});
    expectElement(r.get(), 1501,
                  {u"http://h1/a", u"b", u".c", u"URL", true, u"h1", kNaN, u"q1", u"f1"});
    expectElement(r.get(), 1502,
                  {u"http://h2:2/a", u"b", u".c", u"URL", true, u"h2", 2, u"q2", u"f2"});
    // A copy of the result is independent of it: freeing one leaves the other intact.
    unique_vqarray_ptr copy = vqDuplicateArray(r.get());
    EXPECT_EQ(stringField(copy.get(), 1501, "Host"), u"h1");
}
}  // namespace
