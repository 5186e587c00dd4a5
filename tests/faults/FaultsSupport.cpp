#include "FaultsSupport.hpp"

#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"

#include "fl/i18n/unicode.hpp"
#include "vq/vqArray.hpp"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sched.h>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zkfs::test::faults {
namespace {

[[noreturn]] void fail(int err, const std::string& what) {
    throw std::system_error(err, std::generic_category(), what);
}

// Removes the entry `name` of the folder open as `parent`, and everything in it, without
// ever naming a path longer than one component.
void removeAt(int parent, const char* name) {
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOTDIR || errno == ELOOP) {
            if (::unlinkat(parent, name, 0) != 0) fail(errno, std::string("unlinkat ") + name);
            return;
        }
        fail(errno, std::string("openat ") + name);
    }
    ::fchmod(fd, 0700);
    DIR* dir = ::fdopendir(fd);
    if (dir == nullptr) {
        ::close(fd);
        fail(errno, "fdopendir");
    }
    std::vector<std::string> entries;
    while (const dirent* e = ::readdir(dir)) {
        const std::string n = e->d_name;
        if (n != "." && n != "..") entries.push_back(n);
    }
    for (const auto& n : entries) removeAt(::dirfd(dir), n.c_str());
    ::closedir(dir);
    if (::unlinkat(parent, name, AT_REMOVEDIR) != 0) fail(errno, std::string("rmdir ") + name);
}

const vqArray* fieldOf(const vqArray* s, const char* name) {
    const vqArray* f = vqGetField(s, 0, name);
    if (f == nullptr) throw std::runtime_error(std::string("no field ") + name);
    return f;
}

Resolved readResolved(const vqArray* s, bool attributes) {
    Resolved r;
    if (s == nullptr || vqGetNumberOfElements(s) != 1) throw std::runtime_error("not 1x1");
    r.path = stringsOf(fieldOf(s, "ResolvedPath")).at(0).value_or(u"<missing>");
    r.type = stringsOf(fieldOf(s, "Type")).at(0).value_or(u"<missing>");
    if (attributes) {
        r.readable = logicalsOf(fieldOf(s, "Readable")).at(0);
        r.writable = logicalsOf(fieldOf(s, "Writable")).at(0);
        r.lastModified = doublesOf(fieldOf(s, "LastModified")).at(0);
        r.size = doublesOf(fieldOf(s, "Size")).at(0);
    }
    return r;
}

template <auto Gateway>
unique_vqarray_ptr callOne(const fl::ustring& path, int outCount, std::size_t slots,
                           std::vector<unique_vqarray_ptr>& results) {
    ArgList args(stringScalar(path));
    OutputSlots out(slots);
    Gateway(outCount, out.data(), args.count(), args.data());
    for (std::size_t i = 1; i < slots; ++i) results.push_back(std::move(out.slot(i)));
    return std::move(out.slot(0));
}

}  // namespace

fl::ustring hostText(std::string_view bytes) { return fl::i18n::to_ustring(bytes); }
std::string bytesOf(const fl::ustring& text) { return fl::i18n::to_utf8(text); }

void makeRawFile(const std::string& path, std::string_view content) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) fail(errno, "open " + path);
    const ssize_t n = ::write(fd, content.data(), content.size());
    ::close(fd);
    if (n != static_cast<ssize_t>(content.size())) fail(EIO, "write " + path);
}

bool rawExists(const std::string& path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

unsigned rawMode(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) fail(errno, "lstat " + path);
    return static_cast<unsigned>(st.st_mode & 07777);
}

std::vector<std::string> rawNames(const std::string& folder) {
    DIR* dir = ::opendir(folder.c_str());
    if (dir == nullptr) fail(errno, "opendir " + folder);
    std::vector<std::string> names;
    while (const dirent* e = ::readdir(dir)) {
        const std::string n = e->d_name;
        if (n != "." && n != "..") names.push_back(n);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

DeepFolder::DeepFolder(const std::filesystem::path& base, std::size_t length)
    : base_(base.native()), component_(200, 'd'), path_(base.native()) {
    int fd = ::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail(errno, "open " + base_);
    while (path_.size() < length) {
        if (::mkdirat(fd, component_.c_str(), 0755) != 0) {
            const int err = errno;
            ::close(fd);
            fail(err, "mkdirat");
        }
        const int next = ::openat(fd, component_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int err = errno;
        ::close(fd);
        if (next < 0) fail(err, "openat");
        fd = next;
        path_ += "/" + component_;
        ++depth_;
    }
    deepest_ = fd;
}

DeepFolder::~DeepFolder() {
    if (deepest_ >= 0) ::close(deepest_);
    const int base = ::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (base < 0) {
        ADD_FAILURE() << "deep tree cleanup: cannot open " << base_;
        return;
    }
    try {
        removeAt(base, component_.c_str());
    } catch (const std::exception& e) {
        ADD_FAILURE() << "deep tree cleanup: " << e.what();
    }
    ::close(base);
}

std::string DeepFolder::makeFile(const std::string& name) {
    const int fd = ::openat(deepest_, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) fail(errno, "openat " + name);
    ::close(fd);
    return path_ + "/" + name;
}

std::vector<std::string> DeepFolder::names() const {
    const int fd = ::openat(deepest_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail(errno, "openat .");
    DIR* dir = ::fdopendir(fd);
    if (dir == nullptr) {
        ::close(fd);
        fail(errno, "fdopendir");
    }
    std::vector<std::string> out;
    while (const dirent* e = ::readdir(dir)) {
        const std::string n = e->d_name;
        if (n != "." && n != "..") out.push_back(n);
    }
    ::closedir(dir);
    std::sort(out.begin(), out.end());
    return out;
}

unsigned DeepFolder::folderMode(std::size_t depth) const {
    int fd = ::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail(errno, "open " + base_);
    for (std::size_t i = 1; i < depth; ++i) {
        const int next = ::openat(fd, component_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const int err = errno;
        ::close(fd);
        if (next < 0) fail(err, "openat");
        fd = next;
    }
    struct stat st {};
    const int rc = ::fstatat(fd, component_.c_str(), &st, AT_SYMLINK_NOFOLLOW);
    const int err = errno;
    ::close(fd);
    if (rc != 0) fail(err, "fstatat");
    return static_cast<unsigned>(st.st_mode & 07777);
}

unsigned DeepFolder::fileMode(const std::string& name) const {
    struct stat st {};
    if (::fstatat(deepest_, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) fail(errno, "fstatat");
    return static_cast<unsigned>(st.st_mode & 07777);
}

std::string DeepFolder::folderPath(std::size_t depth) const {
    std::string p = base_;
    for (std::size_t i = 0; i < depth; ++i) p += "/" + component_;
    return p;
}

Resolved resolve(const fl::ustring& path) {
    std::vector<unique_vqarray_ptr> rest;
    const auto s = callOne<&quorin::io::filesystem::quorin::resolvePathFcn>(path, 1, 1, rest);
    return readResolved(s.get(), false);
}

Resolved resolveWithAttributes(const fl::ustring& path) {
    std::vector<unique_vqarray_ptr> rest;
    const auto s =
        callOne<&quorin::io::filesystem::quorin::resolvePathFcnWithAttributes>(path, 1, 1, rest);
    return readResolved(s.get(), true);
}

LinkAnswer isSymlink(const fl::ustring& path) {
    std::vector<unique_vqarray_ptr> rest;
    const auto links = callOne<&isSymlinkFcn>(path, 2, 2, rest);
    LinkAnswer a;
    a.isLink = logicalsOf(links.get()).at(0);
    a.target = stringsOf(rest.at(0).get()).at(0).value_or(u"<missing>");
    return a;
}

namespace {

// Failures travel from the child as "file\x1fline\x1fmessage\x1e"; a skip as "\x02why".
std::string collect(const std::function<void()>& block) {
    ::testing::TestPartResultArray results;
    std::string out;
    {
        ::testing::ScopedFakeTestPartResultReporter reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        try {
            block();
        } catch (const std::exception& e) {
            out += std::string(__FILE__) + "\x1f" + std::to_string(__LINE__) +
                   "\x1f"
                   "exception escaped the block: " +
                   e.what() + "\x1e";
        } catch (...) {
            out += std::string(__FILE__) + "\x1f" + std::to_string(__LINE__) +
                   "\x1f"
                   "unknown exception escaped the block\x1e";
        }
    }
    for (int i = 0; i < results.size(); ++i) {
        const auto& r = results.GetTestPartResult(i);
        if (!r.failed()) continue;
        out += std::string(r.file_name() != nullptr ? r.file_name() : "?") + "\x1f" +
               std::to_string(r.line_number()) + "\x1f" + r.message() + "\x1e";
    }
    return out;
}

std::string inPrivateMount(const std::string& mountPoint, const std::string& options,
                           const std::function<void()>& block) {
    if (::unshare(CLONE_NEWNS) != 0) return std::string("\x02unshare: ") + std::strerror(errno);
    // Nothing mounted here may reach the parent's namespace.
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return std::string("\x02making mounts private: ") + std::strerror(errno);
    }
    if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        return std::string("\x02mount tmpfs: ") + std::strerror(errno);
    }
    std::string out = collect(block);
    ::umount2(mountPoint.c_str(), MNT_DETACH);
    return out;
}

}  // namespace

bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why) {
    if (::geteuid() != 0) {
        why = "mounting a tmpfs needs root";
        return false;
    }
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) fail(errno, "pipe2");
    std::cout.flush();
    std::cerr.flush();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) fail(errno, "fork");
    if (pid == 0) {
        ::close(fds[0]);
        const std::string out = inPrivateMount(mountPoint, options, block);
        std::size_t done = 0;
        while (done < out.size()) {
            const ssize_t n = ::write(fds[1], out.data() + done, out.size() - done);
            if (n <= 0) break;
            done += static_cast<std::size_t>(n);
        }
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string in;
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(fds[0], buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        in.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fds[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        ADD_FAILURE() << "the child with the private mount ended abnormally (status " << status
                      << ")";
    }
    if (!in.empty() && in[0] == '\x02') {
        why = in.substr(1);
        return false;
    }
    std::size_t pos = 0;
    while (pos < in.size()) {
        const std::size_t end = in.find('\x1e', pos);
        const std::string record = in.substr(pos, end - pos);
        pos = end == std::string::npos ? in.size() : end + 1;
        const std::size_t a = record.find('\x1f');
        const std::size_t b = record.find('\x1f', a + 1);
        ADD_FAILURE_AT(record.substr(0, a).c_str(), std::stoi(record.substr(a + 1, b - a - 1)))
            << "[private mount] " << record.substr(b + 1);
    }
    return true;
}

}  // namespace zkfs::test::faults
