// A folder removed while a walk is under way, made deterministic through the storage
// library's system-call seam: right after the walk has read the tree's top folder, a
// subfolder it has just listed disappears. Every walk still ends, changes everything
// outside the removed part exactly as it would have, and names only the removed path.
#include "FaultsSupport.hpp"
#include "PermsTestSupport.hpp"
#include "SystemCalls.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace zkfs::test::faults {
namespace {

namespace seam = foundation::storage::provider::detail;
using perms::failureRows;
using perms::modifyPermsNoOut;
using perms::modifyPermsOut;
using perms::request;

const std::vector<std::string> kFiles = {"a.txt",           "b.txt",      "sub1/c.txt",
                                         "sub1/deep/d.txt", "sub2/e.txt", "z.txt"};
const std::vector<std::string> kOutside = {"", "a.txt", "b.txt", "sub2", "sub2/e.txt", "z.txt"};

// The folder whose first read sets off the removal, and what is removed.
std::string gTrigger;
std::string gVictim;
bool gRemoved = false;

std::string pathOfDescriptor(int fd) {
    std::array<char, 4096> buffer{};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = ::readlink(link.c_str(), buffer.data(), buffer.size() - 1);
    return n > 0 ? std::string(buffer.data(), static_cast<std::size_t>(n)) : std::string();
}

long getdentsThenRemove(int fd, void* buffer, std::size_t size) {
    const long n = seam::realSystemCalls().getdents64(fd, buffer, size);
    if (n > 0 && !gRemoved && pathOfDescriptor(fd) == gTrigger) {
        gRemoved = true;
        std::error_code ec;
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

    static bool isInside(const fl::ustring& path, const fl::ustring& folder) {
        return path == folder || path.starts_with(folder + u"/");
    }

    TempTree tree;
    TempTree control;

private:
    seam::SystemCalls saved_{};
};

TEST_F(RemovedDuringWalk, EveryWalkEndsNamesOnlyTheRemovedFolderAndLosesNothingElse) {
    const std::vector<std::vector<std::pair<std::string, bool>>> walks = {
        {{"Writable", false}}, {{"Readable", false}}, {{"Readable", true}, {"OtherWrite", true}}};
    for (const auto& walk : walks) {
        for (const char16_t* scope : {u"files", u"folders", u"all"}) {
            SCOPED_TRACE(walk[0].first + (walk[0].second ? " granted, " : " revoked, ") +
                         bytesOf(scope));
            arm();
            const fl::ustring sub1 = tree.upath("sub1");
            const auto out = modifyPermsOut(tree.upath(""), u"Folder", request(walk), scope);
            EXPECT_TRUE(gRemoved) << "the walk never read its top folder";
            const auto rows = failureRows(out.get());
            bool named = false;
            for (const auto& row : rows) {
                EXPECT_TRUE(isInside(row.name, sub1)) << bytesOf(row.name);
                EXPECT_FALSE(row.cause.empty());
                named = named || row.name == sub1;
            }
            // Where the walk would have changed the folder, its absence is reported.
            if (fl::ustring(scope) != u"files") {
                EXPECT_TRUE(named);
            }

            const auto controlOut =
                modifyPermsOut(control.upath(""), u"Folder", request(walk), scope);
            EXPECT_TRUE(failureRows(controlOut.get()).empty());
            for (const auto& e : kOutside) {
                EXPECT_EQ(tree.mode(e), control.mode(e)) << "'" << e << "'";
            }
        }
    }
}

// With no output the removed folder is the first permission call that fails: the walk
// ends with its identified error, naming the folder and the system's reason.
TEST_F(RemovedDuringWalk, WithoutAnOutputTheRemovedFolderIsTheErrorRaised) {
    arm();
    EXPECT_IDENTIFIED_ERROR(
        modifyPermsNoOut(tree.upath(""), u"Folder", request({{"Writable", false}}), u"all"),
        "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", tree.upath("sub1"),
        std::string("No such file or directory"));
    EXPECT_TRUE(gRemoved);
    // Entries listed before it were changed; the walk stopped there.
    EXPECT_EQ(tree.mode("a.txt"), 0444U);
    EXPECT_EQ(tree.mode("z.txt"), 0644U);
}

}  // namespace
}  // namespace zkfs::test::faults
