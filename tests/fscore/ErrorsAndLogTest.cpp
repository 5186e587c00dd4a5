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

TEST(CapturedErrors, IdentifiedErrorsGiveIdentifierAndCatalogText) {
    const fl::i18n::ZkLocale saved = fl::i18n::ZkLocale::global();
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    const auto error = captured(Exception<ids::InvalidReplacementRuleValue>(
        ids::InvalidReplacementRuleValue(u"sometimes")));
    EXPECT_EQ(core::detail::GetID(error), "QUORIN:io:filesystem:core:InvalidReplacementRuleValue");
    EXPECT_EQ(
        core::detail::GetUnicodeMessageTxt(error),
        u"'sometimes' is not a valid value for 'ReplacementRule'. Use 'overwrite' or 'preserve'.");

    // The same through the caller's catalog language.
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("de_DE.UTF-8"));
    EXPECT_NE(core::detail::GetUnicodeMessageTxt(error).find(u"ist kein gültiger Wert"),
              fl::ustring::npos);
    fl::i18n::ZkLocale::global(saved);

    try {
        std::rethrow_exception(error);
    } catch (const foundation::core::except::IMsgIDException& e) {
        EXPECT_EQ(core::detail::GetID(e), "QUORIN:io:filesystem:core:InvalidReplacementRuleValue");
    }
}

TEST(CapturedErrors, OtherExceptionsGiveTheirTextAndNoIdentifier) {
    const auto error = captured(std::runtime_error("disk on fire"));
    EXPECT_EQ(core::detail::GetID(error), "");
    EXPECT_EQ(core::detail::GetUnicodeMessageTxt(error), u"disk on fire");
    const auto other = captured(42);
    EXPECT_EQ(core::detail::GetID(other), "");
    EXPECT_EQ(core::detail::GetUnicodeMessageTxt(other), u"");
    EXPECT_EQ(core::detail::GetID(std::exception_ptr()), "");
    EXPECT_EQ(core::detail::GetUnicodeMessageTxt(std::exception_ptr()), u"");
}

TEST(CapturedErrors, BoostExceptionPointersToo) {
    // Boost wraps a std::exception_ptr, and only inside the handler (it reads
    // std::current_exception() itself); that is how the host's errors travel in one.
    boost::exception_ptr error;
    try {
        throw Exception<ids::InvalidReplacementRuleName>(ids::InvalidReplacementRuleName(u"Mode"));
    } catch (...) {
        error = boost::exception_ptr(std::current_exception());
    }
    EXPECT_EQ(core::detail::GetID(error), "QUORIN:io:filesystem:core:InvalidReplacementRuleName");
    EXPECT_NE(core::detail::GetUnicodeMessageTxt(error).find(u"'Mode'"), fl::ustring::npos);
    EXPECT_EQ(core::detail::GetID(boost::exception_ptr()), "");
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
    EXPECT_EQ(&logger, &core::log::getLogger());

    core::log::setDebugLogging(false);
    ::testing::internal::CaptureStderr();
    BOOST_LOG_SEV(logger, boost::log::trivial::debug) << "quiet-marker-1";
    BOOST_LOG_SEV(logger, boost::log::trivial::error) << "quiet-marker-2";
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

    core::log::setDebugLogging(true);
    EXPECT_TRUE(core::log::isDebugLoggingEnabled());
    ::testing::internal::CaptureStderr();
    BOOST_LOG_SEV(logger, boost::log::trivial::debug) << "loud-marker";
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(written.find("loud-marker"), std::string::npos) << written;
    EXPECT_NE(written.find("debug"), std::string::npos) << written;

    core::log::setDebugLogging(false);
    EXPECT_FALSE(core::log::isDebugLoggingEnabled());
    ::testing::internal::CaptureStderr();
    BOOST_LOG_SEV(logger, boost::log::trivial::debug) << "quiet-marker-3";
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}
