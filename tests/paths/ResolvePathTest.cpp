// resolvePathFcn and resolvePathFcnWithAttributes on real trees.
#include "PathsTestSupport.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <optional>
#include <string>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace zkfs::test;
using namespace zkfs::test::paths;
using quorin::io::filesystem::quorin::resolvePathFcn;
using quorin::io::filesystem::quorin::resolvePathFcnWithAttributes;

const std::vector<std::string> kAttributeFields = {"ResolvedPath", "Type",         "Readable",
                                                   "Writable",     "LastModified", "Size"};

void setModificationTime(const std::filesystem::path& p, std::time_t seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    ASSERT_EQ(::utimensat(AT_FDCWD, p.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << p;
}

// One element of an attributes result; nullopt LastModified for none.
using Attributes =
    std::tuple<StringElement, StringElement, bool, bool, std::optional<double>, double>;
const Attributes kNone{u"", u"None", false, false, std::nullopt, 0.0};

Attributes attributesOf(const vqArray* r, std::size_t i) {
    const double modified = doubleField(r, i, "LastModified");
    return {stringField(r, i, "ResolvedPath"),
            stringField(r, i, "Type"),
            logicalField(r, i, "Readable"),
            logicalField(r, i, "Writable"),
            std::isnan(modified) ? std::optional<double>() : modified,
            doubleField(r, i, "Size")};
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

TEST_F(ResolvePath, TypesLinksAndOptions) {
    // clang-format off
    struct Row { const char* what; std::vector<Make> args; fl::ustring resolved; const char16_t* type; };
    const fl::ustring file = tree.upath("data/a.csv"), latest = tree.upath("latest");
    const fl::ustring iri = u"file://" + file;
    const Row rows[] = {
        {"file", {ch(file)}, file, u"File"},
        {"folder", {ch(tree.upath("data/sub"))}, tree.upath("data/sub"), u"Folder"},
        {"link", {ch(latest)}, latest, u"SymbolicLink"},
        // Nothing there: an empty text (not a missing one) and "None", without an error.
        {"nothing", {ch(tree.upath("data/x"))}, u"", u"None"},
        {"empty text", {kCharEmpty}, u"", u"None"},
        {"unsupported scheme", {ch(u"gopher://example.org/x")}, u"", u"None"},
        {"link followed", {ch(latest), ch(u"ResolveSymbolicLinks"), lg(true)}, file, u"File"},
        // A file IRI answers as an IRI unless asked for the local path.
        {"file IRI", {str(iri)}, iri, u"File"},
        {"file IRI, local", {str(iri), str(u"LocalPathFromFileScheme"), lg(true)}, file, u"File"},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto r = call(resolvePathFcn, build(row.args));
        ASSERT_EQ(dimsOf(r.get()), (Dims{1, 1}));
        EXPECT_EQ(fieldNamesOf(r.get()), (std::vector<std::string>{"ResolvedPath", "Type"}));
        EXPECT_EQ(stringField(r.get(), 0, "ResolvedPath"), row.resolved);
        EXPECT_EQ(stringField(r.get(), 0, "Type"), row.type);
    }
}

TEST_F(ResolvePath, ResultTakesTheShapeOfTheInput) {
    const fl::ustring f = tree.upath("data/a.csv"), d = tree.upath("data/sub");
    // Column-major: element (2,1) is linear index 1.
    const auto r = call(resolvePathFcn,
                        ArgList(stringArray({2, 3}, {f, d, tree.upath("missing"), f, d, u""})));
    ASSERT_EQ(dimsOf(r.get()), (Dims{2, 3}));
    const char16_t* types[] = {u"File", u"Folder", u"None"};
    for (std::size_t i = 0; i < 6; ++i)
        EXPECT_EQ(stringField(r.get(), i, "Type"), types[i % 3]) << i;
    EXPECT_EQ(stringField(r.get(), 1, "ResolvedPath"), d);
    const auto c =
        call(resolvePathFcn, ArgList(cellRow(charRow(tree.upath("dangling")), charRow(f))));
    ASSERT_EQ(dimsOf(c.get()), (Dims{1, 2}));
    EXPECT_EQ(stringField(c.get(), 0, "Type"), u"None");
    EXPECT_EQ(stringField(c.get(), 1, "Type"), u"File");
    EXPECT_EQ(dimsOf(call(resolvePathFcn, build({strs({0, 3}, {})})).get()), (Dims{0, 3}));
    const auto withAttrs = call(resolvePathFcnWithAttributes, ArgList(cellArray({1, 0}, {})));
    EXPECT_EQ(dimsOf(withAttrs.get()), (Dims{1, 0}));
    EXPECT_EQ(fieldNamesOf(withAttrs.get()), kAttributeFields);
}

TEST_F(ResolvePath, BadCallsAreRefused) {
    const fl::ustring in = quorin::gateway::inputPathName();
    const char* kKind = "QUORIN:string:MustBeCharCellArrayOrString";
    const char* kCells = "QUORIN:string:MustBeCellArrayOfStrings";
    const Make a = ch(tree.upath("data/a.csv")), yes = lg(true);
    // clang-format off
    expectErrors(resolvePathFcn, {
        {"char matrix", {kMatrix}, kKind, {in}},
        {"string in a cell", {cell({a, str(tree.upath("data/sub"))})}, kCells, {in}},
        // Options are read before the path.
        {"bad option value, bad path", {num(1), ch(u"ResolveSymbolicLinks"), num(5)}, "QUORIN:io:common:validation:InternalError", {"Expected logical scalar"}},
        // Only the two storage failures of resolution become "None"; a name that is not an
        // IRI at all reaches the user with the storage library's own identifier.
        {"malformed IRI", {strs({1, 2}, {tree.upath("data/a.csv"), u"http://[::1/x"})}, "QUORIN:storage:invalidIRI", {u"http://[::1/x"}},
    });
    expectErrors(resolvePathFcnWithAttributes, {
        {"logical", {yes}, kKind, {in}},
        // Good cells already resolved are released (the fixture counts live arrays).
        {"char matrix in a cell", {cell({a, ch(tree.upath("data/sub")), kMatrix})}, kCells, {in}},
        {"unknown option, bad path", {kMatrix, ch(u"Bogus"), yes}, "QUORIN:io:common:validation:UnknownParameter", {u"Bogus"}},
    });
    // clang-format on
}

TEST_F(ResolvePath, AttributesOfEachKindOfEntry) {
    tree.makeFile("data/b.bin", std::string(12345, 'x'));
    setModificationTime(tree.path("data/b.bin"), 1700000000, 123456789);
    setModificationTime(tree.path("data/sub"), 1600000000, 0);
    const auto r = call(resolvePathFcnWithAttributes,
                        build({strs({5, 1}, {tree.upath("data/b.bin"), tree.upath("data/sub"),
                                             tree.upath("nothing/here"), std::nullopt,
                                             u"gopher://example.org/x"})}));
    ASSERT_EQ(dimsOf(r.get()), (Dims{5, 1}));
    EXPECT_EQ(fieldNamesOf(r.get()), kAttributeFields);
    // Whole milliseconds, no time-zone shift (the suite runs with TZ set).
    EXPECT_EQ(attributesOf(r.get(), 0),
              Attributes(tree.upath("data/b.bin"), u"File", true, true, 1700000000123.0, 12345.0));
    EXPECT_EQ(attributesOf(r.get(), 1),
              Attributes(tree.upath("data/sub"), u"Folder", true, true, 1600000000000.0, 0.0));
    EXPECT_EQ(attributesOf(r.get(), 2), kNone);
    // A missing element keeps every field empty.
    for (const std::string& name : kAttributeFields)
        EXPECT_EQ(vqGetField(r.get(), 3, name.c_str()), nullptr) << name;
    EXPECT_EQ(attributesOf(r.get(), 4), kNone);
}

TEST_F(ResolvePath, ModificationTimeTruncatesTowardZero) {
    // clang-format off
    struct Case { const char* name; std::time_t seconds; long nanoseconds; double expected; };
    const Case cases[] = {
        {"epoch.txt", 0, 0, 0.0},
        {"after.txt", 0, 900000, 0.0},        // 0.9 ms after the epoch
        {"before.txt", -1, 998500000, -1.0},  // 1.5 ms before it
        {"earlier.txt", -2, 0, -2000.0},
        {"later.txt", 1, 999999999, 1999.0},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        tree.makeFile(c.name, "t");
        setModificationTime(tree.path(c.name), c.seconds, c.nanoseconds);
        const auto r = call(resolvePathFcnWithAttributes, build({ch(tree.upath(c.name))}));
        EXPECT_EQ(doubleField(r.get(), 0, "LastModified"), c.expected);
    }
}

TEST_F(ResolvePath, ReadabilityIsTheCallersOwn) {
    tree.makeFile("locked/secret.txt", "s");
    tree.makeFile("writeonly.txt", "w");
    setModificationTime(tree.path("writeonly.txt"), 1, 0);
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
            EXPECT_EQ(attributesOf(r.get(), 0),
                      Attributes(writeOnly, u"File", false, true, 1000.0, 1.0));
            // A folder on the way that cannot be searched: a storage failure of the core,
            // answered as "None" rather than raised.
            EXPECT_EQ(attributesOf(r.get(), 1), kNone);
            const auto plain = call(resolvePathFcn, ArgList(stringScalar(secret)));
            EXPECT_EQ(stringField(plain.get(), 0, "Type"), u"None");
        }
        EXPECT_EQ(vqLiveArrayCount(), before);
    });
}

TEST_F(ResolvePath, SharedTypesAndFlagsReadAsOrdinaryValues) {
    std::vector<StringElement> paths;
    for (int k = 0; k < 300; ++k)
        paths.emplace_back(tree.upath(k % 3 == 0 ? "data/a.csv" : k % 3 == 1 ? "data/sub" : "x"));
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
