#include "quorin/io/filesystem/core/Links.hpp"

#include "Internal.hpp"
#include "Posix.hpp"

#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/File.hpp"
#include "foundation/storage/vfs/Folder.hpp"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace quorin::io::filesystem::core {

namespace vfs = foundation::storage::vfs;
namespace sys = fl::sys;

namespace {

[[noreturn]] void failAt(int error, const std::string& nativePath) {
    throw vfs::Exception::fromSystemError(error, detail::fileIRI(nativePath));
}

// A name the system can be given, or the invalid name it is.
std::string nameBytes(const fl::ustring& text) {
    try {
        return fl::filesystem::detail::native_bytes(text);
    } catch (const fl::filesystem::InvalidName&) {
        throw vfs::InvalidIRIException(text);
    }
}

// A hidden name no other call of this process picks at the same time.
std::string temporaryName() {
    static std::atomic<unsigned> counter{0};
    static std::mt19937_64 random{std::random_device{}()};
    static std::mutex randomMutex;
    std::uint64_t bits = 0;
    {
        const std::lock_guard<std::mutex> lock(randomMutex);
        bits = random();
    }
    char text[40];
    std::snprintf(text, sizeof text, ".zkfs-link-%u-%016llx", counter.fetch_add(1),
                  static_cast<unsigned long long>(bits));
    return text;
}

// The file made by name in its open parent folder.
void createIn(const detail::ParentFolder& parent, bool replace) {
    const auto create = [&] {
        return sys::openat(parent.folder.get(), parent.name.c_str(),
                           O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY, 0666);
    };
    sys::UniqueFd file = create();
    if (!file.valid() && errno == EEXIST && replace) {
        if (sys::unlinkat(parent.folder.get(), parent.name.c_str(), 0) != 0) {
            failAt(errno, parent.path);
        }
        file = create();
    }
    if (!file.valid()) failAt(errno, parent.path);
    if (file.close() != 0) {
        const int error = errno;
        sys::unlinkat(parent.folder.get(), parent.name.c_str(), 0);
        failAt(error, parent.path);
    }
}

// Most calls make a new file in a folder that is there, and one exclusive open of the
// whole path does it. Anything else (a name taken, a parent missing, a failure to be
// named by the parent's canonical path) takes the road through the open parent.
bool createdAtOnce(const std::string& nativePath) {
    sys::UniqueFd file = sys::openat(AT_FDCWD, nativePath.c_str(),
                                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NOCTTY, 0666);
    if (!file.valid()) return false;
    if (file.close() != 0) {
        const int error = errno;
        sys::unlinkat(AT_FDCWD, nativePath.c_str(), 0);
        failAt(error, detail::openParent(nativePath).path);
    }
    return true;
}

void createReplacing(const vfs::File& file, bool replace) {
    try {
        file.createFile();
        return;
    } catch (const vfs::Exception& e) {
        if (e.getErrorCode() != vfs::Exception::AlreadyExists || !replace) throw;
    }
    file.removeFile();
    file.createFile();
}

}  // namespace

void createEmptyFile(fl::ustring& path, bool replace, const vfs::StorageSystemReference& storage) {
    std::optional<vfs::AbsoluteIRI> location;
    if (vfs::hasIRIPrefix(path)) {
        location.emplace(path);
    } else if (path.empty()) {
        // The "file" IRI of nothing, which every storage operation refuses.
        location.emplace(vfs::toAbsoluteIRI(u"file", u""));
    } else {
        const std::string native = detail::nativeUtf8(path);
        if (createdAtOnce(native)) return;
        const detail::ParentFolder parent = detail::openParent(native);
        path = fl::i18n::to_ustring(parent.path);
        if (parent.folder.valid()) return createIn(parent, replace);
        location.emplace(detail::fileIRI(parent.path));
    }
    createParentIfNeeded(*location, storage);
    createReplacing(vfs::File(*location, storage), replace);
}

void createSymbolicLink(const fl::ustring& target, const fl::ustring& link) {
    // The target is stored byte for byte as given: the system reads a relative one from the
    // link's folder, and cleaning it here would change what it names.
    const std::string targetBytes = nameBytes(target);
    if (link.empty()) {
        throw vfs::Exception(vfs::Exception::NotFound, vfs::toAbsoluteIRI(u"file", u""));
    }
    const std::string linkBytes = nameBytes(link);
    if (const int e = posix::symlinkPath(targetBytes, linkBytes)) {
        detail::throwStorageError(e, detail::nativeUtf8(link));
    }
}

void replaceSymbolicLink(const fl::ustring& target, const fl::ustring& link,
                         const fl::ustring& given) {
    const std::string targetBytes = nameBytes(target);
    if (link.empty()) {
        throw vfs::Exception(vfs::Exception::NotFound, vfs::toAbsoluteIRI(u"file", u""));
    }
    (void)nameBytes(link);
    const detail::ParentFolder parent = detail::openParent(detail::nativeUtf8(link));
    if (!parent.folder.valid()) failAt(parent.name.empty() ? EEXIST : ENOENT, parent.path);
    const int folder = parent.folder.get();
    const char* name = parent.name.c_str();

    // The new link is made beside the old one and moved into place in one step, so that
    // the name never stands empty and a failure leaves the old link as it was.
    std::string temporary;
    for (int attempt = 0;; ++attempt) {
        temporary = temporaryName();
        if (sys::symlinkat(targetBytes.c_str(), folder, temporary.c_str()) == 0) break;
        const int error = errno;
        // A folder that refuses the new name would have refused the old one's removal:
        // the caller hears it as the path layer says it, naming the link as given.
        if (error == EACCES || error == EPERM) throw fl::filesystem::AccessDenied(given);
        if (error != EEXIST || attempt == 15) failAt(error, parent.path);
    }
    const char* made = temporary.c_str();
    if (sys::renameat2(folder, made, folder, name, RENAME_EXCHANGE) != 0) {
        int error = errno;
        // Gone meanwhile: the new link takes the free name, but never one taken again.
        if (error == ENOENT && sys::renameat2(folder, made, folder, name, RENAME_NOREPLACE) == 0) {
            return;
        }
        if (error == ENOENT) error = errno;
        sys::unlinkat(folder, made, 0);
        failAt(error, parent.path);
    }
    // What was at the name is now at the temporary one. Only a link may be replaced: a
    // file or folder swapped in meanwhile goes back, and the call fails as for it.
    struct stat old {};
    if (sys::fstatat(folder, made, old, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(old.st_mode)) {
        sys::unlinkat(folder, made, 0);
        return;
    }
    if (sys::renameat2(folder, made, folder, name, RENAME_EXCHANGE) == 0) {
        sys::unlinkat(folder, made, 0);
    }
    failAt(EEXIST, parent.path);
}

void createParentIfNeeded(const vfs::AbsoluteIRI& location,
                          const vfs::StorageSystemReference& storage) {
    if (!location.hasParent()) return;
    const vfs::AbsoluteIRI parent = location.getParent();
    using foundation::storage::provider::ExistenceTypeExtended;
    const ExistenceTypeExtended found = vfs::existsExtended(parent, storage);
    if (found == ExistenceTypeExtended::DoesNotExist) {
        vfs::Folder(parent, storage).createFolderRecursive();
    } else if (found == ExistenceTypeExtended::BrokenSymbolicLink) {
        // The system could put nothing there either (ENOENT): the link names nothing.
        throw vfs::Exception(vfs::Exception::NotFound, parent);
    }
}

}  // namespace quorin::io::filesystem::core
