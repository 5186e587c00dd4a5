#include "FaultsSupport.hpp"

#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "fl/i18n/unicode.hpp"
#include "vq/vqArray.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sched.h>
#include <system_error>

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

const std::string kComponent(200, 'd');

}  // namespace

fl::ustring hostText(std::string_view bytes) { return fl::i18n::to_ustring(bytes); }
std::string bytesOf(const fl::ustring& text) { return fl::i18n::to_utf8(text); }

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
    : base_(base.native()) {
    levels_.push_back(::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    while (levels_.back() >= 0 && path().size() < length) {
        if (::mkdirat(levels_.back(), kComponent.c_str(), 0755) != 0) fail(errno, "mkdirat");
        levels_.push_back(
            ::openat(levels_.back(), kComponent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    if (levels_.back() < 0) fail(errno, "open " + path());
}

DeepFolder::~DeepFolder() {
    for (const int fd : levels_) ::close(fd);
    // rm takes the chain one level at a time, as no single call may name its whole path.
    if (std::system(("rm -rf '" + base_ + "/" + kComponent + "'").c_str()) != 0) {
        ADD_FAILURE() << "the deep chain under " << base_ << " stays behind";
    }
}

std::string DeepFolder::path(std::size_t level) const {
    std::string p = base_;
    for (std::size_t i = 0; i < level; ++i) p += "/" + kComponent;
    return p;
}

unsigned DeepFolder::mode(std::size_t level, const char* name) const {
    struct stat st {};
    if (::fstatat(levels_.at(level), name, &st, AT_SYMLINK_NOFOLLOW) != 0) fail(errno, "fstatat");
    return static_cast<unsigned>(st.st_mode & 07777);
}

std::string DeepFolder::makeFile(const std::string& name) {
    const int fd =
        ::openat(levels_.back(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) fail(errno, "openat " + name);
    ::close(fd);
    return path() + "/" + name;
}

std::vector<Failure> modifyPerms(int outCount, const fl::ustring& location, const char16_t* type,
                                 const Request& request, const std::optional<fl::ustring>& scope) {
    FieldValues values;
    for (const auto& [name, value] : request) values.push_back(field(name, logicalScalar(value)));
    ArgList args(stringScalar(location), charRow(type), structScalarOf(std::move(values)));
    if (scope) {
        args.add(logicalScalar(false));  // the wrapper's own argument, never read
        args.add(charRow(*scope));
    }
    OutputSlots out;
    ::modifyPerms_impl(outCount, out.data(), args.count(), args.data());
    std::vector<Failure> failures;
    EXPECT_EQ(out[0] != nullptr, outCount == 1) << "output slot against outputs asked for";
    if (out[0] == nullptr) return failures;
    const vqSize n = vqGetNumberOfElements(out[0]);
    EXPECT_EQ(dimsOf(out[0]), (Dims{n, std::min<vqSize>(n, 1)}));  // N-by-1, 0-by-0 when none
    for (vqSize i = 0; i < n; ++i) {
        failures.push_back({stringsOf(vqGetField(out[0], i, "Name")).at(0).value(),
                            stringsOf(vqGetField(out[0], i, "Cause")).at(0).value()});
    }
    return failures;
}

std::vector<fl::ustring> namesOf(const std::vector<Failure>& failures) {
    std::vector<fl::ustring> names;
    for (const Failure& f : failures) names.push_back(f.name);
    return names;
}

// The child reports its own failures as GoogleTest prints them; the parent learns of
// them from the exit status. 77: the system did not let the child mount.
bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why) {
    if (::geteuid() != 0) {
        why = "mounting a tmpfs needs root";
        return false;
    }
    std::cout.flush();
    std::fflush(nullptr);
    const pid_t pid = ::fork();
    if (pid < 0) fail(errno, "fork");
    if (pid == 0) {
        // Nothing mounted here may reach the parent's namespace.
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, options.c_str()) != 0) {
            ::_exit(77);
        }
        block();
        std::cout.flush();
        std::fflush(nullptr);
        ::_exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        why = "the system does not let a child mount a private tmpfs";
        return false;
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the child with the private tmpfs failed (status " << status << "), see above";
    return true;
}

}  // namespace zkfs::test::faults
