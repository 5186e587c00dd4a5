#pragma once
// Existence classes of the storage library, and the error code that marks a link that
// cannot be followed.
//
// isFile / isFolder hold only for a real file / folder, never for a link to one; isSymlink
// holds for every kind of link, broken ones included. They never throw.
//
// getExtendedExistenceType(path) classifies the name itself: a local path (relative ones
// from the current folder) by lstat(2) and, for a link, stat(2) of its target; an IRI
// text through its storage provider (vfs::existsExtended). A name that is missing, or
// whose parent is not a folder, is DoesNotExist. Throws vfs::Exception code 2 when a
// folder on the way cannot be searched, code 5 for other OS failures, and the storage
// library's IRI exceptions for an IRI that does not parse or has no provider.
//
// platformSpecificErrorCode(): the errno that fl::filesystem::status reports for a name
// that exists but is a link that cannot be followed (ENOENT on POSIX).
#include "fl/ustring.hpp"
#include "foundation/storage/provider/ExistenceType.hpp"

namespace quorin::io::filesystem::core {

[[nodiscard]] bool isFile(foundation::storage::provider::ExistenceTypeExtended type) noexcept;
[[nodiscard]] bool isFolder(foundation::storage::provider::ExistenceTypeExtended type) noexcept;
[[nodiscard]] bool isSymlink(foundation::storage::provider::ExistenceTypeExtended type) noexcept;

foundation::storage::provider::ExistenceTypeExtended getExtendedExistenceType(
    const fl::ustring& path);

[[nodiscard]] int platformSpecificErrorCode() noexcept;

}  // namespace quorin::io::filesystem::core
