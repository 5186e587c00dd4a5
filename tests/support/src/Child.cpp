#include "zkfs/test/Child.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>
#include <sched.h>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

constexpr std::uint32_t kFallbackId = 65534;

// One failure as it travels from the child to the parent.
struct Report {
    std::string file;
    int line;
    std::string message;
};

// Each field ends with a NUL: every field comes from a C string, so none holds one.
std::string encode(const std::vector<Report>& reports) {
    std::string out;
    for (const auto& r : reports) {
        for (const std::string& field : {r.file, std::to_string(r.line), r.message}) {
            out += field;
            out += '\0';
        }
    }
    return out;
}

// False when the data is cut short (a child that died half-way through writing).
bool decode(const std::string& in, std::vector<Report>& reports) {
    std::vector<std::string> fields;
    for (std::size_t pos = 0, end; (end = in.find('\0', pos)) != std::string::npos; pos = end + 1)
        fields.emplace_back(in, pos, end - pos);
    for (std::size_t i = 0; i + 2 < fields.size(); i += 3)
        reports.push_back({fields[i], std::stoi(fields[i + 1]), fields[i + 2]});
    return fields.size() % 3 == 0 && (in.empty() || in.back() == '\0');
}

void writeAll(int fd, const std::string& data) {
    std::size_t done = 0;
    while (done < data.size()) {
        const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;  // the parent reports the truncated stream
        }
        done += static_cast<std::size_t>(n);
    }
}

// Drops to the unprivileged user; an empty text on success, else why not.
std::string dropPrivileges(const UnprivilegedIds& ids) {
    if (::setgroups(0, nullptr) != 0) return std::string("setgroups: ") + std::strerror(errno);
    if (::setgid(ids.gid) != 0) return std::string("setgid: ") + std::strerror(errno);
    if (::setuid(ids.uid) != 0) return std::string("setuid: ") + std::strerror(errno);
    // setuid from root sets all three user ids; make sure there is no way back.
    if (::setuid(0) == 0 || ::geteuid() == 0) return "still able to act as root";
    return {};
}

// The block under a reporter that records instead of reporting, so that every failure,
// fatal ones included, reaches the caller the same way with or without a child.
std::vector<Report> runCollecting(const std::function<void()>& block) {
    std::vector<Report> reports;
    ::testing::TestPartResultArray results;
    {
        ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        try {
            block();
        } catch (const std::exception& e) {
            reports.push_back(
                {__FILE__, __LINE__,
                 std::string("exception escaped the unprivileged block: ") + e.what()});
        } catch (...) {
            reports.push_back(
                {__FILE__, __LINE__, "unknown exception escaped the unprivileged block"});
        }
    }
    for (int i = 0; i < results.size(); ++i) {
        const auto& r = results.GetTestPartResult(i);
        if (!r.failed()) continue;
        reports.push_back({r.file_name() != nullptr ? r.file_name() : "(unknown file)",
                           r.line_number(), r.message()});
    }
    return reports;
}

// Exit status of a child whose set-up the system refused.
constexpr int kRefused = 77;

void reportAll(const std::vector<Report>& reports) {
    for (const auto& r : reports) {
        ADD_FAILURE_AT(r.file.c_str(), r.line) << "[in the child] " << r.message;
    }
}

// Forks, runs `setUp` in the child (an error text, or "" when ready; with `refusable` a
// failed set-up ends the child with kRefused), then the block; false when it was refused.
bool runForked(const std::function<std::string()>& setUp, bool refusable,
               const std::function<void()>& block) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "pipe2: " << std::strerror(errno);
        return true;
    }
    // Buffered output would otherwise be written twice, once by each process.
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) {
        ADD_FAILURE() << "fork: " << std::strerror(errno);
        ::close(fds[0]);
        ::close(fds[1]);
        return true;
    }
    if (pid == 0) {
        ::close(fds[0]);
        int status = 0;
        try {
            const std::string error = setUp();
            if (!error.empty() && refusable) ::_exit(kRefused);
            writeAll(fds[1],
                     encode(error.empty() ? runCollecting(block)
                                          : std::vector<Report>{{__FILE__, __LINE__, error}}));
        } catch (...) {
            status = 2;
        }
        ::close(fds[1]);
        ::_exit(status);
    }
    ::close(fds[1]);
    std::string data;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        data.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == kRefused) return false;
    std::vector<Report> reports;
    const bool complete = decode(data, reports);
    reportAll(reports);
    if (!complete) ADD_FAILURE() << "the child's report was cut short";
    if (WIFSIGNALED(status)) {
        ADD_FAILURE() << "the child was killed by signal " << WTERMSIG(status);
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        ADD_FAILURE() << "the child ended with status " << WEXITSTATUS(status);
    }
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
        reportAll(runCollecting(block));
        return;
    }
    runForked(
        [] {
            const std::string error = dropPrivileges(unprivilegedIds());
            return error.empty() ? error : "could not drop root privileges: " + error;
        },
        false, block);
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

}  // namespace zkfs::test
