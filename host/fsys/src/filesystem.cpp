#include "fl/filesystem/filesystem.hpp"

#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace fl::filesystem {

namespace sys = fl::sys;

static_assert(file_status::file_type_mask == S_IFMT);
static_assert(file_status::socket_file == S_IFSOCK);
static_assert(file_status::symlink_file == S_IFLNK);
static_assert(file_status::regular_file == S_IFREG);
static_assert(file_status::block_file == S_IFBLK);
static_assert(file_status::directory_file == S_IFDIR);
static_assert(file_status::character_file == S_IFCHR);
static_assert(file_status::fifo_file == S_IFIFO);

namespace {

file_status fromStat(const struct stat& st) {
    const std::int64_t ns = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000LL +
                            static_cast<std::int64_t>(st.st_mtim.tv_nsec);
    return {static_cast<unsigned>(st.st_mode), static_cast<std::uint64_t>(st.st_size), ns};
}

// The path layer reports three ways; the choice is made here once for every call.
[[noreturn]] void throwFor(int err, const fl::ustring& path) {
    if (err == EACCES) throw AccessDenied(path);
    if (err == ENOENT || err == ENOTDIR) throw PathNotFound(path);
    throw SystemError(err, path);
}

bool isAbsolute(const fl::ustring& path) { return !path.empty() && path.front() == u'/'; }

}  // namespace

fl::ustring current_path() {
    std::string cwd;
    if (!sys::getcwd(cwd)) throw SystemError(errno, u".");
    return fl::i18n::to_ustring(cwd);
}

file_status status(const fl::ustring& path) {
    const std::string native = detail::native_bytes(path);
    struct stat st {};
    if (sys::fstatat(AT_FDCWD, native.c_str(), st, 0) == 0) return fromStat(st);
    const int err = errno;
    if (err == ENOENT || err == ELOOP) {
        // The name may exist as a link that leads nowhere: that is no missing name.
        struct stat lst {};
        if (sys::fstatat(AT_FDCWD, native.c_str(), lst, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISLNK(lst.st_mode)) {
            throw SystemError(ENOENT, path);
        }
    }
    if (err == ELOOP) throw SystemError(err, path);
    throwFor(err, path);
}

file_status symlink_status(const fl::ustring& path) {
    const std::string native = detail::native_bytes(path);
    struct stat st {};
    if (sys::fstatat(AT_FDCWD, native.c_str(), st, AT_SYMLINK_NOFOLLOW) == 0) return fromStat(st);
    const int err = errno;
    if (err == ENOENT || err == ENOTDIR) return {};
    if (err == EACCES) throw AccessDenied(path);
    throw SystemError(err, path);
}

fl::ustring canonical(const fl::ustring& path, const fl::ustring& base) {
    fl::ustring full = path;
    if (!isAbsolute(path)) {
        fl::ustring root = base.empty() ? current_path() : absolute(base);
        if (root.empty() || root.back() != u'/') root += u'/';
        full = root + path;
    }
    const std::string native = detail::native_bytes(full);
    std::string resolved;
    if (!sys::realpath(native.c_str(), resolved)) throwFor(errno, path);
    return fl::i18n::to_ustring(resolved);
}

fl::ustring absolute(const fl::ustring& path) {
    if (isAbsolute(path)) return path;
    fl::ustring cwd = current_path();
    if (path.empty()) return cwd;
    if (cwd.back() != u'/') cwd += u'/';
    return cwd + path;
}

bool remove(const fl::ustring& path) {
    const std::string native = detail::native_bytes(path);
    struct stat st {};
    if (sys::fstatat(AT_FDCWD, native.c_str(), st, AT_SYMLINK_NOFOLLOW) != 0) {
        const int err = errno;
        if (err == ENOENT || err == ENOTDIR) return false;
        throwFor(err, path);
    }
    if (sys::unlinkat(AT_FDCWD, native.c_str(), S_ISDIR(st.st_mode) ? AT_REMOVEDIR : 0) != 0) {
        const int err = errno;
        // Gone between the two calls: someone else removed it, which is what was asked.
        if (err == ENOENT) return false;
        if (err == EACCES || err == EPERM) throw AccessDenied(path);
        throw SystemError(err, path);
    }
    return true;
}

namespace detail {

std::string native_bytes(fl::ustring_view path) {
    if (path.find(u'\0') != fl::ustring_view::npos) throw InvalidName(fl::ustring(path));
    return fl::i18n::to_utf8(path);
}

fl::ustring make_native_form(const fl::ustring& path, bool makeAbsolute) {
    if (path.find(u'\0') != fl::ustring::npos) throw InvalidName(path);
    if (path.empty() && !makeAbsolute) return {};
    const fl::ustring full = makeAbsolute ? absolute(path) : path;
    const bool rooted = isAbsolute(full);
    fl::ustring out;
    out.reserve(full.size());
    if (rooted) out += u'/';
    std::size_t i = 0;
    while (i < full.size()) {
        std::size_t j = full.find(u'/', i);
        if (j == fl::ustring::npos) j = full.size();
        const fl::ustring_view segment(full.data() + i, j - i);
        // ".." stays: removing it with the segment before is wrong when that is a link.
        if (!segment.empty() && segment != u".") {
            if (!out.empty() && out.back() != u'/') out += u'/';
            out += segment;
        }
        i = j + 1;
    }
    if (out.empty()) return fl::ustring(1, u'.');
    return out;
}

}  // namespace detail

}  // namespace fl::filesystem
