#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

TempTree::TempTree() {
    const char* tmp = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
    std::string pattern = (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
    pattern += "/zkfs-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) fail("mkdtemp " + pattern);
    root_ = fs::canonical(pattern);
}

// u+rwx first on every folder and file (a folder is opened to before it is listed, never
// through a link), so that what a test closed can be removed; then the tree goes.
TempTree::~TempTree() {
    std::error_code ec;
    fs::permissions(root_, fs::perms::owner_all, fs::perm_options::add, ec);
    for (auto it = fs::recursive_directory_iterator(root_, ec); !ec && it != fs::end(it);
         it.increment(ec)) {
        if (!it->is_symlink()) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
        }
    }
    if (!ec) fs::remove_all(root_, ec);
    if (ec || fs::exists(fs::symlink_status(root_))) {
        ADD_FAILURE() << "temporary tree " << root_ << " stays behind: " << ec.message();
    }
}

fs::path TempTree::path(std::string_view relative) const {
    return relative.empty() ? root_ : root_ / fs::path(relative);
}

fl::ustring TempTree::upath(std::string_view relative) const {
    return fl::i18n::to_ustring(path(relative).native());
}

fs::path TempTree::makeFile(std::string_view relative, std::string_view content) {
    const auto p = path(relative);
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    if (!(out << content) || !(out.close(), out)) fail("write " + p.native());
    return p;
}

fs::path TempTree::makeFolder(std::string_view relative) {
    const auto p = path(relative);
    fs::create_directories(p);
    return p;
}

fs::path TempTree::makeLink(std::string_view target, std::string_view relative) {
    const auto p = path(relative);
    fs::create_directories(p.parent_path());
    fs::create_symlink(fs::path(target), p);
    return p;
}

void TempTree::setMode(std::string_view relative, unsigned mode) {
    if (::chmod(path(relative).c_str(), static_cast<mode_t>(mode)) != 0) fail("chmod");
}

unsigned TempTree::mode(std::string_view relative) const {
    struct stat st {};
    if (::lstat(path(relative).c_str(), &st) != 0) fail("lstat " + path(relative).native());
    return static_cast<unsigned>(st.st_mode & 07777);
}

void TempTree::handTo(std::uint32_t uid, std::uint32_t gid) {
    if (::lchown(root_.c_str(), uid, gid) != 0) fail("lchown " + root_.native());
    for (const auto& e : fs::recursive_directory_iterator(root_)) {
        if (::lchown(e.path().c_str(), uid, gid) != 0) fail("lchown " + e.path().native());
    }
}

std::vector<std::string> TempTree::snapshot() const {
    std::vector<std::string> lines;
    for (const auto& e : fs::recursive_directory_iterator(root_)) {
        struct stat st {};
        if (::lstat(e.path().c_str(), &st) != 0) fail("lstat " + e.path().native());
        std::ostringstream line;
        line << std::oct << st.st_mode << std::dec << ' ';
        if (S_ISREG(st.st_mode)) line << st.st_size << ' ';
        if (S_ISLNK(st.st_mode)) line << "-> " << fs::read_symlink(e.path()).native() << ' ';
        // Lexical: following links here would throw on a loop the test built on purpose.
        line << e.path().lexically_relative(root_).native();
        lines.push_back(line.str());
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

InFolder::InFolder(const std::filesystem::path& folder) : previous_(fs::current_path()) {
    fs::current_path(folder);
}

InFolder::~InFolder() {
    std::error_code ec;
    fs::current_path(previous_, ec);
    EXPECT_FALSE(ec) << "could not return to " << previous_ << ": " << ec.message();
}

}  // namespace zkfs::test
