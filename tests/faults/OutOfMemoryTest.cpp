// Memory that runs out mid-call: the host's identified error, every host array built so
// far released. For real in a child under `ulimit -v` (not in a sanitized build, whose
// shadow memory no such limit admits); everywhere through the host's own array-size limit.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"

#include "vq/vqArray.hpp"

#include <gtest/gtest.h>

#include <string>

namespace zkfs::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

bool outOfMemory(const qfs::Json& answer) {
    if (!answer.contains("error")) return false;
    const std::string id = answer["error"]["identifier"].get<std::string>();
    return id == "QUORIN:OutOfMemory" || id == "QUORIN:OutOfMemoryFor";
}

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
    EXPECT_TRUE(outOfMemory(call("r = pathFcn(strings(1, 200000), 'unix')")));
}

TEST(OutOfMemory, UnderUlimitVEveryBuiltInAnswersTheIdentifiedError) {
    if (kSanitized) GTEST_SKIP() << "the sanitizer's shadow memory admits no ulimit -v";
    runWithLimits(
        8U << 20, 256,
        [] {
            // The first two as a user met them; the parse of the paths fits the limit, their
            // parts do not.
            for (const char* statement : {"x = isAbsolutePathNoIOFcn(strings(1, 3000000))",
                                          "x = resolvePathFcnWithAttributes(strings(1, 10000000))",
                                          "x = pathFcn(strings(1, 3000000), 'unix')"}) {
                SCOPED_TRACE(statement);
                const long before = vqLiveArrayCount();
                const qfs::Json answer = call(statement);
                EXPECT_TRUE(outOfMemory(answer)) << answer.dump();
                EXPECT_EQ(vqLiveArrayCount(), before);
            }
        },
        std::size_t{256} << 20);
}

}  // namespace
}  // namespace zkfs::test
