#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

// Permission bits apply inside, and a tree handed to the child is the child's to write.
TEST(RunUnprivileged, PermissionBitsApplyInside) {
    TempTree t;
    t.makeFile("secret", "x");
    t.setMode("secret", 0);
    t.makeFolder("work");
    if (runningAsRoot()) t.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    const std::string secret = t.path("secret").native();
    const std::string made = t.path("work/made-by-child").native();
    runUnprivileged([&] {
        EXPECT_NE(::geteuid(), 0U);
        errno = 0;
        const int fd = ::open(secret.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(errno, EACCES);
        if (fd >= 0) ::close(fd);
        const int out = ::open(made.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_GE(out, 0);
        if (out >= 0) ::close(out);
    });
    EXPECT_TRUE(std::filesystem::exists(made));
}

TEST(RunUnprivileged, ReportsFailuresOfTheBlock) {
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ADD_FAILURE() << "marker-4711"; }), "marker-4711");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ASSERT_EQ(1, 2) << "fatal-marker"; }),
                            "fatal-marker");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { throw std::runtime_error("escaped-marker"); }),
                            "escaped-marker");
    if (!runningAsRoot()) return;  // without root the block runs in this process
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { std::raise(SIGKILL); }), "killed by signal 9");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ::_exit(5); }), "status 5");
}

}  // namespace
}  // namespace zkfs::test
