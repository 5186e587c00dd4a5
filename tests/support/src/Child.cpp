#include "zkfs/test/Child.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <sched.h>
#include <string>

#include <grp.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

constexpr std::uint32_t kFallbackId = 65534;
// Exit statuses of the child: its set-up was refused; the block failed.
constexpr int kRefused = 77;
constexpr int kFailed = 1;

// Drops to the unprivileged user; an empty text on success, else why not.
std::string dropPrivileges(const UnprivilegedIds& ids) {
    if (::setgroups(0, nullptr) != 0) return std::string("setgroups: ") + std::strerror(errno);
    if (::setgid(ids.gid) != 0) return std::string("setgid: ") + std::strerror(errno);
    if (::setuid(ids.uid) != 0) return std::string("setuid: ") + std::strerror(errno);
    // setuid from root sets all three user ids; make sure there is no way back.
    if (::setuid(0) == 0 || ::geteuid() == 0) return "still able to act as root";
    return {};
}

// Runs the block, an escaping exception counting as a failure.
void runGuarded(const std::function<void()>& block) {
    try {
        block();
    } catch (const std::exception& e) {
        ADD_FAILURE() << "exception escaped the block: " << e.what();
    } catch (...) {
        ADD_FAILURE() << "unknown exception escaped the block";
    }
}

// Forks; the child runs `setUp` (an error text, or "" when ready), then the block. The
// child's own GoogleTest prints each failure where it happens; the parent learns of them
// from the exit status. False when the set-up was refused and `refusable`.
bool runForked(const std::function<std::string()>& setUp, bool refusable,
               const std::function<void()>& block) {
    // Buffered output would otherwise be written twice, once by each process.
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
        return true;
    }
    if (pid == 0) {
        const std::string error = setUp();
        if (!error.empty() && refusable) ::_exit(kRefused);
        if (error.empty()) runGuarded(block);
        if (!error.empty()) std::cout << "the child could not set itself up: " << error << "\n";
        std::cout.flush();
        std::fflush(nullptr);
        ::_exit(error.empty() && !::testing::Test::HasFailure() ? 0 : kFailed);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kRefused && refusable) return false;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the child process failed (status " << status << "); its failures are printed above";
    return true;
}

}  // namespace

bool runningAsRoot() noexcept { return ::geteuid() == 0; }

UnprivilegedIds unprivilegedIds() {
    UnprivilegedIds ids{kFallbackId, kFallbackId};
    if (const passwd* pw = ::getpwnam("nobody"); pw != nullptr && pw->pw_uid != 0)
        ids.uid = pw->pw_uid;
    if (const group* gr = ::getgrnam("nogroup"); gr != nullptr && gr->gr_gid != 0)
        ids.gid = gr->gr_gid;
    return ids;
}

void runUnprivileged(const std::function<void()>& block) {
    if (!runningAsRoot()) {
        runGuarded(block);
        return;
    }
    runForked([] { return dropPrivileges(unprivilegedIds()); }, false, block);
}

bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why) {
    why = "the system does not let a child mount a private tmpfs";
    if (!runningAsRoot()) return false;
    return runForked(
        [&]() -> std::string {
            // Nothing mounted here may reach the parent's namespace.
            if (::unshare(CLONE_NEWNS) != 0 ||
                ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                ::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, options.c_str()) != 0) {
                return std::strerror(errno);
            }
            return {};
        },
        true, block);
}

void runWithLimits(std::size_t stackBytes, std::size_t descriptors,
                   const std::function<void()>& block, std::size_t moreAddressSpace) {
    runForked(
        [&]() -> std::string {
            const rlimit stack{stackBytes, stackBytes};
            const rlimit files{descriptors, descriptors};
            if (::setrlimit(RLIMIT_STACK, &stack) != 0 || ::setrlimit(RLIMIT_NOFILE, &files) != 0) {
                return std::string("setrlimit: ") + std::strerror(errno);
            }
            if (moreAddressSpace == 0) return {};
            std::ifstream status("/proc/self/status");
            std::size_t heldKiB = 0;
            for (std::string line; std::getline(status, line);) {
                if (line.rfind("VmSize:", 0) == 0) heldKiB = std::stoul(line.substr(7));
            }
            if (heldKiB == 0) return "no VmSize in /proc/self/status";
            const rlimit space{heldKiB * 1024 + moreAddressSpace,
                               heldKiB * 1024 + moreAddressSpace};
            if (::setrlimit(RLIMIT_AS, &space) != 0) {
                return std::string("setrlimit: ") + std::strerror(errno);
            }
            return {};
        },
        false, block);
}

}  // namespace zkfs::test
