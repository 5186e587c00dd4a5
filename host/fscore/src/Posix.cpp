#include "Posix.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

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
