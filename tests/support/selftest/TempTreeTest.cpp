#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace zkfs::test {
namespace {

std::string readFile(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(TempTree, RootIsCanonicalAndFresh) {
    TempTree a;
    TempTree b;
    EXPECT_NE(a.root(), b.root());
    EXPECT_TRUE(a.root().is_absolute());
    EXPECT_TRUE(fs::is_directory(a.root()));
    EXPECT_EQ(fs::canonical(a.root()), a.root());
    EXPECT_TRUE(fs::is_empty(a.root()));
    EXPECT_EQ(a.path(""), a.root());
    EXPECT_EQ(a.path("x/y"), a.root() / "x" / "y");
}

TEST(TempTree, MakesFilesFoldersAndLinks) {
    TempTree t;
    const auto f = t.makeFile("a/b/file.txt", "hello");
    EXPECT_EQ(readFile(f), "hello");
    EXPECT_TRUE(fs::is_directory(t.makeFolder("c/d")));
    const auto link = t.makeLink("../a/b/file.txt", "c/link");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::read_symlink(link), fs::path("../a/b/file.txt"));
    EXPECT_EQ(readFile(link), "hello");
    t.makeLink("nowhere", "dangling");
    EXPECT_FALSE(fs::exists(t.path("dangling")));
    t.setMode("a/b/file.txt", 0640);
    EXPECT_EQ(t.mode("a/b/file.txt"), 0640U);
    EXPECT_EQ(fs::path(std::u16string(t.upath("c/d"))), t.path("c/d"));
    EXPECT_THROW(t.makeLink("x", "c/link"), std::system_error);
}

TEST(TempTree, SnapshotSeesEveryChange) {
    TempTree t;
    t.makeFile("f", "12");
    t.makeFolder("d");
    t.makeLink("f", "d/l");
    const auto before = t.snapshot();
    EXPECT_EQ(before, (std::vector<std::string>{"d 755 d", "f 644 2 f", "l 777 -> f d/l"}));
    EXPECT_EQ(t.snapshot(), before);
    t.setMode("f", 0600);
    EXPECT_NE(t.snapshot(), before);
    t.setMode("f", 0644);
    t.makeFile("f", "123");
    EXPECT_NE(t.snapshot(), before);
}

TEST(TempTree, RemovesWhatPermissionsLockedAway) {
    fs::path root;
    {
        TempTree t;
        root = t.root();
        t.makeFile("locked/inner/file");
        t.setMode("locked/inner/file", 0);
        t.setMode("locked/inner", 0);
        t.setMode("locked", 0);
        t.setMode("", 0500);
    }
    EXPECT_FALSE(fs::exists(root));
}

TEST(TempTree, RemovesWhatPermissionsLockedAwayWithoutRoot) {
    // The same, but cleaned up by an ordinary user, to whom the bits apply.
    runUnprivileged([] {
        fs::path root;
        {
            TempTree t;
            root = t.root();
            t.makeFile("locked/inner/file");
            t.setMode("locked/inner", 0);
            t.setMode("locked", 0);
            ASSERT_FALSE(::access(t.path("locked/inner").c_str(), R_OK) == 0);
        }
        EXPECT_FALSE(fs::exists(root));
    });
}

TEST(TempTree, FailsTheTestWhenCleanupFails) {
    EXPECT_NONFATAL_FAILURE(
        {
            TempTree t;
            fs::remove(t.root());
        },
        "cleanup failed");
}

}  // namespace
}  // namespace zkfs::test
