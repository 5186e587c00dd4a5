#pragma once
// The one seam between the host and the operating system. Every system call of the host
// libraries, and of the built-ins where they call the system themselves, goes through
// these functions; nothing else calls the system for a file.
//
// Contract:
// - Each function answers as its POSIX namesake: -1 (an invalid UniqueFd, false) with
//   errno set on failure. Read errno in the statement right after the call.
// - EINTR: a call that a signal interrupts is made again until it is not. close() never
//   is (Linux frees the descriptor whatever close answers), and an EINTR from close
//   counts as success.
// - Descriptors: every open adds O_CLOEXEC, and its descriptor comes back owned by a
//   UniqueFd, which closes it once.
// - Faults: a hook (ScopedFaultHook) sees every call before it is made, with its
//   descriptor, name and flags, and answers an errno to fail it with (the call is not
//   made) or 0 to make it; tests use it for failures the system cannot be made to give
//   (EIO, ENOSPC, EINTR) and to act between two calls (remove or swap an entry, then
//   let the call run). Before a read or write it may shorten the size (a short
//   transfer). It sees the call again once made, with its result and its data buffer,
//   which it may rewrite; an errno answered then reports the made call as failed (a
//   close that closed but said EIO; an open so failed closes its descriptor first).
//   A hook may be called from any thread that uses the seam (a tree walk reads statuses
//   ahead on a second one), one call at a time under the seam's lock, which a hook may
//   take again by calling the seam itself. Install or remove one only while no other
//   thread uses the seam.
// This header needs no OS header; callers include <fcntl.h> or <sys/stat.h> for flags.
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

struct stat;
struct statx;
struct statfs;

namespace fl::sys {

// Which call the hook sees.
enum class Op : unsigned char {
    Openat,
    Openat2,
    Close,
    Getdents64,
    Fstatat,
    Statx,
    Fstatfs,
    Faccessat,
    Readlinkat,
    Mkdirat,
    Unlinkat,
    Symlinkat,
    Fchmodat2,
    Fchmodat,
    Read,
    Write,
    Fcntl,
    Realpath,  // realpath(3), which makes its own calls
    Getcwd,
    Renameat2,  // seen with the destination's folder and name, and the RENAME_ flags
};

enum class Phase : unsigned char { Before, After };

struct Call {
    Op op;
    Phase phase = Phase::Before;
    int fd = -1;            // the descriptor worked on or from (AT_FDCWD), -1 for none
    const char* name = "";  // the name worked on ("" for none)
    int flags = 0;          // open or AT_ flags, access mode, fcntl command
    void* data = nullptr;   // the buffer the call fills or writes
    std::size_t size = 0;   // and its size
    long result = 0;        // After: what the call answered
};

using FaultHook = std::function<int(Call&)>;

// Installs a hook for its lifetime and puts the previous one back.
class ScopedFaultHook {
public:
    explicit ScopedFaultHook(FaultHook hook);
    ~ScopedFaultHook();
    ScopedFaultHook(const ScopedFaultHook&) = delete;
    ScopedFaultHook& operator=(const ScopedFaultHook&) = delete;

private:
    FaultHook previous_;
};

namespace detail {
int closeDescriptor(int fd) noexcept;
}  // namespace detail

// An owned descriptor.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] bool valid() const noexcept { return fd_ >= 0; }
    // Closes now: 0, or -1 with errno (a failed flush). Closed either way.
    int close() noexcept { return fd_ < 0 ? 0 : detail::closeDescriptor(std::exchange(fd_, -1)); }
    // Closes, if open, keeping errno: for paths that already have an error to report.
    void reset() noexcept;

private:
    int fd_ = -1;
};

UniqueFd openat(int dirfd, const char* name, int flags, unsigned mode = 0);
// openat2(2) with RESOLVE_* flags; ENOSYS on kernels before 5.6.
UniqueFd openat2(int dirfd, const char* name, int flags, std::uint64_t resolve);
long getdents64(int fd, void* buffer, std::size_t size);
int fstatat(int dirfd, const char* name, struct stat& out, int flags);
int statx(int dirfd, const char* name, int flags, unsigned mask, struct statx& out);
int fstatfs(int fd, struct statfs& out);
int faccessat(int dirfd, const char* name, int mode, int flags);
long readlinkat(int dirfd, const char* name, char* buffer, std::size_t size);
int mkdirat(int dirfd, const char* name, unsigned mode);
int unlinkat(int dirfd, const char* name, int flags);
int symlinkat(const char* target, int dirfd, const char* name);
// renameat2(2); flags RENAME_NOREPLACE (1) or RENAME_EXCHANGE (2). EINVAL where the file
// system cannot exchange.
int renameat2(int fromDirfd, const char* from, int toDirfd, const char* to, unsigned flags);
// fchmodat2(2) (Linux 6.6): under AT_SYMLINK_NOFOLLOW the kernel itself refuses a link
// (EOPNOTSUPP); older kernels answer ENOSYS.
int fchmodat2(int dirfd, const char* name, unsigned mode, int flags);
// The C library's fchmodat, which under AT_SYMLINK_NOFOLLOW never follows a final link
// either (it checks the name through an O_PATH descriptor).
int fchmodat(int dirfd, const char* name, unsigned mode, int flags);
long read(int fd, void* buffer, std::size_t size);
long write(int fd, const void* buffer, std::size_t size);
int fcntl(int fd, int command, int argument);
// realpath(3) without a length limit.
bool realpath(const char* path, std::string& out);
bool getcwd(std::string& out);

// The operating system's text for an errno.
std::string errorText(int error);

}  // namespace fl::sys
