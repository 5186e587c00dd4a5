// Argument counts: the gateway table written once as data, checked against the frame's
// checkCounts and against every gateway the library exports.
#include "quorin/gateway/Gateway.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace zkfs::test;
namespace qfq = quorin::io::filesystem::quorin;
using quorin::gateway::kNoLimit;

using Invoker = std::function<void(int, unique_vqarray_ptr*, int, const vqArray**)>;

template <class Arg>
Invoker invokerOf(void (*f)(int, unique_vqarray_ptr*, int, Arg)) {
    if (f == nullptr) return {};
    return [f](int outCount, unique_vqarray_ptr* outputs, int argCount, const vqArray** args) {
        f(outCount, outputs, argCount, args);
    };
}

constexpr int kNoTest = -2;

struct GatewayRow {
    const char* name;
    int maxOut;  // kNoTest: the gateway makes no count test at all
    int minIn;
    int maxIn;  // kNoLimit: no upper test
    Invoker call;
};

// The gateway table as the library documents it.
std::vector<GatewayRow> gatewayTable() {
    // clang-format off
    return {
        {"createFileURL", 1, 1, kNoLimit, invokerOf(&qfq::createFileURL)},
        {"createURLFromPartsFcn", 1, 2, 2, invokerOf(&createURLFromPartsFcn)},
        {"getContentTypeFcn", 1, 1, 1, invokerOf(&qfq::getContentTypeFcn)},
        {"isAbsolutePathNoIOFcn", 1, 1, 1, invokerOf(&isAbsolutePathNoIOFcn)},
        {"getPerms_impl", 1, 2, 3, invokerOf(&getPerms_impl)},
        {"modifyPerms_impl", 1, 3, 5, invokerOf(&modifyPerms_impl)},
        {"mkFileFcn", 3, 1, 3, invokerOf(&mkFileFcn)},
        {"mkSymlinkFcn", 0, 2, 4, invokerOf(&mkSymlinkFcn)},
        {"createWindowsShortcutFcn", kNoTest, kNoTest, kNoTest, invokerOf(&createWindowsShortcutFcn)},
        {"isSymlinkFcn", 2, 1, 1, invokerOf(&isSymlinkFcn)},
        {"resolvePathFcn", 1, 1, kNoLimit, invokerOf(&qfq::resolvePathFcn)},
        {"resolvePathFcnWithAttributes", 1, 1, kNoLimit, invokerOf(&qfq::resolvePathFcnWithAttributes)},
        {"pathFcn", 1, 1, 3, invokerOf(&qfq::pathFcn)},
        {"relativepath", 1, 2, 2, invokerOf(&relativepath)},
        {"pathNameLengthValidation", 1, 1, 1, invokerOf(&pathNameLengthValidation)},
    };
    // clang-format on
}

constexpr const char* kTooManyOutputs = "QUORIN:TooManyOutputs";
constexpr const char* kTooManyInputs = "QUORIN:TooManyInputs";
constexpr const char* kNotEnoughInputs = "QUORIN:NotEnoughInputs";
constexpr int kManyArguments = 41;

class Counts : public LiveArrayTest {};

// The host calls the load hook before any gateway (this strong reference is also what
// makes the test binary load the library at all: weak references alone do not).
TEST_F(Counts, LoadHooksChangeNothing) {
    const long before = vqLiveArrayCount();
    QNInitialize_libzkfilesystemquorin();
    QNTerminate_libzkfilesystemquorin();
    QNInitialize_libzkfilesystemquorin();
    EXPECT_EQ(vqLiveArrayCount(), before);
}

// Each refusal through the frame's checkCounts and through the exported gateway. Count
// errors come before any argument is looked at, so null arguments must be safe; outputs
// are tested before inputs, too many inputs before too few. The shortcut gateway makes no
// count test: it refuses every call alike.
TEST_F(Counts, EveryGatewayTestsItsCountsFirst) {
    using quorin::gateway::checkCounts;
    for (const auto& row : gatewayTable()) {
        SCOPED_TRACE(row.name);
        if (!row.call) {
            ADD_FAILURE() << "the library does not export " << row.name;
            continue;
        }
        std::vector<std::tuple<int, int, const char*>> refusals;
        if (row.maxOut == kNoTest) {
            for (const auto& [o, i] : {std::pair{0, 0}, {9, 0}, {0, 9}, {1, 2}}) {
                refusals.emplace_back(o, i, "QUORIN:io:filesystem:symlink:NotSupportedOnPosix");
            }
        } else {
            const int upper = row.maxIn == kNoLimit ? 1000 : row.maxIn;
            for (int out : {0, row.maxOut}) {
                for (int in : {row.minIn, upper}) {
                    EXPECT_NO_THROW(checkCounts(out, in, row.maxOut, row.minIn, row.maxIn));
                }
            }
            refusals = {{row.maxOut + 1, row.minIn, kTooManyOutputs},
                        {row.maxOut + 1, row.minIn - 1, kTooManyOutputs},
                        {0, row.minIn - 1, kNotEnoughInputs}};
            if (row.maxIn != kNoLimit) {
                refusals.insert(refusals.end(), {{row.maxOut + 1, row.maxIn + 1, kTooManyOutputs},
                                                 {0, row.maxIn + 1, kTooManyInputs},
                                                 {row.maxOut, row.maxIn + 1, kTooManyInputs}});
            }
        }
        for (const auto& [outCount, argCount, id] : refusals) {
            SCOPED_TRACE("out=" + std::to_string(outCount) + " in=" + std::to_string(argCount));
            if (row.maxOut != kNoTest) {
                EXPECT_IDENTIFIED_ERROR(
                    checkCounts(outCount, argCount, row.maxOut, row.minIn, row.maxIn), id);
            }
            std::vector<const vqArray*> args(static_cast<std::size_t>(std::max(argCount, 1)));
            LiveArrayGuard guard;
            OutputSlots out(4);
            EXPECT_IDENTIFIED_ERROR(row.call(outCount, out.data(), argCount, args.data()), id);
            for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(out[i], nullptr);
        }
    }
}

// A real path and many extra arguments: whatever the gateway's own validation says of
// them, it is not the count error.
TEST_F(Counts, NoLimitMeansNoUpperTest) {
    for (const auto& row : gatewayTable()) {
        if (row.maxIn != kNoLimit || !row.call) continue;
        SCOPED_TRACE(row.name);
        ArgList args(charRow(u"/"));
        for (int i = 1; i < kManyArguments; ++i) args.add(charRow(u"NoSuchOption"));
        std::vector<const vqArray*> raw(args.data(), args.data() + args.count());
        LiveArrayGuard guard;
        OutputSlots out;
        try {
            row.call(1, out.data(), args.count(), raw.data());
        } catch (const foundation::core::except::IMsgIDException& e) {
            EXPECT_NE(e.GetID(), kTooManyInputs);
        } catch (...) {
            // Not an identified error: the upper test was not made; other tests judge the rest.
        }
    }
}

}  // namespace
