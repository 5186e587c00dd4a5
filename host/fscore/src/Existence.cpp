#include "quorin/io/filesystem/core/Existence.hpp"

#include "Internal.hpp"
#include "Posix.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

#include <cerrno>

namespace quorin::io::filesystem::core {

using foundation::storage::provider::ExistenceTypeExtended;

bool isFile(ExistenceTypeExtended type) noexcept { return type == ExistenceTypeExtended::File; }

bool isFolder(ExistenceTypeExtended type) noexcept { return type == ExistenceTypeExtended::Folder; }

bool isSymlink(ExistenceTypeExtended type) noexcept {
    return type == ExistenceTypeExtended::SymbolicLinkToFile ||
           type == ExistenceTypeExtended::SymbolicLinkToFolder ||
           type == ExistenceTypeExtended::BrokenSymbolicLink;
}

ExistenceTypeExtended getExtendedExistenceType(const fl::ustring& path) {
    namespace vfs = foundation::storage::vfs;
    if (vfs::hasIRIPrefix(path)) {
        return vfs::existsExtended(vfs::AbsoluteIRI(path),
                                   Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
    }
    if (path.empty()) return ExistenceTypeExtended::DoesNotExist;
    const std::string native = detail::nativeUtf8(path);
    struct stat self {};
    if (const int e = posix::lstatPath(native, self)) {
        // ELOOP: a folder on the way is a link cycle, so nothing can be below it.
        if (e == ENOENT || e == ENOTDIR || e == ELOOP) return ExistenceTypeExtended::DoesNotExist;
        detail::throwStorageError(e, native);
    }
    if (!S_ISLNK(self.st_mode)) {
        return S_ISDIR(self.st_mode) ? ExistenceTypeExtended::Folder : ExistenceTypeExtended::File;
    }
    struct stat target {};
    if (const int e = posix::statPath(native, target)) {
        if (e == ENOENT || e == ENOTDIR || e == ELOOP)
            return ExistenceTypeExtended::BrokenSymbolicLink;
        detail::throwStorageError(e, native);
    }
    return S_ISDIR(target.st_mode) ? ExistenceTypeExtended::SymbolicLinkToFolder
                                   : ExistenceTypeExtended::SymbolicLinkToFile;
}

int platformSpecificErrorCode() noexcept { return ENOENT; }

}  // namespace quorin::io::filesystem::core
