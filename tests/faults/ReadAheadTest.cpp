// A walk reads a folder's statuses ahead on a second thread while it changes the entries
// before them. A file met under two names in one folder has the mode of its first change
// by the time the walk reaches the second name: in every order, that name needs no change
// and gets none, as when each status is read just before its change.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

namespace zkfs::test {
namespace {

namespace sys = fl::sys;

TEST(ReadAhead, AFileOfTwoNamesInOneFolderIsChangedOnce) {
    std::map<std::string, int> changes;
    const sys::ScopedFaultHook hook([&](sys::Call& c) {
        if (c.phase == sys::Phase::After && c.result == 0 &&
            (c.op == sys::Op::Fchmodat2 || c.op == sys::Op::Fchmodat)) {
            ++changes[c.name];
        }
        return 0;
    });
    for (const std::string request : {"struct('Readable', true, 'OtherWrite', true)",
                                      "struct('Readable', false)", "struct('OtherWrite', true)"}) {
        SCOPED_TRACE(request);
        TempTree tree;
        // Enough names before them for the second thread to be well ahead.
        for (int i = 0; i < 200; ++i) tree.makeFile("sub/x" + std::to_string(1000 + i));
        tree.makeFile("sub/y");
        ASSERT_EQ(::link(tree.path("sub/y").c_str(), tree.path("sub/z").c_str()), 0);
        changes.clear();
        EXPECT_EQ(failuresIn(call("r = modifyPerms_impl(" + charLiteral(tree.root().native()) +
                                  ", 'Folder', " + request + ", false, 'files')")),
                  std::vector<Failure>{});
        EXPECT_EQ(changes["x1000"], 1);
        EXPECT_EQ(changes["y"], 1);
        EXPECT_EQ(changes["z"], 0);
        EXPECT_EQ(tree.mode("sub/z"), tree.mode("sub/x1000"));
    }
}

// Thousands of statuses a folder, with subfolders in the middle: the walk leaves a folder
// the reader is ahead in and comes back to it, catches up with the reader where nothing
// changes, and one walk ends with a failure while the reader is still ahead. Four
// descriptors for the walk: m is closed while the walk is below it, its statuses read
// ahead given up, and opened again on the way back. Every order, each request twice
// (changing, then unchanged): a status answered for the wrong entry or read before its own
// change gives a wrong mode, since neighbours' modes differ.
TEST(ReadAhead, EveryOrderLeavesEveryModeAsReadJustBeforeItsChange) {
    TempTree tree;
    const auto own = [](const std::string& name) {
        return 0600U | static_cast<unsigned>(std::stoul(name.substr(1)) % 64);
    };
    const auto files = [&](const std::string& folder, char letter, int count) {
        for (int i = 0; i < count; ++i) {
            const std::string name = letter + std::to_string(10000 + i);
            tree.makeFile(folder + name);
            tree.setMode(folder + name, own(name));
        }
    };
    files("", 'a', 1000);
    files("m/", 'o', 1000);
    files("m/p/", 'r', 2000);
    files("m/p/d/", 'f', 3);
    files("m/p/d/e/", 'g', 3);
    files("m/", 'q', 1000);
    files("", 'z', 1000);
    tree.setMode("", 0755);
    const std::string top = charLiteral(tree.root().native());
    runWithLimits(std::size_t{8} << 20, 16, [&] {
        {
            // Thrown on the way through m/p, with the reader ahead there: the walk stops.
            const sys::ScopedFaultHook hook([](sys::Call& c) {
                const bool change = c.op == sys::Op::Fchmodat2 || c.op == sys::Op::Fchmodat;
                return change && c.phase == sys::Phase::Before && std::string(c.name) == "r10999"
                           ? EIO
                           : 0;
            });
            const qfs::Json thrown =
                call("modifyPerms_impl(" + top +
                     ", 'Folder', struct('Readable', true, 'UserExecute', true), false, 'all')");
            EXPECT_EQ(thrown["error"]["arguments"],
                      qfs::Json::array({tree.path("m/p/r10999").native(), "Input/output error"}));
        }
        const struct Step {
            const char* request;
            unsigned (*file)(unsigned);
            unsigned folder;
        } steps[] = {
            {"struct('Readable', true, 'UserExecute', true)", [](unsigned m) { return m | 0100; },
             0755},
            {"struct('UserExecute', false)", [](unsigned m) { return m; }, 0655},
            {"struct('Readable', false)", [](unsigned m) { return m & ~0400U; }, 0255},
        };
        for (const Step& step : steps) {
            for (int round = 0; round < 2; ++round) {
                SCOPED_TRACE(std::string(step.request) +
                             (round == 0 ? " (changing)" : " (unchanged)"));
                EXPECT_EQ(failuresIn(call("r = modifyPerms_impl(" + top + ", 'Folder', " +
                                          step.request + ", false, 'all')")),
                          std::vector<Failure>{});
                std::vector<std::string> wrong;
                if (tree.mode("") != step.folder) wrong.emplace_back(".");
                for (const auto& e : std::filesystem::recursive_directory_iterator(tree.root())) {
                    const std::string name = e.path().filename().native();
                    const unsigned want = e.is_directory() ? step.folder : step.file(own(name));
                    if (tree.mode(e.path().lexically_relative(tree.root()).native()) != want) {
                        wrong.push_back(name);
                    }
                }
                EXPECT_EQ(wrong, std::vector<std::string>{});
            }
        }
    });
}

}  // namespace
}  // namespace zkfs::test
