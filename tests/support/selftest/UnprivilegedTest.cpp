#include <csignal>
#include <stdexcept>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <fcntl.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

TEST(RunUnprivileged, PermissionBitsApplyInside) {
    TempTree t;
    t.makeFile("secret", "x");
    t.setMode("secret", 0);
    t.setMode("", 0755);
    const std::string path = t.path("secret").native();
    runUnprivileged([&] {
        EXPECT_NE(::geteuid(), 0U);
        errno = 0;
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_EQ(fd, -1);
        EXPECT_EQ(errno, EACCES);
        if (fd >= 0) ::close(fd);
    });
}

TEST(RunUnprivileged, HandsTheTreeToTheChild) {
    if (!runningAsRoot()) GTEST_SKIP() << "ownership can only be given away by root";
    TempTree t;
    t.makeFolder("work");
    const auto ids = unprivilegedIds();
    t.handTo(ids.uid, ids.gid);
    const std::string dir = t.path("work").native();
    runUnprivileged([&] {
        const std::string f = dir + "/made-by-child";
        const int fd = ::open(f.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_GE(fd, 0);
        if (fd >= 0) ::close(fd);
    });
    EXPECT_TRUE(std::filesystem::exists(t.path("work/made-by-child")));
}

TEST(RunUnprivileged, ReportsFailuresOfTheBlock) {
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ADD_FAILURE() << "marker-4711"; }),
                            "marker-4711");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ASSERT_EQ(1, 2) << "fatal-marker"; }),
                            "fatal-marker");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { throw std::runtime_error("escaped-marker"); }),
                            "escaped-marker");
}

TEST(RunUnprivileged, ReportsAChildThatDies) {
    if (!runningAsRoot()) GTEST_SKIP() << "without root the block runs in this process";
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { std::raise(SIGKILL); }), "killed by signal 9");
    EXPECT_NONFATAL_FAILURE(runUnprivileged([] { ::_exit(5); }), "status 5");
}

}  // namespace
}  // namespace zkfs::test
