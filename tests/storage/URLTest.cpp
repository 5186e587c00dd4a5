// URL text helpers and the storage exceptions' identity.
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/utility/URL.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace {

using fl::i18n::to_utf8;
using foundation::storage::utility::decodeURL;
using foundation::storage::utility::normalizeURL;
using foundation::storage::vfs::AbsoluteIRI;
namespace vfs = foundation::storage::vfs;

fl::ustring decoded(fl::ustring text, bool asUtf8) {
    decodeURL(text, asUtf8);
    return text;
}

TEST(DecodeURL, Utf8Escapes) {
    EXPECT_EQ(decoded(u"file:///a%20b/%C3%A4%e6%97%a5", true), u"file:///a b/\u00e4\u65e5");
    EXPECT_EQ(decoded(u"no escapes at all", true), u"no escapes at all");
    EXPECT_EQ(decoded(u"", true), u"");
    // Malformed escapes stay as written.
    EXPECT_EQ(decoded(u"100% and %zz and %4", true), u"100% and %zz and %4");
    // Bytes that are no UTF-8 survive as lone surrogates.
    EXPECT_EQ(decoded(u"x%FFy", true), u"x\xDCFFy");
    // Characters that were never escaped are kept, whatever they are.
    EXPECT_EQ(decoded(u"\u00e4%20", true), u"\u00e4 ");
    EXPECT_EQ(decoded(u"%2F%25", true), u"/%");
}

TEST(DecodeURL, Latin1Escapes) {
    EXPECT_EQ(decoded(u"%E4%20\u00e4", false), u"\u00e4 \u00e4");
    EXPECT_EQ(decoded(u"%C3%A4", false), u"\u00c3\u00a4");
}

TEST(NormalizeURL, Rfc3986Normalisation) {
    struct Row {
        const char16_t* input;
        const char* expected;
    };
    const std::vector<Row> rows = {
        {u"HTTP://Example.COM/a/./b/../c", "http://example.com/a/c"},
        {u"http://h/%7euser/%2f%3a", "http://h/~user/%2F%3A"},
        {u"http://h/a%2Fb/../c", "http://h/c"},
        {u"file:///tmp/a b/\u00e4", "file:///tmp/a%20b/%C3%A4"},
        {u"file:///", "file:///"},
        {u"file://", "file://"},
        {u"http://User@Host:80/p?Q=%7e#F%7e", "http://User@host:80/p?Q=~#F~"},
        {u"/tmp/x/../y", "file:///tmp/y"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(to_utf8(row.input));
        fl::ustring text = row.input;
        normalizeURL(text);
        EXPECT_EQ(to_utf8(text), row.expected);
    }
}

TEST(NormalizeURL, InvalidTextIsReportedAndKept) {
    fl::ustring text = u"not a url";
    EXPECT_IDENTIFIED_ERROR(normalizeURL(text), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"not a url"));
    EXPECT_EQ(text, u"not a url");
}

TEST(StorageExceptions, CodesChooseIdentifiers) {
    const AbsoluteIRI where(u"file:///x%20y");
    struct Row {
        int code;
        const char* id;
    };
    for (const Row& row : std::vector<Row>{{1, "QUORIN:storage:invalidLocation"},
                                           {2, "QUORIN:storage:permissionDenied"},
                                           {3, "QUORIN:storage:alreadyExists"},
                                           {4, "QUORIN:storage:notFound"}}) {
        SCOPED_TRACE(row.code);
        EXPECT_IDENTIFIED_ERROR(throw vfs::Exception(row.code, where), row.id,
                                fl::ustring(u"file:///x%20y"));
    }
    EXPECT_IDENTIFIED_ERROR(throw vfs::Exception(5, where, "Input/output error"),
                            "QUORIN:storage:ioError", fl::ustring(u"file:///x%20y"),
                            std::string("Input/output error"));
    EXPECT_IDENTIFIED_ERROR(throw vfs::Exception(42, where), "QUORIN:storage:ioError",
                            fl::ustring(u"file:///x%20y"), std::string("storage error 42"));
}

TEST(StorageExceptions, CloneAndRethrowKeepTypeAndState) {
    const vfs::Exception original(3, AbsoluteIRI(u"mem://root/a"), "File exists");
    std::unique_ptr<foundation::core::except::IException> copy(original.clone());
    try {
        copy->rethrow();
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(e.getErrorCode(), 3);
        EXPECT_EQ(e.getLocation().toString(), u"mem://root/a");
        EXPECT_EQ(e.getSystemText(), "File exists");
        EXPECT_STREQ(e.what(), "'mem://root/a' already exists.");
    }
    const vfs::InvalidIRIException bad(u"a/b");
    std::unique_ptr<foundation::core::except::IException> badCopy(bad.clone());
    EXPECT_THROW(badCopy->rethrow(), vfs::InvalidIRIException);
    const vfs::UnsupportedIRISchemeException scheme(u"s3://b/k", u"s3");
    EXPECT_THROW(scheme.rethrow(), vfs::StorageException);
    // Every storage error is a std::exception and an identified error at once.
    try {
        scheme.rethrow();
    } catch (const std::exception& e) {
        EXPECT_NE(dynamic_cast<const foundation::core::except::IMsgIDException*>(&e), nullptr);
        EXPECT_STREQ(e.what(), "No storage provider serves the scheme 's3' of 's3://b/k'.");
    }
}

}  // namespace
