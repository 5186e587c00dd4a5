#include "Jail.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <ftw.h>
#include <linux/mount.h>
#include <sched.h>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zkfs::fuzz {
namespace {

constexpr const char* kSandbox = "/mnt";

std::string errorText(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

int setMountAttr(const char* path, unsigned flags, std::uint64_t set, std::uint64_t clear) {
    mount_attr attr{};
    attr.attr_set = set;
    attr.attr_clr = clear;
    return static_cast<int>(syscall(SYS_mount_setattr, AT_FDCWD, path, flags, &attr, sizeof attr));
}

bool writeFile(const char* path, const std::string& text) {
    std::ofstream f(path);
    f << text;
    return static_cast<bool>(f.flush());
}

bool becomeRootInUserNamespace(std::string& reason) {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        reason = errorText("unshare(user, mount)");
        return false;
    }
    if (!writeFile("/proc/self/setgroups", "deny") ||
        !writeFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
        !writeFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")) {
        reason = "cannot map the user into its namespace";
        return false;
    }
    return true;
}

void must(bool ok, const char* what) {
    if (!ok) throw std::runtime_error(errorText(what));
}

void createFile(const char* path, const char* text, mode_t mode) {
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    must(fd >= 0, path);
    const auto len = std::strlen(text);
    const bool wrote = ::write(fd, text, len) == static_cast<ssize_t>(len);
    ::close(fd);
    must(wrote, path);
    must(::chmod(path, mode) == 0, path);
}

int removeEntry(const char* path, const struct stat*, int, struct FTW* ftw) {
    if (ftw->level == 0) return 0;  // the sandbox root itself stays
    return ::remove(path);
}

// The outermost folders only: a folder inside another comes with it.
std::vector<std::string> outermost(std::vector<std::string> dirs) {
    std::sort(dirs.begin(), dirs.end());
    std::vector<std::string> kept;
    for (const auto& d : dirs) {
        const bool inside = !kept.empty() && (d == kept.back() || d.starts_with(kept.back() + "/"));
        if (!inside) kept.push_back(d);
    }
    return kept;
}

}  // namespace

bool enterJail(const std::vector<std::string>& requested, std::string& reason) {
    const std::vector<std::string> writable = outermost(requested);
    if (geteuid() == 0) {
        if (unshare(CLONE_NEWNS) != 0) {
            reason = errorText("unshare(mount)");
            return false;
        }
    } else if (!becomeRootInUserNamespace(reason)) {
        return false;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        reason = errorText("making mounts private");
        return false;
    }
    for (const auto& dir : writable) {
        if (mount(dir.c_str(), dir.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            reason = errorText(("bind " + dir).c_str());
            return false;
        }
    }
    if (setMountAttr("/", AT_RECURSIVE, MOUNT_ATTR_RDONLY, 0) != 0) {
        reason = errorText("making / read-only");
        return false;
    }
    for (const auto& dir : writable) {
        if (setMountAttr(dir.c_str(), 0, 0, MOUNT_ATTR_RDONLY) != 0) {
            reason = errorText(("reopening " + dir + " for writing").c_str());
            return false;
        }
    }
    if (mount("zkfs-fuzz", kSandbox, "tmpfs", MS_NOSUID | MS_NODEV,
              "size=8m,nr_inodes=2048,mode=755") != 0) {
        reason = errorText("mounting the sandbox");
        return false;
    }
    if (chdir(kSandbox) != 0) {
        reason = errorText("entering the sandbox");
        return false;
    }
    resetSandbox();
    return true;
}

void resetSandbox() {
    // Restore search permission first so the removal can reach everything.
    ::chmod("/mnt/noperm", 0700);
    ::chmod("/mnt/d", 0755);
    ::chmod("/mnt/d/s", 0755);
    nftw(kSandbox, removeEntry, 16, FTW_DEPTH | FTW_PHYS);
    must(::chmod(kSandbox, 0755) == 0, kSandbox);
    must(::mkdir("/mnt/d", 0755) == 0, "/mnt/d");
    createFile("/mnt/d/f", "x", 0640);
    must(::mkdir("/mnt/d/s", 0755) == 0, "/mnt/d/s");
    createFile("/mnt/d/s/g", "y", 0600);
    must(::symlink("f", "/mnt/d/l") == 0, "/mnt/d/l");
    must(::symlink("none", "/mnt/d/dangling") == 0, "/mnt/d/dangling");
    must(::symlink("loop", "/mnt/loop") == 0, "/mnt/loop");
    must(::mkdir("/mnt/noperm", 0700) == 0, "/mnt/noperm");
    createFile("/mnt/noperm/h", "h", 0644);
    must(::chmod("/mnt/noperm", 0) == 0, "/mnt/noperm");
    createFile("/mnt/a.txt", "text\n", 0644);
    createFile("/mnt/b.html", "<html><body>x</body></html>\n", 0644);
    createFile("/mnt/\xff", "", 0644);
}

}  // namespace zkfs::fuzz
