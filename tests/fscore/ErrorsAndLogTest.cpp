// Captured-error texts, the catalog entries of the core's identifiers, and the logger.
#include "quorin/io/filesystem/core/Errors.hpp"
#include "quorin/io/filesystem/core/Identifiers.hpp"
#include "quorin/io/filesystem/core/Log.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <boost/exception_ptr.hpp>
#include <gtest/gtest.h>

#include <stdexcept>

namespace core = quorin::io::filesystem::core;
namespace ids = QUORIN::io::filesystem::core;
using foundation::core::except::Exception;

namespace {

template <class E>
std::exception_ptr captured(const E& e) {
    try {
        throw e;
    } catch (...) {
        return std::current_exception();
    }
}

}  // namespace

TEST(CapturedErrors, IdentifierAndTextOfEachKindOfErrorInEitherPointer) {
    const fl::i18n::ZkLocale saved = fl::i18n::ZkLocale::global();
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    const char* const invalidValue = "QUORIN:io:filesystem:core:InvalidReplacementRuleValue";
    struct Row {
        std::exception_ptr error;
        const char* id;
        const char16_t* text;
    };
    const Row rows[] = {
        {captured(Exception<ids::InvalidReplacementRuleValue>(
             ids::InvalidReplacementRuleValue(u"sometimes"))),
         invalidValue,
         u"'sometimes' is not a valid value for 'ReplacementRule'. Use 'overwrite' or "
         u"'preserve'."},
        {captured(std::runtime_error("disk on fire")), "", u"disk on fire"},
        {captured(42), "", u""},
        {std::exception_ptr(), "", u""},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.text));
        EXPECT_EQ(core::detail::GetID(r.error), r.id);
        EXPECT_EQ(core::detail::GetUnicodeMessageTxt(r.error), r.text);
        // Boost wraps a std::exception_ptr, and only inside the handler (it reads
        // std::current_exception() itself); that is how the host's errors travel in one.
        boost::exception_ptr wrapped;
        if (r.error) {
            try {
                std::rethrow_exception(r.error);
            } catch (...) {
                wrapped = boost::exception_ptr(std::current_exception());
            }
        }
        EXPECT_EQ(core::detail::GetID(wrapped), r.id);
        EXPECT_EQ(core::detail::GetUnicodeMessageTxt(wrapped), r.text);
    }

    // The text follows the caller's catalog language.
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("de_DE.UTF-8"));
    EXPECT_NE(core::detail::GetUnicodeMessageTxt(rows[0].error).find(u"ist kein gültiger Wert"),
              fl::ustring::npos);
    fl::i18n::ZkLocale::global(saved);
    try {
        std::rethrow_exception(rows[0].error);
    } catch (const foundation::core::except::IMsgIDException& e) {
        EXPECT_EQ(core::detail::GetID(e), invalidValue);
    }
}

TEST(Catalog, EveryCoreIdentifierHasAnEnglishTextWithItsHoles) {
    const resource_core::BaseMsgID all[] = {
        ids::InvalidReplacementRuleName(u"n"),
        ids::InvalidReplacementRuleValue(u"v"),
        ids::AmbiguousReplacementRuleValue(u"v"),
        ids::InvalidURLPort(u"u"),
    };
    for (const auto& id : all) {
        const std::string identifier = foundation::core::except::IMsgIDException::get_error_id(id);
        SCOPED_TRACE(identifier);
        const auto text = fl::i18n::MessageCatalog::find_text(identifier, "en");
        ASSERT_TRUE(text.has_value());
        EXPECT_EQ(fl::i18n::MessageCatalog::hole_count(*text), id.getArgs().size());
    }
}

TEST(Logger, RecordsReachStandardErrorOnlyWhenDebugLoggingIsOn) {
    auto& logger = core::log::getLogger();
    for (const bool on : {false, true, false}) {
        SCOPED_TRACE(on ? "on" : "off");
        core::log::setDebugLogging(on);
        EXPECT_EQ(core::log::isDebugLoggingEnabled(), on);
        ::testing::internal::CaptureStderr();
        BOOST_LOG_SEV(logger, boost::log::trivial::debug) << "debug-marker";
        BOOST_LOG_SEV(core::log::getLogger(), boost::log::trivial::error) << "error-marker";
        const std::string written = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(written.find("debug-marker") != std::string::npos, on) << written;
        EXPECT_EQ(written.find("error-marker") != std::string::npos, on) << written;
        EXPECT_EQ(written.find("debug") != std::string::npos, on) << written;
    }
}
