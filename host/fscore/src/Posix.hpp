#pragma once
// The core's one seam to the operating system. Each call answers 0 or the errno of the
// failed call (read in the statement that failed), never -1, and retries nothing: none of
// these calls can be interrupted by a signal on Linux local file systems.
//
// Tests inject faults that cannot be produced for real (EIO, ELOOP on demand) with
// setFaultHook: the hook sees the operation's name and path and answers an errno to
// fail with, or 0 to let the real call run.
#include <string>

#include <sys/stat.h>

namespace quorin::io::filesystem::core::posix {

int statPath(const std::string& path, struct stat& out) noexcept;
int lstatPath(const std::string& path, struct stat& out) noexcept;
int accessPath(const std::string& path, int mode) noexcept;
// lstat(2) and, when asked and the name is no link, access(2) for reading and writing,
// in one walk of the path: with access the name is opened (O_PATH | O_NOFOLLOW) and
// asked through the descriptor. For a link readable and writable are left alone (access(2) follows
// the link, so the caller asks about the target). Fault hooks see "lstat".
int probeName(const std::string& path, struct stat& self, bool wantAccess, bool& readable,
              bool& writable) noexcept;
int realPath(const std::string& path, std::string& out);
// realpath(3) and stat(2) of the result in one walk. The path must be in native form
// (absolute, no "." or repeated "/"). Without links or ".." on the way it is its own
// answer; else it is opened (O_PATH) and the kernel names the open file; realpath(3)
// answers where that cannot (no /proc, a name too long, a file removed meanwhile).
int canonicalPath(const std::string& path, std::string& out, struct stat& target);
int symlinkPath(const std::string& target, const std::string& link) noexcept;

// The operating system's text for an errno.
std::string errorText(int error);

using FaultHook = int (*)(const char* operation, const std::string& path);
// Installs a hook (nullptr removes it); answers the previous one. Not synchronised: for
// single-threaded tests only.
__attribute__((visibility("default"))) FaultHook setFaultHook(FaultHook hook) noexcept;

}  // namespace quorin::io::filesystem::core::posix
