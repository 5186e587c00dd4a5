// IRIs (percent-encoding, RFC 3986 resolution, parents, file paths), the URL text helpers,
// and the storage and path errors: their identity and their catalog texts.
#include "zkfs/test/Errors.hpp"

#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/utility/URL.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

namespace fs = fl::filesystem;
namespace vfs = foundation::storage::vfs;
using fl::i18n::to_ustring;
using fl::i18n::to_utf8;
using foundation::core::except::IException;
using foundation::core::except::IMsgIDException;
using vfs::AbsoluteIRI;

std::string text(const AbsoluteIRI& iri) { return to_utf8(iri.toString()); }

TEST(FileIRI, PathToIRIAndBack) {
    // clang-format off
    struct Row { fl::ustring path; const char* iri; };
    // clang-format on
    const std::vector<Row> rows = {
        {u"", "file://"},  // names nothing, but converts both ways
        {u"/", "file:///"},
        {u"/tmp/a b", "file:///tmp/a%20b"},
        {u"/tmp/100%41", "file:///tmp/100%2541"},
        {u"/tmp/a#b", "file:///tmp/a%23b"},
        {u"/tmp/what?x=1", "file:///tmp/what%3Fx=1"},
        {u"/tmp/\u00e4/\u65e5\u672c", "file:///tmp/%C3%A4/%E6%97%A5%E6%9C%AC"},
        {u"/tmp/\U0001F600", "file:///tmp/%F0%9F%98%80"},
        // A name that is not UTF-8: byte 0xFF held as U+DCFF.
        {u"/tmp/\xDCFFz", "file:///tmp/%FFz"},
        {u"/tmp/semi;colon:at@plus+", "file:///tmp/semi;colon:at@plus+"},
        {u"/tmp/trailing/", "file:///tmp/trailing/"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(to_utf8(row.path));
        const AbsoluteIRI iri = vfs::toAbsoluteIRI(u"file", row.path);
        EXPECT_EQ(text(iri), row.iri);
        EXPECT_EQ(vfs::fromAbsoluteIRI(iri), row.path);
        // The text parses back to the same IRI, and the absolute path reads the same way.
        const AbsoluteIRI reparsed(iri.toString());
        EXPECT_EQ(reparsed, iri);
        EXPECT_EQ(vfs::fromAbsoluteIRI(reparsed), row.path);
        if (!row.path.empty()) {
            EXPECT_EQ(AbsoluteIRI(row.path), iri);
        }
    }
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"file://localhost/x%20y")), u"/x y");
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"FILE:///x")), u"/x");
}

TEST(AbsoluteIRI, TextsThatAreNoIRIOrNoLocalPathAreRefused) {
    for (const char16_t* bad : {u"", u"relative/path", u"name", u"C:\\x", u"C:/x", u"./a",
                                u"http://[::1/x", u"1abc://x", u"ht tp://x", u":nothing"}) {
        SCOPED_TRACE(to_utf8(bad));
        EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(fl::ustring(bad)), "QUORIN:storage:invalidIRI",
                                fl::ustring(bad));
    }
    EXPECT_THROW((void)AbsoluteIRI(u"name"), vfs::InvalidIRIException);  // the class callers catch
    EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(AbsoluteIRI(u"file:///"), u"http://[bad"),
                            "QUORIN:storage:invalidIRI", fl::ustring(u"http://[bad"));
    EXPECT_IDENTIFIED_ERROR(vfs::toAbsoluteIRI(u"file", u"a/b"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"a/b"));
    EXPECT_IDENTIFIED_ERROR(vfs::toAbsoluteIRI(u"f", u"/a"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"f"));
    for (const char16_t* bad : {u"file://server/share/x", u"file:///a%2Fb", u"file:///a%00b",
                                u"file://user@localhost/x"}) {
        SCOPED_TRACE(to_utf8(bad));
        EXPECT_IDENTIFIED_ERROR((void)vfs::fromAbsoluteIRI(AbsoluteIRI(bad)),
                                "QUORIN:storage:invalidIRI", fl::ustring(bad));
    }
    EXPECT_IDENTIFIED_ERROR((void)vfs::fromAbsoluteIRI(AbsoluteIRI(u"http://h/x")),
                            "QUORIN:storage:unsupportedScheme", fl::ustring(u"http://h/x"),
                            fl::ustring(u"http"));
    EXPECT_THROW((void)vfs::fromAbsoluteIRI(AbsoluteIRI(u"http://h/x")),
                 vfs::UnsupportedIRISchemeException);
}

TEST(AbsoluteIRI, TextFormsEncodeWhatIsRaw) {
    const AbsoluteIRI root(u"file:///");
    const std::vector<std::pair<AbsoluteIRI, const char*>> rows = {
        {AbsoluteIRI(u"http://h/a b/\u00e4?q=\u00fc v#fr ag"),
         "http://h/a%20b/%C3%A4?q=%C3%BC%20v#fr%20ag"},
        // A lone "%" is literal; a well-formed escape is kept as written.
        {AbsoluteIRI(u"http://h/100%/x%41"), "http://h/100%25/x%41"},
        // Only the first "#" starts the fragment.
        {AbsoluteIRI(u"http://h/p#a#b"), "http://h/p#a%23b"},
        {AbsoluteIRI(root, u"a b/\u00e4"), "file:///a%20b/%C3%A4"},
        {AbsoluteIRI(AbsoluteIRI(u"http://h"), u"x"), "http://h/x"},
        // The base's fragment plays no part.
        {AbsoluteIRI(AbsoluteIRI(u"http://h/a/b#f"), u"c"), "http://h/a/c"},
        {root.getChild(u"a b"), "file:///a%20b"},
        {AbsoluteIRI(u"file:///d/").getChild(u"x/y#%"), "file:///d/x%2Fy%23%25"},
        {AbsoluteIRI(u"mem://root/d?q#f").getChild(u"\u00e4"), "mem://root/d/%C3%A4"},
    };
    for (const auto& [iri, expected] : rows) {
        SCOPED_TRACE(expected);
        EXPECT_EQ(text(iri), expected);
    }
    EXPECT_EQ(AbsoluteIRI(u"file:///d").getChild(u"n\xDC80").getName(), u"n\xDC80");
}

TEST(AbsoluteIRI, PartsAreReported) {
    const AbsoluteIRI iri(u"https://User@Example.com:8443/a%20b/c.txt?x=1#top");
    EXPECT_EQ(iri.getScheme(), u"https");
    EXPECT_EQ(iri.getAuthority(), u"User@Example.com:8443");
    EXPECT_EQ(iri.getHost(), u"Example.com");
    EXPECT_EQ(iri.getPort(), 8443);
    EXPECT_EQ(iri.getPath(), u"/a%20b/c.txt");
    EXPECT_EQ(iri.getDecodedPath(), u"/a b/c.txt");
    EXPECT_EQ(iri.getName(), u"c.txt");
    EXPECT_TRUE(iri.hasQuery());
    EXPECT_EQ(iri.getQuery(), u"x=1");
    EXPECT_TRUE(iri.hasFragment());
    EXPECT_EQ(iri.getFragment(), u"top");
    const AbsoluteIRI bare(u"http://h");
    EXPECT_EQ(bare.getPort(), -1);
    EXPECT_FALSE(bare.hasQuery());
    EXPECT_FALSE(bare.hasFragment());
}

TEST(AbsoluteIRI, PrefixNeedsASchemeOfTwoOrMoreCharactersAndSlashes) {
    const std::vector<std::pair<const char16_t*, bool>> rows = {
        {u"", false},          {u"http://a", true},     {u"s3://bucket/k", true},
        {u"file:///", true},   {u"mem://root", true},   {u"a+b.c-d://x", true},
        {u"C:\\x", false},     {u"c://x", false},       {u"a/b", false},
        {u"http:/x", false},   {u"1ab://x", false},     {u"://x", false},
        {u"/tmp/x://", false}, {u"h\u00e4://x", false}, {u"http:x", false},
    };
    for (const auto& [input, expected] : rows) {
        SCOPED_TRACE(to_utf8(input));
        EXPECT_EQ(vfs::hasIRIPrefix(input), expected);
    }
}

// RFC 3986 section 5.4, normal and abnormal examples: base "http://a/b/c/d;p?q". Strict
// parsers take a reference with a scheme ("http:g") as it stands.
TEST(AbsoluteIRI, ResolutionFollowsRFC3986Examples) {
    const AbsoluteIRI base(u"http://a/b/c/d;p?q");
    const std::vector<std::pair<const char*, const char*>> rows = {
        {"g:h", "g:h"},
        {"g", "http://a/b/c/g"},
        {"./g", "http://a/b/c/g"},
        {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},
        {"#s", "http://a/b/c/d;p?q#s"},
        {"g#s", "http://a/b/c/g#s"},
        {"g?y#s", "http://a/b/c/g?y#s"},
        {";x", "http://a/b/c/;x"},
        {"g;x", "http://a/b/c/g;x"},
        {"g;x?y#s", "http://a/b/c/g;x?y#s"},
        {"", "http://a/b/c/d;p?q"},
        {".", "http://a/b/c/"},
        {"./", "http://a/b/c/"},
        {"..", "http://a/b/"},
        {"../", "http://a/b/"},
        {"../g", "http://a/b/g"},
        {"../..", "http://a/"},
        {"../../", "http://a/"},
        {"../../g", "http://a/g"},
        {"../../../g", "http://a/g"},
        {"../../../../g", "http://a/g"},
        {"/./g", "http://a/g"},
        {"/../g", "http://a/g"},
        {"g.", "http://a/b/c/g."},
        {".g", "http://a/b/c/.g"},
        {"g..", "http://a/b/c/g.."},
        {"..g", "http://a/b/c/..g"},
        {"./../g", "http://a/b/g"},
        {"./g/.", "http://a/b/c/g/"},
        {"g/./h", "http://a/b/c/g/h"},
        {"g/../h", "http://a/b/c/h"},
        {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
        {"g;x=1/../y", "http://a/b/c/y"},
        {"g?y/./x", "http://a/b/c/g?y/./x"},
        {"g?y/../x", "http://a/b/c/g?y/../x"},
        {"g#s/./x", "http://a/b/c/g#s/./x"},
        {"g#s/../x", "http://a/b/c/g#s/../x"},
        {"http:g", "http:g"},
    };
    for (const auto& [reference, expected] : rows) {
        SCOPED_TRACE(reference);
        EXPECT_EQ(text(AbsoluteIRI(base, to_ustring(reference))), expected);
    }
}

TEST(AbsoluteIRI, ParentDropsLastSegmentQueryAndFragment) {
    const std::vector<std::pair<const char16_t*, const char*>> rows = {
        {u"file:///a/b", "file:///a"},
        {u"file:///a/b/", "file:///a"},
        {u"file:///a", "file:///"},
        {u"file:///", nullptr},
        {u"file://", nullptr},
        {u"http://h", nullptr},
        {u"http://h/x?q#f", "http://h/"},
        {u"mem://root/x/y", "mem://root/x"},
        {u"mem://root/x", "mem://root/"},
        {u"urn:isbn:1234", nullptr},
        {u"file:///a%2Fb/c", "file:///a%2Fb"},
    };
    for (const auto& [input, parent] : rows) {  // parent nullptr: there is none
        SCOPED_TRACE(to_utf8(input));
        const AbsoluteIRI iri(input);
        ASSERT_EQ(iri.hasParent(), parent != nullptr);
        if (parent != nullptr) {
            EXPECT_EQ(text(iri.getParent()), parent);
        } else {
            EXPECT_IDENTIFIED_ERROR((void)iri.getParent(), "QUORIN:storage:invalidLocation",
                                    iri.toString());
        }
    }
}

TEST(URLText, DecodeKeepsMalformedEscapesAndWhatWasNeverEscaped) {
    // clang-format off
    struct Row { const char16_t* input; bool asUtf8; const char16_t* expected; };
    // clang-format on
    const std::vector<Row> rows = {
        {u"file:///a%20b/%C3%A4%e6%97%a5", true, u"file:///a b/\u00e4\u65e5"},
        {u"", true, u""},
        {u"100% and %zz and %4", true, u"100% and %zz and %4"},
        // Bytes that are no UTF-8 survive as lone surrogates.
        {u"x%FFy", true, u"x\xDCFFy"},
        {u"\u00e4%20", true, u"\u00e4 "},
        {u"%2F%25", true, u"/%"},
        {u"%E4%20\u00e4", false, u"\u00e4 \u00e4"},
        {u"%C3%A4", false, u"\u00c3\u00a4"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(to_utf8(row.input));
        fl::ustring decoded = row.input;
        foundation::storage::utility::decodeURL(decoded, row.asUtf8);
        EXPECT_EQ(decoded, row.expected);
    }
}

TEST(URLText, NormaliseFollowsRFC3986) {
    const std::vector<std::pair<const char16_t*, const char*>> rows = {
        {u"HTTP://Example.COM/a/./b/../c", "http://example.com/a/c"},
        {u"http://h/%7euser/%2f%3a", "http://h/~user/%2F%3A"},
        {u"http://h/a%2Fb/../c", "http://h/c"},
        {u"file:///tmp/a b/\u00e4", "file:///tmp/a%20b/%C3%A4"},
        {u"file:///", "file:///"},
        {u"file://", "file://"},
        {u"http://User@Host:80/p?Q=%7e#F%7e", "http://User@host:80/p?Q=~#F~"},
        {u"/tmp/x/../y", "file:///tmp/y"},
    };
    for (const auto& [input, expected] : rows) {
        SCOPED_TRACE(to_utf8(input));
        fl::ustring normal = input;
        foundation::storage::utility::normalizeURL(normal);
        EXPECT_EQ(to_utf8(normal), expected);
    }
    fl::ustring bad = u"not a url";
    EXPECT_IDENTIFIED_ERROR(foundation::storage::utility::normalizeURL(bad),
                            "QUORIN:storage:invalidIRI", fl::ustring(u"not a url"));
    EXPECT_EQ(bad, u"not a url");
}

// Every storage and path error: the identifier its code chooses, its arguments, its text
// (one hole per argument), and the same again after a clone and a rethrow. Each is a
// std::exception as well as an identified error.
TEST(StorageErrors, IdentityAndTextSurviveCloneAndRethrow) {
    using A = std::vector<resource_core::MessageArg>;
    const AbsoluteIRI at(u"file:///x%20y");
    const fl::ustring x = u"file:///x%20y";
    // clang-format off
    struct Row { std::shared_ptr<const IMsgIDException> error; const char* id; A args; const char* what; };
    const std::vector<Row> rows = {
        {std::make_shared<vfs::Exception>(1, at), "QUORIN:storage:invalidLocation", {x}, "'file:///x%20y' is not a valid storage location."},
        {std::make_shared<vfs::Exception>(2, at), "QUORIN:storage:permissionDenied", {x}, "Permission denied: 'file:///x%20y'."},
        {std::make_shared<vfs::Exception>(3, at, "File exists"), "QUORIN:storage:alreadyExists", {x}, "'file:///x%20y' already exists."},
        {std::make_shared<vfs::Exception>(4, at), "QUORIN:storage:notFound", {x}, "'file:///x%20y' was not found."},
        {std::make_shared<vfs::Exception>(5, at, "Input/output error"), "QUORIN:storage:ioError", {x, std::string("Input/output error")}, "Input/output error at 'file:///x%20y': Input/output error."},
        {std::make_shared<vfs::Exception>(42, at), "QUORIN:storage:ioError", {x, std::string("storage error 42")}, "Input/output error at 'file:///x%20y': storage error 42."},
        {std::make_shared<vfs::InvalidIRIException>(u"a/b"), "QUORIN:storage:invalidIRI", {fl::ustring(u"a/b")}, "'a/b' is not a valid absolute IRI or absolute path."},
        {std::make_shared<vfs::UnsupportedIRISchemeException>(u"s3://b/k", u"s3"), "QUORIN:storage:unsupportedScheme", {fl::ustring(u"s3://b/k"), fl::ustring(u"s3")}, "No storage provider serves the scheme 's3' of 's3://b/k'."},
        {std::make_shared<fs::SystemError>(EIO, u"/x"), "QUORIN:filesystem:systemError", {fl::ustring(u"/x"), std::string("Input/output error"), std::int64_t{EIO}}, "System error for '/x': Input/output error (error 5)."},
        {std::make_shared<fs::PathNotFound>(u"/y"), "QUORIN:filesystem:pathNotFound", {fl::ustring(u"/y")}, "'/y' does not exist."},
        {std::make_shared<fs::AccessDenied>(u"/y"), "QUORIN:filesystem:accessDenied", {fl::ustring(u"/y")}, "Access denied: '/y'."},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const IMsgIDException& original = *row.error;
        EXPECT_TRUE(zkfs::test::matchesIdentifiedError(original, row.id, row.args));
        std::unique_ptr<IException> copy(original.clone());
        try {
            copy->rethrow();
        } catch (const IMsgIDException& e) {
            EXPECT_EQ(typeid(e), typeid(original));
            EXPECT_TRUE(zkfs::test::matchesIdentifiedError(e, row.id, row.args));
            const auto* standard = dynamic_cast<const std::exception*>(&e);
            ASSERT_NE(standard, nullptr);
            EXPECT_STREQ(standard->what(), row.what);
        }
    }
    try {
        std::unique_ptr<IException>(rows[2].error->clone())->rethrow();
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(std::tuple(e.getErrorCode(), e.getLocation().toString(), e.getSystemText()),
                  std::tuple(3, fl::ustring(x), std::string("File exists")));
    }
}

}  // namespace
