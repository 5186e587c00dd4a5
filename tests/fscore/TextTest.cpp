// Path and URL analysis, one row per input and convention, edge rows first.
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gtest/gtest.h>

#include <string>

namespace core = quorin::io::filesystem::core;
using core::FileSystemType;

namespace {

constexpr std::uint64_t none = core::PathComponents::noPort;

// "parent|name|extension", then " @host:port?query#fragment" when any of those is set.
fl::ustring summary(const core::PathComponents& c) {
    fl::ustring s = c.parent + u'|' + c.name + u'|' + c.extension;
    if (!c.host.empty() || c.port != none || !c.query.empty() || !c.fragment.empty())
        s += u" @" + c.host + u':' +
             (c.port == none ? fl::ustring() : fl::i18n::to_ustring(std::to_string(c.port))) +
             u'?' + c.query + u'#' + c.fragment;
    return s;
}

}  // namespace

TEST(PathComponents, EveryConvention) {
    constexpr auto U = FileSystemType::Unix;
    constexpr auto W = FileSystemType::Windows;
    constexpr auto S = FileSystemType::Schema;
    constexpr auto N = FileSystemType::Native;
    struct Row {
        const char16_t* input;
        FileSystemType type;
        bool isUrl;
        const char16_t* components;
        const char16_t* pathType;
        bool absolute;
    };
    const Row rows[] = {
        {u"", U, false, u"||", u"Local", false},
        {u".", U, false, u"|.|", u"Local", false},
        {u"..", U, false, u"|..|", u"Local", false},
        {u"/", U, false, u"/||", u"Local", true},
        {u"//host", U, false, u"//|host|", u"Local", true},
        {u"C:", U, false, u"|C:|", u"Local", false},
        {u"C:\\x\\y.txt", U, false, u"|C:\\x\\y|.txt", u"Local", false},
        {u"/a/b.txt", U, false, u"/a|b|.txt", u"Local", true},
        {u"a/b.tar.gz", U, false, u"a|b.tar|.gz", u"Local", false},
        {u"/a/b/", U, false, u"/a|b|", u"Local", true},
        {u"/a//b", U, false, u"/a|b|", u"Local", true},
        {u"/home/.bashrc", U, false, u"/home|.bashrc|", u"Local", true},
        {u"..x", U, false, u"|..x|", u"Local", false},
        {u".config.old", U, false, u"|.config|.old", u"Local", false},
        {u"file.", U, false, u"|file|.", u"Local", false},
        {u"/a.d/b", U, false, u"/a.d|b|", u"Local", true},
        {u"/données/été.csv", U, false, u"/données|été|.csv", u"Local", true},
        {u"/\xDCFF\xDCFE.bin", U, false, u"/|\xDCFF\xDCFE|.bin", u"Local", true},
        // A URL is read by URL rules whatever the convention.
        {u"http://h:8080/x.y", U, true, u"http://h:8080/|x|.y @h:8080?#", u"URL", true},

        {u"", W, false, u"||", u"Local", false},
        {u".", W, false, u"|.|", u"Local", false},
        {u"//host", W, false, u"//host|| @host:?#", u"UNC", true},
        {u"C:", W, false, u"C:||", u"Local", false},
        {u"C:\\", W, false, u"C:\\||", u"Local", true},
        {u"c:/", W, false, u"c:/||", u"Local", true},
        {u"C:a.txt", W, false, u"C:|a|.txt", u"Local", false},
        {u"C:\\Users\\a.txt", W, false, u"C:\\Users|a|.txt", u"Local", true},
        {u"C:/Users/a.txt", W, false, u"C:/Users|a|.txt", u"Local", true},
        {u"C:\\a", W, false, u"C:\\|a|", u"Local", true},
        {u"\\x\\y", W, false, u"\\x|y|", u"Local", false},
        {u"dir\\sub/f.tar", W, false, u"dir\\sub|f|.tar", u"Local", false},
        {u"\\\\server", W, false, u"\\\\server|| @server:?#", u"UNC", true},
        {u"\\\\server\\share", W, false, u"\\\\server\\share|| @server:?#", u"UNC", true},
        {u"\\\\server\\share\\dir\\f.txt", W, false, u"\\\\server\\share\\dir|f|.txt @server:?#",
         u"UNC", true},
        {u"\\\\server\\share\\f", W, false, u"\\\\server\\share\\|f| @server:?#", u"UNC", true},
        {u"\\\\?\\C:\\long\\p.txt", W, false, u"\\\\?\\C:\\long|p|.txt", u"Local", true},
        {u"\\\\?\\UNC\\srv\\sh\\f", W, false, u"\\\\?\\UNC\\srv\\sh\\|f| @srv:?#", u"UNC", true},
        {u"C:\\Données\\ファイル.txt", W, false, u"C:\\Données|ファイル|.txt", u"Local", true},
        {u"/unix/style", W, false, u"/unix|style|", u"Local", false},

        {u"", S, false, u"||", u"URL", false},
        {u".", S, false, u"|.|", u"URL", false},
        {u"//host", S, false, u"//host|| @host:?#", u"URL", false},
        {u"C:", S, false, u"C:||", u"URL", true},
        {u"http://example.com:8080/a/b.txt?x=1&y=2#top", S, true,
         u"http://example.com:8080/a|b|.txt @example.com:8080?x=1&y=2#top", u"URL", true},
        {u"https://example.com", S, true, u"https://example.com|| @example.com:?#", u"URL", true},
        {u"https://example.com/dir/", S, true, u"https://example.com/|dir| @example.com:?#", u"URL",
         true},
        {u"http://host:/x", S, true, u"http://host:/|x| @host:?#", u"URL", true},
        {u"http://user:pw@h:21/x", S, true, u"http://user:pw@h:21/|x| @h:21?#", u"URL", true},
        {u"http://[::1]:99/f", S, true, u"http://[::1]:99/|f| @[::1]:99?#", u"URL", true},
        {u"http://h/a?q", S, true, u"http://h/|a| @h:?q#", u"URL", true},
        {u"http://h/a#f?g", S, true, u"http://h/|a| @h:?#f?g", u"URL", true},
        {u"http://h/caf%C3%A9.txt", S, true, u"http://h/|caf%C3%A9|.txt @h:?#", u"URL", true},
        {u"http://h/dir/été.csv", S, true, u"http://h/dir|été|.csv @h:?#", u"URL", true},
        {u"s3://bucket/key/data.parquet", S, true, u"s3://bucket/key|data|.parquet @bucket:?#",
         u"URL", true},
        {u"file:///tmp/x.txt", S, true, u"file:///tmp|x|.txt", u"URL", true},
        {u"mailto:a@b.c", S, false, u"mailto:|a@b|.c", u"URL", true},
        {u"/a/b.c", S, false, u"/a|b|.c", u"URL", false},
        {u"1http:x", S, false, u"|1http:x|", u"URL", false},

        // Native is this platform's own convention, or URL rules for a URL.
        {u"/a/b.c", N, false, u"/a|b|.c", u"Local", true},
        {u"C:\\x", N, false, u"|C:\\x|", u"Local", false},
        {u"\\\\server\\share", N, false, u"|\\\\server\\share|", u"Local", false},
        {u"http://h:1/a.b", N, true, u"http://h:1/|a|.b @h:1?#", u"URL", true},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.input) + " (type " +
                     std::to_string(static_cast<int>(r.type)) + ", isUrl " +
                     std::to_string(r.isUrl) + ")");
        EXPECT_EQ(summary(core::getPathComponents(r.input, r.isUrl, r.type)),
                  fl::ustring(r.components));
        EXPECT_EQ(core::getPathType(r.input, r.isUrl, r.type), fl::ustring(r.pathType));
        EXPECT_EQ(core::getIsAbsolute(r.input, r.isUrl, r.type), r.absolute);
    }
}

TEST(PathComponents, BadPortIsAnIdentifiedError) {
    for (const char16_t* url :
         {u"http://h:99999/", u"http://h:8a/", u"http://h:-1/", u"http://[::1]x/"}) {
        SCOPED_TRACE(fl::i18n::to_utf8(url));
        EXPECT_IDENTIFIED_ERROR(core::getPathComponents(url, true, FileSystemType::Schema),
                                "QUORIN:io:filesystem:core:InvalidURLPort", fl::ustring(url));
        // The other two queries do not read the port.
        EXPECT_EQ(core::getPathType(url, true, FileSystemType::Schema), u"URL");
        EXPECT_TRUE(core::getIsAbsolute(url, true, FileSystemType::Schema));
    }
    EXPECT_EQ(core::getPathComponents(u"http://h:65535/", true, FileSystemType::Schema).port,
              65535U);
    EXPECT_EQ(core::getPathComponents(u"http://h:0/", true, FileSystemType::Schema).port, 0U);
}
