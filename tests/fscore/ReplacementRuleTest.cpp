// The "ReplacementRule" option: whole words, then unambiguous prefixes.
#include "quorin/io/filesystem/core/ReplacementRule.hpp"
#include "zkfs/test/Errors.hpp"

#include <gtest/gtest.h>

namespace core = quorin::io::filesystem::core;

TEST(ReplacementRule, WholeWordsInAnyCaseBecomeCanonical) {
    struct Row {
        const char16_t* name;
        const char16_t* value;
        const char16_t* canonicalValue;
    };
    const Row rows[] = {
        {u"ReplacementRule", u"overwrite", u"overwrite"},
        {u"replacementrule", u"OVERWRITE", u"overwrite"},
        {u"REPLACEMENTRULE", u"Preserve", u"preserve"},
    };
    for (const Row& r : rows) {
        fl::ustring name = r.name;
        fl::ustring value = r.value;
        core::validateReplacementRuleName(name, value);
        EXPECT_EQ(name, u"ReplacementRule");
        EXPECT_EQ(value, fl::ustring(r.canonicalValue));
    }
}

TEST(ReplacementRule, WholeWordsRefusePrefixesAndLeaveTheTextsAlone) {
    struct Row {
        const char16_t* name;
        const char16_t* value;
        const char* identifier;
        const char16_t* argument;
    };
    const Row rows[] = {
        {u"Replacement", u"overwrite", "QUORIN:io:filesystem:core:InvalidReplacementRuleName",
         u"Replacement"},
        {u"", u"overwrite", "QUORIN:io:filesystem:core:InvalidReplacementRuleName", u""},
        {u"ReplacementRules", u"overwrite", "QUORIN:io:filesystem:core:InvalidReplacementRuleName",
         u"ReplacementRules"},
        // The name is checked first.
        {u"Rule", u"bad", "QUORIN:io:filesystem:core:InvalidReplacementRuleName", u"Rule"},
        {u"ReplacementRule", u"over", "QUORIN:io:filesystem:core:InvalidReplacementRuleValue",
         u"over"},
        {u"ReplacementRule", u"", "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u""},
        {u"ReplacementRule", u"overwrite ", "QUORIN:io:filesystem:core:InvalidReplacementRuleValue",
         u"overwrite "},
        // Folding is ASCII only: a dotless capital I is no "i".
        {u"ReplacementRule", u"overwr\u0130te",
         "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", u"overwr\u0130te"},
    };
    for (const Row& r : rows) {
        fl::ustring name = r.name;
        fl::ustring value = r.value;
        EXPECT_IDENTIFIED_ERROR(core::validateReplacementRuleName(name, value), r.identifier,
                                fl::ustring(r.argument));
        EXPECT_EQ(name, fl::ustring(r.name));
        EXPECT_EQ(value, fl::ustring(r.value));
    }
}

TEST(ReplacementRule, CompletionAcceptsUnambiguousPrefixes) {
    struct Row {
        const char16_t* name;
        const char16_t* value;
        const char16_t* completedValue;
    };
    const Row rows[] = {
        {u"ReplacementRule", u"overwrite", u"overwrite"},
        {u"r", u"o", u"overwrite"},
        {u"Repl", u"OVER", u"overwrite"},
        {u"replacementRULE", u"p", u"preserve"},
        {u"REPLACEMENTRUL", u"Preserv", u"preserve"},
    };
    for (const Row& r : rows) {
        const auto [name, value] =
            core::validateAndCompleteReplacementRuleNameAndValue(r.name, r.value);
        EXPECT_EQ(name, u"ReplacementRule");
        EXPECT_EQ(value, fl::ustring(r.completedValue));
    }
}

TEST(ReplacementRule, CompletionRefusesWhatNamesNothingOrEverything) {
    EXPECT_IDENTIFIED_ERROR(core::validateAndCompleteReplacementRuleNameAndValue(u"", u"overwrite"),
                            "QUORIN:io:filesystem:core:InvalidReplacementRuleName",
                            fl::ustring(u""));
    EXPECT_IDENTIFIED_ERROR(
        core::validateAndCompleteReplacementRuleNameAndValue(u"ReplacementRuleX", u"o"),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleName", fl::ustring(u"ReplacementRuleX"));
    EXPECT_IDENTIFIED_ERROR(core::validateAndCompleteReplacementRuleNameAndValue(u"Mode", u"o"),
                            "QUORIN:io:filesystem:core:InvalidReplacementRuleName",
                            fl::ustring(u"Mode"));
    EXPECT_IDENTIFIED_ERROR(
        core::validateAndCompleteReplacementRuleNameAndValue(u"Repl", u"overwritten"),
        "QUORIN:io:filesystem:core:InvalidReplacementRuleValue", fl::ustring(u"overwritten"));
    EXPECT_IDENTIFIED_ERROR(core::validateAndCompleteReplacementRuleNameAndValue(u"Repl", u"x"),
                            "QUORIN:io:filesystem:core:InvalidReplacementRuleValue",
                            fl::ustring(u"x"));
    EXPECT_IDENTIFIED_ERROR(core::validateAndCompleteReplacementRuleNameAndValue(u"Repl", u""),
                            "QUORIN:io:filesystem:core:AmbiguousReplacementRuleValue",
                            fl::ustring(u""));
}
