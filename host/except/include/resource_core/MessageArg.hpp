#pragma once
// One message argument: a signed integer, 8-bit text or UTF-16 text, in that order
// (the alternative index is part of the catalog contract).
#include "fl/ustring.hpp"

#include <cstdint>
#include <string>
#include <variant>

namespace resource_core {

using MessageArg = std::variant<std::int64_t, std::string, fl::ustring>;

}  // namespace resource_core
