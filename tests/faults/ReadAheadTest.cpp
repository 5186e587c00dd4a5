// A walk reads a folder's statuses ahead on a second thread while it changes the entries
// before them. A file met under two names in one folder has the mode of its first change
// by the time the walk reaches the second name: in every order, that name needs no change
// and gets none, as when each status is read just before its change.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <gtest/gtest.h>

#include <map>
#include <string>

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

}  // namespace
}  // namespace zkfs::test
