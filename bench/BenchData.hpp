#pragma once
// What every list-driven benchmark case needs: the list file bench/run made (named in
// ZKFS_BENCH_DATA, one path a line), the column of texts the host would hand over, and
// the timed gateway loop. Building the argument is the host's work and stays outside the
// timed loop; the result (and its release) is ours and stays inside.
#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"
#include "vq/vqArray.hpp"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace zkfs::bench {

// The list's lines as UTF-16; empty (and the case skipped) when there is no list.
inline std::vector<fl::ustring> readLines(benchmark::State& state) {
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
inline unique_vqarray_ptr stringColumn(const std::vector<fl::ustring>& texts,
                                       std::size_t first = 0) {
    const vqSize dims[] = {texts.size() - first, 1};
    auto str = Hexfarrow::String::make_String(2, dims);
    for (std::size_t i = first; i < texts.size(); ++i) str->set(i - first, texts[i]);
    return Hexfarrow::String::createStringArray(std::move(str));
}

// Calls a gateway with one output per iteration; `elements` is what one call answers for.
template <class Gateway>
void timeGateway(benchmark::State& state, Gateway gateway, std::vector<const vqArray*> args,
                 std::size_t elements) {
    for (auto _ : state) {
        unique_vqarray_ptr out[1];
        gateway(1, out, static_cast<int>(args.size()), args.data());
        benchmark::DoNotOptimize(out[0].get());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(elements));
}

}  // namespace zkfs::bench
