#pragma once
// Making symbolic links and the folders they go in.
//
// createSymbolicLink(target, link): symlink(2). The target is stored exactly as given (a
// relative target is read by the system relative to the link's folder); the link is a
// local path. Nothing is replaced: an existing name at link fails. Failures throw
// foundation::storage::vfs::Exception located at the link (its file IRI): code 3 for
// EEXIST, 2 for EACCES/EPERM/EROFS, 4 for ENOENT/ENOTDIR (a missing parent, or an empty
// text), 5 for anything else, with the system's text. A failed call creates nothing.
//
// createParentIfNeeded(location, storage): when the location has a parent and nothing
// is there, creates every missing level (Folder::createFolderRecursive). A parent that
// exists, whatever it is, is left alone (the later creation reports the conflict).
// Throws what the storage library throws; levels made before a failure stay.
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

namespace quorin::io::filesystem::core {

void createSymbolicLink(const fl::ustring& target, const fl::ustring& link);

void createParentIfNeeded(const foundation::storage::vfs::AbsoluteIRI& location,
                          const foundation::storage::vfs::StorageSystemReference& storage);

}  // namespace quorin::io::filesystem::core
