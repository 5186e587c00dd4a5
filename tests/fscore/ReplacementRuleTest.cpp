// The "ReplacementRule" option: whole words, then unambiguous prefixes.
#include "quorin/io/filesystem/core/ReplacementRule.hpp"
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/unicode.hpp"

#include <gtest/gtest.h>

namespace core = quorin::io::filesystem::core;

namespace {

const char* const Name = "QUORIN:io:filesystem:core:InvalidReplacementRuleName";
const char* const Value = "QUORIN:io:filesystem:core:InvalidReplacementRuleValue";
const char* const Ambiguous = "QUORIN:io:filesystem:core:AmbiguousReplacementRuleValue";

struct Row {
    const char16_t* name;
    const char16_t* value;
    const char* error;    // nullptr: accepted
    const char16_t* text;  // the canonical value, or the error's argument
};

}  // namespace

TEST(ReplacementRule, WholeWordsInAnyCaseOnlyAndFailuresLeaveTheTextsAlone) {
    const Row rows[] = {
        {u"ReplacementRule", u"overwrite", nullptr, u"overwrite"},
        {u"replacementrule", u"OVERWRITE", nullptr, u"overwrite"},
        {u"REPLACEMENTRULE", u"Preserve", nullptr, u"preserve"},
        {u"Replacement", u"overwrite", Name, u"Replacement"},
        {u"", u"overwrite", Name, u""},
        {u"ReplacementRules", u"overwrite", Name, u"ReplacementRules"},
        // The name is checked first.
        {u"Rule", u"bad", Name, u"Rule"},
        {u"ReplacementRule", u"over", Value, u"over"},
        {u"ReplacementRule", u"", Value, u""},
        {u"ReplacementRule", u"overwrite ", Value, u"overwrite "},
        // Folding is ASCII only: a dotless capital I is no "i".
        {u"ReplacementRule", u"overwr\u0130te", Value, u"overwr\u0130te"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.name) + "=" + fl::i18n::to_utf8(r.value));
        fl::ustring name = r.name;
        fl::ustring value = r.value;
        if (r.error == nullptr) {
            core::validateReplacementRuleName(name, value);
            EXPECT_EQ(name, u"ReplacementRule");
            EXPECT_EQ(value, fl::ustring(r.text));
            continue;
        }
        EXPECT_IDENTIFIED_ERROR(core::validateReplacementRuleName(name, value), r.error,
                                fl::ustring(r.text));
        EXPECT_EQ(name, fl::ustring(r.name));
        EXPECT_EQ(value, fl::ustring(r.value));
    }
}

TEST(ReplacementRule, CompletionAcceptsUnambiguousPrefixesOnly) {
    const Row rows[] = {
        {u"ReplacementRule", u"overwrite", nullptr, u"overwrite"},
        {u"r", u"o", nullptr, u"overwrite"},
        {u"Repl", u"OVER", nullptr, u"overwrite"},
        {u"replacementRULE", u"p", nullptr, u"preserve"},
        {u"REPLACEMENTRUL", u"Preserv", nullptr, u"preserve"},
        {u"", u"overwrite", Name, u""},
        {u"ReplacementRuleX", u"o", Name, u"ReplacementRuleX"},
        {u"Mode", u"o", Name, u"Mode"},
        {u"Repl", u"overwritten", Value, u"overwritten"},
        {u"Repl", u"x", Value, u"x"},
        {u"Repl", u"", Ambiguous, u""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.name) + "=" + fl::i18n::to_utf8(r.value));
        if (r.error == nullptr) {
            const auto [name, value] =
                core::validateAndCompleteReplacementRuleNameAndValue(r.name, r.value);
            EXPECT_EQ(name, u"ReplacementRule");
            EXPECT_EQ(value, fl::ustring(r.text));
            continue;
        }
        EXPECT_IDENTIFIED_ERROR(core::validateAndCompleteReplacementRuleNameAndValue(r.name, r.value),
                                r.error, fl::ustring(r.text));
    }
}
