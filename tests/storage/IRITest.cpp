// IRIs: construction, percent-encoding, RFC 3986 resolution, parents, file paths.
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using fl::i18n::to_ustring;
using fl::i18n::to_utf8;
using foundation::storage::vfs::AbsoluteIRI;
using foundation::storage::vfs::fromAbsoluteIRI;
using foundation::storage::vfs::hasIRIPrefix;
using foundation::storage::vfs::InvalidIRIException;
using foundation::storage::vfs::toAbsoluteIRI;
using foundation::storage::vfs::UnsupportedIRISchemeException;

std::string text(const AbsoluteIRI& iri) { return to_utf8(iri.toString()); }

struct RoundTripRow {
    fl::ustring path;
    const char* iri;
};

TEST(FileIRIRoundTrip, PathToIRIAndBack) {
    const std::vector<RoundTripRow> rows = {
        {u"/", "file:///"},
        {u"/tmp/a b", "file:///tmp/a%20b"},
        {u"/tmp/100%", "file:///tmp/100%25"},
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
        const AbsoluteIRI iri = toAbsoluteIRI(u"file", row.path);
        EXPECT_EQ(text(iri), row.iri);
        EXPECT_EQ(fromAbsoluteIRI(iri), row.path);
        // The text parses back to the same IRI, and the absolute path reads the same way.
        const AbsoluteIRI reparsed(iri.toString());
        EXPECT_EQ(reparsed, iri);
        EXPECT_EQ(fromAbsoluteIRI(reparsed), row.path);
        EXPECT_EQ(AbsoluteIRI(row.path), iri);
    }
}

TEST(FileIRIRoundTrip, EmptyPathNamesNothing) {
    const AbsoluteIRI iri = toAbsoluteIRI(u"file", u"");
    EXPECT_EQ(text(iri), "file://");
    EXPECT_EQ(fromAbsoluteIRI(iri), u"");
    EXPECT_FALSE(iri.hasParent());
}

TEST(FileIRIRoundTrip, RelativePathIsRefused) {
    EXPECT_IDENTIFIED_ERROR(toAbsoluteIRI(u"file", u"a/b"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"a/b"));
    EXPECT_IDENTIFIED_ERROR(toAbsoluteIRI(u"f", u"/a"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"f"));
}

TEST(FileIRIRoundTrip, FromIRIChecksSchemeHostAndEscapes) {
    EXPECT_EQ(fromAbsoluteIRI(AbsoluteIRI(u"file://localhost/x%20y")), u"/x y");
    EXPECT_EQ(fromAbsoluteIRI(AbsoluteIRI(u"FILE:///x")), u"/x");
    try {
        (void)fromAbsoluteIRI(AbsoluteIRI(u"http://h/x"));
        ADD_FAILURE() << "no exception";
    } catch (const UnsupportedIRISchemeException& e) {
        EXPECT_EQ(e.getScheme(), u"http");
        EXPECT_EQ(e.getIRIString(), u"http://h/x");
        EXPECT_EQ(e.GetID(), "QUORIN:storage:unsupportedScheme");
    }
    for (const char16_t* bad : {u"file://server/share/x", u"file:///a%2Fb", u"file:///a%00b",
                                u"file://user@localhost/x"}) {
        SCOPED_TRACE(to_utf8(bad));
        EXPECT_IDENTIFIED_ERROR((void)fromAbsoluteIRI(AbsoluteIRI(bad)),
                                "QUORIN:storage:invalidIRI", fl::ustring(bad));
    }
}

TEST(AbsoluteIRIText, RawCharactersArePercentEncoded) {
    EXPECT_EQ(text(AbsoluteIRI(u"http://h/a b/\u00e4?q=\u00fc v#fr ag")),
              "http://h/a%20b/%C3%A4?q=%C3%BC%20v#fr%20ag");
    // A lone "%" is literal; a well-formed escape is kept as written.
    EXPECT_EQ(text(AbsoluteIRI(u"http://h/100%/x%41")), "http://h/100%25/x%41");
    // Only the first "#" starts the fragment.
    EXPECT_EQ(text(AbsoluteIRI(u"http://h/p#a#b")), "http://h/p#a%23b");
    EXPECT_EQ(text(AbsoluteIRI(u"mem://root/x")), "mem://root/x");
}

TEST(AbsoluteIRIText, PartsAreReported) {
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

TEST(AbsoluteIRIText, InvalidTextsThrowWithTheText) {
    for (const char16_t* bad : {u"", u"relative/path", u"name", u"C:\\x", u"C:/x", u"./a",
                                u"http://[::1/x", u"1abc://x", u"ht tp://x", u":nothing"}) {
        SCOPED_TRACE(to_utf8(bad));
        try {
            (void)AbsoluteIRI(fl::ustring(bad));
            ADD_FAILURE() << "accepted";
        } catch (const InvalidIRIException& e) {
            EXPECT_EQ(e.getInvalidIRIString(), bad);
            EXPECT_EQ(e.GetID(), "QUORIN:storage:invalidIRI");
        }
    }
}

TEST(IRIPrefix, SchemeOfTwoOrMoreCharactersAndSlashes) {
    const std::vector<std::pair<const char16_t*, bool>> rows = {
        {u"", false},          {u"http://a", true},     {u"s3://bucket/k", true},
        {u"file:///", true},   {u"mem://root", true},   {u"a+b.c-d://x", true},
        {u"C:\\x", false},     {u"c://x", false},       {u"a/b", false},
        {u"http:/x", false},   {u"1ab://x", false},     {u"://x", false},
        {u"/tmp/x://", false}, {u"h\u00e4://x", false}, {u"http:x", false},
    };
    for (const auto& [input, expected] : rows) {
        SCOPED_TRACE(to_utf8(input));
        EXPECT_EQ(hasIRIPrefix(input), expected);
    }
}

struct ResolutionRow {
    const char* reference;
    const char* expected;
};

// RFC 3986 section 5.4: base "http://a/b/c/d;p?q".
TEST(Resolution, RFC3986NormalExamples) {
    const AbsoluteIRI base(u"http://a/b/c/d;p?q");
    const std::vector<ResolutionRow> rows = {
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
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reference);
        EXPECT_EQ(text(AbsoluteIRI(base, to_ustring(row.reference))), row.expected);
    }
}

TEST(Resolution, RFC3986AbnormalExamples) {
    const AbsoluteIRI base(u"http://a/b/c/d;p?q");
    const std::vector<ResolutionRow> rows = {
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
        // Strict parsers take a reference with a scheme as it stands.
        {"http:g", "http:g"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reference);
        EXPECT_EQ(text(AbsoluteIRI(base, to_ustring(row.reference))), row.expected);
    }
}

TEST(Resolution, RootAndEncodingCases) {
    const AbsoluteIRI root(u"file:///");
    EXPECT_EQ(text(AbsoluteIRI(root, u"a b/\u00e4")), "file:///a%20b/%C3%A4");
    EXPECT_EQ(text(AbsoluteIRI(root, u"..")), "file:///");
    EXPECT_EQ(text(AbsoluteIRI(AbsoluteIRI(u"http://h"), u"x")), "http://h/x");
    // The base's fragment plays no part.
    EXPECT_EQ(text(AbsoluteIRI(AbsoluteIRI(u"http://h/a/b#f"), u"c")), "http://h/a/c");
    EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(root, u"http://[bad"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"http://[bad"));
}

TEST(Parents, ParentDropsLastSegmentQueryAndFragment) {
    struct Row {
        const char16_t* iri;
        const char* parent;  // nullptr: no parent
    };
    const std::vector<Row> rows = {
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
    for (const auto& row : rows) {
        SCOPED_TRACE(to_utf8(row.iri));
        const AbsoluteIRI iri(row.iri);
        ASSERT_EQ(iri.hasParent(), row.parent != nullptr);
        if (row.parent != nullptr) {
            EXPECT_EQ(text(iri.getParent()), row.parent);
        } else {
            try {
                (void)iri.getParent();
                ADD_FAILURE() << "a parent was made";
            } catch (const foundation::storage::vfs::Exception& e) {
                EXPECT_EQ(e.getErrorCode(), 1);
            }
        }
    }
}

TEST(Parents, ChildEncodesTheName) {
    EXPECT_EQ(text(AbsoluteIRI(u"file:///").getChild(u"a b")), "file:///a%20b");
    EXPECT_EQ(text(AbsoluteIRI(u"file:///d/").getChild(u"x/y#%")), "file:///d/x%2Fy%23%25");
    EXPECT_EQ(text(AbsoluteIRI(u"mem://root/d?q#f").getChild(u"\u00e4")), "mem://root/d/%C3%A4");
    EXPECT_EQ(AbsoluteIRI(u"file:///d").getChild(u"n\xDC80").getName(), u"n\xDC80");
}

}  // namespace
