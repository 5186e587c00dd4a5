#pragma once
// Pieces shared by the fault tests: names and trees made with the POSIX calls directly
// (raw bytes, paths past the system's limit), calls of the path gateways, and a child
// process with a private mount namespace for file systems that run full.
#include "zkfs/test/Arrays.hpp"

#include "fl/ustring.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace zkfs::test::faults {

// The host's text for a name in bytes (bytes that are not UTF-8 become U+DC80..U+DCFF),
// and back.
fl::ustring hostText(std::string_view bytes);
std::string bytesOf(const fl::ustring& text);

// A regular file with this content at a path given in bytes; fails the test when the
// name is taken.
void makeRawFile(const std::string& path, std::string_view content = {});
// lstat by bytes: whether anything has the name, and its permission bits.
bool rawExists(const std::string& path);
unsigned rawMode(const std::string& path);
// The names in a folder, as bytes, sorted.
std::vector<std::string> rawNames(const std::string& folder);

// A chain of folders under `base`, each name 200 bytes long, until the full path of the
// deepest is at least `length` bytes, made with mkdirat/openat so that no call ever takes
// the whole path. Removed the same way when the object goes.
class DeepFolder {
public:
    DeepFolder(const std::filesystem::path& base, std::size_t length);
    DeepFolder(const DeepFolder&) = delete;
    DeepFolder& operator=(const DeepFolder&) = delete;
    ~DeepFolder();

    [[nodiscard]] const std::string& path() const noexcept { return path_; }
    // The path of the first folder of the chain.
    [[nodiscard]] std::string top() const { return base_ + "/" + component_; }
    // A file in the deepest folder, made through its descriptor; answers its full path.
    std::string makeFile(const std::string& name);
    // Names in the deepest folder.
    [[nodiscard]] std::vector<std::string> names() const;
    // The permission bits of the folder `depth` levels down (1 is top()), or of a file
    // in the deepest folder, read through descriptors.
    [[nodiscard]] unsigned folderMode(std::size_t depth) const;
    [[nodiscard]] unsigned fileMode(const std::string& name) const;
    [[nodiscard]] std::size_t depth() const noexcept { return depth_; }
    // The full path of the folder `depth` levels down.
    [[nodiscard]] std::string folderPath(std::size_t depth) const;

private:
    std::string base_;
    std::string component_;
    std::string path_;
    std::size_t depth_ = 0;
    int deepest_ = -1;
};

// resolvePathFcn / resolvePathFcnWithAttributes on one path: the fields of the 1x1 result.
struct Resolved {
    fl::ustring path;
    fl::ustring type;
    bool readable = false;
    bool writable = false;
    double lastModified = 0;
    double size = 0;
};
Resolved resolve(const fl::ustring& path);
Resolved resolveWithAttributes(const fl::ustring& path);
// isSymlinkFcn on one path with both results.
struct LinkAnswer {
    bool isLink = false;
    fl::ustring target;
};
LinkAnswer isSymlink(const fl::ustring& path);

// Runs `block` as root in a child process with a private mount namespace in which a
// tmpfs with `options` is mounted on `mountPoint`. Failures inside come back as failures
// of the caller; answers false (with `why` set) when the system does not let the child
// mount, so that the caller can skip.
bool runWithTmpfs(const std::string& mountPoint, const std::string& options,
                  const std::function<void()>& block, std::string& why);

}  // namespace zkfs::test::faults
