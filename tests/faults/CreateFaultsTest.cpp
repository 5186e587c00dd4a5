// The makers where they cannot make anything: a read-only parent folder (unprivileged)
// and a file system that is full (a tiny tmpfs in a private mount namespace). Each call
// gives the identified error a user should get, makes nothing, leaves what was there,
// and frees every array it built.
#include "FaultsSupport.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace zkfs::test::faults {
namespace {

constexpr const char* kDenied = "QUORIN:virtualfilesystem:permissionDenied";
constexpr const char* kUnknown = "QUORIN:virtualfilesystem:unknownError";

constexpr Call mkFile = call<&mkFileFcn>;
constexpr Call mkSymlink = call<&mkSymlinkFcn>;


// mkFile thrown (no result) and reported (three results) for one path.
void expectMkFileFails(const fl::ustring& path, const char* id,
                       const std::vector<fl::ustring>& extra = {}) {
    ArgList args(charRow(path));
    for (const fl::ustring& e : extra) args.add(charRow(e));
    {
        LiveArrayGuard guard;
        OutputSlots out(3);
        EXPECT_IDENTIFIED_ERROR(mkFile(0, out, args), id, path);
        EXPECT_EQ(out[0], nullptr);
    }
    LiveArrayGuard guard;
    OutputSlots out(3);
    mkFile(3, out, args);
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[1]), std::vector<StringElement>{catalogMessage(id, path)});
    EXPECT_EQ(stringsOf(out[2]), std::vector<StringElement>{fl::ustring(id, id + std::strlen(id))});
}

class ReadOnlyParent : public LiveArrayTest {
protected:
    TempTree tree;
};

TEST_F(ReadOnlyParent, NothingIsMadeOrReplacedAndTheErrorSaysPermissionDenied) {
    tree.makeFile("t.txt", "target");
    tree.makeFile("ro/existing.txt", "keep me");
    tree.makeLink("../t.txt", "ro/existing-link");
    if (runningAsRoot()) tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
    tree.setMode("ro", 0555);
    const auto before = tree.snapshot();
    const auto p = [&](const char* r) { return tree.upath(r); };
    const fl::ustring target = p("t.txt");

    runUnprivileged([&] {
        expectMkFileFails(p("ro/new.txt"), kDenied);
        expectMkFileFails(p("ro/missing/deeper/new.txt"), kDenied);
        // Replacing needs the removal first, which the folder refuses: the old file stays.
        expectMkFileFails(p("ro/existing.txt"), kDenied, {u"ReplacementRule", u"overwrite"});

        LiveArrayGuard guard;
        OutputSlots none;
        EXPECT_IDENTIFIED_ERROR(mkSymlink(0, none, ArgList(charRow(p("ro/link")), charRow(target))),
                                kDenied, p("ro/link"));
        EXPECT_IDENTIFIED_ERROR(
            mkSymlink(0, none, ArgList(charRow(p("ro/sub/link")), charRow(target))), kDenied,
            p("ro/sub/link"));
        // An existing link kept under "preserve" is refused before any write is tried.
        EXPECT_IDENTIFIED_ERROR(
            mkSymlink(0, none, ArgList(charRow(p("ro/existing-link")), charRow(target))),
            "QUORIN:io:filesystem:symlink:FileExists", p("ro/existing-link"));
        // Under "overwrite" its removal is refused by the path layer, whose own error
        // reaches the user: the link stays as it was.
        EXPECT_IDENTIFIED_ERROR(
            mkSymlink(0, none,
                      ArgList(charRow(p("ro/existing-link")), charRow(target),
                              charRow(u"ReplacementRule"), charRow(u"overwrite"))),
            "QUORIN:filesystem:accessDenied", p("ro/existing-link"));
    });
    EXPECT_EQ(tree.snapshot(), before);
}

class FullFileSystem : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeFolder("full");
        tree.makeFile("t.txt", "target");
        // A target name too long to be kept inside a link's own inode.
        tree.makeFile(std::string(200, 'n'), "target");
    }
    TempTree tree;
};

// No inode left: nothing at all can be made.
TEST_F(FullFileSystem, WithNoInodeLeftNothingIsMadeAndTheErrorIsIdentified) {
    const std::string mountPoint = tree.path("full").native();
    const auto p = [&](const char* r) { return tree.upath(r); };
    std::string why;
    const bool ran = runWithTmpfs(
        mountPoint, "size=64k,nr_inodes=8",
        [&] {
            // Fill every inode the file system has.
            int made = 0;
            for (;; ++made) {
                const std::string name = mountPoint + "/fill" + std::to_string(made);
                const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
                if (fd < 0) {
                    ASSERT_EQ(errno, ENOSPC);
                    break;
                }
                ::close(fd);
            }
            ASSERT_GT(made, 0);
            const std::vector<std::string> before = rawNames(mountPoint);

            expectMkFileFails(p("full/new.txt"), kUnknown);
            expectMkFileFails(p("full/newdir/deeper/new.txt"), kUnknown);
            // The replace rule removes first: the old file goes, and there is room for one.
            {
                LiveArrayGuard guard;
                OutputSlots out(3);
                mkFile(3, out,
                       ArgList(charRow(p("full/fill0")), charRow(u"ReplacementRule"),
                               charRow(u"overwrite")));
                EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
            }
            LiveArrayGuard guard;
            OutputSlots none;
            EXPECT_IDENTIFIED_ERROR(
                mkSymlink(0, none, ArgList(charRow(p("full/link")), charRow(p("t.txt")))), kUnknown,
                p("full/link"));
            EXPECT_IDENTIFIED_ERROR(
                mkSymlink(0, none, ArgList(charRow(p("full/d/link")), charRow(p("t.txt")))),
                kUnknown, p("full/d/link"));
            EXPECT_EQ(rawNames(mountPoint), before);
        },
        why);
    if (!ran) GTEST_SKIP() << why;
}

// No data block left: an empty file needs none and is made; a link whose target text
// needs a block of its own is refused and not left half-made.
TEST_F(FullFileSystem, WithNoBlockLeftAnEmptyFileIsMadeButALongLinkIsNot) {
    const std::string mountPoint = tree.path("full").native();
    const auto p = [&](const char* r) { return tree.upath(r); };
    const fl::ustring longTarget = tree.upath(std::string(200, 'n'));
    std::string why;
    const bool ran = runWithTmpfs(
        mountPoint, "size=64k,nr_inodes=64",
        [&] {
            const std::string filler = mountPoint + "/filler";
            const int fd = ::open(filler.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            ASSERT_GE(fd, 0);
            const std::string block(4096, 'x');
            while (::write(fd, block.data(), block.size()) > 0) {
            }
            const int err = errno;
            ::close(fd);
            ASSERT_EQ(err, ENOSPC);

            {
                LiveArrayGuard guard;
                OutputSlots out(3);
                mkFile(3, out, ArgList(charRow(p("full/empty.txt"))));
                EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
            }
            const std::vector<std::string> before = rawNames(mountPoint);
            LiveArrayGuard guard;
            OutputSlots none;
            EXPECT_IDENTIFIED_ERROR(
                mkSymlink(0, none, ArgList(charRow(p("full/link")), charRow(longTarget))), kUnknown,
                p("full/link"));
            EXPECT_EQ(rawNames(mountPoint), before);
        },
        why);
    if (!ran) GTEST_SKIP() << why;
}

}  // namespace
}  // namespace zkfs::test::faults
