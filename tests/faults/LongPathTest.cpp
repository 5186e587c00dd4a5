// A real folder chain whose paths pass the system's limit of 4,096 bytes, made one level
// at a time (no case table can build one): a built-in given such a whole path answers as
// for one it cannot reach, and nothing is made or changed at a shortened path; a walk down
// such a chain changes every entry.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/sys/SystemCalls.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zkfs::test {
namespace {

namespace sys = fl::sys;

const std::string kComponent(200, 'd');

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// A chain of folders under `base`, each name 200 bytes long, until the full path of the
// deepest is at least `length` bytes, made with mkdirat so that no call ever takes the
// whole path; each level stays open, so its mode can still be read. Removed when the
// object goes.
class DeepFolder {
public:
    DeepFolder(const std::filesystem::path& base, std::size_t length) : base_(base.native()) {
        levels_.push_back(::open(base_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        while (levels_.back() >= 0 && path().size() < length) {
            if (::mkdirat(levels_.back(), kComponent.c_str(), 0755) != 0) fail("mkdirat");
            levels_.push_back(
                ::openat(levels_.back(), kComponent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        }
        if (levels_.back() < 0) fail("open " + path());
    }
    DeepFolder(const DeepFolder&) = delete;
    DeepFolder& operator=(const DeepFolder&) = delete;
    ~DeepFolder() {
        for (const int fd : levels_) ::close(fd);
        // rm takes the chain one level at a time, as no single call may name its whole path.
        if (std::system(("rm -rf '" + base_ + "/" + kComponent + "'").c_str()) != 0) {
            ADD_FAILURE() << "the deep chain under " << base_ << " stays behind";
        }
    }

    [[nodiscard]] std::size_t depth() const noexcept { return levels_.size() - 1; }
    // The full path of the folder `level` levels down (0 is the base).
    [[nodiscard]] std::string path(std::size_t level) const {
        std::string p = base_;
        for (std::size_t i = 0; i < level; ++i) p += "/" + kComponent;
        return p;
    }
    [[nodiscard]] std::string path() const { return path(depth()); }
    // The permission bits of the folder `level` levels down, or of `name` inside it.
    [[nodiscard]] unsigned mode(std::size_t level, const char* name = ".") const {
        struct stat st {};
        if (::fstatat(levels_.at(level), name, &st, AT_SYMLINK_NOFOLLOW) != 0) fail("fstatat");
        return static_cast<unsigned>(st.st_mode & 07777);
    }
    // An empty file in the deepest folder; answers its full path.
    std::string makeFile(const std::string& name) {
        const int fd =
            ::openat(levels_.back(), name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0) fail("openat " + name);
        ::close(fd);
        return path() + "/" + name;
    }

private:
    std::string base_;
    std::vector<int> levels_;
};

// The identifier and arguments of the error a statement raised.
qfs::Json errorOf(const std::string& statement) {
    qfs::Json e = call(statement)["error"];
    e.erase("message");
    return e;
}
qfs::Json error(const char* identifier, const std::vector<std::string>& arguments) {
    return {{"identifier", identifier}, {"arguments", arguments}};
}

TEST(LongPaths, AnExistingFilePastTheLimitIsNamedWholeAndLeftAsItIs) {
    TempTree tree;
    tree.makeFile("t.txt");
    DeepFolder deep(tree.root(), 4400);
    const std::string file = deep.makeFile("f.txt");
    const std::string q = "('" + file + "'";
    EXPECT_EQ(call("r = resolvePathFcn" + q + ")")["outputs"][0]["value"][0]["Type"]["value"][0],
              "None");
    EXPECT_EQ(call("r = isSymlinkFcn" + q + ")")["outputs"][0]["value"][0], false);
    const qfs::Json failure =
        call("r = modifyPerms_impl" + q +
             ", 'File', struct('Writable', false), false, 'all')")["outputs"][0]["value"][0];
    EXPECT_EQ(failure["Name"]["value"][0], file);
    EXPECT_EQ(failure["Cause"]["value"][0], "File name too long");
    EXPECT_EQ(errorOf("modifyPerms_impl" + q + ", 'File', struct('Writable', false))"),
              error("QUORIN:io:filesystem:filePermissions:UnableToSetPermissions",
                    {file, "File name too long"}));
    EXPECT_EQ(errorOf("p = getPerms_impl" + q + ", 'File')")["identifier"],
              "QUORIN:filesystem:systemError");
    EXPECT_EQ(deep.mode(deep.depth(), "f.txt"), 0644U);

    // The makers refuse with the whole path and make nothing, there or anywhere above.
    const std::string made = deep.path() + "/new";
    EXPECT_EQ(errorOf("mkFileFcn('" + made + "')"),
              error("QUORIN:virtualfilesystem:invalidLocation", {made}));
    EXPECT_EQ(errorOf("mkSymlinkFcn('" + made + "', '" + tree.path("t.txt").native() + "')"),
              error("QUORIN:virtualfilesystem:unknownError", {made}));
    EXPECT_EQ(errorOf("mkSymlinkFcn('" + tree.path("l").native() + "', '" + file + "')"),
              error("QUORIN:virtualfilesystem:unknownError", {file}));
    EXPECT_THROW((void)deep.mode(deep.depth(), "new"), std::system_error);
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(tree.root()))
        names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{kComponent, "t.txt"}));
}

// A chain of 10,000 folders, each holding a file listed after its subfolder (so every
// level is come back to), its paths far past the limit: each walk, in a child held to a
// 1 MiB stack and 64 descriptors, changes every entry, and a change that fails down
// there is named by its whole path.
TEST(LongPaths, EveryWalkChangesAChainOfTenThousandFoldersWithinSmallLimits) {
    constexpr std::size_t kLevels = 10000;
    const auto test = [](const std::string& top) {
        // Made and read one level at a time, holding one descriptor; O_PATH needs only
        // search permission, so a folder without read is still come through.
        const auto eachLevel = [&](const std::function<void(int)>& atLevel) {
            int fd = ::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
            for (std::size_t i = 0; fd >= 0 && i < kLevels; ++i) {
                atLevel(fd);
                const int next = ::openat(fd, "d", O_PATH | O_DIRECTORY | O_CLOEXEC);
                ::close(fd);
                fd = next;
            }
            if (fd < 0) fail("openat");
            atLevel(fd);
            ::close(fd);
        };
        eachLevel([](int fd) {
            if (::mkdirat(fd, "d", 0755) != 0) fail("mkdirat");
            const int file = ::openat(fd, "z", O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (file < 0) fail("openat z");
            ::close(file);
        });
        using Modes = std::set<std::pair<std::string, unsigned>>;
        const auto modes = [&] {
            Modes seen;
            eachLevel([&](int fd) {
                for (const char* name : {"d", "z"}) {
                    struct stat st {};
                    if (::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) fail("fstatat");
                    seen.emplace(name, st.st_mode & 07777);
                }
            });
            return seen;
        };
        const auto walk = [&](const std::string& request) {
            return failuresIn(call("r = modifyPerms_impl(" + charLiteral(top) + ", 'Folder', " +
                                   request + ", false, 'all')"));
        };
        runWithLimits(std::size_t{1} << 20, 64, [&] {
            // Some ways back up through ".." are refused: those folders are opened again by
            // their names. Later the deepest file, the first one a walk changes, refuses.
            unsigned ups = 0;
            bool refuseDeepest = false;
            const sys::ScopedFaultHook hook([&](sys::Call& c) {
                if (c.phase != sys::Phase::Before) return 0;
                const std::string_view name = c.name;
                if (c.op == sys::Op::Openat && name == ".." && ++ups % 1000 == 0) return EACCES;
                const bool change = c.op == sys::Op::Fchmodat2 || c.op == sys::Op::Fchmodat;
                return change && name == "z" && std::exchange(refuseDeepest, false) ? EIO : 0;
            });
            EXPECT_EQ(walk("struct('Readable', false)"), std::vector<Failure>{});
            EXPECT_GE(ups, 1000U);
            EXPECT_EQ(modes(), (Modes{{"d", 0355}, {"z", 0244}}));
            EXPECT_EQ(walk("struct('Readable', true, 'GroupWrite', false)"),
                      std::vector<Failure>{});
            EXPECT_EQ(modes(), (Modes{{"d", 0755}, {"z", 0644}}));
            refuseDeepest = true;
            std::string deepest = top;
            for (std::size_t i = 0; i < kLevels; ++i) deepest += "/d";
            const std::vector<Failure> expected{{deepest + "/z", "Input/output error"}};
            EXPECT_EQ(walk("struct('OtherExecute', true)"), expected);
            EXPECT_EQ(modes(), (Modes{{"d", 0755}, {"z", 0644}, {"z", 0645}}));
        });
    };
    TempTree tree;
    const std::string top = tree.root().native();
    // On a file system of its own where the system allows one: 20,000 entries changed
    // three times then cost no disk writes, and go with it.
    std::string why;
    if (!runWithTmpfs(
            top, "size=16m", [&] { test(top); }, why)) {
        test(top);
        if (std::system(("rm -rf '" + top + "/d'").c_str()) != 0) ADD_FAILURE() << "chain left";
    }
}

}  // namespace
}  // namespace zkfs::test
