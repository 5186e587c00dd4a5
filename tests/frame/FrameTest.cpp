// What every built-in stands on and no single case table owns: the identifier table against
// the catalogs, the choice of catalog by locale, thrown errors across copies, the hand-over
// of results under the reference rule, small arrays stored in place, and the UTF-8 round
// trip of names.
#include "qfs/Parser.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "matrix/matrix.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using fl::i18n::MessageCatalog;
using foundation::core::except::IMsgIDException;
using resource_core::MessageArg;

template <class ID, std::size_t... I>
void raiseWith(std::index_sequence<I...>) {
    quorin::gateway::throwError<ID>(fl::ustring(u"arg") + char16_t(u'1' + I)...);
}

struct Defined {
    const char* identifier;
    std::size_t count;
    void (*raise)();
};

const Defined kDefined[] = {
#define QUORIN_IDENTIFIER(NS, COMPONENT, MNEMONIC, COUNT) \
    {COMPONENT ":" #MNEMONIC, COUNT,                      \
     [] { raiseWith<NS::MNEMONIC>(std::make_index_sequence<COUNT>{}); }},
#include "quorin/gateway/Identifiers.def"
#undef QUORIN_IDENTIFIER
    {"QUORIN:TooManyOutputs", 0, [] { matrix::detail::error_maxlhs(); }},
    {"QUORIN:TooManyInputs", 0, [] { matrix::detail::error_maxrhs(); }},
    {"QUORIN:NotEnoughInputs", 0, [] { matrix::detail::error_minrhs(); }},
};

// Raised for real, each carries its identifier and arguments, and has an English text with
// one hole per argument; every translation keeps the holes of the English text.
TEST(IdentifierTable, RaisedWithArgumentsAndTexts) {
    for (const auto& d : kDefined) {
        SCOPED_TRACE(d.identifier);
        std::vector<MessageArg> expected;
        for (std::size_t i = 0; i < d.count; ++i)
            expected.emplace_back(fl::ustring(u"arg") + char16_t(u'1' + i));
        try {
            d.raise();
            ADD_FAILURE() << "nothing thrown";
        } catch (const IMsgIDException& e) {
            EXPECT_EQ(e.GetID(), d.identifier);
            EXPECT_EQ(e.GetBaseMsgIDObj().getArgs(), expected);
        }
        const auto text = MessageCatalog::find_text(d.identifier, "en");
        ASSERT_TRUE(text.has_value()) << "no English text";
        EXPECT_EQ(MessageCatalog::hole_count(*text), d.count) << *text;
    }
    for (const auto& lang : MessageCatalog::languages()) {
        for (const auto& id : MessageCatalog::identifiers(lang)) {
            const auto en = MessageCatalog::find_text(id, "en");
            ASSERT_TRUE(en.has_value()) << lang << " translates " << id << ", English lacks it";
            EXPECT_EQ(MessageCatalog::hole_count(*MessageCatalog::find_text(id, lang)),
                      MessageCatalog::hole_count(*en))
                << lang << " " << id;
        }
    }
}

// German for the German locales, English for every other; holes filled by alternative;
// holes without an argument stay as written.
TEST(Catalogs, LocaleAndFormat) {
    const auto text = [](const char* lang) {
        return fl::i18n::to_ustring(*MessageCatalog::find_text("QUORIN:TooManyOutputs", lang));
    };
    ASSERT_NE(text("de"), text("en"));
    const auto saved = fl::i18n::ZkLocale::global();
    for (const auto& [name, lang] :
         std::vector<std::pair<const char*, const char*>>{{"de_DE.UTF-8", "de"},
                                                          {"de_AT.UTF-8@euro", "de"},
                                                          {"DE_ch", "de"},
                                                          {"C", "en"},
                                                          {"", "en"},
                                                          {"xx_YY.UTF-8", "en"},
                                                          {"en_GB.UTF-8", "en"}}) {
        fl::i18n::ZkLocale::global(fl::i18n::ZkLocale(name));
        try {
            matrix::detail::error_maxlhs();
        } catch (const IMsgIDException& e) {
            EXPECT_EQ(e.GetUnicodeMessageTxt(), text(lang)) << name;
        }
    }
    fl::i18n::ZkLocale::global(saved);
    const std::vector<MessageArg> args = {MessageArg(std::int64_t{-12}),
                                          MessageArg(std::string("\xc3\xa4")),
                                          MessageArg(fl::ustring(u"\u00f6"))};
    EXPECT_EQ(MessageCatalog::format("{3}|{1}|{2}|{1} {4} {0} {} {x} {1", args),
              u"\u00f6|-12|\u00e4|-12 {4} {0} {} {x} {1");
}

// A copy, a clone and a rethrow keep the class and the arguments.
TEST(ThrownError, CopiesKeepClassAndArguments) {
    using UnableToSet = QUORIN::io::filesystem::filePermissions::UnableToSetPermissions;
    using Thrown = foundation::core::except::Exception<UnableToSet>;
    const std::vector<MessageArg> args = {fl::ustring(u"/t/\U0001F600"), std::string("Read-only")};
    std::unique_ptr<foundation::core::except::IException> copy;
    try {
        quorin::gateway::throwError<UnableToSet>(fl::ustring(u"/t/\U0001F600"),
                                                 std::string("Read-only"));
    } catch (const Thrown& e) {
        copy.reset(e.clone());
        EXPECT_NE(std::string(e.what()).find("/t/\xf0\x9f\x98\x80"), std::string::npos);
    }
    ASSERT_NE(copy, nullptr);
    try {
        copy->rethrow();
    } catch (const Thrown& again) {
        EXPECT_EQ(again.GetBaseMsgIDObj().getArgs(), args);
    }
}

// The previous value of a result slot is freed when plain, left alone when another holder
// has it (a reference count or a host marker).
TEST(ReferenceRule, HandOverReleasesOnlyAPlainPreviousValue) {
    for (const int holders : {0, 1, 2, -1}) {
        std::vector<unique_vqarray_ptr> out(2);
        vqArray* old = holders == 0 ? nullptr : qfs::parseValue("1").release();
        if (holders == 2) old->refCount_ = 2;
        if (holders == -1) old->marker_ = 0x5A5A;
        out[1].reset(old);
        const long before = vqLiveArrayCount();
        quorin::gateway::handOver(out.data(), 1, qfs::parseValue("'r'"));
        EXPECT_EQ(vqGetChars(out[1].get())[0], u'r');
        EXPECT_EQ(vqLiveArrayCount(), before + (holders == 1 ? 0 : 1)) << holders;
        if (holders == 2) vqDestroy_deleter{}(old);
        if (holders == -1) matrix::destroyArray(old);
    }
}

// Scalars keep their elements in the array and one text in its string object; neither may
// show through copies, reshapes, changes of length or the array-size limit.
TEST(HostArrays, SmallValuesStoredInPlaceBehaveAsAnyOther) {
    namespace hs = Hexfarrow::String;
    const zkfs::test::LiveArrayGuard guard;
    auto textOf = [](const vqArray* a) {
        const hs::StringRecord* r = hs::getString(a).get(0);
        return r == nullptr ? fl::ustring(u"<missing>") : fl::ustring(r->text, r->length);
    };
    auto s = hs::createStringArray(u"abc");
    hs::String& str = hs::getMutableString(s.get());
    str.set(0, u"longer than the room it was made with");
    const auto longer = vqDuplicateArray(s.get());
    str.set(0, u"xy");
    const auto shorter = vqReshape(s.get(), {1, 1, 1});
    str.setMissing(0);
    EXPECT_EQ(textOf(longer.get()), u"longer than the room it was made with");
    EXPECT_EQ(textOf(shorter.get()), u"xy");
    EXPECT_TRUE(hs::isMissingScalarString(vqDuplicateArray(s.get()).get()));
    EXPECT_THROW((void)str.get(1), std::out_of_range);

    const auto chars = vqReshape(vqCreateString(u"wxyz").get(), {2, 2});
    EXPECT_EQ(fl::ustring(vqGetChars(chars.get()), 4), u"wxyz");
    EXPECT_EQ(*vqGetPr(vqDuplicateArray(vqCreateDoubleScalar(2.5).get()).get()), 2.5);
    EXPECT_EQ(vqGetDimensions(chars.get())[0], 2U);

    const std::size_t previous = vqSetAllocationLimit(4);
    EXPECT_IDENTIFIED_ERROR((void)vqCreateDoubleScalar(1), "QUORIN:OutOfMemoryFor",
                            std::int64_t{8});
    EXPECT_TRUE(*vqGetLogicals(vqCreateLogicalScalar(true).get()));
    vqSetAllocationLimit(previous);
}

// Names keep bytes that are not UTF-8 through the host's text and back.
TEST(Unicode, RoundTripKeepsBytesThatAreNotUtf8) {
    for (const std::string& s :
         {std::string("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"), std::string("a\x80z\xff"),
          std::string("\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82"), std::string("n\0l", 3)}) {
        EXPECT_EQ(fl::i18n::to_utf8(fl::i18n::to_ustring(s)), s);
    }
    EXPECT_EQ(fl::i18n::to_ustring("a\xff"), fl::ustring(u"a\xDCFF"));
    EXPECT_EQ(fl::i18n::to_utf8(u"\xD800x"), "\xef\xbf\xbdx");
}

}  // namespace
