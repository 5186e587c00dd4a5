#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace fs = std::filesystem;

namespace zkfs::test {
namespace {

// A snapshot that missed a change would make every "nothing changed" check pass.
TEST(TempTree, SnapshotSeesEveryChange) {
    TempTree t;
    t.makeFile("f", "12");
    t.makeLink("f", "d/l");
    const auto before = t.snapshot();
    EXPECT_EQ(before, (std::vector<std::string>{"d 755 d", "f 644 2 f", "l 777 -> f d/l"}));
    t.setMode("f", 0600);
    EXPECT_NE(t.snapshot(), before);
    t.setMode("f", 0644);
    EXPECT_EQ(t.snapshot(), before);
    t.makeFile("f", "123");
    EXPECT_NE(t.snapshot(), before);
}

// Cleanup gets through what permissions locked away, as root and as an ordinary user, to
// whom the bits apply; a cleanup that fails fails the test.
TEST(TempTree, CleanupGetsThroughLockedFoldersOrFails) {
    const auto lockedTree = [](bool asRoot) {
        fs::path root;
        {
            TempTree t;
            root = t.root();
            t.makeFile("locked/inner/file");
            t.setMode("locked/inner/file", 0);
            t.setMode("locked/inner", 0);
            t.setMode("locked", 0);
            if (asRoot) {
                t.setMode("", 0500);
            } else {
                ASSERT_NE(::access(t.path("locked/inner").c_str(), R_OK), 0);
            }
        }
        EXPECT_FALSE(fs::exists(root));
    };
    lockedTree(true);
    runUnprivileged([&] { lockedTree(false); });
    EXPECT_NONFATAL_FAILURE(
        {
            TempTree t;
            fs::remove(t.root());
        },
        "cleanup failed");
}

}  // namespace
}  // namespace zkfs::test
