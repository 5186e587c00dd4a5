#pragma once
// The "ReplacementRule" name-value option of the file and link makers.
//
// The option name is "ReplacementRule", the values "overwrite" and "preserve"; all are
// compared case-insensitively (ASCII). On success the name becomes "ReplacementRule" and
// the value its lower-case spelling.
//
// Throws (identified errors, one UTF-16 argument each, the text as given):
//   QUORIN:io:filesystem:core:InvalidReplacementRuleName   the name is not accepted
//   QUORIN:io:filesystem:core:InvalidReplacementRuleValue  the value is not accepted
//   QUORIN:io:filesystem:core:AmbiguousReplacementRuleValue  a prefix names both values
// The name is checked first. On failure the texts passed by reference are unchanged.
#include "fl/ustring.hpp"

#include <utility>

namespace quorin::io::filesystem::core {

// Whole words only.
void validateReplacementRuleName(fl::ustring& name, fl::ustring& value);

// Also accepts non-empty unambiguous prefixes ("Repl", "over"); answers the completed
// (name, value).
std::pair<fl::ustring, fl::ustring> validateAndCompleteReplacementRuleNameAndValue(
    fl::ustring name, fl::ustring value);

}  // namespace quorin::io::filesystem::core
