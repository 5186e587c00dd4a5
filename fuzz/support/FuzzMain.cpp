// libFuzzer's entry points for the zkfs fuzz target ZKFS_FUZZ_TARGET names.
#include "FuzzTarget.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

#ifndef ZKFS_FUZZ_TARGET
#error "ZKFS_FUZZ_TARGET names the fuzz target"
#endif

namespace {

const zkfs::fuzz::Target* target = nullptr;

bool isFolder(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

std::string folderOf(std::string_view path) {
    const auto slash = path.rfind('/');
    return slash == std::string_view::npos ? "." : std::string(path.substr(0, slash + 1));
}

std::string absolute(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    if (real == nullptr) return path;
    std::string out = real;
    std::free(real);
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    target = zkfs::fuzz::findTarget(ZKFS_FUZZ_TARGET);
    if (target == nullptr) {
        std::fprintf(stderr, "no fuzz target named %s\n", ZKFS_FUZZ_TARGET);
        std::_Exit(2);
    }
    // libFuzzer writes new inputs to the first corpus folder and findings next to the
    // artifact prefix (or the working folder): those must stay writable. The target then
    // works inside its sandbox, so every path libFuzzer still needs is made absolute.
    static std::vector<std::string> rewritten;
    static std::vector<char*> args;
    std::vector<std::string> writable;
    std::string artifacts = absolute(".") + "/";
    bool artifactsGiven = false;
    for (int i = 0; i < *argc; ++i) {
        std::string arg = (*argv)[i];
        if (arg.starts_with("-artifact_prefix=")) {
            const std::string prefix = arg.substr(17);
            const std::string folder = absolute(folderOf(prefix));
            artifacts = folder + "/" + prefix.substr(prefix.rfind('/') + 1);
            arg = "-artifact_prefix=" + artifacts;
            writable.push_back(folder);
            artifactsGiven = true;
        } else if (arg.starts_with("-exact_artifact_path=")) {
            writable.push_back(absolute(folderOf(arg.substr(21))));
            arg = "-exact_artifact_path=" + writable.back() + "/" +
                  arg.substr(arg.rfind('/') == std::string::npos ? 21 : arg.rfind('/') + 1);
        } else if (i > 0 && !arg.starts_with("-")) {
            const bool first = isFolder(arg) && writable.empty();
            arg = absolute(arg);
            if (first) writable.push_back(arg);
        }
        rewritten.push_back(arg);
    }
    if (!artifactsGiven) {
        writable.push_back(absolute("."));
        rewritten.push_back("-artifact_prefix=" + artifacts);
    }
    for (auto& r : rewritten) args.push_back(r.data());
    args.push_back(nullptr);
    *argc = static_cast<int>(rewritten.size());
    *argv = args.data();
    if (const int status = target->init(writable); status != 0) std::_Exit(status);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return target->runOne(data, size);
}
