// What the core reads and makes in a real tree: resolution per option with attributes,
// existence classes, links and their parent folders, media types.
#include "Posix.hpp"
#include "quorin/io/filesystem/core/ContentType.hpp"
#include "quorin/io/filesystem/core/Existence.hpp"
#include "quorin/io/filesystem/core/Links.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/File.hpp"
#include "foundation/storage/vfs/Folder.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
using core::ResolveSymbolicLinks;
using foundation::storage::provider::ExistenceTypeExtended;
using namespace core::PathType;

namespace {

core::ResolvePathOptions options(bool follow, bool localFromFile = false, bool cased = false) {
    return {follow, localFromFile, cased};
}
const core::ResolvePathOptions off = options(false), follow = options(true);

// The input and its options as "follow local cased" bits.
std::string describe(const fl::ustring& input, const core::ResolvePathOptions& o) {
    return fl::i18n::to_utf8(input) + " options " + std::to_string(o.ResolveSymbolicLinks) +
           std::to_string(o.LocalPathFromFileScheme) +
           std::to_string(o.CaseCorrectAndResolveOnWindows);
}

// "type rw size dated" of a result: "-" for a missing right; "undated" for not-a-date-time.
std::string attributesOf(const core::ResolvePathResultWithAttributes& a) {
    const char* const types[] = {"file", "folder", "link", "none"};
    return std::string(a.type >= 0 && a.type < 4 ? types[a.type] : "?") + ' ' +
           (a.readable ? 'r' : '-') + (a.writable ? 'w' : '-') + ' ' + std::to_string(a.size) +
           (a.lastModified.is_not_a_date_time() ? " undated"
            : a.lastModified.is_special()       ? " special"
                                                : " dated");
}

// The call throws a storage error with this code, located at `where` unless that is empty,
// and with this system text when one is given.
void expectStorageError(const std::function<void()>& call, int code, const fl::ustring& where,
                        const char* systemText = nullptr) {
    try {
        call();
        ADD_FAILURE() << "no exception";
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(e.getErrorCode(), code);
        if (!where.empty()) {
            EXPECT_EQ(vfs::fromAbsoluteIRI(e.getLocation()), where);
        }
        if (systemText != nullptr) {
            EXPECT_EQ(e.getSystemText(), systemText);
        }
    }
}

const std::string png("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\1\0\0\0\1\x08\x02\0\0\0\x90wS\xde", 33);

// Every test runs from the tree's root, so relative inputs are read from there.
class Tree : public ::testing::Test {
protected:
    void SetUp() override {
        tree.makeFile("dir/f.txt", "hello");
        tree.makeFolder("dir/sub");
        tree.makeLink("f.txt", "dir/linkToFile");
        tree.makeLink("sub", "dir/linkToFolder");
        tree.makeLink("missing", "dir/dangling");
        tree.makeLink("loopB", "dir/loopA");
        tree.makeLink("loopA", "dir/loopB");
        std::filesystem::current_path(tree.root());
    }
    void TearDown() override { std::filesystem::current_path(saved); }
    // TempTree::snapshot() cannot yet list a link cycle.
    void dropLoop() {
        std::filesystem::remove(tree.path("dir/loopA"));
        std::filesystem::remove(tree.path("dir/loopB"));
    }
    [[nodiscard]] fl::ustring at(const char* name) const { return tree.upath(name); }
    [[nodiscard]] fl::ustring file(const char* name) const {
        return vfs::toAbsoluteIRI(u"file", tree.upath(name)).toString();
    }

    const std::filesystem::path saved = std::filesystem::current_path();
    zkfs::test::TempTree tree;
};
using ResolvePath = Tree;
using Existence = Tree;
using Links = Tree;
using ContentType = Tree;

}  // namespace

TEST_F(ResolvePath, WhatAPathNamesPerOption) {
    tree.makeFile("dir/..x");
    tree.makeFile("dir/x (deleted)");
    tree.makeFile("dir/a b#c.txt");
    tree.makeFile("dir/\xff\xfe-name.txt");
    ASSERT_NE(file("dir/a b#c.txt").find(u"%20"), fl::ustring::npos);
    struct Row {
        fl::ustring input;
        core::ResolvePathOptions options;
        fl::ustring path;
        std::int32_t type;
    };
    std::vector<Row> rows = {
        {at("dir/f.txt"), off, at("dir/f.txt"), File},
        {at("dir/sub"), off, at("dir/sub"), Folder},
        {at("dir/linkToFile"), off, at("dir/linkToFile"), SymbolicLink},
        {at("dir/linkToFolder"), off, at("dir/linkToFolder"), SymbolicLink},
        // Resolving gives the canonical target, for a link anywhere on the path.
        {at("dir/linkToFile"), follow, at("dir/f.txt"), File},
        {at("dir/linkToFolder"), follow, at("dir/sub"), Folder},
        {at("dir/sub/../f.txt"), follow, at("dir/f.txt"), File},
        {at("dir/linkToFolder/../f.txt"), follow, at("dir/f.txt"), File},
        // Names that only look like "..", or like the kernel's mark for a removed file.
        {at("dir/sub/../..x"), follow, at("dir/..x"), File},
        {at("dir/x (deleted)"), follow, at("dir/x (deleted)"), File},
        {at("dir/\xff\xfe-name.txt"), follow, at("dir/\xff\xfe-name.txt"), File},
        // Relative paths are made absolute and cleaned; ".." stays, it may follow a link.
        {u"./dir/f.txt", off, at("dir/f.txt"), File},
        {u"dir/sub//./", off, at("dir/sub"), Folder},
        {u"dir/linkToFolder/../f.txt", off, at("dir/linkToFolder/../f.txt"), File},
        {u"dir/linkToFile", follow, at("dir/f.txt"), File},
        // Names are exact here: case correction changes nothing.
        {at("dir/linkToFile"), options(false, false, true), at("dir/linkToFile"), SymbolicLink},
        {at("DIR/f.txt"), options(false, false, true), u"", None},
        // file: IRIs answer as IRIs, or as local paths on request.
        {file("dir/a b#c.txt"), off, file("dir/a b#c.txt"), File},
        {file("dir/a b#c.txt"), options(false, true), at("dir/a b#c.txt"), File},
        {file("dir/linkToFile"), options(false, true), at("dir/linkToFile"), SymbolicLink},
        {file("dir/linkToFile"), options(true, true), at("dir/f.txt"), File},
        {file("dir/linkToFile"), follow, file("dir/f.txt"), File},
        {file("dir/nope"), off, u"", None},
    };
    for (const char* name : {"dir/missing", "dir/dangling", "dir/loopA", "dir/f.txt/below", ""})
        for (const auto& o : {off, follow}) rows.push_back({*name ? at(name) : u"", o, u"", None});
    for (const Row& r : rows) {
        SCOPED_TRACE(describe(r.input, r.options));
        const core::ResolvePathResult result = core::resolvePath(r.input, r.options);
        EXPECT_EQ(result.path, r.path);
        EXPECT_EQ(result.type, r.type);
    }
}

TEST_F(ResolvePath, UnsupportedSchemesAndBadIRIsThrowStorageExceptions) {
    EXPECT_THROW(core::resolvePath(u"nosuchscheme://host/x", {}),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_THROW(core::resolvePath(u"http://[::1/x", {}), vfs::Exception);
}

TEST_F(ResolvePath, AttributesFollowLinksAndComeFromTheProviderForOtherSchemes) {
    tree.makeFile("dir/five", "12345");
    // 2001-02-03 04:05:06.789123456 UTC; microseconds are kept, the rest truncated.
    const struct timespec times[2] = {{981173106, 789123456}, {981173106, 789123456}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree.path("dir/five").c_str(), times, 0), 0);
    EXPECT_EQ(boost::posix_time::to_iso_extended_string(
                  core::resolvePathWithAttributes(at("dir/five"), {}).lastModified),
              "2001-02-03T04:05:06.789123");
    foundation::storage::provider::resetMemStorage();
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    vfs::Folder(vfs::AbsoluteIRI(u"mem://root/data"), storage).createFolderRecursive();
    vfs::File(vfs::AbsoluteIRI(u"mem://root/data/x.csv"), storage).createFile();
    // Input, answered path, attributes.
    const std::tuple<fl::ustring, fl::ustring, const char*> rows[] = {
        {at("dir/five"), at("dir/five"), "file rw 5 dated"},
        {at("dir/sub"), at("dir/sub"), "folder rw 0 dated"},
        // Attributes follow the link, as an open of it would: the size is that of "hello".
        {at("dir/linkToFile"), at("dir/linkToFile"), "link rw 5 dated"},
        {at("dir/missing"), u"", "none -- 0 undated"},
        {at("dir/dangling"), u"", "none -- 0 undated"},
        {u"mem://root/data/x.csv", u"mem://root/data/x.csv", "file rw 0 dated"},
        {u"mem://root/data", u"mem://root/data", "folder rw 0 dated"},
        {u"mem://root/data/none", u"", "none -- 0 undated"},
    };
    for (const auto& [input, path, attributes] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(input));
        const auto a = core::resolvePathWithAttributes(input, {});
        EXPECT_EQ(a.path, path);
        EXPECT_EQ(attributesOf(a), attributes);
    }
    foundation::storage::provider::resetMemStorage();
}

TEST_F(ResolvePath, ReadableAndWritableAreThoseOfTheCaller) {
    tree.makeFile("dir/readonly", "r");
    tree.makeFile("dir/writeonly", "w");
    tree.setMode("dir/readonly", 0444);
    tree.setMode("dir/writeonly", 0222);
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.makeLink("readonly", "dir/linkToReadonly");
    // Path, readable, writable.
    const std::tuple<fl::ustring, bool, bool> rows[] = {
        {at("dir/readonly"), true, false},
        {at("dir/writeonly"), false, true},
        // A link answers for its target, not for itself (links are always 0777).
        {at("dir/linkToReadonly"), true, false},
        {at("dir"), true, true},
    };
    zkfs::test::runUnprivileged([&] {
        for (const auto& [path, readable, writable] : rows)
            for (const auto& o : {off, follow}) {
                SCOPED_TRACE(describe(path, o));
                const auto a = core::resolvePathWithAttributes(path, o);
                EXPECT_EQ(a.readable, readable);
                EXPECT_EQ(a.writable, writable);
            }
    });
}

TEST_F(ResolvePath, AFolderThatCannotBeSearchedIsPermissionDenied) {
    tree.makeFile("locked/inside", "x");
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.setMode("locked", 0);
    const fl::ustring inside = at("locked/inside");
    zkfs::test::runUnprivileged([&] {
        expectStorageError([&] { (void)core::resolvePath(inside, {}); },
                           vfs::Exception::PermissionDenied, inside);
    });
}

namespace {
// Every way the core looks at the file fails, whichever it takes first.
int failStatWithEIO(const char* operation, const std::string& path) {
    const bool look = std::strcmp(operation, "stat") == 0 || std::strcmp(operation, "lstat") == 0 ||
                      std::strcmp(operation, "realpath") == 0;
    return look && path.find("/dir/f.txt") != std::string::npos ? EIO : 0;
}
}  // namespace

TEST_F(ResolvePath, OtherSystemFailuresAreCode5WithTheSystemText) {
    const auto previous = core::posix::setFaultHook(&failStatWithEIO);
    for (const auto& o : {off, follow}) {
        SCOPED_TRACE(describe(u"", o));
        expectStorageError([&] { (void)core::resolvePath(at("dir/f.txt"), o); },
                           vfs::Exception::OtherIOError, {}, std::strerror(EIO));
    }
    // Other paths are untouched by the fault.
    EXPECT_EQ(core::resolvePath(at("dir/sub"), {}).type, Folder);
    core::posix::setFaultHook(previous);
}

TEST_F(ResolvePath, SetupForURLConstructionResolvesLinksByMode) {
    struct Row {
        fl::ustring input;
        ResolveSymbolicLinks mode;
        fl::ustring expected;
        bool isIri;
    };
    const Row rows[] = {
        {u"https://example.com/a%20b", ResolveSymbolicLinks::AllButLast,
         u"https://example.com/a%20b", true},
        {u"", ResolveSymbolicLinks::AllButLast, u"", false},
        {u"/", ResolveSymbolicLinks::AllButLast, u"/", false},
        {u"dir/./linkToFolder//new/x.txt", ResolveSymbolicLinks::None,
         at("dir/linkToFolder/new/x.txt"), false},
        {u"dir/linkToFolder/new/x.txt", ResolveSymbolicLinks::AllButLast, at("dir/sub/new/x.txt"),
         false},
        {u"dir/linkToFolder/new/x.txt", ResolveSymbolicLinks::All, at("dir/sub/new/x.txt"), false},
        // The last component is the link itself in mode 2, its target in mode 1.
        {u"dir/linkToFile", ResolveSymbolicLinks::AllButLast, at("dir/linkToFile"), false},
        {u"dir/linkToFile", ResolveSymbolicLinks::All, at("dir/f.txt"), false},
        {u"dir/dangling", ResolveSymbolicLinks::AllButLast, at("dir/dangling"), false},
        {u"dir/f.txt/below", ResolveSymbolicLinks::All, at("dir/f.txt/below"), false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(r.input) + " mode " +
                     std::to_string(static_cast<int>(r.mode)));
        fl::ustring path = r.input;
        EXPECT_EQ(core::setupPathForURLConstruction(path, r.mode, false), r.isIri);
        EXPECT_EQ(path, r.expected);
    }
}

TEST_F(ResolvePath, SetupForURLConstructionCanRequireExistence) {
    fl::ustring missing = at("dir/none/x");
    expectStorageError(
        [&] {
            (void)core::setupPathForURLConstruction(missing, ResolveSymbolicLinks::AllButLast,
                                                    true);
        },
        vfs::Exception::NotFound, {});
    EXPECT_EQ(missing, at("dir/none/x"));
    // A dangling link is there: its name exists.
    fl::ustring dangling = at("dir/dangling");
    EXPECT_FALSE(
        core::setupPathForURLConstruction(dangling, ResolveSymbolicLinks::AllButLast, true));
}

TEST_F(Existence, ClassesOfLocalNamesAndIRIsWithTheirPredicates) {
    struct Row {
        const char* name;
        ExistenceTypeExtended expected;
        bool file, folder, link;
    };
    const Row rows[] = {
        {"dir/f.txt", ExistenceTypeExtended::File, true, false, false},
        {"dir/sub", ExistenceTypeExtended::Folder, false, true, false},
        {"dir/linkToFile", ExistenceTypeExtended::SymbolicLinkToFile, false, false, true},
        {"dir/linkToFolder", ExistenceTypeExtended::SymbolicLinkToFolder, false, false, true},
        {"dir/dangling", ExistenceTypeExtended::BrokenSymbolicLink, false, false, true},
        {"dir/loopA", ExistenceTypeExtended::BrokenSymbolicLink, false, false, true},
        {"dir/missing", ExistenceTypeExtended::DoesNotExist, false, false, false},
        {"dir/f.txt/below", ExistenceTypeExtended::DoesNotExist, false, false, false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(core::getExtendedExistenceType(at(r.name)), r.expected);
        // IRIs go through the storage provider, which must agree.
        EXPECT_EQ(core::getExtendedExistenceType(file(r.name)), r.expected);
        EXPECT_EQ(core::isFile(r.expected), r.file);
        EXPECT_EQ(core::isFolder(r.expected), r.folder);
        EXPECT_EQ(core::isSymlink(r.expected), r.link);
    }
    EXPECT_EQ(core::getExtendedExistenceType(u""), ExistenceTypeExtended::DoesNotExist);
    // Below a link cycle nothing can exist.
    EXPECT_EQ(core::getExtendedExistenceType(at("dir/loopA/below")),
              ExistenceTypeExtended::DoesNotExist);
    // The platform's code is what status reports for a link that cannot be followed.
    try {
        (void)fl::filesystem::status(at("dir/dangling"));
        ADD_FAILURE() << "no exception";
    } catch (const fl::filesystem::SystemError& e) {
        EXPECT_EQ(e.code(), core::platformSpecificErrorCode());
    }
}

TEST_F(Links, TheTargetIsStoredExactlyAsGiven) {
    const std::string targets[] = {"f.txt", "./../dir//f.txt", "does-not-exist", "\xff\xfe"};
    for (const std::string& target : targets) {
        SCOPED_TRACE(target);
        const std::string link = "dir/link-" + std::to_string(&target - targets);
        core::createSymbolicLink(fl::i18n::to_ustring(target), at(link.c_str()));
        EXPECT_EQ(std::filesystem::read_symlink(tree.path(link)).native(), target);
    }
    // A relative target is read from the link's folder.
    EXPECT_TRUE(std::filesystem::is_regular_file(tree.path("dir/link-0")));
}

TEST_F(Links, FailuresAreStorageErrorsAtTheLinkAndChangeNothing) {
    dropLoop();
    const auto before = tree.snapshot();
    const std::pair<fl::ustring, int> rows[] = {
        {at("dir/f.txt"), vfs::Exception::AlreadyExists},
        {at("dir/dangling"), vfs::Exception::AlreadyExists},
        {at("missing/link"), vfs::Exception::NotFound},
        {at("dir/f.txt/below"), vfs::Exception::NotFound},
        {u"", vfs::Exception::NotFound},
    };
    for (const auto& [link, code] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(link));
        expectStorageError([&] { core::createSymbolicLink(u"x", link); }, code, link);
    }
    EXPECT_EQ(tree.snapshot(), before);
}

TEST_F(Links, AFolderThatMayNotChangeIsPermissionDenied) {
    tree.makeFolder("ro");
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.setMode("ro", 0555);
    const fl::ustring link = at("ro/link");
    zkfs::test::runUnprivileged([&] {
        expectStorageError([&] { core::createSymbolicLink(u"x", link); },
                           vfs::Exception::PermissionDenied, link);
    });
    EXPECT_FALSE(std::filesystem::is_symlink(tree.path("ro/link")));
}

TEST_F(Links, CreateParentIfNeededMakesEveryMissingLevelOnly) {
    dropLoop();
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", at("a/b/c/link")), storage);
    EXPECT_TRUE(std::filesystem::is_directory(tree.path("a/b/c")));
    EXPECT_FALSE(std::filesystem::exists(tree.path("a/b/c/link")));
    // An existing parent, whatever it is, is left for the later creation to report on.
    const auto before = tree.snapshot();
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", at("a/b/c/link")), storage);
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", at("dir/f.txt/link")), storage);
    core::createParentIfNeeded(vfs::AbsoluteIRI(u"file:///"), storage);
    EXPECT_EQ(tree.snapshot(), before);

    foundation::storage::provider::resetMemStorage();
    core::createParentIfNeeded(vfs::AbsoluteIRI(u"mem://root/x/y/z.txt"), storage);
    EXPECT_NO_THROW(vfs::File(vfs::AbsoluteIRI(u"mem://root/x/y/z.txt"), storage).createFile());
    foundation::storage::provider::resetMemStorage();
}

TEST_F(ContentType, ByNameThenByContent) {
    tree.makeFolder("looks-like.txt");
    tree.makeFile("picture", png);
    tree.makeFile("\xff\xfe-picture", png);
    tree.makeFile("script", "#!/bin/sh\necho hello\n");
    tree.makeFile("empty");
    tree.makeFile("wrong.csv", png);
    tree.makeLink("picture", "link-to-picture");
    const std::pair<fl::ustring, const char16_t*> rows[] = {
        {u"data.parquet", u"application/vnd.apache.parquet"},
        {u"/x/DATA.PARQUET", u"application/vnd.apache.parquet"},
        // The system tables call HDF5 files plain "x-hdf"; ours is more precise.
        {u"a.h5", u"application/x-hdf5"},
        {u"a.csv", u"text/csv"},
        {u"notes.TXT", u"text/plain"},
        // A compound suffix wins over its last part.
        {u"a.spdx.json", u"application/spdx+json"},
        {u"Makefile", u"text/x-makefile"},
        {u"/src/archive.tar.gz", u"application/gzip"},
        {u"https://example.com/dir/file.json?download=1#x", u"application/json"},
        {u"http://h:bad/a.csv", u"text/csv"},
        {u"no-such-file.zzqq", u"application/octet-stream"},
        {u"", u"application/octet-stream"},
        {u".bashrc", u"application/octet-stream"},
        // Existing folders first, whatever their name; content only when the name says nothing.
        {at("looks-like.txt"), u"inode/directory"},
        {at(""), u"inode/directory"},
        {file("looks-like.txt"), u"inode/directory"},
        {at("picture"), u"image/png"},
        {at("\xff\xfe-picture"), u"image/png"},
        {at("link-to-picture"), u"image/png"},
        {file("picture"), u"image/png"},
        {at("script"), u"text/x-shellscript"},
        {at("empty"), u"application/octet-stream"},
        {at("wrong.csv"), u"text/csv"},
    };
    for (const auto& [path, type] : rows) {
        SCOPED_TRACE(fl::i18n::to_utf8(path));
        EXPECT_EQ(core::getContentTypeCaller(path), fl::ustring(type));
    }
}
