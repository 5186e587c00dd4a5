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

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
namespace PathType = core::PathType;

namespace {

core::ResolvePathOptions resolving() {
    core::ResolvePathOptions o;
    o.ResolveSymbolicLinks = true;
    return o;
}

core::ResolvePathOptions localFromFile() {
    core::ResolvePathOptions o;
    o.LocalPathFromFileScheme = true;
    return o;
}

// Runs a block with the current folder changed, and changes it back.
class CurrentFolder {
public:
    explicit CurrentFolder(const std::filesystem::path& p)
        : saved_(std::filesystem::current_path()) {
        std::filesystem::current_path(p);
    }
    ~CurrentFolder() { std::filesystem::current_path(saved_); }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    std::filesystem::path saved_;
};

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
    }
    zkfs::test::TempTree tree;
};

void expectResult(const core::ResolvePathResult& r, const fl::ustring& path, std::int32_t type) {
    EXPECT_EQ(r.path, path);
    EXPECT_EQ(r.type, type);
}

}  // namespace

TEST_F(ResolvePath, FilesFoldersAndLinksWithoutResolving) {
    const core::ResolvePathOptions off;
    expectResult(core::resolvePath(tree.upath("dir/f.txt"), off), tree.upath("dir/f.txt"),
                 PathType::File);
    expectResult(core::resolvePath(tree.upath("dir/sub"), off), tree.upath("dir/sub"),
                 PathType::Folder);
    expectResult(core::resolvePath(tree.upath("dir/linkToFile"), off), tree.upath("dir/linkToFile"),
                 PathType::SymbolicLink);
    expectResult(core::resolvePath(tree.upath("dir/linkToFolder"), off),
                 tree.upath("dir/linkToFolder"), PathType::SymbolicLink);
}

TEST_F(ResolvePath, ResolvingLinksGivesTheCanonicalTarget) {
    expectResult(core::resolvePath(tree.upath("dir/linkToFile"), resolving()),
                 tree.upath("dir/f.txt"), PathType::File);
    expectResult(core::resolvePath(tree.upath("dir/linkToFolder"), resolving()),
                 tree.upath("dir/sub"), PathType::Folder);
    // ".." without links, and names that only look like it.
    tree.makeFile("dir/..x", "x");
    expectResult(core::resolvePath(tree.upath("dir/sub/../f.txt"), resolving()),
                 tree.upath("dir/f.txt"), PathType::File);
    expectResult(core::resolvePath(tree.upath("dir/sub/../..x"), resolving()),
                 tree.upath("dir/..x"), PathType::File);
    expectResult(core::resolvePath(tree.upath("dir/..x"), resolving()), tree.upath("dir/..x"),
                 PathType::File);
    // The kernel's own mark for a removed file must not be mistaken for one.
    tree.makeFile("dir/x (deleted)", "x");
    expectResult(core::resolvePath(tree.upath("dir/x (deleted)"), resolving()),
                 tree.upath("dir/x (deleted)"), PathType::File);
    // A link inside the path, not only at its end.
    expectResult(core::resolvePath(tree.upath("dir/linkToFolder/../f.txt"), resolving()),
                 tree.upath("dir/f.txt"), PathType::File);
}

TEST_F(ResolvePath, NothingThereIsTypeNoneWithAnEmptyText) {
    for (const bool resolve : {false, true}) {
        core::ResolvePathOptions o;
        o.ResolveSymbolicLinks = resolve;
        for (const char* name :
             {"dir/missing", "dir/dangling", "dir/loopA", "dir/f.txt/below", ""}) {
            SCOPED_TRACE(std::string(name) + (resolve ? " resolving" : ""));
            const fl::ustring path = *name == '\0' ? fl::ustring() : tree.upath(name);
            expectResult(core::resolvePath(path, o), u"", PathType::None);
        }
    }
}

TEST_F(ResolvePath, LocalPathsAreMadeAbsoluteAndCleanedButKeepDotDot) {
    const CurrentFolder here(tree.path("dir"));
    expectResult(core::resolvePath(u"./f.txt", {}), tree.upath("dir/f.txt"), PathType::File);
    expectResult(core::resolvePath(u"sub//./", {}), tree.upath("dir/sub"), PathType::Folder);
    // ".." through a link names the link target's parent; it must not be dropped lexically.
    expectResult(core::resolvePath(u"linkToFolder/../f.txt", {}),
                 tree.upath("dir/linkToFolder/../f.txt"), PathType::File);
    expectResult(core::resolvePath(u"linkToFile", resolving()), tree.upath("dir/f.txt"),
                 PathType::File);
}

TEST_F(ResolvePath, CaseCorrectionChangesNothingHere) {
    core::ResolvePathOptions o;
    o.CaseCorrectAndResolveOnWindows = true;
    expectResult(core::resolvePath(tree.upath("dir/linkToFile"), o), tree.upath("dir/linkToFile"),
                 PathType::SymbolicLink);
    expectResult(core::resolvePath(tree.upath("DIR/f.txt"), o), u"", PathType::None);
}

TEST_F(ResolvePath, FileIRIsAnswerAsIRIsOrLocalPaths) {
    tree.makeFile("dir/a b#c.txt", "x");
    const fl::ustring iri = vfs::toAbsoluteIRI(u"file", tree.upath("dir/a b#c.txt")).toString();
    ASSERT_NE(iri.find(u"%20"), fl::ustring::npos);
    expectResult(core::resolvePath(iri, {}), iri, PathType::File);
    expectResult(core::resolvePath(iri, localFromFile()), tree.upath("dir/a b#c.txt"),
                 PathType::File);

    const fl::ustring link = vfs::toAbsoluteIRI(u"file", tree.upath("dir/linkToFile")).toString();
    expectResult(core::resolvePath(link, localFromFile()), tree.upath("dir/linkToFile"),
                 PathType::SymbolicLink);
    core::ResolvePathOptions both = resolving();
    both.LocalPathFromFileScheme = true;
    expectResult(core::resolvePath(link, both), tree.upath("dir/f.txt"), PathType::File);
    expectResult(core::resolvePath(link, resolving()),
                 vfs::toAbsoluteIRI(u"file", tree.upath("dir/f.txt")).toString(), PathType::File);

    const fl::ustring missing = vfs::toAbsoluteIRI(u"file", tree.upath("dir/nope")).toString();
    expectResult(core::resolvePath(missing, {}), u"", PathType::None);
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

    expectResult(core::resolvePath(u"mem://root/data", {}), u"mem://root/data", PathType::Folder);
    expectResult(core::resolvePath(u"mem://root/data/x.csv", {}), u"mem://root/data/x.csv",
                 PathType::File);
    expectResult(core::resolvePath(u"mem://root/data/none", {}), u"", PathType::None);
    const auto withAttributes = core::resolvePathWithAttributes(u"mem://root/data/x.csv", {});
    EXPECT_EQ(withAttributes.type, PathType::File);
    EXPECT_TRUE(withAttributes.readable);
    EXPECT_TRUE(withAttributes.writable);
    EXPECT_EQ(withAttributes.size, 0);
    EXPECT_FALSE(withAttributes.lastModified.is_special());
    const auto folder = core::resolvePathWithAttributes(u"mem://root/data", {});
    EXPECT_EQ(folder.type, PathType::Folder);
    EXPECT_EQ(folder.size, 0);
    EXPECT_TRUE(folder.readable);
    foundation::storage::provider::resetMemStorage();
}

TEST_F(ResolvePath, NamesThatAreNotUtf8SurviveTheRoundTrip) {
    const std::string bytes = tree.root().string() + "/dir/\xff\xfe-name.txt";
    const int fd = ::open(bytes.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0) << std::strerror(errno);
    ::close(fd);
    const fl::ustring path = fl::i18n::to_ustring(bytes);
    const core::ResolvePathResult r = core::resolvePath(path, resolving());
    EXPECT_EQ(r.type, PathType::File);
    EXPECT_EQ(fl::i18n::to_utf8(r.path), bytes);
}

TEST_F(ResolvePath, AttributesOfFilesFoldersAndNothing) {
    tree.makeFile("dir/five", "12345");
    // 2001-02-03 04:05:06.789123456 UTC; microseconds are kept, the rest truncated.
    const struct timespec times[2] = {{981173106, 789123456}, {981173106, 789123456}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree.path("dir/five").c_str(), times, 0), 0);

    const auto file = core::resolvePathWithAttributes(tree.upath("dir/five"), {});
    EXPECT_EQ(file.path, tree.upath("dir/five"));
    EXPECT_EQ(file.type, PathType::File);
    EXPECT_TRUE(file.readable);
    EXPECT_TRUE(file.writable);
    EXPECT_EQ(file.size, 5);
    EXPECT_EQ(boost::posix_time::to_iso_extended_string(file.lastModified),
              "2001-02-03T04:05:06.789123");

    const auto folder = core::resolvePathWithAttributes(tree.upath("dir/sub"), {});
    EXPECT_EQ(folder.type, PathType::Folder);
    EXPECT_EQ(folder.size, 0);

    // Attributes follow the link, as an open of it would.
    const auto link = core::resolvePathWithAttributes(tree.upath("dir/linkToFile"), {});
    EXPECT_EQ(link.type, PathType::SymbolicLink);
    EXPECT_EQ(link.size, 5 /* "hello" */);

    for (const char* name : {"dir/missing", "dir/dangling"}) {
        SCOPED_TRACE(name);
        const auto nothing = core::resolvePathWithAttributes(tree.upath(name), {});
        EXPECT_EQ(nothing.path, u"");
        EXPECT_EQ(nothing.type, PathType::None);
        EXPECT_FALSE(nothing.readable);
        EXPECT_FALSE(nothing.writable);
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
    const fl::ustring readonly = tree.upath("dir/readonly");
    const fl::ustring writeonly = tree.upath("dir/writeonly");
    const fl::ustring link = tree.upath("dir/linkToReadonly");
    const fl::ustring folder = tree.upath("dir");
    zkfs::test::runUnprivileged([&] {
        for (const bool resolve : {false, true}) {
            SCOPED_TRACE(resolve ? "resolving" : "not resolving");
            core::ResolvePathOptions o;
            o.ResolveSymbolicLinks = resolve;
            const auto r = core::resolvePathWithAttributes(readonly, o);
            EXPECT_TRUE(r.readable);
            EXPECT_FALSE(r.writable);
            const auto w = core::resolvePathWithAttributes(writeonly, o);
            EXPECT_FALSE(w.readable);
            EXPECT_TRUE(w.writable);
            // A link answers for its target, not for itself (links are always 0777).
            const auto l = core::resolvePathWithAttributes(link, o);
            EXPECT_TRUE(l.readable);
            EXPECT_FALSE(l.writable);
            const auto d = core::resolvePathWithAttributes(folder, o);
            EXPECT_TRUE(d.readable);
            EXPECT_TRUE(d.writable);
        }
    });
}

TEST_F(ResolvePath, AFolderThatCannotBeSearchedIsPermissionDenied) {
    tree.makeFile("locked/inside", "x");
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.setMode("locked", 0);
    const fl::ustring inside = tree.upath("locked/inside");
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
    for (const bool resolve : {false, true}) {
        SCOPED_TRACE(resolve ? "resolving" : "not resolving");
        core::ResolvePathOptions o;
        o.ResolveSymbolicLinks = resolve;
        try {
            (void)core::resolvePath(tree.upath("dir/f.txt"), o);
            ADD_FAILURE() << "no exception";
        } catch (const vfs::Exception& e) {
            EXPECT_EQ(e.getErrorCode(), vfs::Exception::OtherIOError);
            EXPECT_EQ(e.getSystemText(), std::strerror(EIO));
        }
    }
    // Other paths are untouched by the fault.
    EXPECT_EQ(core::resolvePath(tree.upath("dir/sub"), {}).type, PathType::Folder);
    core::posix::setFaultHook(previous);
}

TEST_F(ResolvePath, SetupForURLConstructionLeavesIRIsAndEmptyTextAlone) {
    fl::ustring iri = u"https://example.com/a%20b";
    EXPECT_TRUE(
        core::setupPathForURLConstruction(iri, core::ResolveSymbolicLinks::AllButLast, false));
    EXPECT_EQ(iri, u"https://example.com/a%20b");
    fl::ustring empty;
    EXPECT_FALSE(core::setupPathForURLConstruction(empty, core::ResolveSymbolicLinks{2}, false));
    EXPECT_EQ(empty, u"");
}

TEST_F(ResolvePath, SetupForURLConstructionResolvesLinksByMode) {
    const CurrentFolder here(tree.root());
    struct Row {
        const char* input;
        core::ResolveSymbolicLinks mode;
        const char* expected;  // under the root
    };
    const Row rows[] = {
        {"dir/./linkToFolder//new/x.txt", core::ResolveSymbolicLinks::None,
         "dir/linkToFolder/new/x.txt"},
        {"dir/linkToFolder/new/x.txt", core::ResolveSymbolicLinks::AllButLast, "dir/sub/new/x.txt"},
        {"dir/linkToFolder/new/x.txt", core::ResolveSymbolicLinks::All, "dir/sub/new/x.txt"},
        // The last component is the link itself in mode 2, its target in mode 1.
        {"dir/linkToFile", core::ResolveSymbolicLinks::AllButLast, "dir/linkToFile"},
        {"dir/linkToFile", core::ResolveSymbolicLinks::All, "dir/f.txt"},
        {"dir/linkToFolder/f", core::ResolveSymbolicLinks::AllButLast, "dir/sub/f"},
        {"dir/dangling", core::ResolveSymbolicLinks::AllButLast, "dir/dangling"},
        {"dir/f.txt/below", core::ResolveSymbolicLinks::All, "dir/f.txt/below"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(std::string(r.input) + " mode " + std::to_string(static_cast<int>(r.mode)));
        fl::ustring path = fl::i18n::to_ustring(r.input);
        EXPECT_FALSE(core::setupPathForURLConstruction(path, r.mode, false));
        EXPECT_EQ(path, tree.upath(r.expected));
    }
    fl::ustring root = u"/";
    EXPECT_FALSE(
        core::setupPathForURLConstruction(root, core::ResolveSymbolicLinks::AllButLast, false));
    EXPECT_EQ(root, u"/");
}

TEST_F(ResolvePath, SetupForURLConstructionCanRequireExistence) {
    fl::ustring missing = tree.upath("dir/none/x");
    const fl::ustring before = missing;
    try {
        (void)core::setupPathForURLConstruction(missing, core::ResolveSymbolicLinks::AllButLast,
                                                true);
        ADD_FAILURE() << "no exception";
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(e.getErrorCode(), vfs::Exception::NotFound);
    }
    EXPECT_EQ(missing, before);
    // A dangling link is there: its name exists.
    fl::ustring dangling = tree.upath("dir/dangling");
    EXPECT_FALSE(
        core::setupPathForURLConstruction(dangling, core::ResolveSymbolicLinks::AllButLast, true));
}
