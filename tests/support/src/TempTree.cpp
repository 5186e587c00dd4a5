#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

[[noreturn]] void fail(int err, const std::string& what) {
    throw std::system_error(err, std::generic_category(), what);
}

struct DirCloser {
    void operator()(DIR* d) const noexcept { ::closedir(d); }
};

// Gives back u+rwx on every folder and file below `dir` (a folder that was already made
// accessible), never following a link. Reports the first failure in `error`.
void restoreAccess(const std::string& dir, std::string& error) {
    std::unique_ptr<DIR, DirCloser> d(::opendir(dir.c_str()));
    if (!d) {
        if (error.empty()) error = "opendir " + dir + ": " + std::strerror(errno);
        return;
    }
    while (const dirent* e = ::readdir(d.get())) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        const std::string child = dir + "/" + name;
        struct stat st {};
        if (::lstat(child.c_str(), &st) != 0) {
            if (error.empty()) error = "lstat " + child + ": " + std::strerror(errno);
            continue;
        }
        if (S_ISLNK(st.st_mode)) continue;
        if (::chmod(child.c_str(), (st.st_mode & 07777) | S_IRWXU) != 0 && error.empty()) {
            error = "chmod " + child + ": " + std::strerror(errno);
        }
        if (S_ISDIR(st.st_mode)) restoreAccess(child, error);
    }
}

char typeLetter(mode_t m) {
    if (S_ISREG(m)) return 'f';
    if (S_ISDIR(m)) return 'd';
    if (S_ISLNK(m)) return 'l';
    return '?';
}

}  // namespace

TempTree::TempTree() {
    const char* tmp = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    std::string pattern = (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
    pattern += "/zkfs-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) fail(errno, "mkdtemp " + pattern);
    char* real = ::realpath(pattern.c_str(), nullptr);
    if (real == nullptr) {
        const int err = errno;
        ::rmdir(pattern.c_str());
        fail(err, "realpath " + pattern);
    }
    root_ = real;
    std::free(real);  // NOLINT(cppcoreguidelines-no-malloc): realpath's contract
}

TempTree::~TempTree() {
    if (!removed_) remove();
}

std::filesystem::path TempTree::path(std::string_view relative) const {
    if (relative.empty()) return root_;
    return root_ / std::filesystem::path(relative);
}

fl::ustring TempTree::upath(std::string_view relative) const {
    return fl::i18n::to_ustring(path(relative).native());
}

std::filesystem::path TempTree::makeFile(std::string_view relative, std::string_view content) {
    const auto p = path(relative);
    std::filesystem::create_directories(p.parent_path());
    const int fd = ::open(p.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) fail(errno, "open " + p.native());
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            const int err = errno;
            ::close(fd);
            fail(err, "write " + p.native());
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) fail(errno, "close " + p.native());
    return p;
}

std::filesystem::path TempTree::makeFolder(std::string_view relative) {
    const auto p = path(relative);
    std::filesystem::create_directories(p);
    return p;
}

std::filesystem::path TempTree::makeLink(std::string_view target, std::string_view relative) {
    const auto p = path(relative);
    std::filesystem::create_directories(p.parent_path());
    if (::symlink(std::string(target).c_str(), p.c_str()) != 0)
        fail(errno, "symlink " + p.native());
    return p;
}

void TempTree::setMode(std::string_view relative, unsigned mode) {
    const auto p = path(relative);
    if (::chmod(p.c_str(), static_cast<mode_t>(mode)) != 0) fail(errno, "chmod " + p.native());
}

unsigned TempTree::mode(std::string_view relative) const {
    const auto p = path(relative);
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0) fail(errno, "lstat " + p.native());
    return static_cast<unsigned>(st.st_mode & 07777);
}

void TempTree::handTo(std::uint32_t uid, std::uint32_t gid) {
    if (::lchown(root_.c_str(), uid, gid) != 0) fail(errno, "lchown " + root_.native());
    for (const auto& e : std::filesystem::recursive_directory_iterator(root_)) {
        if (::lchown(e.path().c_str(), uid, gid) != 0) fail(errno, "lchown " + e.path().native());
    }
}

std::vector<std::string> TempTree::snapshot() const {
    std::vector<std::string> lines;
    for (const auto& e : std::filesystem::recursive_directory_iterator(root_)) {
        struct stat st {};
        if (::lstat(e.path().c_str(), &st) != 0) fail(errno, "lstat " + e.path().native());
        std::ostringstream line;
        line << typeLetter(st.st_mode) << ' ' << std::oct << (st.st_mode & 07777) << std::dec
             << ' ';
        if (S_ISREG(st.st_mode)) line << st.st_size << ' ';
        if (S_ISLNK(st.st_mode))
            line << "-> " << std::filesystem::read_symlink(e.path()).native() << ' ';
        // Lexical: following links here would throw on a loop the test built on purpose.
        line << e.path().lexically_relative(root_).native();
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool TempTree::remove() {
    std::string error;
    if (::chmod(root_.c_str(), S_IRWXU) != 0)
        error = "chmod " + root_.native() + ": " + std::strerror(errno);
    restoreAccess(root_.native(), error);
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
    if (ec && error.empty()) error = "remove_all " + root_.native() + ": " + ec.message();
    if (error.empty() && std::filesystem::symlink_status(root_, ec).type() !=
                             std::filesystem::file_type::not_found) {
        error = "the tree " + root_.native() + " is still there after removal";
    }
    removed_ = true;
    if (!error.empty()) {
        ADD_FAILURE() << "temporary tree cleanup failed: " << error;
        return false;
    }
    return true;
}

InFolder::InFolder(const std::filesystem::path& folder)
    : previous_(std::filesystem::current_path()) {
    std::filesystem::current_path(folder);
}

InFolder::~InFolder() {
    std::error_code ec;
    std::filesystem::current_path(previous_, ec);
    EXPECT_FALSE(ec) << "could not return to " << previous_ << ": " << ec.message();
}

}  // namespace zkfs::test
