// Path and URL analysis, one row per input and convention, edge rows first.
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "zkfs/test/Errors.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gtest/gtest.h>

namespace core = quorin::io::filesystem::core;
using core::FileSystemType;

namespace {

constexpr std::uint64_t none = core::PathComponents::noPort;

struct Row {
    const char16_t* input;
    FileSystemType type;
    bool isUrl;
    const char16_t* parent;
    const char16_t* name;
    const char16_t* extension;
    const char16_t* host;
    std::uint64_t port;
    const char16_t* query;
    const char16_t* fragment;
    const char16_t* pathType;
    bool absolute;
};

void check(const Row& r) {
    SCOPED_TRACE(fl::i18n::to_utf8(r.input) + " (type " + std::to_string(static_cast<int>(r.type)) +
                 ", isUrl " + std::to_string(r.isUrl) + ")");
    const fl::ustring input = r.input;
    const core::PathComponents c = core::getPathComponents(input, r.isUrl, r.type);
    EXPECT_EQ(c.parent, fl::ustring(r.parent));
    EXPECT_EQ(c.name, fl::ustring(r.name));
    EXPECT_EQ(c.extension, fl::ustring(r.extension));
    EXPECT_EQ(c.host, fl::ustring(r.host));
    EXPECT_EQ(c.port, r.port);
    EXPECT_EQ(c.query, fl::ustring(r.query));
    EXPECT_EQ(c.fragment, fl::ustring(r.fragment));
    EXPECT_EQ(core::getPathType(input, r.isUrl, r.type), fl::ustring(r.pathType));
    EXPECT_EQ(core::getIsAbsolute(input, r.isUrl, r.type), r.absolute);
}

constexpr auto U = FileSystemType::Unix;
constexpr auto W = FileSystemType::Windows;
constexpr auto S = FileSystemType::Schema;
constexpr auto N = FileSystemType::Native;

}  // namespace

TEST(PathComponents, UnixConvention) {
    const Row rows[] = {
        // input, type, isUrl, parent, name, extension, host, port, query, fragment, type, abs
        {u"", U, false, u"", u"", u"", u"", none, u"", u"", u"Local", false},
        {u".", U, false, u"", u".", u"", u"", none, u"", u"", u"Local", false},
        {u"..", U, false, u"", u"..", u"", u"", none, u"", u"", u"Local", false},
        {u"/", U, false, u"/", u"", u"", u"", none, u"", u"", u"Local", true},
        {u"//host", U, false, u"//", u"host", u"", u"", none, u"", u"", u"Local", true},
        {u"C:", U, false, u"", u"C:", u"", u"", none, u"", u"", u"Local", false},
        {u"C:\\x\\y.txt", U, false, u"", u"C:\\x\\y", u".txt", u"", none, u"", u"", u"Local",
         false},
        {u"/a/b.txt", U, false, u"/a", u"b", u".txt", u"", none, u"", u"", u"Local", true},
        {u"a/b.tar.gz", U, false, u"a", u"b.tar", u".gz", u"", none, u"", u"", u"Local", false},
        {u"/a/b/", U, false, u"/a", u"b", u"", u"", none, u"", u"", u"Local", true},
        {u"/a//b", U, false, u"/a", u"b", u"", u"", none, u"", u"", u"Local", true},
        {u"/home/.bashrc", U, false, u"/home", u".bashrc", u"", u"", none, u"", u"", u"Local",
         true},
        {u"..x", U, false, u"", u"..x", u"", u"", none, u"", u"", u"Local", false},
        {u".config.old", U, false, u"", u".config", u".old", u"", none, u"", u"", u"Local", false},
        {u"file.", U, false, u"", u"file", u".", u"", none, u"", u"", u"Local", false},
        {u"/a.d/b", U, false, u"/a.d", u"b", u"", u"", none, u"", u"", u"Local", true},
        {u"/données/été.csv", U, false, u"/données", u"été", u".csv", u"", none, u"", u"", u"Local",
         true},
        {u"/\xDCFF\xDCFE.bin", U, false, u"/", u"\xDCFF\xDCFE", u".bin", u"", none, u"", u"",
         u"Local", true},
        // A URL is read by URL rules whatever the convention.
        {u"http://h:8080/x.y", U, true, u"http://h:8080/", u"x", u".y", u"h", 8080, u"", u"",
         u"URL", true},
    };
    for (const Row& r : rows) check(r);
}

TEST(PathComponents, WindowsConvention) {
    const Row rows[] = {
        {u"", W, false, u"", u"", u"", u"", none, u"", u"", u"Local", false},
        {u".", W, false, u"", u".", u"", u"", none, u"", u"", u"Local", false},
        {u"//host", W, false, u"//host", u"", u"", u"host", none, u"", u"", u"UNC", true},
        {u"C:", W, false, u"C:", u"", u"", u"", none, u"", u"", u"Local", false},
        {u"C:\\", W, false, u"C:\\", u"", u"", u"", none, u"", u"", u"Local", true},
        {u"c:/", W, false, u"c:/", u"", u"", u"", none, u"", u"", u"Local", true},
        {u"C:a.txt", W, false, u"C:", u"a", u".txt", u"", none, u"", u"", u"Local", false},
        {u"C:\\Users\\a.txt", W, false, u"C:\\Users", u"a", u".txt", u"", none, u"", u"", u"Local",
         true},
        {u"C:/Users/a.txt", W, false, u"C:/Users", u"a", u".txt", u"", none, u"", u"", u"Local",
         true},
        {u"C:\\a", W, false, u"C:\\", u"a", u"", u"", none, u"", u"", u"Local", true},
        {u"\\x\\y", W, false, u"\\x", u"y", u"", u"", none, u"", u"", u"Local", false},
        {u"dir\\sub/f.tar", W, false, u"dir\\sub", u"f", u".tar", u"", none, u"", u"", u"Local",
         false},
        {u"\\\\server", W, false, u"\\\\server", u"", u"", u"server", none, u"", u"", u"UNC", true},
        {u"\\\\server\\share", W, false, u"\\\\server\\share", u"", u"", u"server", none, u"", u"",
         u"UNC", true},
        {u"\\\\server\\share\\dir\\f.txt", W, false, u"\\\\server\\share\\dir", u"f", u".txt",
         u"server", none, u"", u"", u"UNC", true},
        {u"\\\\server\\share\\f", W, false, u"\\\\server\\share\\", u"f", u"", u"server", none, u"",
         u"", u"UNC", true},
        {u"\\\\?\\C:\\long\\p.txt", W, false, u"\\\\?\\C:\\long", u"p", u".txt", u"", none, u"",
         u"", u"Local", true},
        {u"\\\\?\\UNC\\srv\\sh\\f", W, false, u"\\\\?\\UNC\\srv\\sh\\", u"f", u"", u"srv", none,
         u"", u"", u"UNC", true},
        {u"C:\\Données\\ファイル.txt", W, false, u"C:\\Données", u"ファイル", u".txt", u"", none,
         u"", u"", u"Local", true},
        {u"/unix/style", W, false, u"/unix", u"style", u"", u"", none, u"", u"", u"Local", false},
    };
    for (const Row& r : rows) check(r);
}

TEST(PathComponents, SchemaConvention) {
    const Row rows[] = {
        {u"", S, false, u"", u"", u"", u"", none, u"", u"", u"URL", false},
        {u".", S, false, u"", u".", u"", u"", none, u"", u"", u"URL", false},
        {u"//host", S, false, u"//host", u"", u"", u"host", none, u"", u"", u"URL", false},
        {u"C:", S, false, u"C:", u"", u"", u"", none, u"", u"", u"URL", true},
        {u"http://example.com:8080/a/b.txt?x=1&y=2#top", S, true, u"http://example.com:8080/a",
         u"b", u".txt", u"example.com", 8080, u"x=1&y=2", u"top", u"URL", true},
        {u"https://example.com", S, true, u"https://example.com", u"", u"", u"example.com", none,
         u"", u"", u"URL", true},
        {u"https://example.com/dir/", S, true, u"https://example.com/", u"dir", u"", u"example.com",
         none, u"", u"", u"URL", true},
        {u"http://host:/x", S, true, u"http://host:/", u"x", u"", u"host", none, u"", u"", u"URL",
         true},
        {u"http://user:pw@h:21/x", S, true, u"http://user:pw@h:21/", u"x", u"", u"h", 21, u"", u"",
         u"URL", true},
        {u"http://[::1]:99/f", S, true, u"http://[::1]:99/", u"f", u"", u"[::1]", 99, u"", u"",
         u"URL", true},
        {u"http://h/a?q", S, true, u"http://h/", u"a", u"", u"h", none, u"q", u"", u"URL", true},
        {u"http://h/a#f?g", S, true, u"http://h/", u"a", u"", u"h", none, u"", u"f?g", u"URL",
         true},
        {u"http://h/caf%C3%A9.txt", S, true, u"http://h/", u"caf%C3%A9", u".txt", u"h", none, u"",
         u"", u"URL", true},
        {u"http://h/dir/été.csv", S, true, u"http://h/dir", u"été", u".csv", u"h", none, u"", u"",
         u"URL", true},
        {u"s3://bucket/key/data.parquet", S, true, u"s3://bucket/key", u"data", u".parquet",
         u"bucket", none, u"", u"", u"URL", true},
        {u"file:///tmp/x.txt", S, true, u"file:///tmp", u"x", u".txt", u"", none, u"", u"", u"URL",
         true},
        {u"mailto:a@b.c", S, false, u"mailto:", u"a@b", u".c", u"", none, u"", u"", u"URL", true},
        {u"/a/b.c", S, false, u"/a", u"b", u".c", u"", none, u"", u"", u"URL", false},
        {u"1http:x", S, false, u"", u"1http:x", u"", u"", none, u"", u"", u"URL", false},
    };
    for (const Row& r : rows) check(r);
}

TEST(PathComponents, NativeConventionIsUnixOrUrl) {
    const Row rows[] = {
        {u"", N, false, u"", u"", u"", u"", none, u"", u"", u"Local", false},
        {u"/a/b.c", N, false, u"/a", u"b", u".c", u"", none, u"", u"", u"Local", true},
        {u"C:\\x", N, false, u"", u"C:\\x", u"", u"", none, u"", u"", u"Local", false},
        {u"\\\\server\\share", N, false, u"", u"\\\\server\\share", u"", u"", none, u"", u"",
         u"Local", false},
        {u"http://h:1/a.b", N, true, u"http://h:1/", u"a", u".b", u"h", 1, u"", u"", u"URL", true},
    };
    for (const Row& r : rows) check(r);
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
