// File and link built-ins, run by bench/run next to the tools a user would otherwise pick.
//
// BM_MkFile: 10,000 empty files per iteration, each through one mkFileFcn call (no
// result asked for), into a fresh empty folder under $ZKFS_BENCH_DATA, made outside the
// timing. The folders stay until bench/run removes the scratch tree, as the peer's do:
// freshly freed inodes make the next creations slower on ext4, which would skew the
// comparison. Peer: one `touch` over the same names.
// BM_IsSymlink: one isSymlinkFcn call over the paths listed in $ZKFS_BENCH_DATA/paths.txt
// (one per line), given as a string array. Peer: a Python os.path.islink loop.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"
#include "vq/vqArray.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr int kFilesPerRound = 10'000;

const char* benchData(benchmark::State& state) {
    const char* data = std::getenv("ZKFS_BENCH_DATA");
    if (data == nullptr) state.SkipWithError("ZKFS_BENCH_DATA is not set (run through bench/run)");
    return data;
}

void BM_MkFile(benchmark::State& state) {
    const char* data = benchData(state);
    if (data == nullptr) return;
    int round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        // A folder no earlier round or run has used: every name must be new.
        fs::path folder;
        do {
            folder = fs::path(data) / ("ours-" + std::to_string(round++));
        } while (!fs::create_directory(folder));
        std::vector<unique_vqarray_ptr> names;
        names.reserve(kFilesPerRound);
        for (int i = 0; i < kFilesPerRound; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "f%05d.dat", i);
            names.push_back(vqCreateString(fl::i18n::to_ustring((folder / name).native())));
        }
        unique_vqarray_ptr slot;
        state.ResumeTiming();

        for (const auto& name : names) {
            const vqArray* args[] = {name.get()};
            mkFileFcn(0, &slot, 1, args);
        }
    }
    state.SetItemsProcessed(state.iterations() * kFilesPerRound);
}
// Each iteration writes 10,000 files: a few are plenty.
BENCHMARK(BM_MkFile)->Iterations(3)->Unit(benchmark::kMillisecond);

void BM_IsSymlink(benchmark::State& state) {
    const char* data = benchData(state);
    if (data == nullptr) return;
    std::vector<std::string> paths;
    {
        std::ifstream list(fs::path(data) / "paths.txt");
        for (std::string line; std::getline(list, line);) {
            if (!line.empty()) paths.push_back(line);
        }
    }
    if (paths.empty()) {
        state.SkipWithError("no paths in paths.txt");
        return;
    }
    unique_vqarray_ptr input = Hexfarrow::String::createStringArray(1, paths.size());
    auto& strings = Hexfarrow::String::getMutableString(input.get());
    for (std::size_t i = 0; i < paths.size(); ++i) strings.set(i, fl::i18n::to_ustring(paths[i]));

    const vqArray* args[] = {input.get()};
    for (auto _ : state) {
        unique_vqarray_ptr result;
        isSymlinkFcn(1, &result, 1, args);
        benchmark::DoNotOptimize(result.get());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(paths.size()));
}
BENCHMARK(BM_IsSymlink)->Unit(benchmark::kMillisecond);

}  // namespace
