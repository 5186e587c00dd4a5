#pragma once
// What the file provider shares with the tree walk: its reading of system errors, its
// existence test relative to an open folder, and its opening of a folder to be listed,
// so that both report a location the same way.
#include "SystemCalls.hpp"

#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <functional>

namespace foundation::storage::provider::detail {

// The exception a local operation on `location` raises for the system error `err`:
// ENOENT and ENOTDIR code 4, EACCES, EPERM and EROFS code 2, EEXIST code 3, ENAMETOOLONG
// code 1, anything else code 5; each carries the system's text.
vfs::Exception systemError(int err, const vfs::AbsoluteIRI& location);

// vfs::existsExtended for `name` in the folder `dirfd` (AT_FDCWD: a path from the current
// folder). Throws systemError, naming `location()`, where existsExtended throws.
ExistenceTypeExtended existsExtendedAt(int dirfd, const char* name,
                                       const std::function<vfs::AbsoluteIRI()>& location);

// The folder a listing of `location` reads (a link to a folder is followed), open for
// reading. Throws what that listing throws when it cannot be opened.
UniqueFd openFolderToList(const vfs::AbsoluteIRI& location);

}  // namespace foundation::storage::provider::detail
