#pragma once
// The providers the storage system knows.
#include "foundation/storage/provider/Provider.hpp"

namespace foundation::storage::provider {

const Provider& fileProvider();
const Provider& memProvider();
const Provider& s3Provider();

}  // namespace foundation::storage::provider
