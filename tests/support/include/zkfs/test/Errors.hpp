#pragma once
// Assertions on identified errors.
//
// EXPECT_IDENTIFIED_ERROR(statement, "QUORIN:...", args...) runs the statement and adds a
// non-fatal failure unless it throws an IMsgIDException whose GetID() is the identifier
// and whose argument list equals `args` exactly: same count, same alternative per entry
// (integer, 8-bit text, UTF-16 text) and same value. Give integers as integers, 8-bit
// text as "..." or std::string, UTF-16 text as u"..." or fl::ustring; no args means the
// error must carry an empty list.
#include "fl/ustring.hpp"
#include "foundation/core/except/Exception.hpp"
#include "resource_core/MessageArg.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <vector>

namespace zkfs::test {

// A readable form of an argument: 7, "text" (8-bit) or u"text" (UTF-16).
std::string describe(const resource_core::MessageArg& arg);
std::string describe(const std::vector<resource_core::MessageArg>& args);

// Compares a caught error with the expectation; success or the reason it differs.
::testing::AssertionResult matchesIdentifiedError(
    const foundation::core::except::IMsgIDException& error, const std::string& identifier,
    const std::vector<resource_core::MessageArg>& args);

// The catalog text, in the global locale, of an identifier with one text argument: what a
// failure reported as a result (rather than thrown) must carry.
fl::ustring catalogMessage(const std::string& identifier, const fl::ustring& argument);

// The failure for a statement that threw something that is not an identified error.
::testing::AssertionResult unexpectedException(const std::exception_ptr& caught,
                                               const std::string& identifier);

}  // namespace zkfs::test

#define EXPECT_IDENTIFIED_ERROR(statement, identifier, ...)                                        \
    do {                                                                                           \
        const std::vector<::resource_core::MessageArg> zkfsExpectedArgs_{__VA_ARGS__};             \
        ::testing::AssertionResult zkfsResult_ =                                                   \
            ::testing::AssertionFailure() << "it threw nothing, expected " << (identifier) << " "  \
                                          << ::zkfs::test::describe(zkfsExpectedArgs_);            \
        try {                                                                                      \
            statement;                                                                             \
        } catch (const ::foundation::core::except::IMsgIDException& zkfsError_) {                  \
            zkfsResult_ =                                                                          \
                ::zkfs::test::matchesIdentifiedError(zkfsError_, (identifier), zkfsExpectedArgs_); \
        } catch (...) {                                                                            \
            zkfsResult_ =                                                                          \
                ::zkfs::test::unexpectedException(std::current_exception(), (identifier));         \
        }                                                                                          \
        if (!zkfsResult_) ADD_FAILURE() << "Statement: " #statement "\n" << zkfsResult_.message(); \
    } while (false)
