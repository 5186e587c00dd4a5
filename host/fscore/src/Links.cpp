#include "quorin/io/filesystem/core/Links.hpp"

#include "Internal.hpp"
#include "Posix.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/File.hpp"
#include "foundation/storage/vfs/Folder.hpp"

#include <cerrno>
#include <optional>

#include <fcntl.h>

namespace quorin::io::filesystem::core {

namespace vfs = foundation::storage::vfs;
namespace sys = fl::sys;

namespace {

[[noreturn]] void failAt(int error, const std::string& nativePath) {
    throw vfs::Exception::fromSystemError(error, detail::fileIRI(nativePath));
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
        const detail::ParentFolder parent = detail::openParent(detail::nativeUtf8(path));
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
    const std::string targetBytes = fl::i18n::to_utf8(target);
    if (link.empty()) {
        throw vfs::Exception(vfs::Exception::NotFound, vfs::toAbsoluteIRI(u"file", u""));
    }
    const std::string linkBytes = fl::i18n::to_utf8(link);
    if (const int e = posix::symlinkPath(targetBytes, linkBytes)) {
        detail::throwStorageError(e, detail::nativeUtf8(link));
    }
}

void createParentIfNeeded(const vfs::AbsoluteIRI& location,
                          const vfs::StorageSystemReference& storage) {
    if (!location.hasParent()) return;
    const vfs::AbsoluteIRI parent = location.getParent();
    if (vfs::exists(parent, storage) ==
        foundation::storage::provider::ExistenceType::DoesNotExist) {
        vfs::Folder(parent, storage).createFolderRecursive();
    }
}

}  // namespace quorin::io::filesystem::core
