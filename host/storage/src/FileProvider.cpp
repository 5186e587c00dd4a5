// The "file" provider: the local file system through POSIX calls, all of them through the
// system-call seam.
#include "IRIText.hpp"
#include "LocalFiles.hpp"
#include "Providers.hpp"

#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <algorithm>
#include <cstring>
#include <fnmatch.h>
#include <memory>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider {

namespace {

namespace sys = fl::sys;
using sys::UniqueFd;
using vfs::AbsoluteIRI;
using vfs::ListEntry;

[[noreturn]] void fail(int err, const AbsoluteIRI& location) {
    throw vfs::Exception::fromSystemError(err, location);
}

// The local path a location names; "file://" and foreign hosts name nothing here.
std::string localPath(const AbsoluteIRI& location) {
    fl::ustring path;
    try {
        path = vfs::fromAbsoluteIRI(location);
    } catch (const vfs::InvalidIRIException&) {
        throw vfs::Exception(vfs::Exception::InvalidLocation, location);
    }
    if (path.empty()) throw vfs::Exception(vfs::Exception::InvalidLocation, location);
    return fl::i18n::to_utf8(path);
}

// The location text that entries are appended to: no query, no fragment, no final "/".
std::string entryPrefix(const AbsoluteIRI& folder) {
    const std::string& text = folder.toEncodedString();
    std::string prefix = text.substr(0, text.find_first_of("?#"));
    if (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
    return prefix;
}

ListEntry::Kind kindOfMode(mode_t mode) {
    if (S_ISDIR(mode)) return ListEntry::Kind::Folder;
    if (S_ISLNK(mode)) return ListEntry::Kind::SymbolicLink;
    if (S_ISREG(mode)) return ListEntry::Kind::File;
    return ListEntry::Kind::Other;
}

struct RawEntry {
    fl::ustring name;
    std::string raw;
    ListEntry::Kind kind;
};

// One walk: the directory buffer is shared by every folder it reads.
class Lister {
public:
    Lister(ListScope scope, const fl::ustring& pattern, std::vector<ListEntry>& out)
        : scope_(scope),
          pattern_(fl::i18n::to_utf8(pattern)),
          out_(out),
          buffer_(std::size_t{64} * 1024) {}

    void listFolder(int fd, const std::string& prefix) {
        std::vector<RawEntry> entries = readEntries(fd, prefix);
        for (RawEntry& e : entries) {
            std::string text = prefix;
            text += '/';
            foundation::storage::detail::appendEncodedSegment(text, e.raw);
            const bool isFolder = e.kind == ListEntry::Kind::Folder;
            const bool wanted = scope_ == ListScope::All || scope_ == ListScope::AllRecursive ||
                                (scope_ == ListScope::Folders) == isFolder;
            const bool descends = scope_ == ListScope::AllRecursive && isFolder;
            const bool reported = wanted && matches(e.raw);
            if (descends) {
                // Pre-order: the folder's entry first, then what it holds.
                if (reported) {
                    out_.emplace_back(AbsoluteIRI::fromTrustedText(text), std::move(e.name),
                                      e.kind);
                }
                descend(fd, e.raw, text);
            } else if (reported) {
                out_.emplace_back(AbsoluteIRI::fromTrustedText(std::move(text)), std::move(e.name),
                                  e.kind);
            }
        }
    }

private:
    bool matches(const std::string& raw) const {
        return pattern_.empty() || ::fnmatch(pattern_.c_str(), raw.c_str(), 0) == 0;
    }

    void descend(int parent, const std::string& raw, const std::string& text) {
        // O_NOFOLLOW: a folder swapped for a link since the read is not entered.
        const UniqueFd child =
            sys::openat(parent, raw.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        if (!child.valid()) {
            const int err = errno;
            if (err == ENOTDIR || err == ELOOP || err == ENOENT) return;
            fail(err, AbsoluteIRI::fromTrustedText(text));
        }
        listFolder(child.get(), text);
    }

    std::vector<RawEntry> readEntries(int fd, const std::string& prefix) {
        std::vector<RawEntry> entries;
        for (;;) {
            const long n = sys::getdents64(fd, buffer_.data(), buffer_.size());
            if (n < 0) {
                const int err = errno;
                // The folder itself; only the root's prefix ("file://") lacks its "/".
                fail(err,
                     AbsoluteIRI::fromTrustedText(prefix.ends_with("//") ? prefix + "/" : prefix));
            }
            if (n == 0) break;
            std::size_t pos = 0;
            while (pos < static_cast<std::size_t>(n)) {
                // struct linux_dirent64: ino 8, off 8, reclen 2, type 1, name.
                const char* rec = buffer_.data() + pos;
                unsigned short reclen = 0;
                std::memcpy(&reclen, rec + 16, sizeof reclen);
                const auto type = static_cast<unsigned char>(rec[18]);
                const char* name = rec + 19;
                pos += reclen;
                if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                    continue;
                }
                ListEntry::Kind kind = ListEntry::Kind::Other;
                switch (type) {
                    case DT_REG:
                        kind = ListEntry::Kind::File;
                        break;
                    case DT_DIR:
                        kind = ListEntry::Kind::Folder;
                        break;
                    case DT_LNK:
                        kind = ListEntry::Kind::SymbolicLink;
                        break;
                    case DT_UNKNOWN: {
                        // Only file systems without d_type cost a status call per entry.
                        struct stat st {};
                        if (sys::fstatat(fd, name, st, AT_SYMLINK_NOFOLLOW) != 0) {
                            const int err = errno;
                            if (err == ENOENT) continue;  // removed since the read
                            std::string text = prefix + '/';
                            foundation::storage::detail::appendEncodedSegment(text, name);
                            fail(err, AbsoluteIRI::fromTrustedText(text));
                        }
                        kind = kindOfMode(st.st_mode);
                        break;
                    }
                    default:
                        break;
                }
                entries.push_back({fl::i18n::to_ustring(name), std::string(name), kind});
            }
        }
        std::sort(entries.begin(), entries.end(),
                  [](const RawEntry& a, const RawEntry& b) { return a.name < b.name; });
        return entries;
    }

    ListScope scope_;
    std::string pattern_;
    std::vector<ListEntry>& out_;
    std::vector<char> buffer_;
};

class FileStream final : public Stream {
public:
    FileStream(UniqueFd fd, AbsoluteIRI location)
        : fd_(std::move(fd)), location_(std::move(location)) {}

    std::size_t read(std::span<std::byte> buffer) override {
        const long n = sys::read(fd_.get(), buffer.data(), buffer.size());
        if (n < 0) fail(errno, location_);
        return static_cast<std::size_t>(n);
    }

    void write(std::span<const std::byte> data) override {
        while (!data.empty()) {
            const long n = sys::write(fd_.get(), data.data(), data.size());
            if (n < 0) fail(errno, location_);
            data = data.subspan(static_cast<std::size_t>(n));
        }
    }

    void close() override {
        if (fd_.close() != 0) fail(errno, location_);
    }

private:
    UniqueFd fd_;
    AbsoluteIRI location_;
};

class FileProvider final : public Provider {
public:
    ExistenceType exists(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        struct stat st {};
        if (sys::fstatat(AT_FDCWD, path.c_str(), st, 0) != 0) {
            const int err = errno;
            if (err == ENOENT || err == ENOTDIR || err == ELOOP) return ExistenceType::DoesNotExist;
            fail(err, location);
        }
        return S_ISDIR(st.st_mode) ? ExistenceType::Folder : ExistenceType::File;
    }

    ExistenceTypeExtended existsExtended(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        return detail::existsExtendedAt(AT_FDCWD, path.c_str(), [&] { return location; });
    }

    void createFile(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        UniqueFd file =
            sys::openat(AT_FDCWD, path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOCTTY, 0666);
        if (!file.valid()) {
            const int err = errno;
            // A trailing "/" on an existing folder's name answers EISDIR: it exists.
            fail(err == EISDIR ? EEXIST : err, location);
        }
        if (file.close() != 0) {
            const int err = errno;
            sys::unlinkat(AT_FDCWD, path.c_str(), 0);
            fail(err, location);
        }
    }

    void removeFile(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        if (sys::unlinkat(AT_FDCWD, path.c_str(), 0) != 0) fail(errno, location);
    }

    void createFolder(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        if (sys::mkdirat(AT_FDCWD, path.c_str(), 0777) != 0) fail(errno, location);
    }

    void removeFolder(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        if (sys::unlinkat(AT_FDCWD, path.c_str(), AT_REMOVEDIR) != 0) {
            fail(errno, location);
        }
    }

    Attributes getAttributes(const AbsoluteIRI& location) const override {
        const std::string path = localPath(location);
        struct stat st {};
        if (sys::fstatat(AT_FDCWD, path.c_str(), st, 0) != 0) fail(errno, location);
        Attributes a;
        a.isFolder = S_ISDIR(st.st_mode);
        a.size = static_cast<std::uint64_t>(st.st_size);
        a.lastModified = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000LL +
                         static_cast<std::int64_t>(st.st_mtim.tv_nsec);
        // The effective ids decide, as they do for the open that would follow.
        a.readable = sys::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0;
        a.writable = sys::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
        return a;
    }

    std::unique_ptr<Stream> open(const AbsoluteIRI& location, OpenMode mode) const override {
        const std::string path = localPath(location);
        int flags = O_NOCTTY;
        switch (mode) {
            // Non-blocking while opening, so that a FIFO without a writer cannot hang us.
            case OpenMode::Read:
                flags |= O_RDONLY | O_NONBLOCK;
                break;
            case OpenMode::Write:
                flags |= O_WRONLY | O_CREAT | O_TRUNC;
                break;
            case OpenMode::Append:
                flags |= O_WRONLY | O_CREAT | O_APPEND;
                break;
        }
        UniqueFd file = sys::openat(AT_FDCWD, path.c_str(), flags, 0666);
        if (!file.valid()) {
            const int err = errno;
            if (err == EISDIR) throw vfs::Exception(vfs::Exception::InvalidLocation, location);
            fail(err, location);
        }
        if (mode == OpenMode::Read) {
            struct stat st {};
            if (sys::fstatat(file.get(), "", st, AT_EMPTY_PATH) != 0) fail(errno, location);
            if (S_ISDIR(st.st_mode))
                throw vfs::Exception(vfs::Exception::InvalidLocation, location);
            if (sys::fcntl(file.get(), F_SETFL, 0) != 0) fail(errno, location);
        }
        return std::make_unique<FileStream>(std::move(file), location);
    }

    void list(const AbsoluteIRI& folder, ListScope scope, const fl::ustring& pattern,
              std::vector<ListEntry>& out) const override {
        const UniqueFd dir = detail::openFolderToList(folder);
        std::vector<ListEntry> entries;
        Lister(scope, pattern, entries).listFolder(dir.get(), entryPrefix(folder));
        // Nothing reaches the caller's vector unless the whole listing succeeded.
        if (out.empty()) {
            out = std::move(entries);
        } else {
            out.insert(out.end(), std::make_move_iterator(entries.begin()),
                       std::make_move_iterator(entries.end()));
        }
    }
};

}  // namespace

namespace detail {

ExistenceTypeExtended existsExtendedAt(int dirfd, const char* name,
                                       const std::function<AbsoluteIRI()>& location) {
    struct stat st {};
    if (sys::fstatat(dirfd, name, st, AT_SYMLINK_NOFOLLOW) != 0) {
        const int err = errno;
        if (err == ENOENT || err == ENOTDIR) return ExistenceTypeExtended::DoesNotExist;
        fail(err, location());
    }
    if (!S_ISLNK(st.st_mode)) {
        return S_ISDIR(st.st_mode) ? ExistenceTypeExtended::Folder : ExistenceTypeExtended::File;
    }
    if (sys::fstatat(dirfd, name, st, 0) != 0) {
        const int err = errno;
        if (err == ENOENT || err == ENOTDIR || err == ELOOP) {
            return ExistenceTypeExtended::BrokenSymbolicLink;
        }
        fail(err, location());
    }
    return S_ISDIR(st.st_mode) ? ExistenceTypeExtended::SymbolicLinkToFolder
                               : ExistenceTypeExtended::SymbolicLinkToFile;
}

UniqueFd openFolderToList(const AbsoluteIRI& location) {
    const std::string path = localPath(location);
    UniqueFd dir = sys::openat(AT_FDCWD, path.c_str(), O_RDONLY | O_DIRECTORY);
    if (!dir.valid()) {
        const int err = errno;
        if (err == ENOTDIR && fileProvider().exists(location) == ExistenceType::File) {
            throw vfs::Exception(vfs::Exception::InvalidLocation, location, sys::errorText(err));
        }
        fail(err, location);
    }
    return dir;
}

}  // namespace detail

const Provider& fileProvider() {
    static const FileProvider provider;
    return provider;
}

}  // namespace foundation::storage::provider
