// The identified-error objects: identifier text, argument alternatives, copies.
#include "quorin/gateway/Errors.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>

namespace {

using foundation::core::except::Exception;
using foundation::core::except::IException;
using foundation::core::except::IMsgIDException;
using resource_core::MessageArg;
using FileExists = QUORIN::io::filesystem::symlink::FileExists;
using UnableToSet = QUORIN::io::filesystem::filePermissions::UnableToSetPermissions;
using NotScalar = QUORIN::string::MustBeStringScalarOrCharacterVector;

const fl::ustring kPath = u"/tmp/\u00e9t\u00e9/\U0001F600 x";

// Each argument keeps the alternative of its type, in message order.
TEST(IdentifierObject, ArgumentsKeepTheirAlternative) {
    const FileExists id(kPath);
    EXPECT_EQ(IMsgIDException::get_error_id(id), "QUORIN:io:filesystem:symlink:FileExists");
    EXPECT_EQ(id.getArgs(), (std::vector<MessageArg>{kPath}));
    EXPECT_EQ(id.getArgs()[0].index(), 2U);
    EXPECT_EQ(FileExists(std::string("8-bit")).getArgs()[0].index(), 1U);
    EXPECT_EQ(FileExists("literal").getArgs()[0], MessageArg(std::string("literal")));
    EXPECT_EQ(FileExists(42).getArgs()[0], MessageArg(std::int64_t{42}));
    EXPECT_EQ(FileExists(std::size_t{7}).getArgs()[0].index(), 0U);
    EXPECT_TRUE(NotScalar().getArgs().empty());
}

// Caught through every base, without Boost's throw-site information; rethrow, clone and
// std::exception_ptr keep the class and the arguments; what() is the catalog text.
TEST(ThrownError, BasesCopiesAndText) {
    const std::string reason = "Read-only file system";
    auto raise = [&] { quorin::gateway::throwError<UnableToSet>(kPath, reason); };
    EXPECT_THROW(raise(), foundation::core::except::IUserException);
    EXPECT_THROW(raise(), std::exception);
    EXPECT_THROW(raise(), boost::exception);
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    const auto text = fl::i18n::MessageCatalog::find_text(
        "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", "en");
    ASSERT_TRUE(text.has_value());
    const std::string expected = fl::i18n::to_utf8(
        fl::i18n::MessageCatalog::format(*text, {MessageArg(kPath), MessageArg(reason)}));
    EXPECT_NE(expected.find(fl::i18n::to_utf8(kPath)), std::string::npos);
    std::exception_ptr p;
    std::unique_ptr<IException> copy;
    try {
        raise();
    } catch (const Exception<UnableToSet>& first) {
        EXPECT_EQ(boost::get_error_info<boost::throw_function>(first), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_file>(first), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_line>(first), nullptr);
        EXPECT_EQ(first.what(), expected);
        EXPECT_EQ(fl::i18n::to_utf8(first.GetUnicodeMessageTxt()), expected);
        p = std::current_exception();
        copy.reset(first.clone());
        try {
            first.rethrow();
        } catch (const Exception<UnableToSet>& again) {
            EXPECT_NE(static_cast<const void*>(&again), static_cast<const void*>(&first));
            EXPECT_TRUE(zkfs::test::matchesIdentifiedError(
                again, "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions",
                {kPath, reason}));
        }
    }
    EXPECT_THROW(std::rethrow_exception(p), Exception<UnableToSet>);
    const auto* typed = dynamic_cast<const Exception<UnableToSet>*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->GetBaseMsgIDObj().getArgs(), (std::vector<MessageArg>{kPath, reason}));
    EXPECT_THROW(copy->rethrow(), Exception<UnableToSet>);
}

TEST(NotText, IsAnIdentifiedHostError) {
    using Hexfarrow::String::TextDispatch;
    const auto d = zkfs::test::doubleScalar(1);
    EXPECT_IDENTIFIED_ERROR((void)TextDispatch::classify(d.get()), "QUORIN:string:NotText");
    try {
        (void)TextDispatch::classify(nullptr);
        ADD_FAILURE() << "null is not text";
    } catch (const TextDispatch::NotText& e) {
        std::unique_ptr<IException> copy(e.clone());
        EXPECT_THROW(copy->rethrow(), TextDispatch::NotText);
    }
}

}  // namespace
