// resolvePathFcn and resolvePathFcnWithAttributes on real trees.
#include "PathsTestSupport.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace zkfs::test;
using namespace zkfs::test::paths;
using quorin::io::filesystem::quorin::resolvePathFcn;
using quorin::io::filesystem::quorin::resolvePathFcnWithAttributes;

void setModificationTime(const std::filesystem::path& p, std::time_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, p.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << p;
}

class ResolvePath : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeFile("data/a.csv", "1,2,3\n");
        tree.makeFolder("data/sub");
        tree.makeLink("data/a.csv", "latest");
        tree.makeLink("nowhere", "dangling");
    }
    TempTree tree;
};

TEST_F(ResolvePath, CountsAreCheckedFirst) {
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcn, ArgList(doubleScalar(1)), 2),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcnWithAttributes, ArgList()),
                            "QUORIN:NotEnoughInputs");
    // No upper limit: every further argument is an option.
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcn, ArgList(charRow(u"/"), charRow(u"a"), logicalScalar(true),
                                     charRow(u"b"), logicalScalar(true), charRow(u"c"))),
        "QUORIN:io:common:validation:OddNumberParameters");
}

TEST_F(ResolvePath, ReportsFilesFoldersAndLinks) {
    const auto r =
        call(resolvePathFcn,
             ArgList(stringArray({1, 4}, {tree.upath("data/a.csv"), tree.upath("data/sub"),
                                          tree.upath("latest"), tree.upath("data/x")})));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, 4}));
    EXPECT_EQ(fieldNamesOf(r.get()), (std::vector<std::string>{"ResolvedPath", "Type"}));
    EXPECT_EQ(stringField(r.get(), 0, "ResolvedPath"), tree.upath("data/a.csv"));
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"File");
    EXPECT_EQ(stringField(r.get(), 1, "ResolvedPath"), tree.upath("data/sub"));
    EXPECT_EQ(stringField(r.get(), 1, "Type"), u"Folder");
    EXPECT_EQ(stringField(r.get(), 2, "ResolvedPath"), tree.upath("latest"));
    EXPECT_EQ(stringField(r.get(), 2, "Type"), u"SymbolicLink");
    // Nothing there: an empty text (not a missing one) and "None", without an error.
    EXPECT_EQ(stringField(r.get(), 3, "ResolvedPath"), u"");
    EXPECT_EQ(stringField(r.get(), 3, "Type"), u"None");
}

TEST_F(ResolvePath, DanglingLinkAndEmptyTextAreNone) {
    const auto r =
        call(resolvePathFcn, ArgList(cellRow(charRow(tree.upath("dangling")), charEmpty())));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, 2}));
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(stringField(r.get(), i, "ResolvedPath"), u"");
        EXPECT_EQ(stringField(r.get(), i, "Type"), u"None");
    }
}

TEST_F(ResolvePath, OptionsReachTheCore) {
    const auto plain = call(resolvePathFcn, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(stringField(plain.get(), 0, "Type"), u"SymbolicLink");
    const auto followed =
        call(resolvePathFcn, ArgList(charRow(tree.upath("latest")),
                                     charRow(u"ResolveSymbolicLinks"), logicalScalar(true)));
    EXPECT_EQ(stringField(followed.get(), 0, "ResolvedPath"), tree.upath("data/a.csv"));
    EXPECT_EQ(stringField(followed.get(), 0, "Type"), u"File");
    const auto viaStruct = call(
        resolvePathFcn, ArgList(charRow(tree.upath("latest")),
                                structScalar(field("ResolveSymbolicLinks", logicalScalar(true)))));
    EXPECT_EQ(stringField(viaStruct.get(), 0, "Type"), u"File");

    // A file IRI answers as an IRI unless asked for the local path.
    const fl::ustring iri = u"file://" + tree.upath("data/a.csv");
    const auto asIri = call(resolvePathFcn, ArgList(stringScalar(iri)));
    EXPECT_EQ(stringField(asIri.get(), 0, "ResolvedPath"), iri);
    const auto local = call(
        resolvePathFcn,
        ArgList(stringScalar(iri), stringScalar(u"LocalPathFromFileScheme"), logicalScalar(true)));
    EXPECT_EQ(stringField(local.get(), 0, "ResolvedPath"), tree.upath("data/a.csv"));
    EXPECT_EQ(stringField(local.get(), 0, "Type"), u"File");
}

TEST_F(ResolvePath, ResultTakesTheShapeOfAStringArray) {
    const fl::ustring f = tree.upath("data/a.csv");
    const fl::ustring d = tree.upath("data/sub");
    const fl::ustring m = tree.upath("missing");
    // Column-major: element (2,1) is linear index 1.
    const auto r = call(resolvePathFcn, ArgList(stringArray({2, 3}, {f, d, m, f, d, m})));
    ASSERT_EQ(dimsOf(r.get()), (Dims{2, 3}));
    const char16_t* types[] = {u"File", u"Folder", u"None", u"File", u"Folder", u"None"};
    for (std::size_t i = 0; i < 6; ++i) EXPECT_EQ(stringField(r.get(), i, "Type"), types[i]) << i;
    EXPECT_EQ(stringField(r.get(), 1, "ResolvedPath"), d);

    const auto threeD = call(resolvePathFcn, ArgList(stringArray({1, 1, 2}, {f, d})));
    EXPECT_EQ(dimsOf(threeD.get()), (Dims{1, 1, 2}));
}

TEST_F(ResolvePath, MissingStringElementKeepsEmptyFields) {
    const auto r = call(resolvePathFcnWithAttributes,
                        ArgList(stringArray({1, 3}, {tree.upath("data/a.csv"), std::nullopt,
                                                     tree.upath("data/sub")})));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, 3}));
    for (const char* name :
         {"ResolvedPath", "Type", "Readable", "Writable", "LastModified", "Size"}) {
        EXPECT_EQ(vqGetField(r.get(), 1, name), nullptr) << name;
    }
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"File");
    EXPECT_EQ(stringField(r.get(), 2, "Type"), u"Folder");
}

TEST_F(ResolvePath, EmptyInputsGiveEmptyStructsOfTheirShape) {
    EXPECT_EQ(dimsOf(call(resolvePathFcn, ArgList(stringArray({0, 0}, {}))).get()), (Dims{0, 0}));
    EXPECT_EQ(dimsOf(call(resolvePathFcn, ArgList(stringArray({0, 3}, {}))).get()), (Dims{0, 3}));
    EXPECT_EQ(dimsOf(call(resolvePathFcn, ArgList(cellArray({0, 0}, {}))).get()), (Dims{0, 0}));
    const auto withAttrs = call(resolvePathFcnWithAttributes, ArgList(cellArray({1, 0}, {})));
    EXPECT_EQ(dimsOf(withAttrs.get()), (Dims{1, 0}));
    EXPECT_EQ(fieldNamesOf(withAttrs.get()).size(), 6U);
}

TEST_F(ResolvePath, CharRowIsOnePath) {
    const auto r = call(resolvePathFcn, ArgList(charRow(tree.upath("data/sub"))));
    ASSERT_EQ(dimsOf(r.get()), (Dims{1, 1}));
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"Folder");
    const auto empty = call(resolvePathFcn, ArgList(charEmpty()));
    ASSERT_EQ(dimsOf(empty.get()), (Dims{1, 1}));
    EXPECT_EQ(stringField(empty.get(), 0, "Type"), u"None");
}

TEST_F(ResolvePath, WrongPathKindsAreRefused) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcn, ArgList(charMatrix({u"abc", u"def"}))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcn, ArgList(doubleScalar(1))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcnWithAttributes, ArgList(logicalScalar(true))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcn, ArgList(structScalar())),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(call(resolvePathFcn, ArgList(nullptr)),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
}

TEST_F(ResolvePath, BadCellStopsTheCallAfterGoodCells) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcn, ArgList(cellRow(charRow(tree.upath("data/a.csv")),
                                             stringScalar(tree.upath("data/sub"))))),
        "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcnWithAttributes,
             ArgList(cellRow(charRow(tree.upath("data/a.csv")), charMatrix({u"ab", u"cd"})))),
        "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcn, ArgList(cellRow(charRow(tree.upath("data/a.csv")), nullptr))),
        "QUORIN:string:MustBeCellArrayOfStrings", inputName);
}

TEST_F(ResolvePath, OptionErrorsWinOverPathErrors) {
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcn,
             ArgList(doubleScalar(1), charRow(u"ResolveSymbolicLinks"), doubleScalar(5))),
        "QUORIN:io:common:validation:InternalError", std::string("Expected logical scalar"));
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcnWithAttributes,
             ArgList(charMatrix({u"ab", u"cd"}), charRow(u"Bogus"), logicalScalar(true))),
        "QUORIN:io:common:validation:UnknownParameter", fl::ustring(u"Bogus"));
}

TEST_F(ResolvePath, UnsupportedSchemeIsNoneNotAnError) {
    const auto r =
        call(resolvePathFcn,
             ArgList(stringArray({1, 2}, {u"gopher://example.org/x", tree.upath("data/a.csv")})));
    EXPECT_EQ(stringField(r.get(), 0, "ResolvedPath"), u"");
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"None");
    EXPECT_EQ(stringField(r.get(), 1, "Type"), u"File");

    const auto a = call(resolvePathFcnWithAttributes, ArgList(charRow(u"gopher://example.org/x")));
    EXPECT_EQ(stringField(a.get(), 0, "ResolvedPath"), u"");
    EXPECT_EQ(stringField(a.get(), 0, "Type"), u"None");
    EXPECT_FALSE(logicalField(a.get(), 0, "Readable"));
    EXPECT_FALSE(logicalField(a.get(), 0, "Writable"));
    EXPECT_TRUE(std::isnan(doubleField(a.get(), 0, "LastModified")));
    EXPECT_EQ(doubleField(a.get(), 0, "Size"), 0.0);
}

TEST_F(ResolvePath, MalformedIriIsTheHostsError) {
    // Only the two storage failures of resolution become "None"; a name that is not an
    // IRI at all reaches the user with the storage library's own identifier.
    EXPECT_IDENTIFIED_ERROR(
        call(resolvePathFcn,
             ArgList(stringArray({1, 2}, {tree.upath("data/a.csv"), u"http://[::1/x"}))),
        "QUORIN:storage:invalidIRI", fl::ustring(u"http://[::1/x"));
}

TEST_F(ResolvePath, AttributesOfAFileAndAFolder) {
    tree.makeFile("data/b.bin", std::string(12345, 'x'));
    setModificationTime(tree.path("data/b.bin"), 1700000000, 123456789);
    const auto r =
        call(resolvePathFcnWithAttributes,
             ArgList(stringArray({2, 1}, {tree.upath("data/b.bin"), tree.upath("data/sub")})));
    ASSERT_EQ(dimsOf(r.get()), (Dims{2, 1}));
    EXPECT_EQ(fieldNamesOf(r.get()),
              (std::vector<std::string>{"ResolvedPath", "Type", "Readable", "Writable",
                                        "LastModified", "Size"}));
    EXPECT_EQ(stringField(r.get(), 0, "ResolvedPath"), tree.upath("data/b.bin"));
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"File");
    EXPECT_TRUE(logicalField(r.get(), 0, "Readable"));
    EXPECT_TRUE(logicalField(r.get(), 0, "Writable"));
    // Whole milliseconds, no time-zone shift (the suite runs with TZ set).
    EXPECT_EQ(doubleField(r.get(), 0, "LastModified"), 1700000000123.0);
    EXPECT_EQ(doubleField(r.get(), 0, "Size"), 12345.0);
    EXPECT_EQ(stringField(r.get(), 1, "Type"), u"Folder");
    EXPECT_EQ(doubleField(r.get(), 1, "Size"), 0.0);
}

TEST_F(ResolvePath, MissingPathHasDefaultAttributes) {
    const auto r = call(resolvePathFcnWithAttributes, ArgList(charRow(tree.upath("nothing/here"))));
    EXPECT_EQ(stringField(r.get(), 0, "ResolvedPath"), u"");
    EXPECT_EQ(stringField(r.get(), 0, "Type"), u"None");
    EXPECT_FALSE(logicalField(r.get(), 0, "Readable"));
    EXPECT_FALSE(logicalField(r.get(), 0, "Writable"));
    EXPECT_TRUE(std::isnan(doubleField(r.get(), 0, "LastModified")));
    EXPECT_EQ(doubleField(r.get(), 0, "Size"), 0.0);
}

TEST_F(ResolvePath, ModificationTimeTruncatesTowardZero) {
    struct Case {
        const char* name;
        std::time_t seconds;
        long nanoseconds;
        double expected;
    };
    const Case cases[] = {
        {"epoch.txt", 0, 0, 0.0},
        {"after.txt", 0, 900000, 0.0},        // 0.9 ms after the epoch
        {"before.txt", -1, 998500000, -1.0},  // 1.5 ms before it
        {"earlier.txt", -2, 0, -2000.0},
        {"later.txt", 1, 999999999, 1999.0},
    };
    for (const Case& c : cases) {
        tree.makeFile(c.name, "t");
        setModificationTime(tree.path(c.name), c.seconds, c.nanoseconds);
    }
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const auto r = call(resolvePathFcnWithAttributes, ArgList(charRow(tree.upath(c.name))));
        EXPECT_EQ(doubleField(r.get(), 0, "LastModified"), c.expected);
    }
}

TEST_F(ResolvePath, ReadabilityIsTheCallersOwn) {
    tree.makeFile("locked/secret.txt", "s");
    tree.makeFile("writeonly.txt", "w");
    tree.setMode("writeonly.txt", 0200);
    tree.setMode("locked", 0000);
    const auto ids = unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    const fl::ustring writeOnly = tree.upath("writeonly.txt");
    const fl::ustring secret = tree.upath("locked/secret.txt");
    runUnprivileged([&] {
        const long before = vqLiveArrayCount();
        {
            const auto r = call(resolvePathFcnWithAttributes,
                                ArgList(stringArray({1, 2}, {writeOnly, secret})));
            EXPECT_EQ(stringField(r.get(), 0, "Type"), u"File");
            EXPECT_FALSE(logicalField(r.get(), 0, "Readable"));
            EXPECT_TRUE(logicalField(r.get(), 0, "Writable"));
            // A folder on the way that cannot be searched: a storage failure of the core,
            // answered as "None" rather than raised.
            EXPECT_EQ(stringField(r.get(), 1, "ResolvedPath"), u"");
            EXPECT_EQ(stringField(r.get(), 1, "Type"), u"None");
            EXPECT_FALSE(logicalField(r.get(), 1, "Readable"));
            EXPECT_TRUE(std::isnan(doubleField(r.get(), 1, "LastModified")));
            const auto plain = call(resolvePathFcn, ArgList(stringScalar(secret)));
            EXPECT_EQ(stringField(plain.get(), 0, "Type"), u"None");
        }
        EXPECT_EQ(vqLiveArrayCount(), before);
    });
}

TEST_F(ResolvePath, NothingIsLeftAliveAfterErrors) {
    const long before = vqLiveArrayCount();
    for (int i = 0; i < 3; ++i) {
        try {
            call(resolvePathFcnWithAttributes,
                 ArgList(cellRow(charRow(tree.upath("data/a.csv")), charRow(tree.upath("data/sub")),
                                 doubleScalar(1))));
            ADD_FAILURE() << "no error";
        } catch (const foundation::core::except::IMsgIDException&) {
        }
    }
    EXPECT_EQ(vqLiveArrayCount(), before);
}

TEST_F(ResolvePath, SharedTypesAndFlagsReadAsOrdinaryValues) {
    std::vector<StringElement> paths;
    for (int k = 0; k < 300; ++k) {
        paths.emplace_back(tree.upath(k % 3 == 0 ? "data/a.csv" : k % 3 == 1 ? "data/sub" : "x"));
    }
    unique_vqarray_ptr copy;
    {
        const auto r = call(resolvePathFcnWithAttributes, ArgList(stringArray({300, 1}, paths)));
        copy = vqDuplicateArray(r.get());
    }  // the result is gone; its copy must not have shared anything with it
    const char16_t* types[] = {u"File", u"Folder", u"None"};
    for (std::size_t k = 0; k < 300; ++k) {
        ASSERT_EQ(stringField(copy.get(), k, "Type"), types[k % 3]) << k;
        ASSERT_EQ(logicalField(copy.get(), k, "Readable"), k % 3 != 2) << k;
    }
}
}  // namespace
