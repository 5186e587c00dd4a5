// Attributes of entries that exist carry their modification time, which a case row cannot
// know: the times are set here. The one-path helper behind pathFcn is C++ only.
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::getPathConstituentsCaller;
using quorin::io::filesystem::quorin::PathConstituents;
using quorin::io::filesystem::quorin::resolvePathFcnWithAttributes;

// ResolvedPath, Type, Readable, Writable, LastModified, Size of one element.
using Attributes = std::tuple<StringElement, StringElement, bool, bool, double, double>;

Attributes attributesOf(const vqArray* r, std::size_t i) {
    const auto field = [&](const char* name) {
        const vqArray* v = vqGetField(r, i, name);
        EXPECT_TRUE(v != nullptr && dimsOf(v) == (Dims{1, 1})) << name;
        return v;
    };
    return {stringsOf(field("ResolvedPath")).at(0), stringsOf(field("Type")).at(0),
            logicalsOf(field("Readable")).at(0),    logicalsOf(field("Writable")).at(0),
            doublesOf(field("LastModified")).at(0), doublesOf(field("Size")).at(0)};
}

class Attributed : public LiveArrayTest {
protected:
    void touch(const char* name, std::time_t seconds, long nanoseconds, const char* content = "") {
        if (!std::filesystem::exists(tree.path(name))) tree.makeFile(name, content);
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(::utimensat(AT_FDCWD, tree.path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    unique_vqarray_ptr resolve(ArgList args, vqSize n) {
        return resultOf(call<&resolvePathFcnWithAttributes>, args, vqSTRUCT_CLASS, {n, 1});
    }
    TempTree tree;
};

TEST_F(Attributed, OfAFileAFolderAndAFollowedLink) {
    touch("b.bin", 1700000000, 123456789, std::string(12345, 'x').c_str());
    tree.makeFolder("sub");
    touch("sub", 1600000000, 0);
    tree.makeLink("b.bin", "latest");
    const fl::ustring file = tree.upath("b.bin");
    const auto r = resolve(ArgList(stringArray({2, 1}, {file, tree.upath("sub")})), 2);
    // Whole milliseconds, no time-zone shift (ctest runs the suite with TZ set).
    EXPECT_EQ(attributesOf(r.get(), 0),
              Attributes(file, u"File", true, true, 1700000000123.0, 12345.0));
    EXPECT_EQ(attributesOf(r.get(), 1),
              Attributes(tree.upath("sub"), u"Folder", true, true, 1600000000000.0, 0.0));
    const auto followed = resolve(ArgList(charRow(tree.upath("latest")),
                                          charRow(u"ResolveSymbolicLinks"), logicalScalar(true)),
                                  1);
    EXPECT_EQ(attributesOf(followed.get(), 0), attributesOf(r.get(), 0));
}

TEST_F(Attributed, ModificationTimeTruncatesTowardZero) {
    touch("after", 0, 900000);       // 0.9 ms after the epoch
    touch("before", -1, 998500000);  // 1.5 ms before it
    touch("earlier", -2, 0);
    touch("later", 1, 999999999);
    std::vector<StringElement> names;
    for (const char* name : {"after", "before", "earlier", "later"})
        names.emplace_back(tree.upath(name));
    const auto r = resolve(ArgList(stringArray({4, 1}, names)), 4);
    const double expected[] = {0.0, -1.0, -2000.0, 1999.0};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(std::get<4>(attributesOf(r.get(), i)), expected[i]) << i;
}

TEST_F(Attributed, ReadabilityIsTheCallersOwn) {
    touch("writeonly", 1, 0, "w");
    tree.setMode("writeonly", 0200);
    const auto ids = unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    const fl::ustring path = tree.upath("writeonly");
    runUnprivileged([&] {
        const auto r = resolve(ArgList(charRow(path)), 1);
        EXPECT_EQ(attributesOf(r.get(), 0), Attributes(path, u"File", false, true, 1000.0, 1.0));
    });
}

// Option arguments no statement can write: a name is compared whole, code unit by code
// unit; a struct's field names are UTF-8; a sparse logical is no logical scalar.
TEST_F(Attributed, OptionFormsOnlyTheHostMakes) {
    const fl::ustring withNul(u"ResolveSymbolicLinks\0", 21);
    const auto refused = [](ArgList args, const char* id, auto... expected) {
        OutputSlots out;
        EXPECT_IDENTIFIED_ERROR(call<&resolvePathFcnWithAttributes>(1, out, args), id, expected...);
    };
    refused(ArgList(charRow(u"/"), charRow(withNul), logicalScalar(true)),
            "QUORIN:io:common:validation:UnknownParameter", withNul);
    refused(ArgList(charRow(u"/"), structScalar(field("Größe", logicalScalar(true)))),
            "QUORIN:io:common:validation:UnknownParameter", fl::ustring(u"Größe"));
    refused(ArgList(charRow(u"/"), charRow(u"ResolveSymbolicLinks"), sparse(logicalScalar(true))),
            "QUORIN:io:common:validation:InternalError", "Expected logical scalar");
}

// Unlike pathFcn, the helper gives empty texts and noPort, and throws where pathFcn gives
// the default element.
TEST(PathConstituentsHelper, PlainValuesAndErrors) {
    const auto all = [](const PathConstituents& c) {
        return std::tuple(c.Parent, c.Name, c.Extension, c.PathType, c.IsAbsolute, c.Host, c.Port,
                          c.Query, c.Fragment);
    };
    using T = decltype(all(PathConstituents{}));
    EXPECT_EQ(all(getPathConstituentsCaller(u"https://h.example:8443/a/b.tar.gz?x=1#y", u"unix")),
              T(u"https://h.example:8443/a", u"b.tar", u".gz", u"URL", true, u"h.example", 8443,
                u"x=1", u"y"));
    EXPECT_EQ(
        all(getPathConstituentsCaller(u"/home/.bashrc", u"unix")),
        T(u"/home", u".bashrc", u"", u"Local", true, u"", PathConstituents::noPort, u"", u""));
    EXPECT_TRUE(getPathConstituentsCaller(u"C:\\x", u"windows").IsAbsolute);
    EXPECT_FALSE(getPathConstituentsCaller(u"C:\\x", u"Windows").IsAbsolute);
    EXPECT_TRUE(getPathConstituentsCaller(u"/a.b", u"schema").PathType == u"URL");
    EXPECT_IDENTIFIED_ERROR(getPathConstituentsCaller(u"http://h:70000/", u"schema"),
                            "QUORIN:io:filesystem:core:InvalidURLPort",
                            fl::ustring(u"http://h:70000/"));
}

}  // namespace
