#pragma once
// qfs's own texts (prompts, notes, help, parse details) from the message catalog, under
// the identifier "QUORIN:qfs:" + key, in the process-wide locale. A text the locale's
// catalog lacks comes in English; a key no catalog knows comes back as the identifier, so
// a slip shows up instead of vanishing. Never throws anything but std::bad_alloc.
#include "resource_core/MessageArg.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace qfs {

std::string tr(std::string_view key, const std::vector<resource_core::MessageArg>& args = {});

// The nearest of `candidates` to `word` (case differences count least), or "" when none
// is close enough to be what was meant.
std::string nearest(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace qfs
