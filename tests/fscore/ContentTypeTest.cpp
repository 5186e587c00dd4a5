// Media types by name and by content.
#include "quorin/io/filesystem/core/ContentType.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

namespace core = quorin::io::filesystem::core;

namespace {
const std::string png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\x02\0\0\0\x90wS\xde", 33);
}

TEST(ContentType, ByExtensionOwnTableFirstThenSystemTables) {
    struct Row {
        const char16_t* path;
        const char16_t* type;
    };
    const Row rows[] = {
        {u"data.parquet", u"application/vnd.apache.parquet"},
        {u"/x/DATA.PARQUET", u"application/vnd.apache.parquet"},
        // The system tables call HDF5 files plain "x-hdf"; ours is more precise.
        {u"a.h5", u"application/x-hdf5"},
        {u"a.csv", u"text/csv"},
        {u"notes.TXT", u"text/plain"},
        {u"a.json", u"application/json"},
        // A compound suffix wins over its last part.
        {u"a.spdx.json", u"application/spdx+json"},
        {u"Makefile", u"text/x-makefile"},
        {u"/src/archive.tar.gz", u"application/gzip"},
        {u"https://example.com/dir/file.json?download=1#x", u"application/json"},
        {u"http://h:bad/a.csv", u"text/csv"},
        {u"no-such-file.zzqq", u"application/octet-stream"},
        {u"", u"application/octet-stream"},
        {u".bashrc", u"application/octet-stream"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.path));
        EXPECT_EQ(core::getContentTypeCaller(r.path), fl::ustring(r.type));
    }
}

TEST(ContentType, FoldersAndContent) {
    zkfs::test::TempTree tree;
    tree.makeFolder("looks-like.txt");
    tree.makeFile("picture", png);
    tree.makeFile("script", "#!/bin/sh\necho hello\n");
    tree.makeFile("empty");
    tree.makeFile("wrong.csv", png);
    tree.makeLink("picture", "link-to-picture");

    EXPECT_EQ(core::getContentTypeCaller(tree.upath("looks-like.txt")), u"inode/directory");
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("")), u"inode/directory");
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("picture")), u"image/png");
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("link-to-picture")), u"image/png");
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("script")), u"text/x-shellscript");
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("empty")), u"application/octet-stream");
    // The name is trusted before the content.
    EXPECT_EQ(core::getContentTypeCaller(tree.upath("wrong.csv")), u"text/csv");

    const auto iri = [&](const char* name) {
        return foundation::storage::vfs::toAbsoluteIRI(u"file", tree.upath(name)).toString();
    };
    EXPECT_EQ(core::getContentTypeCaller(iri("looks-like.txt")), u"inode/directory");
    EXPECT_EQ(core::getContentTypeCaller(iri("picture")), u"image/png");
}

TEST(ContentType, NamesThatAreNotUtf8AreSniffedToo) {
    zkfs::test::TempTree tree;
    const std::string name = "\xff\xfe-picture";
    tree.makeFile(name, png);
    EXPECT_EQ(core::getContentTypeCaller(fl::i18n::to_ustring(tree.path(name).string())),
              u"image/png");
}
