// The identifier table against the catalogs, and the catalogs against the locale.
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Text.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "matrix/matrix.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace {

using fl::i18n::MessageCatalog;
using fl::i18n::ZkLocale;
using foundation::core::except::IMsgIDException;

using zkfs::test::ScopedLocale;

fl::ustring textIn(const char* identifier, const char* language) {
    const auto t = MessageCatalog::find_text(identifier, language);
    return t ? fl::i18n::to_ustring(*t) : fl::ustring();
}

// --- every identifier class, raised for real ----------------------------------------

fl::ustring sampleArgument(std::size_t i) {
    return u"arg" + fl::ustring(1, static_cast<char16_t>(u'1' + i));
}

template <class ID, std::size_t... I>
void raiseWith(std::index_sequence<I...>) {
    quorin::gateway::throwError<ID>(sampleArgument(I)...);
}

template <class ID, std::size_t N>
void raise() {
    raiseWith<ID>(std::make_index_sequence<N>{});
}

struct DefinedIdentifier {
    const char* identifier;
    std::size_t count;
    void (*raise)();
};

const DefinedIdentifier kDefined[] = {
#define QUORIN_IDENTIFIER(NS, COMPONENT, MNEMONIC, COUNT) \
    {COMPONENT ":" #MNEMONIC, COUNT, &raise<NS::MNEMONIC, COUNT>},
#include "quorin/gateway/Identifiers.def"
#undef QUORIN_IDENTIFIER
};

// Every identifier class of Identifiers.def (the host's own ones too), raised for real: it
// carries its identifier and its arguments, and has an English text with one hole per
// argument.
TEST(IdentifierTable, EveryIdentifierRaisesWithItsArgumentsAndHasAnEnglishText) {
    struct Raised {
        std::string identifier;
        std::function<void()> raise;
        std::size_t count;
    };
    const auto d = zkfs::test::doubleScalar(1);
    std::vector<Raised> all = {
        {"QUORIN:TooManyOutputs", [] { matrix::detail::error_maxlhs(); }, 0},
        {"QUORIN:TooManyInputs", [] { matrix::detail::error_maxrhs(); }, 0},
        {"QUORIN:NotEnoughInputs", [] { matrix::detail::error_minrhs(); }, 0},
        {"QUORIN:string:NotText", [&] { (void)Hexfarrow::String::TextDispatch::classify(d.get()); },
         0},
    };
    for (const auto& defined : kDefined)
        all.push_back({defined.identifier, defined.raise, defined.count});
    for (const auto& r : all) {
        SCOPED_TRACE(r.identifier);
        std::vector<resource_core::MessageArg> expected;
        for (std::size_t i = 0; i < r.count; ++i) expected.emplace_back(sampleArgument(i));
        try {
            r.raise();
            ADD_FAILURE() << "nothing thrown";
        } catch (const IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), r.identifier);
            EXPECT_EQ(e.GetBaseMsgIDObj().getArgs(), expected);
        }
        const auto text = MessageCatalog::find_text(r.identifier, "en");
        ASSERT_TRUE(text.has_value()) << "no English text";
        EXPECT_FALSE(text->empty());
        EXPECT_EQ(MessageCatalog::hole_count(*text), r.count) << *text;
    }
}

// --- catalogs and locales ---------------------------------------------------------------

TEST(Catalogs, TranslationsKeepTheHolesOfTheEnglishText) {
    for (const auto& lang : MessageCatalog::languages()) {
        if (lang == "en") continue;
        for (const auto& id : MessageCatalog::identifiers(lang)) {
            SCOPED_TRACE(lang + " " + id);
            const auto en = MessageCatalog::find_text(id, "en");
            ASSERT_TRUE(en.has_value()) << "translated but not in English";
            EXPECT_EQ(MessageCatalog::hole_count(*MessageCatalog::find_text(id, lang)),
                      MessageCatalog::hole_count(*en));
        }
    }
}

TEST(Catalogs, GermanCoversWhatUsersMeetMost) {
    for (const char* id :
         {"QUORIN:FileUtils:inputPath", "QUORIN:string:MustBeStringScalarOrCharacterVector",
          "QUORIN:string:MissingNotSupported", "QUORIN:string:MustBeCellArrayOfStrings",
          "QUORIN:string:MustBeCharCellArrayOrString", "QUORIN:TooManyOutputs",
          "QUORIN:TooManyInputs", "QUORIN:NotEnoughInputs"}) {
        SCOPED_TRACE(id);
        const fl::ustring de = textIn(id, "de");
        EXPECT_FALSE(de.empty());
        EXPECT_NE(de, textIn(id, "en"));
    }
}

// German for the German locales, English for every other; the argument of the text errors
// is fetched when the error is raised.
TEST(Locale, ChoosesTheCatalog) {
    ASSERT_NE(textIn("QUORIN:FileUtils:inputPath", "de"),
              textIn("QUORIN:FileUtils:inputPath", "en"));
    const auto d = zkfs::test::doubleScalar(1);
    // clang-format off
    const std::pair<const char*, const char*> locales[] = {
        {"de_DE.UTF-8", "de"}, {"de_AT.UTF-8@euro", "de"}, {"de", "de"}, {"DE_ch", "de"},
        {"xx_YY.UTF-8", "en"}, {"C", "en"}, {"POSIX", "en"}, {"", "en"}, {"C.UTF-8", "en"},
        {"en_GB.UTF-8", "en"}};
    // clang-format on
    for (const auto& [name, lang] : locales) {
        SCOPED_TRACE(name);
        ScopedLocale locale(name);
        const fl::ustring inputPath = textIn("QUORIN:FileUtils:inputPath", lang);
        EXPECT_EQ(quorin::gateway::inputPathName(), inputPath);
        EXPECT_IDENTIFIED_ERROR(quorin::gateway::forEachText(d.get(), [](std::size_t, auto) {}),
                                "QUORIN:string:MustBeCharCellArrayOrString", inputPath);
        try {
            matrix::detail::error_maxlhs();
        } catch (const IMsgIDException& e) {
            EXPECT_EQ(e.GetUnicodeMessageTxt(), textIn("QUORIN:TooManyOutputs", lang));
        }
    }
}

TEST(Locale, TextsMissingFromATranslationComeInEnglish) {
    const auto de = MessageCatalog::identifiers("de");
    std::string untranslated;
    for (const auto& id : MessageCatalog::identifiers("en")) {
        if (std::find(de.begin(), de.end(), id) == de.end()) {
            untranslated = id;
            break;
        }
    }
    if (untranslated.empty()) GTEST_SKIP() << "German translates every text";
    ScopedLocale locale("de_DE.UTF-8");
    const auto en = MessageCatalog::find_text(untranslated, "en");
    resource_core::BaseMsgID id(untranslated.substr(0, untranslated.rfind(':')),
                                untranslated.substr(untranslated.rfind(':') + 1));
    for (std::size_t i = 0; i < MessageCatalog::hole_count(*en); ++i) id.appendArg(std::int64_t{0});
    EXPECT_EQ(MessageCatalog::get_message(id, ZkLocale::global()),
              MessageCatalog::format(*en, id.getArgs()));
}

TEST(Catalogs, FormatFillsHolesByAlternative) {
    using resource_core::MessageArg;
    const std::vector<MessageArg> args = {MessageArg(std::int64_t{-12}),
                                          MessageArg(std::string("\xc3\xa4")),
                                          MessageArg(fl::ustring(u"\u00f6"))};
    EXPECT_EQ(MessageCatalog::format("{3}|{1}|{2}|{1}", args), u"\u00f6|-12|\u00e4|-12");
    // Holes without an argument, and things that are not holes, stay as written.
    EXPECT_EQ(MessageCatalog::format("{4} {0} {} {x} {1", args), u"{4} {0} {} {x} {1");
    EXPECT_EQ(MessageCatalog::hole_count("a {2} b {10} {x}"), 10U);
    EXPECT_EQ(MessageCatalog::hole_count("none {} {"), 0U);
    // An identifier without a text still says what it is and what it carries.
    struct Nothing : resource_core::FixedMsgID<3> {
        Nothing()
            : FixedMsgID("QUORIN:nowhere", "Nothing", 3, std::string("b"), fl::ustring(u"c")) {}
    };
    EXPECT_EQ(MessageCatalog::get_message(Nothing(), ZkLocale("en")),
              u"QUORIN:nowhere:Nothing 3 b c");
}

}  // namespace
