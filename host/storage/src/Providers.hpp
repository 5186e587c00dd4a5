#pragma once
// The two providers the storage system knows.
#include "foundation/storage/provider/Provider.hpp"

namespace foundation::storage::provider {

const Provider& fileProvider();
const Provider& memProvider();

}  // namespace foundation::storage::provider
