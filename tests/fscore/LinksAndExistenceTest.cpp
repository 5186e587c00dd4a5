// Links, parent folders and existence classes.
#include "quorin/io/filesystem/core/Existence.hpp"
#include "quorin/io/filesystem/core/Links.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/File.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include <unistd.h>

namespace core = quorin::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
using foundation::storage::provider::ExistenceTypeExtended;

namespace {

std::string readLink(const std::filesystem::path& p) {
    char buffer[4096];
    const ssize_t n = ::readlink(p.c_str(), buffer, sizeof buffer);
    return n < 0 ? std::string("<") + std::strerror(errno) + ">"
                 : std::string(buffer, static_cast<std::size_t>(n));
}

int errorCodeOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const vfs::Exception& e) {
        return e.getErrorCode();
    }
    return 0;
}

}  // namespace

TEST(Links, TheTargetIsStoredExactlyAsGiven) {
    zkfs::test::TempTree tree;
    tree.makeFile("dir/f.txt", "x");
    core::createSymbolicLink(u"f.txt", tree.upath("dir/rel"));
    core::createSymbolicLink(u"./../dir//f.txt", tree.upath("dir/odd"));
    core::createSymbolicLink(u"does-not-exist", tree.upath("dir/dangling"));
    const std::string bytes = "\xff\xfe";
    core::createSymbolicLink(fl::i18n::to_ustring(bytes), tree.upath("dir/bytes"));
    EXPECT_EQ(readLink(tree.path("dir/rel")), "f.txt");
    EXPECT_EQ(readLink(tree.path("dir/odd")), "./../dir//f.txt");
    EXPECT_EQ(readLink(tree.path("dir/dangling")), "does-not-exist");
    EXPECT_EQ(readLink(tree.path("dir/bytes")), bytes);
    EXPECT_TRUE(std::filesystem::is_regular_file(tree.path("dir/rel")));
}

TEST(Links, FailuresAreStorageErrorsAtTheLinkAndChangeNothing) {
    zkfs::test::TempTree tree;
    tree.makeFile("taken", "keep");
    tree.makeLink("elsewhere", "old-link");
    const auto before = tree.snapshot();

    EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", tree.upath("taken")); }),
              vfs::Exception::AlreadyExists);
    EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", tree.upath("old-link")); }),
              vfs::Exception::AlreadyExists);
    EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", tree.upath("missing/link")); }),
              vfs::Exception::NotFound);
    EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", tree.upath("taken/below")); }),
              vfs::Exception::NotFound);
    EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", u""); }), vfs::Exception::NotFound);
    EXPECT_EQ(tree.snapshot(), before);

    try {
        core::createSymbolicLink(u"x", tree.upath("taken"));
    } catch (const vfs::Exception& e) {
        EXPECT_EQ(vfs::fromAbsoluteIRI(e.getLocation()), tree.upath("taken"));
    }
}

TEST(Links, AFolderThatMayNotChangeIsPermissionDenied) {
    zkfs::test::TempTree tree;
    tree.makeFolder("ro");
    const auto ids = zkfs::test::unprivilegedIds();
    tree.handTo(ids.uid, ids.gid);
    tree.setMode("ro", 0555);
    const fl::ustring link = tree.upath("ro/link");
    zkfs::test::runUnprivileged([&] {
        EXPECT_EQ(errorCodeOf([&] { core::createSymbolicLink(u"x", link); }),
                  vfs::Exception::PermissionDenied);
    });
    EXPECT_FALSE(std::filesystem::is_symlink(tree.path("ro/link")));
}

TEST(Links, CreateParentIfNeededMakesEveryMissingLevelOnly) {
    zkfs::test::TempTree tree;
    tree.makeFile("file", "x");
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", tree.upath("a/b/c/link")), storage);
    EXPECT_TRUE(std::filesystem::is_directory(tree.path("a/b/c")));
    EXPECT_FALSE(std::filesystem::exists(tree.path("a/b/c/link")));

    // An existing parent, whatever it is, is left for the later creation to report on.
    const auto before = tree.snapshot();
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", tree.upath("a/b/c/link")), storage);
    core::createParentIfNeeded(vfs::toAbsoluteIRI(u"file", tree.upath("file/link")), storage);
    core::createParentIfNeeded(vfs::AbsoluteIRI(u"file:///"), storage);
    EXPECT_EQ(tree.snapshot(), before);

    foundation::storage::provider::resetMemStorage();
    core::createParentIfNeeded(vfs::AbsoluteIRI(u"mem://root/x/y/z.txt"), storage);
    EXPECT_NO_THROW(vfs::File(vfs::AbsoluteIRI(u"mem://root/x/y/z.txt"), storage).createFile());
    foundation::storage::provider::resetMemStorage();
}

TEST(Existence, ClassesOfLocalNames) {
    zkfs::test::TempTree tree;
    tree.makeFile("f", "x");
    tree.makeFolder("d");
    tree.makeLink("f", "lf");
    tree.makeLink("d", "ld");
    tree.makeLink("nothing", "broken");
    tree.makeLink("loop", "loop");
    struct Row {
        const char* name;
        ExistenceTypeExtended expected;
    };
    const Row rows[] = {
        {"f", ExistenceTypeExtended::File},
        {"d", ExistenceTypeExtended::Folder},
        {"lf", ExistenceTypeExtended::SymbolicLinkToFile},
        {"ld", ExistenceTypeExtended::SymbolicLinkToFolder},
        {"broken", ExistenceTypeExtended::BrokenSymbolicLink},
        {"loop", ExistenceTypeExtended::BrokenSymbolicLink},
        {"missing", ExistenceTypeExtended::DoesNotExist},
        {"f/below", ExistenceTypeExtended::DoesNotExist},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        EXPECT_EQ(core::getExtendedExistenceType(tree.upath(r.name)), r.expected);
        // IRIs go through the storage provider, which must agree.
        EXPECT_EQ(core::getExtendedExistenceType(
                      vfs::toAbsoluteIRI(u"file", tree.upath(r.name)).toString()),
                  r.expected);
    }
    EXPECT_EQ(core::getExtendedExistenceType(u""), ExistenceTypeExtended::DoesNotExist);
    // Below a link cycle nothing can exist.
    EXPECT_EQ(core::getExtendedExistenceType(tree.upath("loop/below")),
              ExistenceTypeExtended::DoesNotExist);
}

TEST(Existence, PredicatesOverEveryClass) {
    struct Row {
        ExistenceTypeExtended type;
        bool file, folder, link;
    };
    const Row rows[] = {
        {ExistenceTypeExtended::File, true, false, false},
        {ExistenceTypeExtended::Folder, false, true, false},
        {ExistenceTypeExtended::SymbolicLinkToFile, false, false, true},
        {ExistenceTypeExtended::SymbolicLinkToFolder, false, false, true},
        {ExistenceTypeExtended::BrokenSymbolicLink, false, false, true},
        {ExistenceTypeExtended::DoesNotExist, false, false, false},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(static_cast<int>(r.type));
        EXPECT_EQ(core::isFile(r.type), r.file);
        EXPECT_EQ(core::isFolder(r.type), r.folder);
        EXPECT_EQ(core::isSymlink(r.type), r.link);
    }
}

TEST(Existence, ThePlatformCodeIsWhatStatusReportsForADanglingLink) {
    zkfs::test::TempTree tree;
    tree.makeLink("nothing", "broken");
    try {
        (void)fl::filesystem::status(tree.upath("broken"));
        ADD_FAILURE() << "no exception";
    } catch (const fl::filesystem::SystemError& e) {
        EXPECT_EQ(e.code(), core::platformSpecificErrorCode());
    }
}
