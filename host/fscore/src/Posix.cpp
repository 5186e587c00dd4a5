#include "Posix.hpp"

#include <cerrno>
#include <cstdio>
#include <linux/openat2.h>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace quorin::io::filesystem::core::posix {

namespace sys = fl::sys;

int statPath(const std::string& path, struct stat& out) noexcept {
    return sys::fstatat(AT_FDCWD, path.c_str(), out, 0) == 0 ? 0 : errno;
}

int lstatPath(const std::string& path, struct stat& out) noexcept {
    return sys::fstatat(AT_FDCWD, path.c_str(), out, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int accessPath(const std::string& path, int mode) noexcept {
    return sys::faccessat(AT_FDCWD, path.c_str(), mode, 0) == 0 ? 0 : errno;
}

int realPath(const std::string& path, std::string& out) {
    return sys::realpath(path.c_str(), out) ? 0 : errno;
}

bool kernelName(int fd, std::string& out) {
    char link[32];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    char buffer[4096];
    const long n = sys::readlinkat(AT_FDCWD, link, buffer, sizeof buffer);
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

namespace {

bool hasDotDot(const std::string& path) noexcept {
    for (std::size_t i = path.find(".."); i != std::string::npos; i = path.find("..", i + 1)) {
        const bool starts = i == 0 || path[i - 1] == '/';
        const bool ends = i + 2 == path.size() || path[i + 2] == '/';
        if (starts && ends) return true;
    }
    return false;
}

}  // namespace

sys::UniqueFd openWithoutLinks(const std::string& path, int flags) {
    if (hasDotDot(path)) {
        errno = ELOOP;
        return {};
    }
    return sys::openat2(AT_FDCWD, path.c_str(), O_PATH | flags, RESOLVE_NO_SYMLINKS);
}

int probeName(const std::string& path, struct stat& self, bool wantAccess, bool& readable,
              bool& writable) noexcept {
    // Status alone is one lstat; the descriptor only pays off when access is asked too.
    if (!wantAccess) return lstatPath(path, self);
    const sys::UniqueFd fd = sys::openat(AT_FDCWD, path.c_str(), O_PATH | O_NOFOLLOW);
    if (!fd.valid()) return errno;
    if (sys::fstatat(fd.get(), "", self, AT_EMPTY_PATH) != 0) return errno;
    if (S_ISLNK(self.st_mode)) return 0;
    // faccessat2 asks about the open file itself; kernels before 5.8 refuse the empty
    // name, and then the path is asked again.
    const auto allowed = [&](int mode) {
        if (sys::faccessat(fd.get(), "", mode, AT_EMPTY_PATH) == 0) return true;
        if (errno != EINVAL && errno != ENOSYS) return false;
        return accessPath(path, mode) == 0;
    };
    readable = allowed(R_OK);
    writable = allowed(W_OK);
    return 0;
}

int followPath(const std::string& path, std::string& out, struct stat* target) {
    const sys::UniqueFd fd = sys::openat(AT_FDCWD, path.c_str(), O_PATH);
    if (!fd.valid()) return errno;
    if (target != nullptr && sys::fstatat(fd.get(), "", *target, AT_EMPTY_PATH) != 0) return errno;
    if (kernelName(fd.get(), out)) return 0;
    if (const int e = realPath(path, out)) return e;
    return target == nullptr ? 0 : statPath(out, *target);
}

int canonicalPath(const std::string& path, std::string& out, struct stat& target) {
    const sys::UniqueFd fd = openWithoutLinks(path, 0);
    if (fd.valid() && sys::fstatat(fd.get(), "", target, AT_EMPTY_PATH) == 0) {
        out = path;
        return 0;
    }
    return followPath(path, out, &target);
}

int symlinkPath(const std::string& target, const std::string& link) noexcept {
    return sys::symlinkat(target.c_str(), AT_FDCWD, link.c_str()) == 0 ? 0 : errno;
}

}  // namespace quorin::io::filesystem::core::posix
