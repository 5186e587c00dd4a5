// A folder removed while a walk is under way, made deterministic through the storage
// library's system-call seam: right after the walk has read the tree's top folder, a
// subfolder it has just listed disappears. Every walk still ends, changes everything
// outside the removed part exactly as it would have, and names only the removed path.
#include "SystemCalls.hpp"
#include "zkfs/test/Call.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace zkfs::test {
namespace {

namespace seam = foundation::storage::provider::detail;

const std::vector<std::string> kFiles = {"a.txt",           "b.txt",      "sub1/c.txt",
                                         "sub1/deep/d.txt", "sub2/e.txt", "z.txt"};
const std::vector<std::string> kOutside = {"", "a.txt", "b.txt", "sub2", "sub2/e.txt", "z.txt"};

// The folder whose first read sets off the removal, and what is removed.
std::string gTrigger;
std::string gVictim;
bool gRemoved = false;

long getdentsThenRemove(int fd, void* buffer, std::size_t size) {
    const long n = seam::realSystemCalls().getdents64(fd, buffer, size);
    std::error_code ec;
    if (n > 0 && !gRemoved &&
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ec) == gTrigger) {
        gRemoved = true;
        std::filesystem::remove_all(gVictim, ec);
    }
    return n;
}

class RemovedDuringWalk : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        saved_ = seam::systemCalls();
        seam::systemCalls().getdents64 = &getdentsThenRemove;
    }
    void TearDown() override {
        seam::systemCalls() = saved_;
        LiveArrayTest::TearDown();
    }

    // Both trees fresh, the next read of the tree's top folder removes its sub1.
    void arm() {
        for (TempTree* t : {&tree, &control}) {
            for (const auto& f : kFiles) {
                t->makeFile(f, "x");
                t->setMode(f, 0644);
            }
            for (const char* d : {"", "sub1", "sub1/deep", "sub2"}) t->setMode(d, 0755);
        }
        gTrigger = tree.root().native();
        gVictim = tree.path("sub1").native();
        gRemoved = false;
    }

    // The walk over one of the trees, its failure rows; `report` false: no output asked for.
    static qfs::Json walk(const TempTree& t, const std::string& request, const std::string& scope,
                          bool report = true) {
        return call(std::string(report ? "r = " : "") + "modifyPerms_impl(" +
                    charLiteral(t.root().native()) + ", 'Folder', " + request + ", false, '" +
                    scope + "')");
    }

    TempTree tree;
    TempTree control;

private:
    seam::SystemCalls saved_{};
};

TEST_F(RemovedDuringWalk, EveryWalkEndsNamesOnlyTheRemovedFolderAndLosesNothingElse) {
    for (const std::string request : {"struct('Writable', false)", "struct('Readable', false)",
                                      "struct('Readable', true, 'OtherWrite', true)"}) {
        for (const std::string scope : {"files", "folders", "all"}) {
            SCOPED_TRACE(request + ", " + scope);
            arm();
            const std::string sub1 = tree.path("sub1").native();
            bool named = false;
            for (const Failure& f : failuresIn(walk(tree, request, scope))) {
                EXPECT_TRUE(f.name == sub1 || f.name.starts_with(sub1 + "/")) << f.name;
                EXPECT_FALSE(f.cause.empty());
                named = named || f.name == sub1;
            }
            EXPECT_TRUE(gRemoved) << "the walk never read its top folder";
            // Where the walk would have changed the folder, its absence is reported.
            if (scope != "files") {
                EXPECT_TRUE(named);
            }
            EXPECT_TRUE(failuresIn(walk(control, request, scope)).empty());
            for (const auto& e : kOutside)
                EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
        }
    }
}

// With no output the removed folder is the first permission call that fails: the walk
// ends with its identified error, naming the folder and the system's reason.
TEST_F(RemovedDuringWalk, WithoutAnOutputTheRemovedFolderIsTheErrorRaised) {
    arm();
    const qfs::Json error = walk(tree, "struct('Writable', false)", "all", false)["error"];
    EXPECT_EQ(error["identifier"], "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions");
    EXPECT_EQ(error["arguments"],
              qfs::Json::array({tree.path("sub1").native(), "No such file or directory"}));
    EXPECT_TRUE(gRemoved);
    // Entries listed before it were changed; the walk stopped there.
    EXPECT_EQ(tree.mode("a.txt"), 0444U);
    EXPECT_EQ(tree.mode("z.txt"), 0644U);
}

}  // namespace
}  // namespace zkfs::test
