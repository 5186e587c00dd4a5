// Attributes of entries that exist carry their modification time, which a case row cannot
// know: the times are set here. Option arguments no statement can write, and the one-path
// helper behind pathFcn, are C++ only.
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "quorin/io/filesystem/quorin/PathConstituents.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::getPathConstituentsCaller;
using quorin::io::filesystem::quorin::PathConstituents;

class Attributed : public ::testing::Test {
protected:
    void touch(const char* name, std::time_t seconds, long nanoseconds,
               const std::string& content = "") {
        if (!std::filesystem::exists(tree.path(name))) tree.makeFile(name, content);
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(::utimensat(AT_FDCWD, tree.path(name).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    // The struct the built-in gives for one entry, in qfs's syntax.
    [[nodiscard]] std::string entry(const char* name, const char* type, const char* readable,
                                    const char* modified, const char* size) const {
        return "struct('ResolvedPath', \"" + tree.path(name).native() + "\", 'Type', \"" + type +
               "\", 'Readable', " + readable + ", 'Writable', true, 'LastModified', " + modified +
               ", 'Size', " + size + ")";
    }
    TempTree tree;
};

TEST_F(Attributed, OfAFileAFolderAndAFollowedLink) {
    touch("b.bin", 1700000000, 123456789, std::string(12345, 'x'));
    tree.makeFolder("sub");
    touch("sub", 1600000000, 0);
    tree.makeLink("b.bin", "latest");
    const InFolder inside(tree.root());
    // Whole milliseconds, no time-zone shift (ctest runs the suite with TZ set).
    const std::string file = entry("b.bin", "File", "true", "1700000000123", "12345");
    EXPECT_EQ(
        call("r = resolvePathFcnWithAttributes([\"b.bin\"; \"sub\"])")["outputs"][0],
        valueOf("[" + file + "; " + entry("sub", "Folder", "true", "1600000000000", "0") + "]"));
    EXPECT_EQ(
        call("r = resolvePathFcnWithAttributes('latest', 'ResolveSymbolicLinks', true)")["outputs"]
                                                                                        [0],
        valueOf(file));
}

TEST_F(Attributed, ModificationTimeTruncatesTowardZero) {
    touch("after", 0, 900000);       // 0.9 ms after the epoch
    touch("before", -1, 998500000);  // 1.5 ms before it
    touch("earlier", -2, 0);
    touch("later", 1, 999999999);
    const InFolder inside(tree.root());
    const qfs::Json r =
        call("r = resolvePathFcnWithAttributes({'after'; 'before'; 'earlier'; 'later'})");
    const double expected[] = {0.0, -1.0, -2000.0, 1999.0};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(r["outputs"][0]["value"][i]["LastModified"]["value"][0], expected[i]);
}

TEST_F(Attributed, ReadabilityIsTheCallersOwn) {
    touch("writeonly", 1, 0, "w");
    tree.setMode("writeonly", 0200);
    tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    const std::string expected = entry("writeonly", "File", "false", "1000", "1");
    runUnprivileged([&] {
        EXPECT_EQ(call("r = resolvePathFcnWithAttributes(" +
                       charLiteral(tree.path("writeonly").native()) + ")")["outputs"][0],
                  valueOf(expected));
    });
}

// Option arguments no statement can write: a name is compared whole, code unit by code
// unit; a sparse logical is no logical scalar.
TEST(Options, FormsOnlyTheHostMakes) {
    using quorin::io::filesystem::quorin::resolvePathFcnWithAttributes;
    const fl::ustring withNul(u"ResolveSymbolicLinks\0", 21);
    const auto refused = [](const ArgList& args, const char* id, auto... expected) {
        OutputSlots out(1);
        EXPECT_IDENTIFIED_ERROR(
            resolvePathFcnWithAttributes(1, out.data(), args.count(), args.data()), id,
            expected...);
        EXPECT_EQ(out[0], nullptr);
    };
    refused(ArgList(charRow(u"/"), charRow(withNul), logicalScalar(true)),
            "QUORIN:io:common:validation:UnknownParameter", withNul);
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
