// Path analysis built-ins through their gateways, on one string column as the host would
// hand it over. The data is a list file (one path a line) made by bench/run, named in
// ZKFS_BENCH_DATA. Building the argument is the host's work and stays outside the timed
// loop; the result struct array (and its release) is ours and stays inside.
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

std::vector<fl::ustring> readPathList(benchmark::State& state) {
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

unique_vqarray_ptr pathColumn(const std::vector<fl::ustring>& texts) {
    const vqSize dims[] = {texts.size(), 1};
    auto str = Hexfarrow::String::make_String(2, dims);
    for (std::size_t i = 0; i < texts.size(); ++i) str->set(i, texts[i]);
    return Hexfarrow::String::createStringArray(std::move(str));
}

void timeGateway(benchmark::State& state, GatewayFunction* gateway,
                 const std::vector<const vqArray*>& args, std::size_t elements) {
    for (auto _ : state) {
        unique_vqarray_ptr out[1];
        gateway(1, out, static_cast<int>(args.size()), args.data());
        benchmark::DoNotOptimize(out[0].get());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(elements));
}

// Peers: `realpath` over the list, and a Python loop of os.stat + os.access.
void BM_ResolvePathWithAttributes(benchmark::State& state) {
    const auto paths = readPathList(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = pathColumn(paths);
    timeGateway(state, quorin::io::filesystem::quorin::resolvePathFcnWithAttributes, {column.get()},
                paths.size());
}
BENCHMARK(BM_ResolvePathWithAttributes)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

// Peer: os.path.split, os.path.splitext and urllib.parse.urlsplit over the same texts.
void BM_PathFcn(benchmark::State& state) {
    const auto paths = readPathList(state);
    if (paths.empty()) return;
    const unique_vqarray_ptr column = pathColumn(paths);
    const unique_vqarray_ptr convention = vqCreateString(u"unix");
    timeGateway(state, quorin::io::filesystem::quorin::pathFcn, {column.get(), convention.get()},
                paths.size());
}
BENCHMARK(BM_PathFcn)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1.0);

}  // namespace
