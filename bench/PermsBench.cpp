// The permission change on a whole tree, run by bench/run next to `chmod -R` on the same
// tree ($ZKFS_BENCH_DATA, 100,000 or 1,000,000 entries).
//
// BM_ModifyPerms_<Scope><Walk>: one modifyPerms_impl call (one output, so failures are
// collected rather than thrown) over the tree with scope "all" or "files". The request
// picks the walk: "Readable" true (top-down), false (bottom-up) or absent (flat); each
// also names one more bit so the peer's mode string is the same change. Before every
// iteration (outside the timing) `chmod -R UNDO` takes the change back, so each one
// really changes every entry, as `chmod -R` does every time; the unchanged case has
// nothing to take back.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "fl/i18n/unicode.hpp"
#include "vq/vqArray.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::size_t countEntries(const fs::path& root) {
    std::size_t n = 0;
    std::error_code ec;
    for (fs::recursive_directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec))
        ++n;
    return n;
}

void modifyTree(benchmark::State& state, std::vector<std::pair<std::string, bool>> request,
                const char16_t* scope, const std::string& undo) {
    const char* data = std::getenv("ZKFS_BENCH_DATA");
    if (data == nullptr) {
        state.SkipWithError("ZKFS_BENCH_DATA is not set (run through bench/run)");
        return;
    }
    const std::size_t entries = countEntries(data);

    std::vector<std::string> names;
    for (const auto& entry : request) names.push_back(entry.first);
    unique_vqarray_ptr location = vqCreateString(fl::i18n::to_ustring(data));
    unique_vqarray_ptr type = vqCreateString(u"Folder");
    unique_vqarray_ptr req = vqCreateStructArray({1, 1}, names);
    for (const auto& [name, value] : request) {
        vqSetField(req.get(), 0, name.c_str(), vqCreateLogicalScalar(value).release());
    }
    unique_vqarray_ptr unused = vqCreateLogicalScalar(false);
    unique_vqarray_ptr scopeText = vqCreateString(scope);
    const vqArray* args[] = {location.get(), type.get(), req.get(), unused.get(), scopeText.get()};

    const std::string undoCommand = "chmod -R " + undo + " '" + std::string(data) + "'";
    for (auto _ : state) {
        if (!undo.empty()) {
            state.PauseTiming();
            if (std::system(undoCommand.c_str()) != 0) state.SkipWithError("chmod -R failed");
            state.ResumeTiming();
        }
        unique_vqarray_ptr failures;
        modifyPerms_impl(1, &failures, 5, args);
        if (failures == nullptr || vqGetNumberOfElements(failures.get()) != 0) {
            state.SkipWithError("the change reported failures");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(entries));
}

// A tree of 100,000 entries takes a fraction of a second: a few rounds are plenty; one of
// 1,000,000 takes seconds, and bench/run asks for one ($ZKFS_BENCH_ITERATIONS).
std::int64_t iterations() {
    const char* given = std::getenv("ZKFS_BENCH_ITERATIONS");
    const long n = given == nullptr ? 0 : std::strtol(given, nullptr, 10);
    return n > 0 ? n : 3;
}

#define ZKFS_PERMS_BENCH(NAME, SCOPE, UNDO, ...)                                          \
    void NAME(benchmark::State& state) { modifyTree(state, {__VA_ARGS__}, SCOPE, UNDO); } \
    BENCHMARK(NAME)->Iterations(iterations())->Unit(benchmark::kMillisecond)->UseRealTime()

ZKFS_PERMS_BENCH(BM_ModifyPerms_AllTopDown, u"all", "u-r,g-w", {"Readable", true},
                 {"GroupWrite", true});
ZKFS_PERMS_BENCH(BM_ModifyPerms_AllBottomUp, u"all", "u+r,o+r", {"Readable", false},
                 {"OtherRead", false});
ZKFS_PERMS_BENCH(BM_ModifyPerms_AllFlat, u"all", "g-w", {"GroupWrite", true});
ZKFS_PERMS_BENCH(BM_ModifyPerms_FilesTopDown, u"files", "u-r,g-w", {"Readable", true},
                 {"GroupWrite", true});
ZKFS_PERMS_BENCH(BM_ModifyPerms_FilesBottomUp, u"files", "u+r,o+r", {"Readable", false},
                 {"OtherRead", false});
ZKFS_PERMS_BENCH(BM_ModifyPerms_FilesFlat, u"files", "g-w", {"GroupWrite", true});
// Owner read on a tree where every entry has it: a walk that knows each mode changes
// nothing at all.
ZKFS_PERMS_BENCH(BM_ModifyPerms_AllUnchanged, u"all", "", {"Readable", true});

}  // namespace
