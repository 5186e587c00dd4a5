// Resolution of local paths, file IRIs and other schemes, per option, with attributes.
#include "Posix.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
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
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
using core::ResolveSymbolicLinks;
using namespace core::PathType;

namespace {

core::ResolvePathOptions options(bool follow, bool localFromFile = false, bool cased = false) {
    return {follow, localFromFile, cased};
}
const core::ResolvePathOptions off = options(false), follow = options(true);

std::string describe(const fl::ustring& input, const core::ResolvePathOptions& o) {
    return fl::i18n::to_utf8(input) + " follow=" + std::to_string(o.ResolveSymbolicLinks) +
           " local=" + std::to_string(o.LocalPathFromFileScheme) +
           " cased=" + std::to_string(o.CaseCorrectAndResolveOnWindows);
}

// Every test runs from the tree's root, so relative inputs are read from there.
class ResolvePath : public ::testing::Test {
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
    [[nodiscard]] fl::ustring at(const char* name) const { return tree.upath(name); }
    [[nodiscard]] fl::ustring file(const char* name) const {
        return vfs::toAbsoluteIRI(u"file", tree.upath(name)).toString();
    }

    const std::filesystem::path saved = std::filesystem::current_path();
    zkfs::test::TempTree tree;
};

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
        {at("dir/..x"), follow, at("dir/..x"), File},
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
    EXPECT_THROW(core::resolvePathWithAttributes(u"nosuchscheme://host/x", {}),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_THROW(core::resolvePath(u"http://[::1/x", {}), vfs::InvalidIRIException);
}

TEST_F(ResolvePath, OtherSchemesGoThroughTheirProvider) {
    foundation::storage::provider::resetMemStorage();
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    vfs::Folder(vfs::AbsoluteIRI(u"mem://root/data"), storage).createFolderRecursive();
    vfs::File(vfs::AbsoluteIRI(u"mem://root/data/x.csv"), storage).createFile();
    EXPECT_EQ(core::resolvePath(u"mem://root/data/none", {}).type, None);
    EXPECT_EQ(core::resolvePath(u"mem://root/data/none", {}).path, u"");
    const auto x = core::resolvePathWithAttributes(u"mem://root/data/x.csv", {});
    EXPECT_EQ(x.path, u"mem://root/data/x.csv");
    EXPECT_EQ(x.type, File);
    EXPECT_TRUE(x.readable && x.writable);
    EXPECT_EQ(x.size, 0);
    EXPECT_FALSE(x.lastModified.is_special());
    const auto folder = core::resolvePathWithAttributes(u"mem://root/data", {});
    EXPECT_EQ(folder.path, u"mem://root/data");
    EXPECT_EQ(folder.type, Folder);
    EXPECT_EQ(folder.size, 0);
    EXPECT_TRUE(folder.readable);
    foundation::storage::provider::resetMemStorage();
}

TEST_F(ResolvePath, AttributesOfFilesFoldersLinksAndNothing) {
    tree.makeFile("dir/five", "12345");
    // 2001-02-03 04:05:06.789123456 UTC; microseconds are kept, the rest truncated.
    const struct timespec times[2] = {{981173106, 789123456}, {981173106, 789123456}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree.path("dir/five").c_str(), times, 0), 0);
    const auto five = core::resolvePathWithAttributes(at("dir/five"), {});
    EXPECT_EQ(five.path, at("dir/five"));
    EXPECT_EQ(five.type, File);
    EXPECT_TRUE(five.readable && five.writable);
    EXPECT_EQ(five.size, 5);
    EXPECT_EQ(boost::posix_time::to_iso_extended_string(five.lastModified),
              "2001-02-03T04:05:06.789123");
    const auto sub = core::resolvePathWithAttributes(at("dir/sub"), {});
    EXPECT_EQ(sub.type, Folder);
    EXPECT_EQ(sub.size, 0);
    // Attributes follow the link, as an open of it would.
    const auto link = core::resolvePathWithAttributes(at("dir/linkToFile"), {});
    EXPECT_EQ(link.type, SymbolicLink);
    EXPECT_EQ(link.size, 5 /* "hello" */);
    for (const char* name : {"dir/missing", "dir/dangling"}) {
        SCOPED_TRACE(name);
        const auto nothing = core::resolvePathWithAttributes(at(name), {});
        EXPECT_EQ(nothing.path, u"");
        EXPECT_EQ(nothing.type, None);
        EXPECT_FALSE(nothing.readable || nothing.writable);
        EXPECT_TRUE(nothing.lastModified.is_not_a_date_time());
        EXPECT_EQ(nothing.size, 0);
    }
}

TEST_F(ResolvePath, ReadableAndWritableAreThoseOfTheCaller) {
    tree.makeFile("dir/readonly", "r");
    tree.makeFile("dir/writeonly", "w");
    tree.setMode("dir/readonly", 0444);
    tree.setMode("dir/writeonly", 0222);
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.makeLink("readonly", "dir/linkToReadonly");
    struct Row {
        fl::ustring path;
        bool readable, writable;
    };
    const Row rows[] = {
        {at("dir/readonly"), true, false},
        {at("dir/writeonly"), false, true},
        // A link answers for its target, not for itself (links are always 0777).
        {at("dir/linkToReadonly"), true, false},
        {at("dir"), true, true},
    };
    zkfs::test::runUnprivileged([&] {
        for (const Row& r : rows)
            for (const auto& o : {off, follow}) {
                SCOPED_TRACE(describe(r.path, o));
                const auto a = core::resolvePathWithAttributes(r.path, o);
                EXPECT_EQ(a.readable, r.readable);
                EXPECT_EQ(a.writable, r.writable);
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
        try {
            (void)core::resolvePath(inside, {});
            ADD_FAILURE() << "no exception";
        } catch (const vfs::Exception& e) {
            EXPECT_EQ(e.getErrorCode(), vfs::Exception::PermissionDenied);
            EXPECT_EQ(vfs::fromAbsoluteIRI(e.getLocation()), inside);
        }
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
        try {
            (void)core::resolvePath(at("dir/f.txt"), o);
            ADD_FAILURE() << "no exception";
        } catch (const vfs::Exception& e) {
            EXPECT_EQ(e.getErrorCode(), vfs::Exception::OtherIOError);
            EXPECT_EQ(e.getSystemText(), std::strerror(EIO));
        }
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
        {u"dir/linkToFolder/f", ResolveSymbolicLinks::AllButLast, at("dir/sub/f"), false},
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
    try {
        (void)core::setupPathForURLConstruction(missing, ResolveSymbolicLinks::AllButLast, true);
        ADD_FAILURE() << "no exception";
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(e.getErrorCode(), vfs::Exception::NotFound);
    }
    EXPECT_EQ(missing, at("dir/none/x"));
    // A dangling link is there: its name exists.
    fl::ustring dangling = at("dir/dangling");
    EXPECT_FALSE(
        core::setupPathForURLConstruction(dangling, ResolveSymbolicLinks::AllButLast, true));
}
