#pragma once
// UTF-16 text, the host's string type for paths, names and message arguments.
#include <string>
#include <string_view>

namespace fl {
using ustring = std::u16string;
using ustring_view = std::u16string_view;
}  // namespace fl
