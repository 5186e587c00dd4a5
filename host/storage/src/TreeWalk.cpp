// The descriptor-relative tree walk: every call through the system-call seam.
#include "foundation/storage/provider/TreeWalk.hpp"

#include "LocalFiles.hpp"

#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <numeric>
#include <system_error>
#include <thread>
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
bool TreeVisitor::asksStatus(const TreeEntry& /*entry*/) const { return false; }

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

// What one statx said of an entry, as much as status() needs.
struct Seen {
    int error = 0;
    unsigned mode = 0;  // type and permission bits
    unsigned uid = 0;
    unsigned nlink = 0;
    unsigned devMajor = 0;
    unsigned devMinor = 0;
    std::uint32_t mask = 0;
    std::uint64_t attributes = 0;
    std::uint64_t attributesMask = 0;
};

Seen see(int dirfd, const char* name) {
    struct statx st {};
    constexpr unsigned kWanted = STATX_TYPE | STATX_MODE | STATX_UID | STATX_NLINK;
    Seen seen;
    if (sys::statx(dirfd, name, AT_SYMLINK_NOFOLLOW, kWanted, st) != 0) {
        seen.error = errno;
        return seen;
    }
    seen.mode = st.stx_mode;
    seen.uid = st.stx_uid;
    seen.nlink = st.stx_nlink;
    seen.devMajor = st.stx_dev_major;
    seen.devMinor = st.stx_dev_minor;
    seen.mask = st.stx_mask;
    seen.attributes = st.stx_attributes;
    seen.attributesMask = st.stx_attributes_mask;
    return seen;
}

// Whether a status read ahead is still the one the walk would read when it asks.
bool stillTrue(const Seen& seen) {
    if (seen.error != 0) return true;
    // Another name of the same file may be changed in between.
    if (!S_ISDIR(seen.mode) && seen.nlink > 1) return false;
#ifdef STATX_ATTR_MOUNT_ROOT
    // The same folder may be mounted at another place of the tree.
    if ((seen.attributesMask & STATX_ATTR_MOUNT_ROOT) == 0 ||
        (seen.attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
        return false;
    }
#endif
    return true;
}

void relax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

// How long the walk waits for a status being read on the other thread once nothing is
// left for it to read itself: a few times what one status call takes.
constexpr std::chrono::microseconds kPatience{20};

// One folder's statuses read ahead. The reading thread takes the next index from
// `claim`, and so does the walk while the one it needs is being read on the other
// thread; each index is read by whoever took it, at most once.
struct Ahead {
    enum State : unsigned char { Pending, Read, Left };  // Left: the walk reads it itself
    struct Slot {
        std::atomic<unsigned char> state{Pending};
        bool wanted = false;
        Seen seen;
    };

    Ahead(int folder, const std::vector<TreeEntry>& list)
        : fd(folder), entries(list.data()), end(list.size()), slots(new Slot[list.size()]) {}

    int fd;
    const TreeEntry* entries;  // the level's, which stay where they are while it lives
    std::size_t end;
    std::unique_ptr<Slot[]> slots;
    std::atomic<std::size_t> claim{0};
    bool retired = false;  // the walk's own: the reader will never touch it again

    // Reads the next entry nobody has taken, on whichever thread calls; false when every
    // entry is taken.
    bool readNext() {
        const std::size_t i = claim.fetch_add(1, std::memory_order_acq_rel);
        if (i >= end) return false;
        Slot& slot = slots[i];
        unsigned char state = Left;
        if (slot.wanted) {
            try {
                slot.seen = see(fd, entries[i].name.c_str());
                state = Read;
            } catch (...) {
                // A fault hook that threw: the walk reads it itself and meets it there.
            }
        }
        slot.state.store(state, std::memory_order_release);
        return true;
    }

    // The slot of entry `i` once read ahead, else nullptr (the walk then reads it).
    const Slot* take(std::size_t i) {
        Slot& slot = slots[i];
        std::chrono::steady_clock::time_point since;
        for (unsigned spins = 0;; ++spins) {
            const unsigned char state = slot.state.load(std::memory_order_acquire);
            if (state == Read) return &slot;
            if (state == Left || retired) return nullptr;
            std::size_t next = claim.load(std::memory_order_acquire);
            if (next <= i) {
                // Nobody has it yet: the walk reads it when asked, and the reader skips it
                // (and those before it, which the walk has passed).
                if (claim.compare_exchange_weak(next, i + 1, std::memory_order_acq_rel)) {
                    for (std::size_t j = next; j <= i; ++j) {
                        slots[j].state.store(Left, std::memory_order_relaxed);
                    }
                    return nullptr;
                }
                continue;
            }
            // Being read on the other thread: meanwhile the walk reads ahead too, so the
            // two share the folder's statuses rather than one waiting for the other.
            if (readNext()) continue;
            // Nothing left to read: it is about one system call away. Past a few of those,
            // that thread may have lost its processor, and reading it here is sooner.
            if (spins % 16 == 0) {
                const auto now = std::chrono::steady_clock::now();
                if (since == std::chrono::steady_clock::time_point{}) {
                    since = now;
                } else if (now - since > kPatience) {
                    return nullptr;
                }
            }
            relax();
        }
    }
};

// The thread that reads statuses ahead: it works on the folder the walk last pointed it
// to, and sleeps when that one is done.
class StatusReader {
public:
    StatusReader() = default;
    StatusReader(const StatusReader&) = delete;
    StatusReader& operator=(const StatusReader&) = delete;
    ~StatusReader() {
        if (!thread_.joinable()) return;
        {
            const std::lock_guard<std::mutex> held(lock_);
            stop_ = true;
            target_.store(nullptr);
        }
        wake_.notify_one();
        thread_.join();
    }

    // False when no thread can be had (the walk then reads every status itself).
    bool ready() {
        if (thread_.joinable()) return true;
        if (failed_) return false;
        try {
            thread_ = std::thread([this] { loop(); });
        } catch (const std::system_error&) {
            failed_ = true;
        }
        return !failed_;
    }

    void point(Ahead* ahead) {
        {
            const std::lock_guard<std::mutex> held(lock_);
            target_.store(ahead);
        }
        wake_.notify_one();
    }

    // After this the reader never touches `ahead` again.
    void release(Ahead& ahead) {
        Ahead* expected = &ahead;
        target_.compare_exchange_strong(expected, nullptr);
        ahead.retired = true;
        for (unsigned spins = 0; active_.load() == &ahead; ++spins) {
            if (spins >= 64) std::this_thread::yield();
            relax();
        }
    }

private:
    void loop() {
        for (;;) {
            Ahead* ahead = target_.load();
            if (ahead == nullptr) {
                std::unique_lock<std::mutex> held(lock_);
                wake_.wait(held, [this] { return stop_ || target_.load() != nullptr; });
                if (stop_) return;
                continue;
            }
            // Announced before it is checked again, so that release() either sees it or
            // this thread sees the target gone.
            active_.store(ahead);
            const bool done = target_.load() == ahead && work(*ahead);
            active_.store(nullptr);
            // Only a folder read to its end is let go: the walk may have pointed back to one
            // left for another meanwhile.
            if (done) target_.compare_exchange_strong(ahead, nullptr);
        }
    }

    // True when every entry is taken, false when the walk pointed elsewhere first.
    bool work(Ahead& ahead) {
        while (ahead.readNext()) {
            if (target_.load(std::memory_order_relaxed) != &ahead) return false;
        }
        return true;
    }

    std::thread thread_;
    bool failed_ = false;
    std::mutex lock_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::atomic<Ahead*> target_{nullptr};
    std::atomic<Ahead*> active_{nullptr};
};

// Fewer entries than this to read in a folder are read by the walk as it goes.
constexpr std::size_t kAheadLeast = 3;

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
        std::unique_ptr<Ahead> ahead;
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
    void readAhead(Level& level);
    void close(Level& level);
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
    // Last, so that it stops before the levels it reads go.
    StatusReader reader_;
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
            close(candidate);
            break;
        }
    }
    level.fd = std::move(fd);
    ++open_;
}

void Walker::close(Level& level) {
    if (level.ahead) reader_.release(*level.ahead);
    level.fd.reset();
    --open_;
}

void Walker::readAhead(Level& level) {
    const std::size_t wanted = static_cast<std::size_t>(
        std::count_if(level.entries.begin(), level.entries.end(),
                      [this](const TreeEntry& e) { return visitor_.asksStatus(e); }));
    if (wanted < kAheadLeast || !reader_.ready()) return;
    level.ahead = std::make_unique<Ahead>(level.fd.get(), level.entries);
    for (std::size_t i = 0; i < level.entries.size(); ++i) {
        level.ahead->slots[i].wanted = visitor_.asksStatus(level.entries[i]);
    }
    reader_.point(level.ahead.get());
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
    levels_.push_back(Level{folder.name, UniqueFd(), {}, 0, {}, nullptr});
    adopt(levels_.back(), std::move(opened));
    if (!read(levels_.back())) {
        levels_.back().entries.clear();
        return;  // left like any walked folder, with nothing in it
    }
    visitor_.arrange(*this, levels_.back().entries);
    readAhead(levels_.back());
}

void Walker::ascend() {
    if (levels_.back().ahead) reader_.release(*levels_.back().ahead);
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
    Level& back = levels_.back();
    if (needed && back.ahead && !back.ahead->retired &&
        back.ahead->claim.load(std::memory_order_relaxed) < back.ahead->end) {
        reader_.point(back.ahead.get());
    }
    if (visitor_.wantsLeave() && back.fd.valid()) {
        visitor_.leave(*this, back.entries[back.next - 1]);
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
    readAhead(levels_.back());
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
    Seen seen;
    const Ahead::Slot* ahead = nullptr;
    Level& level = levels_.back();
    // Asked of the entry being visited (or left), as the walk read it ahead.
    if (level.ahead && level.next > 0 && &level.entries[level.next - 1].name == &name) {
        ahead = level.ahead->take(level.next - 1);
    }
    if (ahead != nullptr && stillTrue(ahead->seen)) {
        seen = ahead->seen;
    } else {
        seen = see(here(), name.c_str());
    }
    if (seen.error != 0) return seen.error;
    out.kind = kindOfMode(seen.mode);
    out.mode = seen.mode & 07777U;
    constexpr std::uint64_t kFixed = STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;
    // Only an owner may set a mode, even an unchanged one (without CAP_FOWNER, which is
    // not asked for: the call is then simply made).
    out.changeMayFail = (seen.mask & STATX_UID) == 0 || seen.uid != owner_ ||
                        (seen.attributesMask & kFixed) != kFixed ||
                        (seen.attributes & kFixed) != 0 ||
                        readOnlyFileSystem(makedev(seen.devMajor, seen.devMinor), name);
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
