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
// Linux 6.6 numbers it 452 wherever system calls share one table; older headers lack
// the name.
#ifdef SYS_fchmodat2
constexpr long kFchmodat2 = SYS_fchmodat2;
#else
constexpr long kFchmodat2 = 452;
#endif
int sysFchmodat2(int dirfd, const char* path, mode_t mode, int flags) {
    return static_cast<int>(::syscall(kFchmodat2, dirfd, path, mode, flags));
}

constexpr SystemCalls real{
    &sysOpenat, &::close, &sysGetdents64, &::fstatat, &::mkdirat,    &::unlinkat, &::faccessat,
    &::read,    &::write, &sysFcntl,      &::statx,   &sysFchmodat2, &::fchmodat, &::fstatfs,
};

SystemCalls current = real;

}  // namespace

SystemCalls& systemCalls() { return current; }
const SystemCalls& realSystemCalls() { return real; }

}  // namespace foundation::storage::provider::detail
