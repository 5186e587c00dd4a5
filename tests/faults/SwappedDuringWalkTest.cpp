// An entry swapped for a link to something outside the tree while a walk is under way,
// made deterministic through the system-call seam: right after the walk
// has read the folder holding them, or right after it has read one's status, a file and
// a folder there become links to a root-owned file and folder outside. Root walks a tree
// owned by an unprivileged user, in every order and scope, with the kernel's fchmodat2
// and with the C library's fallback: nothing outside ever changes.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

namespace sys = fl::sys;

// The folder whose entries are swapped, the outside they are swapped to, and whether the
// swap has happened.
std::string gFolder;
std::string gOutside;
bool gSwapped = false;

std::string pathOfDescriptor(int fd) {
    std::error_code ec;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), ec);
}

// Each entry and a new link to its outside twin change places in one step.
void swap() {
    gSwapped = true;
    for (const std::string name : {"f", "d"}) {
        const std::string entry = gFolder + "/" + name;
        const std::string link = gFolder + "/.swap-" + name;
        if (::symlink((gOutside + "/" + name).c_str(), link.c_str()) != 0 ||
            ::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, entry.c_str(), RENAME_EXCHANGE) != 0) {
            ADD_FAILURE() << "swap " << entry << ": " << std::strerror(errno);
        }
    }
}

TEST(SwappedDuringWalk, NoWalkFollowsAnEntrySwappedForALink) {
    if (!runningAsRoot()) GTEST_SKIP() << "root walks another user's tree here";
    for (const bool afterStatus : {false, true}) {
        for (const bool kernelCall : {true, false}) {
            const sys::ScopedFaultHook hook([&](sys::Call& c) {
                if (c.phase == sys::Phase::Before) {
                    return !kernelCall && c.op == sys::Op::Fchmodat2 ? ENOSYS : 0;
                }
                const std::string_view name = c.name;
                const bool listed = !afterStatus && c.op == sys::Op::Getdents64 && c.result == 0;
                const bool read =
                    afterStatus && c.op == sys::Op::Statx && (name == "f" || name == "d");
                if (!gSwapped && (listed || read) && pathOfDescriptor(c.fd) == gFolder) swap();
                return 0;
            });
            for (const std::string request :
                 {"struct('Readable', true, 'OtherWrite', true)", "struct('Readable', false)",
                  "struct('OtherWrite', true)"}) {
                for (const std::string scope :
                     {"files", "folders", "all", "symboliclinks", "target"}) {
                    SCOPED_TRACE(std::string(afterStatus ? "after a status" : "after a listing") +
                                 (kernelCall ? ", fchmodat2 " : ", fchmodat ") + request + " " +
                                 scope);
                    TempTree tree;
                    TempTree outside;
                    for (const char* f : {"sub/f", "sub/d/x", "sub/z"}) tree.makeFile(f, "x");
                    tree.setMode("sub/z", 0644);
                    tree.handTo(unprivilegedIds().uid, unprivilegedIds().gid);
                    outside.makeFile("f", "secret");
                    outside.makeFile("d/y", "secret");
                    const std::vector<std::string> before = outside.snapshot();
                    gFolder = tree.path("sub").native();
                    gOutside = outside.root().native();
                    gSwapped = false;

                    call("r = modifyPerms_impl(" + charLiteral(tree.root().native()) +
                         ", 'Folder', " + request + ", false, '" + scope + "')");
                    // A walk reads a status only of what it changes: "symboliclinks" and
                    // "target" change files and folders only when walking top-down.
                    const bool readsStatus = !afterStatus || scope == "files" ||
                                             scope == "folders" || scope == "all" ||
                                             request.starts_with("struct('Readable', true");
                    EXPECT_EQ(gSwapped, readsStatus);
                    EXPECT_EQ(outside.snapshot(), before);
                    // The walk went on past them.
                    if (scope == "files" || scope == "all") {
                        EXPECT_NE(tree.mode("sub/z"), 0644U);
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace zkfs::test
