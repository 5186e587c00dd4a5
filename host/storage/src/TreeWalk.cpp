// The descriptor-relative tree walk: every call through the system-call seam.
#include "foundation/storage/provider/TreeWalk.hpp"

#include "LocalFiles.hpp"

#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace foundation::storage::provider {

TreeVisitor::~TreeVisitor() = default;
bool TreeVisitor::keeps(EntryKind /*kind*/) const { return true; }
void TreeVisitor::arrange(TreeFolder& /*folder*/, std::vector<TreeEntry>& /*entries*/) {}
void TreeVisitor::leave(TreeFolder& /*folder*/, const TreeEntry& /*entry*/) {}
bool TreeVisitor::wantsLeave() const { return false; }

namespace {

namespace sys = fl::sys;
using sys::UniqueFd;

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW;
constexpr std::size_t kReadBuffer = std::size_t{64} * 1024;

// A quarter of the descriptors the process may hold, so the caller keeps the rest.
std::size_t descriptorBudget() {
    constexpr rlim_t kLeast = 4;  // the top, a folder, its parent and one being opened
    constexpr rlim_t kMost = 256;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kMost;
    return static_cast<std::size_t>(std::clamp(limit.rlim_cur / 4, kLeast, kMost));
}

EntryKind kindOfMode(unsigned mode) {
    if (S_ISDIR(mode)) return EntryKind::Folder;
    if (S_ISLNK(mode)) return EntryKind::SymbolicLink;
    if (S_ISREG(mode)) return EntryKind::File;
    return EntryKind::Other;
}

bool isAscii(std::string_view s) {
    return std::all_of(s.begin(), s.end(), [](char c) { return (c & 0x80) == 0; });
}

// The listings' order: UTF-16 code units of the decoded name. It is byte order for ASCII
// names only (characters above U+FFFF and undecodable bytes sort differently), so a
// folder holding any other name is sorted on its decoded names.
void sortAsListings(std::vector<TreeEntry>& entries) {
    if (std::all_of(entries.begin(), entries.end(),
                    [](const TreeEntry& e) { return isAscii(e.name); })) {
        std::sort(entries.begin(), entries.end(),
                  [](const TreeEntry& a, const TreeEntry& b) { return a.name < b.name; });
        return;
    }
    std::vector<fl::ustring> keys;
    keys.reserve(entries.size());
    for (const TreeEntry& e : entries) keys.push_back(fl::i18n::to_ustring(e.name));
    std::vector<std::size_t> order(entries.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    std::vector<TreeEntry> sorted;
    sorted.reserve(entries.size());
    for (const std::size_t i : order) sorted.push_back(std::move(entries[i]));
    entries = std::move(sorted);
}

vfs::AbsoluteIRI fileIRI(const std::string& path) {
    return vfs::toAbsoluteIRI(u"file", fl::i18n::to_ustring(path));
}

struct Identity {
    dev_t dev = 0;
    ino_t ino = 0;
    bool known = false;
};

Identity identityOf(int fd) {
    struct stat st {};
    if (sys::fstatat(fd, "", st, AT_EMPTY_PATH) != 0) return {};
    return {st.st_dev, st.st_ino, true};
}

class Walker final : public TreeFolder {
public:
    Walker(const vfs::AbsoluteIRI& top, TreeVisitor& visitor)
        : top_(fl::i18n::to_utf8(vfs::fromAbsoluteIRI(top))),
          topIRI_(top),
          visitor_(visitor),
          budget_(descriptorBudget()),
          owner_(::geteuid()),
          buffer_(kReadBuffer) {}

    void run();

    [[nodiscard]] std::string pathOf(std::string_view name) const override;
    [[nodiscard]] int status(const std::string& name, EntryStatus& out) override;
    [[nodiscard]] int setMode(const std::string& name, unsigned mode) override;
    [[nodiscard]] ExistenceTypeExtended existence(const std::string& name) override;

private:
    struct Level {
        std::string name;  // in the parent; empty for the top
        UniqueFd fd;
        std::vector<TreeEntry> entries;
        std::size_t next = 0;
        Identity identity;  // taken when the window closes it
    };

    [[nodiscard]] int here() const { return levels_.back().fd.get(); }
    // The whole path of `name` in the folder `depth` levels below the top.
    [[nodiscard]] std::string pathThrough(std::size_t depth, std::string_view name) const;
    void refuse(std::string path, int err, bool opening, const vfs::AbsoluteIRI& location);
    bool read(Level& level);
    void descend(std::size_t entry);
    void ascend();
    void adopt(Level& level, UniqueFd fd);
    void reopen(std::size_t index);
    [[nodiscard]] bool readOnlyFileSystem(dev_t dev, const std::string& name);

    std::string top_;
    vfs::AbsoluteIRI topIRI_;
    TreeVisitor& visitor_;
    std::size_t budget_;
    std::size_t open_ = 0;
    uid_t owner_;
    bool noFchmodat2_ = false;
    std::vector<Level> levels_;
    std::vector<char> buffer_;
    std::vector<std::pair<dev_t, bool>> readOnly_;  // file systems met, and whether read-only
};

std::string Walker::pathThrough(std::size_t depth, std::string_view name) const {
    std::string path = top_;
    const auto add = [&path](std::string_view segment) {
        if (path.empty() || path.back() != '/') path += '/';
        path += segment;
    };
    for (std::size_t i = 1; i <= depth; ++i) add(levels_[i].name);
    if (!name.empty()) add(name);
    return path;
}

std::string Walker::pathOf(std::string_view name) const {
    return pathThrough(levels_.size() - 1, name);
}

void Walker::refuse(std::string path, int err, bool opening, const vfs::AbsoluteIRI& location) {
    visitor_.refused(
        {std::move(path), err, opening, vfs::Exception::fromSystemError(err, location)});
}

// The whole folder, or false (reported) when it cannot be read.
bool Walker::read(Level& level) {
    const int fd = level.fd.get();
    for (;;) {
        const long n = sys::getdents64(fd, buffer_.data(), buffer_.size());
        if (n < 0) {
            const int err = errno;
            std::string path = pathOf("");
            refuse(path, err, false, fileIRI(path));
            return false;
        }
        if (n == 0) break;
        for (std::size_t pos = 0; pos < static_cast<std::size_t>(n);) {
            // struct linux_dirent64: ino 8, off 8, reclen 2, type 1, name.
            const char* rec = buffer_.data() + pos;
            unsigned short reclen = 0;
            std::memcpy(&reclen, rec + 16, sizeof reclen);
            pos += reclen;
            const auto type = static_cast<unsigned char>(rec[18]);
            const char* name = rec + 19;
            if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
                continue;
            }
            EntryKind kind = EntryKind::Other;
            if (type == DT_REG) {
                kind = EntryKind::File;
            } else if (type == DT_DIR) {
                kind = EntryKind::Folder;
            } else if (type == DT_LNK) {
                kind = EntryKind::SymbolicLink;
            } else if (type == DT_UNKNOWN) {
                struct stat st {};
                if (sys::fstatat(fd, name, st, AT_SYMLINK_NOFOLLOW) != 0) {
                    const int err = errno;
                    if (err == ENOENT) continue;  // removed since the read
                    // As a listing does: the folder fails, naming the entry.
                    refuse(pathOf(""), err, false, fileIRI(pathOf(name)));
                    return false;
                }
                kind = kindOfMode(st.st_mode);
            }
            if (visitor_.keeps(kind)) level.entries.push_back({name, kind});
        }
    }
    sortAsListings(level.entries);
    return true;
}

void Walker::adopt(Level& level, UniqueFd fd) {
    if (open_ >= budget_) {
        // The shallowest open folder below the top, never the one being walked.
        for (std::size_t i = 1; i + 1 < levels_.size(); ++i) {
            Level& candidate = levels_[i];
            if (!candidate.fd.valid()) continue;
            candidate.identity = identityOf(candidate.fd.get());
            candidate.fd.reset();
            --open_;
            break;
        }
    }
    level.fd = std::move(fd);
    ++open_;
}

void Walker::reopen(std::size_t index) {
    Level& level = levels_[index];
    // Through ".." of the folder below, when that is still the folder left.
    if (index + 1 < levels_.size() && levels_[index + 1].fd.valid() && level.identity.known) {
        UniqueFd up = sys::openat(levels_[index + 1].fd.get(), "..", O_RDONLY | O_DIRECTORY);
        const Identity found = up.valid() ? identityOf(up.get()) : Identity{};
        if (found.known && found.dev == level.identity.dev && found.ino == level.identity.ino) {
            adopt(level, std::move(up));
            return;
        }
    }
    // Else by the chain of names from the deepest folder still open, each folder on the
    // way kept open as the window allows, so the next ones up cost nothing.
    std::size_t from = index;
    while (!levels_[from - 1].fd.valid()) --from;
    int err = 0;
    for (std::size_t i = from; i <= index && err == 0; ++i) {
        Level& step = levels_[i];
        UniqueFd fd = sys::openat(levels_[i - 1].fd.get(), step.name.c_str(), kFolderFlags);
        if (!fd.valid()) {
            err = errno;
            break;
        }
        const Identity found = identityOf(fd.get());
        // Another folder now has the name: the one walked is gone from here.
        if (step.identity.known &&
            (!found.known || found.dev != step.identity.dev || found.ino != step.identity.ino)) {
            err = ENOENT;
            break;
        }
        adopt(step, std::move(fd));
    }
    if (err == 0) return;
    level.next = level.entries.size();
    std::string path = pathThrough(index, {});
    refuse(path, err, false, fileIRI(path));
}

void Walker::descend(std::size_t entry) {
    const TreeEntry& folder = levels_.back().entries[entry];
    UniqueFd opened = sys::openat(here(), folder.name.c_str(), kFolderFlags);
    if (!opened.valid()) {
        const int err = errno;
        std::string path = pathOf(folder.name);
        const vfs::AbsoluteIRI location = fileIRI(path);
        refuse(std::move(path), err, true, location);
        if (visitor_.wantsLeave()) visitor_.leave(*this, levels_.back().entries[entry]);
        return;
    }
    levels_.push_back(Level{folder.name, UniqueFd(), {}, 0, {}});
    adopt(levels_.back(), std::move(opened));
    if (!read(levels_.back())) {
        levels_.back().entries.clear();
        return;  // left like any walked folder, with nothing in it
    }
    visitor_.arrange(*this, levels_.back().entries);
}

void Walker::ascend() {
    if (levels_.size() == 1) {
        levels_.pop_back();
        --open_;
        return;
    }
    const std::size_t parent = levels_.size() - 2;
    const bool needed =
        levels_[parent].next < levels_[parent].entries.size() || visitor_.wantsLeave();
    if (needed && !levels_[parent].fd.valid()) reopen(parent);
    if (levels_.back().fd.valid()) --open_;
    levels_.pop_back();
    if (visitor_.wantsLeave() && levels_.back().fd.valid()) {
        visitor_.leave(*this, levels_.back().entries[levels_.back().next - 1]);
    }
}

void Walker::run() {
    UniqueFd top;
    try {
        top = detail::openFolderToList(topIRI_);
    } catch (const vfs::Exception& e) {
        visitor_.refused({top_, 0, false, e});
        return;
    }
    levels_.push_back(Level{});
    adopt(levels_.back(), std::move(top));
    if (!read(levels_.back())) return;
    visitor_.arrange(*this, levels_.back().entries);
    while (!levels_.empty()) {
        Level& level = levels_.back();
        if (level.next == level.entries.size()) {
            ascend();
            continue;
        }
        const std::size_t index = level.next++;
        const TreeEntry& entry = level.entries[index];
        if (entry.kind != EntryKind::Folder) {
            visitor_.visit(*this, entry);
        } else if (visitor_.enter(*this, entry)) {
            descend(index);
        }
    }
}

bool Walker::readOnlyFileSystem(dev_t dev, const std::string& name) {
    for (const auto& [known, readOnly] : readOnly_) {
        if (known == dev) return readOnly;
    }
    // Once per file system met: the entry itself, so a mount point answers for its own.
    bool readOnly = true;
    const UniqueFd entry = sys::openat(here(), name.c_str(), O_PATH | O_NOFOLLOW);
    struct statfs fs {};
    if (entry.valid() && sys::fstatfs(entry.get(), fs) == 0) {
        readOnly = (static_cast<unsigned long>(fs.f_flags) & ST_RDONLY) != 0;
    }
    readOnly_.emplace_back(dev, readOnly);
    return readOnly;
}

int Walker::status(const std::string& name, EntryStatus& out) {
    struct statx st {};
    constexpr unsigned kWanted = STATX_TYPE | STATX_MODE | STATX_UID;
    if (sys::statx(here(), name.c_str(), AT_SYMLINK_NOFOLLOW, kWanted, st) != 0) {
        return errno;
    }
    out.kind = kindOfMode(st.stx_mode);
    out.mode = st.stx_mode & 07777U;
    constexpr std::uint64_t kFixed = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
    // Only an owner may set a mode, even an unchanged one (without CAP_FOWNER, which is
    // not asked for: the call is then simply made).
    out.changeMayFail = (st.stx_mask & STATX_UID) == 0 || st.stx_uid != owner_ ||
                        (st.stx_attributes_mask & kFixed) != kFixed ||
                        (st.stx_attributes & kFixed) != 0 ||
                        readOnlyFileSystem(makedev(st.stx_dev_major, st.stx_dev_minor), name);
    return 0;
}

int Walker::setMode(const std::string& name, unsigned mode) {
    if (!noFchmodat2_) {
        if (sys::fchmodat2(here(), name.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0) return 0;
        if (errno != ENOSYS) return errno;
        noFchmodat2_ = true;
    }
    return sys::fchmodat(here(), name.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

ExistenceTypeExtended Walker::existence(const std::string& name) {
    return detail::existsExtendedAt(here(), name.c_str(), [&] { return fileIRI(pathOf(name)); });
}

}  // namespace

void walkTree(const vfs::AbsoluteIRI& top, TreeVisitor& visitor) { Walker(top, visitor).run(); }

}  // namespace foundation::storage::provider
