#pragma once
// A temporary folder tree for one test.
//
// The root is made with mkdtemp under $TMPDIR (else /tmp) and resolved with realpath, so
// expected paths built from root() match what the library computes after resolving
// links (the temporary folder itself may sit behind one). Relative names given to the
// helpers are taken under the root; missing parent folders are made.
//
// On destruction the tree first gets u+rwx back on every folder and file (never
// following a link), so a test that took permissions away can still be cleaned up, then
// is removed. A cleanup that fails adds a test failure instead of leaving debris behind
// silently. Helpers throw std::system_error when the operating system refuses.

#include "fl/ustring.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace zkfs::test {

class TempTree {
public:
    TempTree();
    TempTree(const TempTree&) = delete;
    TempTree& operator=(const TempTree&) = delete;
    ~TempTree();

    // The canonical root.
    [[nodiscard]] const std::filesystem::path& root() const noexcept { return root_; }
    // root() / relative; the root itself for an empty name.
    [[nodiscard]] std::filesystem::path path(std::string_view relative) const;
    // The same as UTF-16 text, as a test hands it to the host.
    [[nodiscard]] fl::ustring upath(std::string_view relative) const;

    // A regular file with this content (replacing an existing file); returns its path.
    std::filesystem::path makeFile(std::string_view relative, std::string_view content = {});
    // A folder and its missing parents; returns its path.
    std::filesystem::path makeFolder(std::string_view relative);
    // A symbolic link at `relative` whose target text is `target`, stored as given
    // (relative targets are read from the link's folder); returns the link's path.
    std::filesystem::path makeLink(std::string_view target, std::string_view relative);
    // chmod without following a final link is impossible on Linux: the entry must not be
    // a link.
    void setMode(std::string_view relative, unsigned mode);
    [[nodiscard]] unsigned mode(std::string_view relative) const;  // permission bits only

    // Gives every entry (the root included) to this owner, without following links, so
    // an unprivileged child process can work in the tree.
    void handTo(std::uint32_t uid, std::uint32_t gid);

    // Every entry under the root, sorted, one line each: type, permission bits, size
    // for files, target for links, and the relative name. Compare two snapshots to show
    // that a failed call left the tree as it was.
    [[nodiscard]] std::vector<std::string> snapshot() const;

private:
    std::filesystem::path root_;
};

// Makes `folder` the current folder for one scope, and goes back however the scope ends
// (a test failure when the way back is gone).
class InFolder {
public:
    explicit InFolder(const std::filesystem::path& folder);
    InFolder(const InFolder&) = delete;
    InFolder& operator=(const InFolder&) = delete;
    ~InFolder();

private:
    std::filesystem::path previous_;
};

}  // namespace zkfs::test
