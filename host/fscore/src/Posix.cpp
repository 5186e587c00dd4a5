#include "Posix.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <linux/openat2.h>
#include <memory>
#include <string_view>

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace quorin::io::filesystem::core::posix {
namespace {

FaultHook faultHook = nullptr;

int injected(const char* operation, const std::string& path) noexcept {
    return faultHook == nullptr ? 0 : faultHook(operation, path);
}

}  // namespace

FaultHook setFaultHook(FaultHook hook) noexcept {
    const FaultHook previous = faultHook;
    faultHook = hook;
    return previous;
}

int statPath(const std::string& path, struct stat& out) noexcept {
    if (const int e = injected("stat", path)) return e;
    return ::stat(path.c_str(), &out) == 0 ? 0 : errno;
}

int lstatPath(const std::string& path, struct stat& out) noexcept {
    if (const int e = injected("lstat", path)) return e;
    return ::lstat(path.c_str(), &out) == 0 ? 0 : errno;
}

int accessPath(const std::string& path, int mode) noexcept {
    if (const int e = injected("access", path)) return e;
    return ::access(path.c_str(), mode) == 0 ? 0 : errno;
}

int realPath(const std::string& path, std::string& out) {
    if (const int e = injected("realpath", path)) return e;
    // The allocating form: PATH_MAX is no limit on Linux paths built from relative parts.
    char* raw = ::realpath(path.c_str(), nullptr);
    if (raw == nullptr) return errno;
    const std::unique_ptr<char, decltype(&std::free)> resolved(raw, &std::free);
    out.assign(resolved.get());
    return 0;
}

namespace {

// The one owner of a descriptor; close is never retried (Linux frees the descriptor even
// when close fails).
class Fd {
public:
    explicit Fd(int fd) noexcept : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    [[nodiscard]] int get() const noexcept { return fd_; }

private:
    int fd_;
};

bool kernelName(int fd, std::string& out) {
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char buffer[4096];
    const ssize_t n = ::readlink(link, buffer, sizeof buffer);
    if (n <= 0 || static_cast<std::size_t>(n) >= sizeof buffer || buffer[0] != '/') return false;
    const std::string_view name(buffer, static_cast<std::size_t>(n));
    // The kernel marks a removed file so; a live name that ends so is rare enough to take
    // the slow road for.
    constexpr std::string_view deleted = " (deleted)";
    if (name.size() >= deleted.size() && name.substr(name.size() - deleted.size()) == deleted) {
        return false;
    }
    out.assign(name);
    return true;
}

bool hasDotDot(const std::string& path) noexcept {
    for (std::size_t i = path.find(".."); i != std::string::npos; i = path.find("..", i + 1)) {
        const bool starts = i == 0 || path[i - 1] == '/';
        const bool ends = i + 2 == path.size() || path[i + 2] == '/';
        if (starts && ends) return true;
    }
    return false;
}

// A path in native form with no ".." that opens without meeting a link is its own
// canonical form: one walk, no name to ask the kernel for. Any failure (a link on the
// way, a kernel without openat2) leaves the answer to the general road.
bool openWithoutLinks(const std::string& path, struct stat& target) {
    if (hasDotDot(path)) return false;
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const Fd fd(static_cast<int>(::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how)));
    return fd.get() >= 0 && ::fstat(fd.get(), &target) == 0;
}

}  // namespace

int probeName(const std::string& path, struct stat& self, bool wantAccess, bool& readable,
              bool& writable) noexcept {
    if (const int e = injected("lstat", path)) return e;
    // Status alone is one lstat; the descriptor only pays off when access is asked too.
    if (!wantAccess) return ::lstat(path.c_str(), &self) == 0 ? 0 : errno;
    const Fd fd(::open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (fd.get() < 0) return errno;
    if (::fstat(fd.get(), &self) != 0) return errno;
    if (!wantAccess || S_ISLNK(self.st_mode)) return 0;
    // faccessat2 asks about the open file itself; kernels before 5.8 refuse the empty
    // name, and then the path is asked again.
    const auto allowed = [&](int mode) {
        if (::faccessat(fd.get(), "", mode, AT_EMPTY_PATH) == 0) return true;
        if (errno != EINVAL && errno != ENOSYS) return false;
        return ::access(path.c_str(), mode) == 0;
    };
    readable = allowed(R_OK);
    writable = allowed(W_OK);
    return 0;
}

int canonicalPath(const std::string& path, std::string& out, struct stat& target) {
    if (const int e = injected("realpath", path)) return e;
    if (openWithoutLinks(path, target)) {
        out = path;
        return 0;
    }
    const Fd fd(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (fd.get() < 0) return errno;
    if (::fstat(fd.get(), &target) != 0) return errno;
    if (kernelName(fd.get(), out)) return 0;
    if (const int e = realPath(path, out)) return e;
    return ::stat(out.c_str(), &target) == 0 ? 0 : errno;
}

int symlinkPath(const std::string& target, const std::string& link) noexcept {
    if (const int e = injected("symlink", link)) return e;
    return ::symlink(target.c_str(), link.c_str()) == 0 ? 0 : errno;
}

std::string errorText(int error) {
    char buffer[256] = {};
    // GNU strerror_r may answer a static text instead of filling the buffer.
    return std::string(::strerror_r(error, buffer, sizeof buffer));
}

}  // namespace quorin::io::filesystem::core::posix
