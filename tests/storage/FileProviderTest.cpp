// The "file" provider against a real tree: links, names that are not UTF-8, permission
// bits (without root's privileges), and faults injected through the system-call seam.
#include "SystemCalls.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

namespace vfs = foundation::storage::vfs;
namespace seam = foundation::storage::provider::detail;
using foundation::storage::provider::ExistenceType;
using foundation::storage::provider::ExistenceTypeExtended;
using vfs::AbsoluteIRI;
using vfs::File;
using vfs::Folder;
using vfs::IODevice;
using vfs::ListEntry;
using Kind = vfs::ListEntry::Kind;

void writeTo(IODevice& device, const std::string& content) {
    device.write(std::as_bytes(std::span(content.data(), content.size())));
}

class FileProvider : public ::testing::Test {
protected:
    AbsoluteIRI at(const std::string& relative) const {
        return vfs::toAbsoluteIRI(u"file", tree_.upath(relative));
    }
    std::vector<std::string> relativeNames(const vfs::FolderListing& listing) const {
        std::vector<std::string> out;
        const std::string root = tree_.root().string() + "/";
        for (const ListEntry& e : listing) {
            out.push_back(
                fl::i18n::to_utf8(vfs::fromAbsoluteIRI(e.getLocation())).substr(root.size()));
        }
        return out;
    }
    static std::vector<Kind> kinds(const vfs::FolderListing& listing) {
        std::vector<Kind> out;
        for (const ListEntry& e : listing) out.push_back(e.getKind());
        return out;
    }

    zkfs::test::TempTree tree_;
    vfs::StorageSystemReference storage_ =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
};

TEST_F(FileProvider, LinksAreSeenAsLinksAndRemovedAsNames) {
    tree_.makeFile("f", "123");
    tree_.makeFolder("d");
    tree_.makeLink("f", "link-to-file");
    tree_.makeLink("d", "link-to-folder");
    tree_.makeLink("missing", "dangling");
    tree_.makeLink("loop", "loop");
    // clang-format off
    struct Row { const char* name; ExistenceType plain; ExistenceTypeExtended extended; };
    const std::vector<Row> rows = {
        {"link-to-file", ExistenceType::File, ExistenceTypeExtended::SymbolicLinkToFile},
        {"link-to-folder", ExistenceType::Folder, ExistenceTypeExtended::SymbolicLinkToFolder},
        {"dangling", ExistenceType::DoesNotExist, ExistenceTypeExtended::BrokenSymbolicLink},
        {"loop", ExistenceType::DoesNotExist, ExistenceTypeExtended::BrokenSymbolicLink},
        {"none", ExistenceType::DoesNotExist, ExistenceTypeExtended::DoesNotExist},
        {"f/below", ExistenceType::DoesNotExist, ExistenceTypeExtended::DoesNotExist},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(vfs::exists(at(row.name), storage_), row.plain);
        EXPECT_EQ(vfs::existsExtended(at(row.name), storage_), row.extended);
    }

    // Attributes are the target's.
    const struct timespec times[2] = {{1000000000, 0}, {1234567890, 123456789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree_.path("f").c_str(), times, 0), 0);
    const vfs::FileAttributes a = File(at("link-to-file"), storage_).getAttributes();
    EXPECT_EQ(a.getSize(), 3U);
    EXPECT_EQ(a.getLastModified(), 1234567890123456789LL);
    EXPECT_TRUE(a.isReadable());
    EXPECT_TRUE(a.isWritable());
    EXPECT_IDENTIFIED_ERROR((void)File(at("dangling"), storage_).getAttributes(),
                            "QUORIN:storage:notFound", at("dangling").toString());

    // Creating over a dangling link is refused: the name is taken.
    EXPECT_IDENTIFIED_ERROR(File(at("dangling"), storage_).createFile(),
                            "QUORIN:storage:alreadyExists", at("dangling").toString());
    EXPECT_FALSE(std::filesystem::exists(tree_.path("missing")));
    // Removing a link removes the name, never its target.
    File(at("link-to-file"), storage_).removeFile();
    EXPECT_FALSE(std::filesystem::is_symlink(tree_.path("link-to-file")));
    EXPECT_TRUE(std::filesystem::exists(tree_.path("f")));
}

TEST_F(FileProvider, ListingNeverDescendsThroughLinks) {
    tree_.makeFile("d/sub/f");
    tree_.makeLink("..", "d/sub/up");  // a loop back to d
    tree_.makeLink("self", "d/self");  // a link to itself
    tree_.makeLink("sub", "d/link-to-sub");
    tree_.makeLink(tree_.root().string(), "d/sub/root");
    const vfs::FolderListing all = Folder(at(""), storage_).listAllRecursive();
    EXPECT_EQ(relativeNames(all), (std::vector<std::string>{"d", "d/link-to-sub", "d/self", "d/sub",
                                                            "d/sub/f", "d/sub/root", "d/sub/up"}));
    EXPECT_EQ(kinds(all),
              (std::vector<Kind>{Kind::Folder, Kind::SymbolicLink, Kind::SymbolicLink, Kind::Folder,
                                 Kind::File, Kind::SymbolicLink, Kind::SymbolicLink}));
    // Links are files for listFiles, and never folders.
    EXPECT_EQ(relativeNames(Folder(at("d"), storage_).listFolders()),
              (std::vector<std::string>{"d/sub"}));
    EXPECT_EQ(relativeNames(Folder(at("d"), storage_).listFiles()),
              (std::vector<std::string>{"d/link-to-sub", "d/self"}));
    // The folder given may itself be a link: it is listed, its links are not followed.
    EXPECT_EQ(Folder(at("d/link-to-sub"), storage_).listAllRecursive().size(), 3U);
}

TEST_F(FileProvider, NamesThatAreNotUtf8Survive) {
    const std::string raw = "\xff\xfe-name";
    tree_.makeFile(raw, "bytes");
    const vfs::FolderListing listing = Folder(at(""), storage_).listAll();
    ASSERT_EQ(listing.size(), 1U);
    EXPECT_EQ(listing[0].getName(), u"\xDCFF\xDCFE-name");
    const std::string& text = listing[0].getLocation().toEncodedString();
    EXPECT_EQ(text.substr(text.size() - 11), "%FF%FE-name");
    EXPECT_EQ(vfs::exists(listing[0].getLocation(), storage_), ExistenceType::File);
    File(listing[0].getLocation(), storage_).removeFile();
    EXPECT_FALSE(std::filesystem::exists(tree_.path(raw)));

    // And the other way: a name given with escapes reaches the disk byte for byte.
    File(at("").getChild(u"\xDC80x"), storage_).createFile();
    EXPECT_TRUE(std::filesystem::exists(tree_.path("\x80x")));
}

TEST_F(FileProvider, PermissionBitsAreObeyed) {
    for (const char* name : {"locked/existing", "hidden/secret", "readonly.txt", "writeonly.txt"})
        tree_.makeFile(name, "data");
    const auto ids = zkfs::test::unprivilegedIds();
    tree_.handTo(ids.uid, ids.gid);
    tree_.setMode("", 0755);
    tree_.setMode("locked", 0555);
    tree_.setMode("hidden", 0000);
    tree_.setMode("readonly.txt", 0444);
    tree_.setMode("writeonly.txt", 0200);
    const auto before = tree_.snapshot();
    const AbsoluteIRI root = at(""), locked = at("locked"), hidden = at("hidden"),
                      readonly = at("readonly.txt"), writeonly = at("writeonly.txt");
    zkfs::test::runUnprivileged([&] {
        const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
        const AbsoluteIRI made = locked.getChild(u"new"), gone = locked.getChild(u"existing"),
                          sub = locked.getChild(u"sub"), secret = hidden.getChild(u"secret");
        // clang-format off
        const std::vector<std::pair<AbsoluteIRI, std::function<void()>>> rows = {
            {made, [&] { File(made, storage).createFile(); }},
            {gone, [&] { File(gone, storage).removeFile(); }},
            {sub, [&] { Folder(sub, storage).createFolder(); }},
            {hidden, [&] { (void)Folder(hidden, storage).listAll(); }},
            {hidden, [&] { (void)Folder(root, storage).listAllRecursive(); }},
            {secret, [&] { (void)vfs::exists(secret, storage); }},
            {writeonly, [&] { IODevice d(File(writeonly, storage)); }},
        };
        // clang-format on
        for (const auto& [where, call] : rows) {
            SCOPED_TRACE(where.toEncodedString());
            EXPECT_IDENTIFIED_ERROR(call(), "QUORIN:storage:permissionDenied", where.toString());
        }
        EXPECT_FALSE(File(readonly, storage).getAttributes().isWritable());
        EXPECT_TRUE(File(readonly, storage).getAttributes().isReadable());
        EXPECT_FALSE(File(writeonly, storage).getAttributes().isReadable());
    });
    EXPECT_EQ(tree_.snapshot(), before);
}

TEST_F(FileProvider, OpeningAFifoForReadingDoesNotWaitForAWriter) {
    ASSERT_EQ(::mkfifo(tree_.path("fifo").c_str(), 0600), 0);
    IODevice device(File(at("fifo"), storage_));
    std::byte buffer[4];
    EXPECT_EQ(device.read(buffer), 0U);  // no writer: end of data at once
    EXPECT_EQ(vfs::existsExtended(at("fifo"), storage_), ExistenceTypeExtended::File);
    EXPECT_EQ(Folder(at(""), storage_).listAll()[0].getKind(), Kind::Other);
}

// Restores the real system calls however the test ends.
struct SeamGuard {
    seam::SystemCalls saved = seam::systemCalls();
    ~SeamGuard() { seam::systemCalls() = saved; }
};

struct Counters {
    int openat = 0;
    int fstatat = 0;
    int close = 0;
    int interruptsLeft = 0;  // EINTR from this many calls first
    int failWith = 0;        // then this errno, if set
    std::vector<int> openFlags;
};
Counters counters;

// True, with errno set, when the next call is to fail.
bool injectFault() {
    if (counters.interruptsLeft > 0) {
        --counters.interruptsLeft;
        errno = EINTR;
        return true;
    }
    errno = counters.failWith;
    return counters.failWith != 0;
}
int countingOpenat(int dirfd, const char* path, int flags, mode_t mode) {
    ++counters.openat;
    counters.openFlags.push_back(flags);
    return injectFault() ? -1 : seam::realSystemCalls().openat(dirfd, path, flags, mode);
}
int countingFstatat(int dirfd, const char* path, struct stat* st, int flags) {
    ++counters.fstatat;
    return seam::realSystemCalls().fstatat(dirfd, path, st, flags);
}
long faultyGetdents(int fd, void* buffer, std::size_t size) {
    return injectFault() ? -1 : seam::realSystemCalls().getdents64(fd, buffer, size);
}
// As a file system without d_type answers: every entry's type is unknown.
long unknownTypeGetdents(int fd, void* buffer, std::size_t size) {
    const long n = seam::realSystemCalls().getdents64(fd, buffer, size);
    for (long pos = 0; pos < n;) {
        char* rec = static_cast<char*>(buffer) + pos;
        unsigned short reclen = 0;
        std::memcpy(&reclen, rec + 16, sizeof reclen);
        rec[18] = DT_UNKNOWN;
        pos += reclen;
    }
    return n;
}
// Short writes, one byte at a time, so the loop must go on.
ssize_t faultyWrite(int fd, const void* buffer, std::size_t size) {
    return injectFault() ? -1 : seam::realSystemCalls().write(fd, buffer, size > 0 ? 1 : 0);
}
// The descriptor is gone, whatever close answers.
int faultyClose(int fd) {
    ++counters.close;
    seam::realSystemCalls().close(fd);
    errno = counters.failWith;
    return -1;
}

class FileProviderFaults : public FileProvider {
protected:
    void SetUp() override { counters = {}; }
    SeamGuard guard_;
};

TEST_F(FileProviderFaults, WalkReadsEachFolderOnceAndEveryOpenIsCloseOnExec) {
    tree_.makeFile("a/x", "x");
    tree_.makeFile("a/b/y");
    tree_.makeFile("c/z");
    tree_.makeFile("top");
    tree_.makeLink("a", "link");
    seam::systemCalls().openat = &countingOpenat;
    seam::systemCalls().fstatat = &countingFstatat;
    EXPECT_EQ(Folder(at(""), storage_).listAllRecursive().size(), 8U);
    EXPECT_EQ(counters.openat, 4);  // the root, a, a/b, c
    EXPECT_EQ(counters.fstatat, 0);
    for (int flags : counters.openFlags) EXPECT_NE(flags & O_DIRECTORY, 0);

    File(at("new"), storage_).createFile();
    { IODevice r(File(at("a/x"), storage_)); }
    { IODevice w(File(at("a/x"), storage_), IODevice::OpenMode::Write); }
    { IODevice a(File(at("a/x"), storage_), IODevice::OpenMode::Append); }
    ASSERT_GE(counters.openFlags.size(), 8U);
    for (int flags : counters.openFlags) EXPECT_NE(flags & O_CLOEXEC, 0);
}

TEST_F(FileProviderFaults, UnknownEntryTypesCostOneStatusEach) {
    tree_.makeFile("a/x");
    tree_.makeFile("top");
    tree_.makeLink("a", "link");
    seam::systemCalls().getdents64 = &unknownTypeGetdents;
    seam::systemCalls().fstatat = &countingFstatat;
    const auto listing = Folder(at(""), storage_).listAllRecursive();
    EXPECT_EQ(relativeNames(listing), (std::vector<std::string>{"a", "a/x", "link", "top"}));
    EXPECT_EQ(kinds(listing),
              (std::vector<Kind>{Kind::Folder, Kind::File, Kind::SymbolicLink, Kind::File}));
    EXPECT_EQ(counters.fstatat, 4);
}

TEST_F(FileProviderFaults, InterruptedCallsAreRetriedButCloseIsNot) {
    tree_.makeFile("d/f");
    seam::systemCalls().getdents64 = &faultyGetdents;
    counters.interruptsLeft = 2;
    EXPECT_EQ(Folder(at("d"), storage_).listAll().size(), 1U);
    EXPECT_EQ(counters.interruptsLeft, 0);

    seam::systemCalls().openat = &countingOpenat;
    counters.interruptsLeft = 1;
    File(at("new"), storage_).createFile();
    EXPECT_TRUE(std::filesystem::exists(tree_.path("new")));

    seam::systemCalls().write = &faultyWrite;
    counters.interruptsLeft = 1;
    {
        IODevice device(File(at("new"), storage_), IODevice::OpenMode::Write);
        writeTo(device, "several bytes");
        device.close();
    }
    EXPECT_EQ(std::filesystem::file_size(tree_.path("new")), 13U);

    seam::systemCalls() = seam::realSystemCalls();
    seam::systemCalls().close = &faultyClose;
    counters.failWith = EINTR;
    IODevice device(File(at("g"), storage_), IODevice::OpenMode::Write);
    EXPECT_NO_THROW(device.close());  // EINTR from close: the descriptor is gone anyway
    EXPECT_EQ(counters.close, 1);
}

TEST_F(FileProviderFaults, ReadWriteAndCloseFailuresCarryTheSystemText) {
    tree_.makeFile("d/f");
    seam::systemCalls().getdents64 = &faultyGetdents;
    counters.failWith = EIO;
    EXPECT_IDENTIFIED_ERROR((void)Folder(at("d"), storage_).listAll(), "QUORIN:storage:ioError",
                            at("d").toString(), std::string("Input/output error"));
    seam::systemCalls().close = &faultyClose;
    IODevice reader(File(at("d/f"), storage_));
    EXPECT_IDENTIFIED_ERROR(reader.close(), "QUORIN:storage:ioError", at("d/f").toString(),
                            std::string("Input/output error"));

    seam::systemCalls().write = &faultyWrite;
    counters.failWith = ENOSPC;
    IODevice writer(File(at("f"), storage_), IODevice::OpenMode::Write);
    EXPECT_IDENTIFIED_ERROR(writeTo(writer, "x"), "QUORIN:storage:ioError", at("f").toString(),
                            std::string("No space left on device"));
}

}  // namespace
