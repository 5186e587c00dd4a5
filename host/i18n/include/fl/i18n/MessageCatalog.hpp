#pragma once
// Message texts by identifier, from the gettext catalogs compiled into this library at
// build time (msgid = the identifier, msgstr = the text). Holes are written {1}, {2}, ...
// and take the message arguments in order: integers in decimal, 8-bit text as UTF-8.
//
// get_message never throws for a missing text: it falls back to English, then to the
// identifier followed by its arguments, so an error can always be shown.
#include "fl/i18n/ZkLocale.hpp"
#include "fl/ustring.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fl::i18n {

class MessageCatalog {
public:
    static ustring get_message(const resource_core::BaseMsgID& id, const ZkLocale& locale);

    // The raw text (UTF-8, holes unfilled) of one language's catalog; no fallback.
    static std::optional<std::string> find_text(std::string_view identifier,
                                                std::string_view language);
    // Every identifier one language's catalog holds.
    static std::vector<std::string> identifiers(std::string_view language);
    // The languages compiled in; "en" is always one of them.
    static std::vector<std::string> languages();
    // The highest hole number in a text ({3} -> 3); 0 when it has none.
    static std::size_t hole_count(std::string_view text);
    // Fills the holes of a text with arguments; a hole without an argument stays as is.
    static ustring format(std::string_view text,
                          const std::vector<resource_core::MessageArg>& args);
};

}  // namespace fl::i18n
