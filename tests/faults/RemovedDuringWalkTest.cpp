// A folder removed while a walk is under way, made deterministic through the system-call
// seam: right after the walk has read the tree's top folder, a subfolder it has just
// listed disappears. Every walk still ends, changes everything outside the removed part
// exactly as it would have, and names only the removed path.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zkfs::test {
namespace {

const std::vector<std::string> kFiles = {"a.txt",           "b.txt",      "sub1/c.txt",
                                         "sub1/deep/d.txt", "sub2/e.txt", "z.txt"};
const std::vector<std::string> kOutside = {"", "a.txt", "b.txt", "sub2", "sub2/e.txt", "z.txt"};

class RemovedDuringWalk : public LiveArrayTest {
protected:
    // Both trees fresh; the walk's next read of the tree's top folder, once it has read
    // it, finds its sub1 gone.
    void arm() {
        for (TempTree* t : {&tree, &control}) {
            // Folders first: the last walk may have closed them to their owner.
            for (const char* d : {"", "sub1", "sub1/deep", "sub2"}) {
                if (std::filesystem::exists(t->path(d))) t->setMode(d, 0755);
            }
            for (const auto& f : kFiles) {
                if (std::filesystem::exists(t->path(f))) t->setMode(f, 0644);
                t->makeFile(f, "x");
            }
            for (const char* d : {"", "sub1", "sub1/deep", "sub2"}) t->setMode(d, 0755);
        }
        reads_ = 0;
        removed_ = false;
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
    int reads_ = 0;
    bool removed_ = false;

private:
    // Removes a folder as its owner could whatever modes the walk has given it so far, and
    // leaves the parent's mode as the walk made it.
    static bool removeAsOwner(const std::filesystem::path& parent, const char* name) {
        namespace fs = std::filesystem;
        std::error_code ec;
        const fs::perms before = fs::symlink_status(parent, ec).permissions();
        fs::permissions(parent, fs::perms::owner_all, fs::perm_options::add, ec);
        fs::permissions(parent / name, fs::perms::owner_all, fs::perm_options::add, ec);
        for (auto it = fs::recursive_directory_iterator(parent / name, ec);
             !ec && it != fs::end(it); it.increment(ec)) {
            if (it->is_directory())
                fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        }
        const bool removed = fs::remove_all(parent / name, ec) > 0;
        fs::permissions(parent, before, ec);
        return removed;
    }

    fl::sys::ScopedFaultHook hook_{[this](fl::sys::Call& c) {
        std::error_code ec;
        if (c.phase == fl::sys::Phase::Before && c.op == fl::sys::Op::Getdents64 && !removed_ &&
            std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(c.fd), ec) ==
                tree.root() &&
            reads_++ > 0) {
            removed_ = removeAsOwner(tree.root(), "sub1");
        }
        return 0;
    }};
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
            EXPECT_TRUE(removed_) << "the walk never read its top folder";
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
    EXPECT_TRUE(removed_);
    // Entries listed before it were changed; the walk stopped there.
    EXPECT_EQ(tree.mode("a.txt"), 0444U);
    EXPECT_EQ(tree.mode("z.txt"), 0644U);
}

}  // namespace
}  // namespace zkfs::test
