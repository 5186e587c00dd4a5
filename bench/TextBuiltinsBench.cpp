// Text-only built-ins, called through their gateways on one string array as the host
// would hand it over. The data is a list file (one path a line) that bench/run made; its
// name comes in ZKFS_BENCH_DATA. For relativepath the first line is the source folder.
// Building the argument array is the host's work and stays outside the timed loop; the
// result array (and its release) is ours and stays inside.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

std::vector<fl::ustring> readLines(benchmark::State& state) {
    std::vector<fl::ustring> lines;
    const char* list = std::getenv("ZKFS_BENCH_DATA");
    if (list == nullptr || *list == '\0') {
        state.SkipWithError("ZKFS_BENCH_DATA is not set: run the benchmarks through bench/run");
        return lines;
    }
    std::ifstream in(list);
    std::string line;
    while (std::getline(in, line)) lines.push_back(fl::i18n::to_ustring(line));
    if (lines.empty()) state.SkipWithError("the path list is empty");
    return lines;
}

// An N-by-1 string array of the texts from `first` on.
unique_vqarray_ptr stringColumn(const std::vector<fl::ustring>& texts, std::size_t first = 0) {
    const vqSize dims[] = {texts.size() - first, 1};
    auto str = Hexfarrow::String::make_String(2, dims);
    for (std::size_t i = first; i < texts.size(); ++i) str->set(i - first, texts[i]);
    return Hexfarrow::String::createStringArray(std::move(str));
}

template <class Gateway>
void runGateway(benchmark::State& state, Gateway gateway, std::vector<const vqArray*> args,
                std::size_t elements) {
    for (auto _ : state) {
        unique_vqarray_ptr out[1];
        gateway(1, out, static_cast<int>(args.size()), args.data());
        benchmark::DoNotOptimize(out[0].get());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(elements));
}

// Peer: os.path.isabs over the same list.
void BM_IsAbsolutePathNoIO(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    runGateway(state, isAbsolutePathNoIOFcn, {column.get()}, paths.size());
}
BENCHMARK(BM_IsAbsolutePathNoIO)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: len(p) <= 4352 over the same list.
void BM_PathNameLengthValidation(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    runGateway(state, pathNameLengthValidation, {column.get()}, paths.size());
}
BENCHMARK(BM_PathNameLengthValidation)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: pathlib.Path(p).as_uri() over the same (absolute) paths.
void BM_CreateFileURL(benchmark::State& state) {
    const auto paths = readLines(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = stringColumn(paths);
    runGateway(state, quorin::io::filesystem::quorin::createFileURL, {column.get()}, paths.size());
}
BENCHMARK(BM_CreateFileURL)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: os.path.relpath(p, source) over the same destinations.
void BM_RelativePath(benchmark::State& state) {
    const auto lines = readLines(state);
    if (lines.size() < 2) {
        if (!lines.empty()) state.SkipWithError("no destinations after the source line");
        return;
    }
    const unique_vqarray_ptr source = Hexfarrow::String::createStringArray(lines[0]);
    const unique_vqarray_ptr destinations = stringColumn(lines, 1);
    runGateway(state, relativepath, {source.get(), destinations.get()}, lines.size() - 1);
}
BENCHMARK(BM_RelativePath)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
