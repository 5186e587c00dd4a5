#pragma once
// What the file provider shares with the tree walk: its existence test relative to an
// open folder and its opening of a folder to be listed, so that both report a location
// the same way (system errors as vfs::Exception::fromSystemError).
#include "fl/sys/SystemCalls.hpp"
#include "foundation/storage/provider/ExistenceType.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <functional>

namespace foundation::storage::provider::detail {

// vfs::existsExtended for `name` in the folder `dirfd` (AT_FDCWD: a path from the current
// folder). Throws, naming `location()`, where existsExtended throws.
ExistenceTypeExtended existsExtendedAt(int dirfd, const char* name,
                                       const std::function<vfs::AbsoluteIRI()>& location);

// The folder a listing of `location` reads (a link to a folder is followed), open for
// reading. Throws what that listing throws when it cannot be opened.
fl::sys::UniqueFd openFolderToList(const vfs::AbsoluteIRI& location);

}  // namespace foundation::storage::provider::detail
