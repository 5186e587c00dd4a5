#pragma once
// The core's composed operations on local paths, made of fl::sys calls (the one seam to
// the operating system, where tests inject faults). Each answers 0 or the errno of the
// call that failed, never -1.
#include "fl/sys/SystemCalls.hpp"

#include <string>

#include <sys/stat.h>

namespace quorin::io::filesystem::core::posix {

int statPath(const std::string& path, struct stat& out) noexcept;
int lstatPath(const std::string& path, struct stat& out) noexcept;
int accessPath(const std::string& path, int mode) noexcept;
// lstat(2) and, when asked and the name is no link, access(2) for reading and writing,
// in one walk of the path: with access the name is opened (O_PATH | O_NOFOLLOW) and
// asked through the descriptor. For a link readable and writable are left alone
// (access(2) follows the link, so the caller asks about the target).
int probeName(const std::string& path, struct stat& self, bool wantAccess, bool& readable,
              bool& writable) noexcept;
int realPath(const std::string& path, std::string& out);
// A path in native form (absolute, no "." or repeated "/") without ".." opened with
// O_PATH | `flags` only when no link is met on the way, so that it is its own canonical
// form. Invalid otherwise, errno set: ELOOP for a link or a "..", ENOSYS on kernels
// without openat2.
fl::sys::UniqueFd openWithoutLinks(const std::string& path, int flags);
// The canonical path of what `path` leads to, links followed, and, when `target` is
// given, stat(2) of it: the path is opened once (O_PATH) and the kernel names the open
// file; realpath(3) answers where that cannot (no /proc, a name too long, a file removed
// meanwhile).
int followPath(const std::string& path, std::string& out, struct stat* target);
// realpath(3) and stat(2) of the result in one walk, for a path in native form: without
// links or ".." on the way it is its own answer, else followPath.
int canonicalPath(const std::string& path, std::string& out, struct stat& target);
// The name the kernel gives an open descriptor; false when it has none to give.
bool kernelName(int fd, std::string& out);
int symlinkPath(const std::string& target, const std::string& link) noexcept;

}  // namespace quorin::io::filesystem::core::posix
