// One built-in's argument handling under arbitrary host arrays: any number of inputs and
// outputs, every class and shape. Whatever the built-in does, it must answer or raise an
// identified error, and release every array it made. One target per built-in of
// Builtins.def, named as the built-in.
#include "ArrayDecoder.hpp"
#include "FuzzTarget.hpp"
#include "Jail.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "foundation/core/except/Exception.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using namespace quorin::io::filesystem::quorin;

// Fresh tree every so often: mkFile, mkSymlink and modifyPerms change it, and a sandbox
// drifting away from the seeds' names would starve the fuzzer of real files.
constexpr unsigned kResetEvery = 500;

// The permission query lets a failed status read (a loop, a name too long, a denied
// search) leave as the standard library's file-system error, with its system message:
// that is its documented behaviour, so it is no finding there.
template <auto Gateway>
constexpr bool kStatusErrorsPass = false;
template <>
constexpr bool kStatusErrorsPass<&getPerms_impl> = true;

[[noreturn]] void finding(const char* what) {
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

int setUp(const std::vector<std::string>& writable) {
    std::string reason;
    if (!zkfs::fuzz::enterJail(writable, reason)) {
        std::fprintf(stderr, "cannot confine the file system for fuzzing (%s)\n", reason.c_str());
        return 77;
    }
    QNInitialize_libzkfilesystemquorin();
    return 0;
}

template <auto Gateway>
int runOne(const std::uint8_t* data, std::size_t size) {
    static unsigned runs = 0;
    if (++runs % kResetEvery == 0) zkfs::fuzz::resetSandbox();

    const long before = vqLiveArrayCount();
    {
        zkfs::fuzz::ByteReader in({data, size});
        auto call = zkfs::fuzz::decodeCall(in);
        std::vector<const vqArray*> args;
        for (const auto& a : call.args) args.push_back(a.get());
        std::vector<unique_vqarray_ptr> outputs(static_cast<std::size_t>(call.outCount) + 1);
        try {
            // relativepath takes a non-const outer pointer; the others convert to it.
            Gateway(call.outCount, outputs.data(), static_cast<int>(args.size()), args.data());
        } catch (const foundation::core::except::IMsgIDException& e) {
            if (e.GetID().empty()) finding("an error without an identifier");
            (void)e.GetUnicodeMessageTxt();  // the catalog must have a text for it
        } catch (const std::filesystem::filesystem_error& e) {
            if (!kStatusErrorsPass<Gateway>) {
                std::fprintf(stderr, "unidentified exception: %s\n", e.what());
                finding("a file-system error left the gateway");
            }
        } catch (const std::exception& e) {
            std::fprintf(stderr, "unidentified exception: %s\n", e.what());
            finding("an unidentified exception left the gateway");
        } catch (...) {
            finding("a non-standard exception left the gateway");
        }
        // A gateway fills at most one output beyond what was asked (the host's ans).
        for (std::size_t i = static_cast<std::size_t>(std::max(call.outCount, 1));
             i < outputs.size(); ++i) {
            if (outputs[i]) finding("an output slot beyond the requested count was filled");
        }
    }
    if (vqLiveArrayCount() != before) finding("host arrays were not released");
    return 0;
}

}  // namespace

namespace zkfs::fuzz {

std::span<const Target> gatewayTargets() {
    static constexpr Target kGateways[] = {
#define QUORIN_BUILTIN(name, scope, args, maxOut, minIn, maxIn, usage, details) \
    {#name, setUp, runOne<&name>},
#include "quorin/io/filesystem/quorin/Builtins.def"
#undef QUORIN_BUILTIN
    };
    return kGateways;
}

}  // namespace zkfs::fuzz
