#pragma once
// Pieces shared by the fault tests: names in bytes, folder chains past the system's path
// limit, the permission change called as the host calls it, and a child process with a
// private mount namespace for file systems that run full.
#include "zkfs/test/Arrays.hpp"

#include "fl/ustring.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zkfs::test::faults {

// The host's text for a name in bytes (bytes that are not UTF-8 become U+DC80..U+DCFF),
// and back.
fl::ustring hostText(std::string_view bytes);
std::string bytesOf(const fl::ustring& text);

// The names in a folder, as bytes, sorted.
std::vector<std::string> rawNames(const std::string& folder);

// A chain of folders under `base`, each name 200 bytes long, until the full path of the
// deepest is at least `length` bytes, made with mkdirat so that no call ever takes the
// whole path; each level stays open, so its mode can still be read. Removed when the
// object goes.
class DeepFolder {
public:
    DeepFolder(const std::filesystem::path& base, std::size_t length);
    DeepFolder(const DeepFolder&) = delete;
    DeepFolder& operator=(const DeepFolder&) = delete;
    ~DeepFolder();

    [[nodiscard]] std::size_t depth() const noexcept { return levels_.size() - 1; }
    // The full path of the folder `level` levels down (0 is the base).
    [[nodiscard]] std::string path(std::size_t level) const;
    [[nodiscard]] std::string path() const { return path(depth()); }
    // The permission bits of the folder `level` levels down, or of `name` inside it.
    [[nodiscard]] unsigned mode(std::size_t level, const char* name = ".") const;
    // An empty file in the deepest folder; answers its full path.
    std::string makeFile(const std::string& name);

private:
    std::string base_;
    std::vector<int> levels_;
};

// modifyPerms_impl with one output (its failure rows, in order) or none (an empty list;
// a failure throws). No scope: three arguments.
struct Failure {
    fl::ustring name;
    fl::ustring cause;
};
using Request = std::vector<std::pair<std::string, bool>>;
std::vector<Failure> modifyPerms(int outCount, const fl::ustring& location, const char16_t* type,
                                 const Request& request,
                                 const std::optional<fl::ustring>& scope = std::nullopt);
std::vector<fl::ustring> namesOf(const std::vector<Failure>& failures);

// Runs `block` as root in a child process with a private mount namespace in which a
// tmpfs with `options` is mounted on `mountPoint`. Failures inside are printed by the
// child and fail the caller; answers false (with `why` set) when the system does not let
// the child mount, so that the caller can skip.
bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why);

}  // namespace zkfs::test::faults
