// The identified-error objects: identifier text, argument alternatives, copies.
#include <exception>
#include <memory>
#include <string>

#include <boost/exception/get_error_info.hpp>
#include <gtest/gtest.h>

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "quorin/gateway/Errors.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"

namespace {

using foundation::core::except::Exception;
using foundation::core::except::IException;
using foundation::core::except::IMsgIDException;
using resource_core::MessageArg;
using FileExists = QUORIN::io::filesystem::symlink::FileExists;
using UnableToSet = QUORIN::io::filesystem::filePermissions::UnableToSetPermissions;
using NotScalar = QUORIN::string::MustBeStringScalarOrCharacterVector;

const fl::ustring kPath = u"/tmp/\u00e9t\u00e9/\U0001F600 x";

// Catches what a statement throws as an identified error; fails the test otherwise.
template <class F>
std::unique_ptr<IException> capture(F&& f) {
    try {
        f();
    } catch (const IMsgIDException& e) {
        return std::unique_ptr<IException>(e.clone());
    }
    ADD_FAILURE() << "nothing was thrown";
    return nullptr;
}

TEST(IdentifierObject, ComponentAndMnemonicStayApart) {
    const FileExists id(kPath);
    EXPECT_EQ(id.getComponent(), "QUORIN:io:filesystem:symlink");
    EXPECT_EQ(id.getMnemonic(), "FileExists");
    EXPECT_STREQ(FileExists::component, "QUORIN:io:filesystem:symlink");
    EXPECT_STREQ(FileExists::mnemonic, "FileExists");
    EXPECT_EQ(IMsgIDException::get_error_id(id), "QUORIN:io:filesystem:symlink:FileExists");
}

TEST(IdentifierObject, AlternativeFollowsTheArgumentsType) {
    EXPECT_EQ(FileExists(kPath).getArgs(), (std::vector<MessageArg>{kPath}));
    EXPECT_EQ(FileExists(kPath).getArgs()[0].index(), 2U);
    EXPECT_EQ(FileExists(std::string("8-bit")).getArgs()[0].index(), 1U);
    EXPECT_EQ(FileExists("literal").getArgs()[0], MessageArg(std::string("literal")));
    EXPECT_EQ(FileExists(42).getArgs()[0], MessageArg(std::int64_t{42}));
    EXPECT_EQ(FileExists(std::size_t{7}).getArgs()[0].index(), 0U);
    // Order is message order, each in its own alternative.
    EXPECT_EQ(UnableToSet(kPath, std::string("Permission denied")).getArgs(),
              (std::vector<MessageArg>{kPath, std::string("Permission denied")}));
}

TEST(IdentifierObject, WithoutArgumentsTheListIsEmpty) {
    EXPECT_TRUE(NotScalar().getArgs().empty());
    EXPECT_IDENTIFIED_ERROR(quorin::gateway::throwError<NotScalar>(),
                            "QUORIN:string:MustBeStringScalarOrCharacterVector");
}

TEST(ThrownError, CarriesIdentifierAndArguments) {
    try {
        quorin::gateway::throwError<FileExists>(kPath);
    } catch (const Exception<FileExists>& e) {
        EXPECT_EQ(e.GetID(), "QUORIN:io:filesystem:symlink:FileExists");
        EXPECT_EQ(e.GetBaseMsgIDObj().getArgs(), (std::vector<MessageArg>{kPath}));
        EXPECT_EQ(e.getMsgID().getMnemonic(), "FileExists");
        // No Boost information: no throw function, no file, no line.
        EXPECT_EQ(boost::get_error_info<boost::throw_function>(e), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_file>(e), nullptr);
        EXPECT_EQ(boost::get_error_info<boost::throw_line>(e), nullptr);
        return;
    }
    ADD_FAILURE() << "not thrown as Exception<FileExists>";
}

TEST(ThrownError, CaughtThroughEveryBase) {
    auto raise = [] { quorin::gateway::throwError<FileExists>(kPath); };
    EXPECT_THROW(raise(), IMsgIDException);
    EXPECT_THROW(raise(), foundation::core::except::IUserException);
    EXPECT_THROW(raise(), IException);
    EXPECT_THROW(raise(), std::exception);
    EXPECT_THROW(raise(), boost::exception);
}

TEST(ThrownError, RethrowKeepsClassAndArguments) {
    try {
        quorin::gateway::throwError<UnableToSet>(kPath, std::string("Read-only file system"));
    } catch (const IException& first) {
        try {
            first.rethrow();
        } catch (const Exception<UnableToSet>& again) {
            EXPECT_NE(static_cast<const void*>(&again), static_cast<const void*>(&first));
            EXPECT_EQ(again.GetID(), "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions");
            EXPECT_EQ(again.GetBaseMsgIDObj().getArgs(),
                      (std::vector<MessageArg>{kPath, std::string("Read-only file system")}));
            return;
        } catch (...) {
            ADD_FAILURE() << "rethrow changed the class";
            return;
        }
    }
    ADD_FAILURE() << "not thrown";
}

TEST(ThrownError, CloneIsAnIndependentCopy) {
    auto copy = capture([] { quorin::gateway::throwError<FileExists>(kPath); });
    ASSERT_NE(copy, nullptr);
    const auto* typed = dynamic_cast<const Exception<FileExists>*>(copy.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->GetID(), "QUORIN:io:filesystem:symlink:FileExists");
    EXPECT_EQ(typed->GetBaseMsgIDObj().getArgs(), (std::vector<MessageArg>{kPath}));
    EXPECT_THROW(copy->rethrow(), Exception<FileExists>);
    // Exception transport through std::exception_ptr keeps the type as well.
    std::exception_ptr p;
    try {
        quorin::gateway::throwError<FileExists>(kPath);
    } catch (...) {
        p = std::current_exception();
    }
    EXPECT_THROW(std::rethrow_exception(p), Exception<FileExists>);
}

TEST(ThrownError, WhatIsTheCatalogTextWithItsArguments) {
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    auto copy = capture([] { quorin::gateway::throwError<FileExists>(kPath); });
    ASSERT_NE(copy, nullptr);
    const auto text = fl::i18n::MessageCatalog::find_text("QUORIN:io:filesystem:symlink:FileExists", "en");
    ASSERT_TRUE(text.has_value());
    const std::string expected =
        fl::i18n::to_utf8(fl::i18n::MessageCatalog::format(*text, {MessageArg(kPath)}));
    EXPECT_EQ(copy->what(), expected);
    EXPECT_NE(expected.find(fl::i18n::to_utf8(kPath)), std::string::npos);
    const auto* msg = dynamic_cast<const IMsgIDException*>(copy.get());
    ASSERT_NE(msg, nullptr);
    EXPECT_EQ(fl::i18n::to_utf8(msg->GetUnicodeMessageTxt()), expected);
}

TEST(NotText, IsAnIdentifiedHostError) {
    using Hexfarrow::String::TextDispatch;
    const auto d = zkfs::test::doubleScalar(1);
    try {
        (void)TextDispatch::classify(d.get());
        ADD_FAILURE() << "a double is not text";
    } catch (const TextDispatch::NotText& e) {
        EXPECT_EQ(e.GetID(), "QUORIN:string:NotText");
        EXPECT_TRUE(e.GetBaseMsgIDObj().getArgs().empty());
        std::unique_ptr<IException> copy(e.clone());
        EXPECT_NE(dynamic_cast<TextDispatch::NotText*>(copy.get()), nullptr);
        EXPECT_THROW(copy->rethrow(), TextDispatch::NotText);
    }
    EXPECT_THROW((void)TextDispatch::classify(nullptr), TextDispatch::NotText);
}

TEST(NotText, ReplacementNamesTheInput) {
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale("en_US.UTF-8"));
    const auto name = fl::i18n::MessageCatalog::find_text("QUORIN:FileUtils:inputPath", "en");
    ASSERT_TRUE(name.has_value());
    EXPECT_IDENTIFIED_ERROR(quorin::gateway::throwNotTextReplacement(),
                            "QUORIN:string:MustBeCharCellArrayOrString",
                            fl::i18n::to_ustring(*name));
}

}  // namespace
