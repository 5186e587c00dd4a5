// Replays saved fuzz inputs (files, or every file in the folders named) through one fuzz
// target without libFuzzer: the seeds and past findings become regression tests that run
// with any compiler. `replay TARGET INPUT...`. Exit 77 when the target cannot run here.
#include "FuzzTarget.hpp"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
    const zkfs::fuzz::Target* target = argc > 1 ? zkfs::fuzz::findTarget(argv[1]) : nullptr;
    if (target == nullptr) {
        std::fprintf(stderr, "usage: replay TARGET INPUT...\ntargets:");
        for (const auto& t : zkfs::fuzz::targets()) {
            std::fprintf(stderr, " %.*s", static_cast<int>(t.name.size()), t.name.data());
        }
        std::fprintf(stderr, "\n");
        return 2;
    }
    std::vector<std::filesystem::path> inputs;
    for (int i = 2; i < argc; ++i) {
        const std::filesystem::path p = argv[i];
        if (std::filesystem::is_directory(p)) {
            for (const auto& e : std::filesystem::directory_iterator(p)) {
                if (e.is_regular_file()) inputs.push_back(e.path());
            }
        } else {
            inputs.push_back(p);
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "no inputs to replay\n");
        return 2;
    }
    if (const int status = target->init({}); status != 0) return status;
    for (const auto& p : inputs) {
        std::ifstream f(p, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(f), {}};
        std::fprintf(stderr, "replay %s\n", p.c_str());
        target->runOne(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replayed %zu inputs\n", inputs.size());
    return 0;
}
