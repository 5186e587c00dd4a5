#include "fl/sys/SystemCalls.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/openat2.h>
#include <memory>
#include <mutex>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace fl::sys {
namespace {

FaultHook current;

// A walk reads statuses on a second thread; a hook's own state then needs no lock of its own.
std::recursive_mutex& hookLock() {
    static std::recursive_mutex lock;
    return lock;
}

int ask(Call& call) {
    const std::lock_guard<std::recursive_mutex> held(hookLock());
    return current(call);
}

bool opens(Op op) noexcept { return op == Op::Openat || op == Op::Openat2; }

// One call under the seam's policy: the hook before and after, EINTR made again when
// `retry`. `made` makes the real call with the size the hook left, and answers its result.
template <class Made>
long run(const Call& given, bool retry, Made made) {
    for (;;) {
        long rc = 0;
        Call call = given;
        if (!current) {
            rc = made(call.size);
        } else if (const int injected = ask(call)) {
            errno = injected;
            rc = -1;
        } else {
            rc = made(std::min(call.size, given.size));
            const int saved = errno;
            call.phase = Phase::After;
            call.result = rc;
            if (const int reported = ask(call)) {
                if (rc >= 0 && opens(given.op)) ::close(static_cast<int>(rc));
                errno = reported;
                rc = -1;
            } else {
                errno = saved;
            }
        }
        if (!(retry && rc == -1 && errno == EINTR)) return rc;
    }
}

UniqueFd descriptor(long rc) { return UniqueFd(rc < 0 ? -1 : static_cast<int>(rc)); }

}  // namespace

ScopedFaultHook::ScopedFaultHook(FaultHook hook)
    : previous_(std::exchange(current, std::move(hook))) {}

ScopedFaultHook::~ScopedFaultHook() { current = std::move(previous_); }

namespace detail {

int closeDescriptor(int fd) noexcept {
    const long rc =
        run({.op = Op::Close, .fd = fd}, false, [&](std::size_t) { return long{::close(fd)}; });
    // The descriptor is gone after an interrupted close on Linux.
    return rc == -1 && errno == EINTR ? 0 : static_cast<int>(rc);
}

}  // namespace detail

void UniqueFd::reset() noexcept {
    if (fd_ < 0) return;
    const int saved = errno;
    detail::closeDescriptor(std::exchange(fd_, -1));
    errno = saved;
}

UniqueFd openat(int dirfd, const char* name, int flags, unsigned mode) {
    flags |= O_CLOEXEC;
    return descriptor(run({.op = Op::Openat, .fd = dirfd, .name = name, .flags = flags}, true,
                          [&](std::size_t) { return long{::openat(dirfd, name, flags, mode)}; }));
}

UniqueFd openat2(int dirfd, const char* name, int flags, std::uint64_t resolve) {
    open_how how{};
    how.flags = static_cast<__u64>(flags | O_CLOEXEC);
    how.resolve = static_cast<__u64>(resolve);
    return descriptor(
        run({.op = Op::Openat2, .fd = dirfd, .name = name, .flags = flags | O_CLOEXEC}, true,
            [&](std::size_t) { return ::syscall(SYS_openat2, dirfd, name, &how, sizeof how); }));
}

// glibc 2.36 has no getdents64 wrapper in every configuration; the system call is stable.
long getdents64(int fd, void* buffer, std::size_t size) {
    return run({.op = Op::Getdents64, .fd = fd, .data = buffer, .size = size}, true,
               [&](std::size_t n) { return ::syscall(SYS_getdents64, fd, buffer, n); });
}

int fstatat(int dirfd, const char* name, struct stat& out, int flags) {
    return static_cast<int>(
        run({.op = Op::Fstatat, .fd = dirfd, .name = name, .flags = flags, .data = &out}, true,
            [&](std::size_t) { return long{::fstatat(dirfd, name, &out, flags)}; }));
}

int statx(int dirfd, const char* name, int flags, unsigned mask, struct statx& out) {
    return static_cast<int>(
        run({.op = Op::Statx, .fd = dirfd, .name = name, .flags = flags, .data = &out}, true,
            [&](std::size_t) { return long{::statx(dirfd, name, flags, mask, &out)}; }));
}

int fstatfs(int fd, struct statfs& out) {
    return static_cast<int>(run({.op = Op::Fstatfs, .fd = fd, .data = &out}, true,
                                [&](std::size_t) { return long{::fstatfs(fd, &out)}; }));
}

int faccessat(int dirfd, const char* name, int mode, int flags) {
    return static_cast<int>(
        run({.op = Op::Faccessat, .fd = dirfd, .name = name, .flags = mode}, true,
            [&](std::size_t) { return long{::faccessat(dirfd, name, mode, flags)}; }));
}

long readlinkat(int dirfd, const char* name, char* buffer, std::size_t size) {
    return run({.op = Op::Readlinkat, .fd = dirfd, .name = name, .data = buffer, .size = size},
               true, [&](std::size_t n) { return long{::readlinkat(dirfd, name, buffer, n)}; });
}

int mkdirat(int dirfd, const char* name, unsigned mode) {
    return static_cast<int>(run({.op = Op::Mkdirat, .fd = dirfd, .name = name}, true,
                                [&](std::size_t) { return long{::mkdirat(dirfd, name, mode)}; }));
}

int unlinkat(int dirfd, const char* name, int flags) {
    return static_cast<int>(run({.op = Op::Unlinkat, .fd = dirfd, .name = name, .flags = flags},
                                true,
                                [&](std::size_t) { return long{::unlinkat(dirfd, name, flags)}; }));
}

int symlinkat(const char* target, int dirfd, const char* name) {
    return static_cast<int>(
        run({.op = Op::Symlinkat, .fd = dirfd, .name = name}, true,
            [&](std::size_t) { return long{::symlinkat(target, dirfd, name)}; }));
}

int renameat2(int fromDirfd, const char* from, int toDirfd, const char* to, unsigned flags) {
    return static_cast<int>(run(
        {.op = Op::Renameat2, .fd = toDirfd, .name = to, .flags = static_cast<int>(flags)}, true,
        [&](std::size_t) { return long{::renameat2(fromDirfd, from, toDirfd, to, flags)}; }));
}

// Linux 6.6 numbers it 452 wherever system calls share one table; older headers lack
// the name.
#ifdef SYS_fchmodat2
constexpr long kFchmodat2 = SYS_fchmodat2;
#else
constexpr long kFchmodat2 = 452;
#endif

int fchmodat2(int dirfd, const char* name, unsigned mode, int flags) {
    return static_cast<int>(
        run({.op = Op::Fchmodat2, .fd = dirfd, .name = name, .flags = flags}, true,
            [&](std::size_t) { return ::syscall(kFchmodat2, dirfd, name, mode, flags); }));
}

int fchmodat(int dirfd, const char* name, unsigned mode, int flags) {
    return static_cast<int>(
        run({.op = Op::Fchmodat, .fd = dirfd, .name = name, .flags = flags}, true,
            [&](std::size_t) { return long{::fchmodat(dirfd, name, mode, flags)}; }));
}

long read(int fd, void* buffer, std::size_t size) {
    return run({.op = Op::Read, .fd = fd, .data = buffer, .size = size}, true,
               [&](std::size_t n) { return long{::read(fd, buffer, n)}; });
}

long write(int fd, const void* buffer, std::size_t size) {
    return run({.op = Op::Write, .fd = fd, .data = const_cast<void*>(buffer), .size = size}, true,
               [&](std::size_t n) { return long{::write(fd, buffer, n)}; });
}

int fcntl(int fd, int command, int argument) {
    return static_cast<int>(run({.op = Op::Fcntl, .fd = fd, .flags = command}, true,
                                [&](std::size_t) { return long{::fcntl(fd, command, argument)}; }));
}

bool realpath(const char* path, std::string& out) {
    return run({.op = Op::Realpath, .name = path}, false, [&](std::size_t) {
               const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path, nullptr),
                                                                          &std::free);
               if (!resolved) return -1L;
               out.assign(resolved.get());
               return 0L;
           }) == 0;
}

bool getcwd(std::string& out) {
    return run({.op = Op::Getcwd}, false, [&](std::size_t) {
               const std::unique_ptr<char, decltype(&std::free)> cwd(::getcwd(nullptr, 0),
                                                                     &std::free);
               if (!cwd) return -1L;
               out.assign(cwd.get());
               return 0L;
           }) == 0;
}

std::string errorText(int error) {
    char buffer[256] = {};
    // GNU strerror_r may answer a static text instead of filling the buffer.
    return std::string(::strerror_r(error, buffer, sizeof buffer));
}

}  // namespace fl::sys
