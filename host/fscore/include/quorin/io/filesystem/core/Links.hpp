#pragma once
// Making empty files, symbolic links and the folders they go in.
//
// createEmptyFile(path, replace, storage): prepares path in place, as
// setupPathForURLConstruction(path, AllButLast, false) does, and makes an empty file
// there. A local path whose parent folder exists is made with one exclusive open
// relative to that folder (O_CREAT | O_EXCL | O_NOFOLLOW: nothing is ever made through a
// link); otherwise, and for an IRI text, through the storage library: the missing parent
// levels first (createParentIfNeeded), then File::createFile. When anything already has
// the name: code 3, unless `replace`, which removes it and creates once more (no
// rollback: when that fails, the old file stays removed). Failures throw what the storage
// library throws for the same operation (vfs::Exception codes as
// Exception::fromSystemError, located at the file; InvalidIRIException;
// UnsupportedIRISchemeException); path keeps its prepared form, unless the preparation
// itself failed. Parent levels made before a failure stay.
//
// createSymbolicLink(target, link): symlink(2). The target is stored exactly as given (a
// relative target is read by the system relative to the link's folder); the link is a
// local path. Nothing is replaced: an existing name at link fails. Failures throw
// foundation::storage::vfs::Exception located at the link (its file IRI): code 3 for
// EEXIST, 2 for EACCES/EPERM/EROFS, 4 for ENOENT/ENOTDIR (a missing parent, or an empty
// text), 5 for anything else, with the system's text. A failed call creates nothing.
//
// replaceSymbolicLink(target, link): as createSymbolicLink, for a link path where a link
// is: the new link is made under a hidden temporary name in the link's folder and
// exchanged with the old one in one step (renameat2 RENAME_EXCHANGE), then the old one is
// removed. A failure at any step leaves the old link in place. When what was exchanged
// out is no link (a file or folder that took the name meanwhile), it is put back and the
// call fails with code 3 as for an existing file; with nothing at the name any more the
// new link takes it (code 3 if something took it again). A text holding U+0000 throws
// InvalidIRIException naming that text, here and in createSymbolicLink. A folder that
// refuses the new name (EACCES, EPERM) throws fl::filesystem::AccessDenied naming given,
// the link as the caller wrote it, as removing the old link there would have.
//
// createParentIfNeeded(location, storage): when the location has a parent and nothing
// is there, creates every missing level (Folder::createFolderRecursive). A parent that
// exists, whatever it is, is left alone (the later creation reports the conflict), except
// a link that leads nowhere, at it or on the way: code 4, as nothing can be made there.
// Throws what the storage library throws; levels made before a failure stay.
#include "fl/ustring.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

namespace quorin::io::filesystem::core {

void createEmptyFile(fl::ustring& path, bool replace,
                     const foundation::storage::vfs::StorageSystemReference& storage);

void createSymbolicLink(const fl::ustring& target, const fl::ustring& link);
void replaceSymbolicLink(const fl::ustring& target, const fl::ustring& link,
                         const fl::ustring& given);

void createParentIfNeeded(const foundation::storage::vfs::AbsoluteIRI& location,
                          const foundation::storage::vfs::StorageSystemReference& storage);

}  // namespace quorin::io::filesystem::core
