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

TEST(IdentifierObject, Parts) {
    const FileExists id(kPath);
    EXPECT_EQ(id.getComponent(), "QUORIN:io:filesystem:symlink");
    EXPECT_EQ(id.getMnemonic(), "FileExists");
    EXPECT_EQ(IMsgIDException::get_error_id(id), "QUORIN:io:filesystem:symlink:FileExists");
    // Each argument keeps the alternative of its type, in message order.
    EXPECT_EQ(id.getArgs(), (std::vector<MessageArg>{kPath}));
    EXPECT_EQ(id.getArgs()[0].index(), 2U);
    EXPECT_EQ(FileExists(std::string("8-bit")).getArgs()[0].index(), 1U);
    EXPECT_EQ(FileExists("literal").getArgs()[0], MessageArg(std::string("literal")));
    EXPECT_EQ(FileExists(42).getArgs()[0], MessageArg(std::int64_t{42}));
    EXPECT_EQ(FileExists(std::size_t{7}).getArgs()[0].index(), 0U);
    EXPECT_EQ(UnableToSet(kPath, std::string("Permission denied")).getArgs(),
              (std::vector<MessageArg>{kPath, std::string("Permission denied")}));
    EXPECT_TRUE(NotScalar().getArgs().empty());
    EXPECT_IDENTIFIED_ERROR(quorin::gateway::throwError<NotScalar>(),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
}

TEST(ThrownError, CaughtThroughEveryBaseWithoutBoostInformation) {
    auto raise = [] { quorin::gateway::throwError<FileExists>(kPath); };
    EXPECT_THROW(raise(), foundation::core::except::IUserException);
    EXPECT_THROW(raise(), std::exception);
    EXPECT_THROW(raise(), boost::exception);
    try {
        raise();
    } catch (const Exception<FileExists>& e) {
        EXPECT_EQ(e.getMsgID().getMnemonic(), "FileExists");
        EXPECT_EQ(boost::get_error_info<boost::throw_function>(e), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_file>(e), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_line>(e), nullptr);
    }
}

// Rethrow, clone and std::exception_ptr all keep the class and the arguments.
TEST(ThrownError, CopiesKeepClassAndArguments) {
    const std::vector<MessageArg> args{kPath, std::string("Read-only file system")};
    std::exception_ptr p;
    std::unique_ptr<IException> copy;
    try {
        quorin::gateway::throwError<UnableToSet>(kPath, std::string("Read-only file system"));
    } catch (const IMsgIDException& first) {
        p = std::current_exception();
        copy.reset(first.clone());
        EXPECT_IDENTIFIED_ERROR(first.rethrow(),
                                "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions",
                                kPath, std::string("Read-only file system"));
        try {
            first.rethrow();
        } catch (const Exception<UnableToSet>& again) {
            EXPECT_NE(static_cast<const void*>(&again), static_cast<const void*>(&first));
        }
    }
    ASSERT_NE(copy, nullptr);
    EXPECT_THROW(std::rethrow_exception(p), Exception<UnableToSet>);
    const auto* typed = dynamic_cast<const Exception<UnableToSet>*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->GetBaseMsgIDObj().getArgs(), args);
    EXPECT_THROW(copy->rethrow(), Exception<UnableToSet>);
}

TEST(ThrownError, WhatIsTheCatalogTextWithItsArguments) {
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    try {
        quorin::gateway::throwError<FileExists>(kPath);
    } catch (const IMsgIDException& e) {
        const auto text =
            fl::i18n::MessageCatalog::find_text("QUORIN:io:filesystem:symlink:FileExists", "en");
        ASSERT_TRUE(text.has_value());
        const std::string expected =
            fl::i18n::to_utf8(fl::i18n::MessageCatalog::format(*text, {MessageArg(kPath)}));
        EXPECT_NE(expected.find(fl::i18n::to_utf8(kPath)), std::string::npos);
        EXPECT_EQ(e.what(), expected);
        EXPECT_EQ(fl::i18n::to_utf8(e.GetUnicodeMessageTxt()), expected);
    }
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
