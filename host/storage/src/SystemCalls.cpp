#include "SystemCalls.hpp"

#include <sys/syscall.h>
#include <unistd.h>

namespace foundation::storage::provider::detail {

namespace {

int sysOpenat(int dirfd, const char* path, int flags, mode_t mode) {
    return ::openat(dirfd, path, flags, mode);
}
// glibc 2.36 has no getdents64 wrapper in every configuration; the system call is stable.
long sysGetdents64(int fd, void* buffer, std::size_t size) {
    return ::syscall(SYS_getdents64, fd, buffer, size);
}
int sysFcntl(int fd, int cmd, int arg) { return ::fcntl(fd, cmd, arg); }

constexpr SystemCalls real{
    &sysOpenat,  &::close,     &sysGetdents64, &::fstatat, &::mkdirat,
    &::unlinkat, &::faccessat, &::read,        &::write,   &sysFcntl,
};

SystemCalls current = real;

}  // namespace

SystemCalls& systemCalls() { return current; }
const SystemCalls& realSystemCalls() { return real; }

}  // namespace foundation::storage::provider::detail
