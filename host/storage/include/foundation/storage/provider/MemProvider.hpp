#pragma once
// Host calls of the in-memory provider ("mem" scheme).
//
// The memory store is one process-wide tree under "mem://root/" (another authority is an
// invalid location, code 1). It holds files with contents and folders; it has no links.
// A read-only folder refuses to gain or lose entries (code 2), and its files refuse to be
// opened for writing; reading and listing still work. The store is guarded by a mutex.
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

namespace foundation::storage::provider {

// Sets or clears the read-only flag of an existing folder (vfs::Exception code 4 when
// there is none, 1 when the location is no mem location or is a file).
FOUNDATION_STORAGE_API void setMemFolderReadOnly(const vfs::AbsoluteIRI& folder, bool readOnly);

// Empties the store (tests and scratch work start from a clean tree).
FOUNDATION_STORAGE_API void resetMemStorage();

}  // namespace foundation::storage::provider
