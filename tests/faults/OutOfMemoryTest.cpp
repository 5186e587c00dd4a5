// Memory that runs out mid-call: the host's identified error, every host array built so
// far released. For real in a child under `ulimit -v` (not in a sanitized build, whose
// shadow memory no such limit admits); everywhere through the host's own array-size limit,
// and in the middle of a walk through the system-call seam.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"
#include "vq/vqArray.hpp"

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

// gcc names its sanitizers by macros, clang by __has_feature.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZKFS_SHADOW_MEMORY 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZKFS_SHADOW_MEMORY 1
#endif
#endif

namespace zkfs::test {
namespace {

TEST(OutOfMemory, TheHostsLimitIsAnIdentifiedErrorThatLeavesNothingBehind) {
    struct Limit {
        std::size_t previous = vqSetAllocationLimit(1U << 20);
        ~Limit() { vqSetAllocationLimit(previous); }
    } limit;
    // Six slots of eight bytes for each of 200000 elements: 9600000 bytes, past the limit.
    const qfs::Json answer = call("r = resolvePathFcnWithAttributes(strings(1, 200000))");
    ASSERT_TRUE(answer.contains("error")) << answer.dump();
    EXPECT_EQ(answer["error"]["identifier"], "QUORIN:OutOfMemoryFor");
    EXPECT_EQ(answer["error"]["arguments"], qfs::Json::parse("[9600000]"));
    EXPECT_EQ(answer["error"]["message"],
              "Out of memory: 9600000 bytes were asked for and could not be had.");
}

// A walk that runs out of memory once it has changed the top folder says where it stopped.
TEST(OutOfMemory, AHalfChangedTreeIsReported) {
    TempTree tree;
    tree.makeFile("top/a/f");
    const std::string top = tree.path("top").native();
    const fl::sys::ScopedFaultHook hook([](fl::sys::Call& c) -> int {
        if (c.op == fl::sys::Op::Getdents64) throw std::bad_alloc();
        return 0;
    });
    const std::string request =
        "('" + top + "', 'Folder', struct('GroupWrite', true), false, 'all')";
    EXPECT_EQ(failuresIn(call("r = modifyPerms_impl" + request)),
              (std::vector<Failure>{{top, "Out of memory."}}));
    const qfs::Json thrown = call("modifyPerms_impl" + request);
    EXPECT_EQ(thrown["error"]["arguments"],
              qfs::Json::parse("[\"" + top + "\", \"Out of memory.\"]"));
}

TEST(OutOfMemory, UnderUlimitVEveryBuiltInAnswersTheIdentifiedError) {
#ifdef ZKFS_SHADOW_MEMORY
    GTEST_SKIP() << "the sanitizer's shadow memory admits no ulimit -v";
#endif
    runWithLimits(
        8U << 20, 256,
        [] {
            // The first two as a user met them; the parse of the paths fits the limit, their
            // parts do not.
            for (const char* statement : {"x = isAbsolutePathNoIOFcn(strings(1, 4000000))",
                                          "x = resolvePathFcnWithAttributes(strings(1, 10000000))",
                                          "x = pathFcn(strings(1, 3000000), 'unix')"}) {
                // call() itself fails the test for any host array left alive.
                const qfs::Json answer = call(statement);
                ASSERT_TRUE(answer.contains("error")) << statement;
                EXPECT_EQ(
                    answer["error"]["identifier"].get<std::string>().rfind("QUORIN:OutOfMemory", 0),
                    0U)
                    << answer.dump();
            }
        },
        std::size_t{256} << 20);
}

}  // namespace
}  // namespace zkfs::test
