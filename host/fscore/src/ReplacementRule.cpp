#include "quorin/io/filesystem/core/ReplacementRule.hpp"

#include "quorin/io/filesystem/core/Identifiers.hpp"

#include "foundation/core/except/Exception.hpp"

#include <array>
#include <string_view>

namespace quorin::io::filesystem::core {
namespace {

namespace ids = QUORIN::io::filesystem::core;
using foundation::core::except::throwMsgID;

constexpr std::u16string_view ruleName = u"ReplacementRule";
constexpr std::array<std::u16string_view, 2> ruleValues = {u"overwrite", u"preserve"};

char16_t lowerAscii(char16_t c) noexcept {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// ASCII-only folding on purpose: the accepted words are ASCII, and folding other
// scripts would accept look-alikes.
bool startsWithFolded(std::u16string_view word, std::u16string_view text) noexcept {
    if (text.size() > word.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (lowerAscii(text[i]) != lowerAscii(word[i])) return false;
    }
    return true;
}

bool equalsFolded(std::u16string_view word, std::u16string_view text) noexcept {
    return text.size() == word.size() && startsWithFolded(word, text);
}

std::u16string_view matchValue(const fl::ustring& value, bool allowPrefix) {
    std::u16string_view found;
    std::size_t matches = 0;
    for (auto candidate : ruleValues) {
        if (allowPrefix ? startsWithFolded(candidate, value) : equalsFolded(candidate, value)) {
            found = candidate;
            ++matches;
        }
    }
    if (matches == 0) throwMsgID(ids::InvalidReplacementRuleValue(value));
    if (matches > 1) throwMsgID(ids::AmbiguousReplacementRuleValue(value));
    return found;
}

}  // namespace

void validateReplacementRuleName(fl::ustring& name, fl::ustring& value) {
    if (!equalsFolded(ruleName, name)) throwMsgID(ids::InvalidReplacementRuleName(name));
    const auto completed = matchValue(value, false);
    // Both assignments only after every check, so a throw leaves the caller's texts alone.
    value.assign(completed);
    name.assign(ruleName);
}

std::pair<fl::ustring, fl::ustring> validateAndCompleteReplacementRuleNameAndValue(
    fl::ustring name, fl::ustring value) {
    if (name.empty() || !startsWithFolded(ruleName, name)) {
        throwMsgID(ids::InvalidReplacementRuleName(name));
    }
    const auto completed = matchValue(value, true);
    return {fl::ustring(ruleName), fl::ustring(completed)};
}

}  // namespace quorin::io::filesystem::core
