// The makers on a file system that is full (a tiny tmpfs in a private mount namespace).
// With no inode left nothing can be made; with no block left an empty file still can,
// but not a link whose target text needs a block of its own. Nothing is left half-made.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

constexpr const char* kUnknown = "QUORIN:virtualfilesystem:unknownError";

// The identifier of the error a statement raised; "" when it succeeded.
std::string failure(const std::string& statement) {
    const qfs::Json answer = call(statement);
    return answer.contains("error") ? answer["error"]["identifier"].get<std::string>() : "";
}

// Makes files in `folder` until the file system refuses: empty ones use up the inodes,
// one written without end the blocks.
void fill(const std::string& folder, bool blocks) {
    const std::string block(4096, 'x');
    for (int made = 0;; ++made) {
        const std::string name = folder + "/fill" + std::to_string(made);
        const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0) {
            ASSERT_EQ(errno, ENOSPC);
            ASSERT_GT(made, 0);
            return;
        }
        while (blocks && ::write(fd, block.data(), block.size()) > 0) {
        }
        const int err = errno;
        ::close(fd);
        if (blocks) {
            ASSERT_EQ(err, ENOSPC);
            return;
        }
    }
}

TEST(FullFileSystem, NothingIsMadeWhereThereIsNoRoom) {
    TempTree tree;
    tree.makeFolder("full");
    tree.makeFile("t.txt", "target");
    const std::string longTarget(200, 'n');  // too long to live in the link's own inode
    tree.makeFile(longTarget, "target");
    const std::string full = tree.path("full").native();
    const InFolder inside(tree.root());
    std::string why;
    bool ran = runWithTmpfs(
        full, "size=64k,nr_inodes=8",
        [&] {
            fill(full, false);
            const auto before = tree.snapshot();
            EXPECT_EQ(failure("mkFileFcn('full/new.txt')"), kUnknown);
            EXPECT_EQ(failure("mkFileFcn('full/newdir/deeper/new.txt')"), kUnknown);
            EXPECT_EQ(failure("mkSymlinkFcn('full/link', 't.txt')"), kUnknown);
            EXPECT_EQ(failure("mkSymlinkFcn('full/d/link', 't.txt')"), kUnknown);
            EXPECT_EQ(tree.snapshot(), before);
            // Replacing removes first, which frees the inode the new file needs.
            EXPECT_EQ(failure("mkFileFcn('full/fill0', 'ReplacementRule', 'overwrite')"), "");
        },
        why);
    ran = ran &&
          runWithTmpfs(
              full, "size=64k,nr_inodes=64",
              [&] {
                  fill(full, true);
                  EXPECT_EQ(failure("mkFileFcn('full/empty.txt')"), "");
                  const auto before = tree.snapshot();
                  EXPECT_EQ(failure("mkSymlinkFcn('full/link', '" + longTarget + "')"), kUnknown);
                  EXPECT_EQ(tree.snapshot(), before);
              },
              why);
    if (!ran) GTEST_SKIP() << why;
}

}  // namespace
}  // namespace zkfs::test
