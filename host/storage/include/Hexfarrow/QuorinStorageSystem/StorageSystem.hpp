#pragma once
// The process's storage system. The reference is cheap; take a fresh one per call.
#include "foundation/storage/vfs/StorageSystem.hpp"

namespace Hexfarrow::QuorinStorageSystem {

FOUNDATION_STORAGE_API foundation::storage::vfs::StorageSystemReference GetStorageSystemReference();

}  // namespace Hexfarrow::QuorinStorageSystem
