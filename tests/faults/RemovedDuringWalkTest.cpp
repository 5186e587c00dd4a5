// A folder removed while a walk is under way, made deterministic through the storage
// library's system-call seam: right after the walk has read the tree's top folder, a
// subfolder it has just listed disappears. Every walk still ends, changes everything
// outside the removed part exactly as it would have, and names only the removed path.
#include "FaultsSupport.hpp"
#include "SystemCalls.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace zkfs::test::faults {
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

    TempTree tree;
    TempTree control;

private:
    seam::SystemCalls saved_{};
};

TEST_F(RemovedDuringWalk, EveryWalkEndsNamesOnlyTheRemovedFolderAndLosesNothingElse) {
    for (const Request& walk : {Request{{"Writable", false}}, Request{{"Readable", false}},
                                Request{{"Readable", true}, {"OtherWrite", true}}}) {
        for (const char16_t* scope : {u"files", u"folders", u"all"}) {
            SCOPED_TRACE(walk[0].first + (walk[0].second ? " granted, " : " revoked, ") +
                         bytesOf(scope));
            arm();
            const fl::ustring sub1 = tree.upath("sub1");
            bool named = false;
            for (const Failure& f : modifyPerms(1, tree.upath(""), u"Folder", walk, scope)) {
                EXPECT_TRUE(f.name == sub1 || f.name.starts_with(sub1 + u"/")) << bytesOf(f.name);
                EXPECT_FALSE(f.cause.empty());
                named = named || f.name == sub1;
            }
            EXPECT_TRUE(gRemoved) << "the walk never read its top folder";
            // Where the walk would have changed the folder, its absence is reported.
            if (fl::ustring(scope) != u"files") {
                EXPECT_TRUE(named);
            }
            EXPECT_TRUE(modifyPerms(1, control.upath(""), u"Folder", walk, scope).empty());
            for (const auto& e : kOutside)
                EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
        }
    }
}

// With no output the removed folder is the first permission call that fails: the walk
// ends with its identified error, naming the folder and the system's reason.
TEST_F(RemovedDuringWalk, WithoutAnOutputTheRemovedFolderIsTheErrorRaised) {
    arm();
    EXPECT_IDENTIFIED_ERROR(
        modifyPerms(0, tree.upath(""), u"Folder", {{"Writable", false}}, u"all"),
        "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", tree.upath("sub1"),
        std::string("No such file or directory"));
    EXPECT_TRUE(gRemoved);
    // Entries listed before it were changed; the walk stopped there.
    EXPECT_EQ(tree.mode("a.txt"), 0444U);
    EXPECT_EQ(tree.mode("z.txt"), 0644U);
}

}  // namespace
}  // namespace zkfs::test::faults
