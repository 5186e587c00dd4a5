// Every identifier the storage and path layers raise has an English text whose holes
// match its arguments.
#include "fl/i18n/MessageCatalog.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Identifier {
    const char* id;
    std::size_t arguments;
};

const std::vector<Identifier> identifiers = {
    {"QUORIN:storage:invalidLocation", 1},   {"QUORIN:storage:permissionDenied", 1},
    {"QUORIN:storage:alreadyExists", 1},     {"QUORIN:storage:notFound", 1},
    {"QUORIN:storage:ioError", 2},           {"QUORIN:storage:invalidIRI", 1},
    {"QUORIN:storage:unsupportedScheme", 2}, {"QUORIN:filesystem:accessDenied", 1},
    {"QUORIN:filesystem:pathNotFound", 1},   {"QUORIN:filesystem:systemError", 3},
};

TEST(StorageCatalog, EveryIdentifierHasAnEnglishTextWithItsHoles) {
    for (const auto& row : identifiers) {
        SCOPED_TRACE(row.id);
        const auto text = fl::i18n::MessageCatalog::find_text(row.id, "en");
        ASSERT_TRUE(text.has_value());
        EXPECT_EQ(fl::i18n::MessageCatalog::hole_count(*text), row.arguments);
    }
}

TEST(StorageCatalog, TranslationsUseNoHoleBeyondTheArguments) {
    for (const std::string& language : fl::i18n::MessageCatalog::languages()) {
        for (const auto& row : identifiers) {
            const auto text = fl::i18n::MessageCatalog::find_text(row.id, language);
            if (!text) continue;
            SCOPED_TRACE(language + " " + row.id);
            EXPECT_LE(fl::i18n::MessageCatalog::hole_count(*text), row.arguments);
        }
    }
}

}  // namespace
