#pragma once
// The one seam through which the file provider reaches the operating system.
//
// Policy: every call that can be interrupted is retried on EINTR, except close(), which
// is never retried (on Linux the descriptor is gone whatever close answers). errno is
// read by the caller right after the failing call. Tests replace entries of the table to
// inject faults that cannot be produced for real (EIO, ENOSPC, EINTR).
#include <cerrno>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/vfs.h>

namespace foundation::storage::provider::detail {

struct SystemCalls {
    int (*openat)(int dirfd, const char* path, int flags, mode_t mode);
    int (*close)(int fd);
    long (*getdents64)(int fd, void* buffer, std::size_t size);
    int (*fstatat)(int dirfd, const char* path, struct stat* st, int flags);
    int (*mkdirat)(int dirfd, const char* path, mode_t mode);
    int (*unlinkat)(int dirfd, const char* path, int flags);
    int (*faccessat)(int dirfd, const char* path, int mode, int flags);
    ssize_t (*read)(int fd, void* buffer, std::size_t size);
    ssize_t (*write)(int fd, const void* buffer, std::size_t size);
    int (*fcntl)(int fd, int cmd, int arg);
    int (*statx)(int dirfd, const char* path, int flags, unsigned mask, struct statx* out);
    // fchmodat2(2) (Linux 6.6): the kernel itself refuses a link under AT_SYMLINK_NOFOLLOW
    // (EOPNOTSUPP); older kernels answer ENOSYS.
    int (*fchmodat2)(int dirfd, const char* path, mode_t mode, int flags);
    // The C library's fchmodat, which never follows a final link under AT_SYMLINK_NOFOLLOW
    // either (it checks the name through an O_PATH descriptor).
    int (*fchmodat)(int dirfd, const char* path, mode_t mode, int flags);
    int (*fstatfs)(int fd, struct statfs* out);
};

// The table in use; tests may change entries and must restore them (see the real one).
SystemCalls& systemCalls();
const SystemCalls& realSystemCalls();

template <class F>
auto retryOnEintr(F&& call) {
    for (;;) {
        auto rc = call();
        if (!(rc == -1 && errno == EINTR)) return rc;
    }
}

// An owned descriptor; closed once, never retried.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& o) noexcept : fd_(std::exchange(o.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& o) noexcept {
        if (this != &o) {
            reset();
            fd_ = std::exchange(o.fd_, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
    // Closes and answers the close result (0, or -1 with errno set).
    int close() noexcept {
        if (fd_ < 0) return 0;
        return systemCalls().close(std::exchange(fd_, -1));
    }
    void reset() noexcept {
        if (fd_ >= 0) {
            const int saved = errno;
            systemCalls().close(std::exchange(fd_, -1));
            errno = saved;
        }
    }

private:
    int fd_ = -1;
};

}  // namespace foundation::storage::provider::detail
