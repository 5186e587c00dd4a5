// The storage operations, run the same way over the "file" and "mem" providers: both
// must give the same answers.
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/TempTree.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;
using provider::ExistenceType;
using provider::ExistenceTypeExtended;
using vfs::AbsoluteIRI;
using vfs::File;
using vfs::Folder;
using vfs::IODevice;

std::string utf8(const fl::ustring& s) { return fl::i18n::to_utf8(s); }

// The code and location text a storage call failed with; {0, ""} when it did not fail.
std::pair<int, std::string> failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const vfs::Exception& e) {
        return {e.getErrorCode(), utf8(e.getLocation().toString())};
    }
    return {0, ""};
}

void writeTo(IODevice& device, std::string_view content) {
    device.write(std::as_bytes(std::span(content.data(), content.size())));
}

class StorageTest : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        if (GetParam() == "mem") {
            provider::resetMemStorage();
            base_ = std::make_unique<AbsoluteIRI>(u"mem://root/work");
            Folder(*base_, storage_).createFolder();
        } else {
            tree_ = std::make_unique<zkfs::test::TempTree>();
            base_ = std::make_unique<AbsoluteIRI>(vfs::toAbsoluteIRI(u"file", tree_->upath("")));
        }
    }
    void TearDown() override {
        if (GetParam() == "mem") provider::resetMemStorage();
    }

    // The location of a relative name ("a/b") under the test's base folder.
    AbsoluteIRI at(std::u16string_view relative) const {
        AbsoluteIRI iri = *base_;
        while (!relative.empty()) {
            const auto slash = std::min(relative.find(u'/'), relative.size());
            iri = iri.getChild(fl::ustring(relative.substr(0, slash)));
            relative.remove_prefix(std::min(slash + 1, relative.size()));
        }
        return iri;
    }
    std::string where(std::u16string_view relative) const { return utf8(at(relative).toString()); }
    File file(std::u16string_view relative) const { return {at(relative), storage_}; }
    Folder folder(std::u16string_view relative) const { return {at(relative), storage_}; }
    ExistenceType exists(std::u16string_view relative) const {
        return vfs::exists(at(relative), storage_);
    }

    void write(std::u16string_view relative, std::string_view content) const {
        IODevice device(file(relative), IODevice::OpenMode::Write);
        writeTo(device, content);
        device.close();
    }
    std::string read(std::u16string_view relative) const {
        IODevice device(file(relative));
        std::string out;
        std::byte buffer[7];  // small, so that reading takes several calls
        for (std::size_t n; (n = device.read(buffer)) > 0;) {
            out.append(reinterpret_cast<const char*>(buffer), n);
        }
        return out;
    }

    // Names of a listing, relative to the base folder.
    std::vector<std::string> names(const vfs::FolderListing& listing) const {
        std::vector<std::string> out;
        const std::string prefix = base_->toEncodedString() + "/";
        for (const vfs::ListEntry& e : listing) {
            const std::string& text = e.getLocation().toEncodedString();
            EXPECT_EQ(text.rfind(prefix, 0), 0U) << text;
            out.push_back(utf8(e.getLocation().getDecodedPath())
                              .substr(utf8(base_->getDecodedPath()).size() + 1));
        }
        return out;
    }

    vfs::StorageSystemReference storage_ =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    std::unique_ptr<zkfs::test::TempTree> tree_;
    std::unique_ptr<AbsoluteIRI> base_;
};

TEST_P(StorageTest, FilesAndFoldersAreMadeWrittenAndRemoved) {
    file(u"f").createFile();
    EXPECT_EQ(exists(u"f"), ExistenceType::File);
    EXPECT_EQ(vfs::existsExtended(at(u"f"), storage_), ExistenceTypeExtended::File);
    EXPECT_EQ(file(u"f").getAttributes().getSize(), 0U);
    write(u"f", "hello, storage");
    EXPECT_EQ(read(u"f"), "hello, storage");
    EXPECT_EQ(file(u"f").getAttributes().getSize(), 14U);
    EXPECT_TRUE(file(u"f").getAttributes().isWritable());
    {
        IODevice device(file(u"f"), IODevice::OpenMode::Append);
        writeTo(device, "!");
    }
    EXPECT_EQ(read(u"f"), "hello, storage!");
    write(u"f", "x");
    EXPECT_EQ(read(u"f"), "x");
    file(u"f").removeFile();
    EXPECT_EQ(exists(u"f"), ExistenceType::DoesNotExist);

    folder(u"d").createFolder();
    EXPECT_EQ(exists(u"d"), ExistenceType::Folder);
    EXPECT_EQ(vfs::existsExtended(at(u"d"), storage_), ExistenceTypeExtended::Folder);
    EXPECT_EQ(file(u"d").getAttributes().getSize(), 0U);
    folder(u"p/q/r s/\u00e4").createFolderRecursive();
    EXPECT_EQ(exists(u"p/q/r s/\u00e4"), ExistenceType::Folder);
    folder(u"p/q").createFolderRecursive();  // existing: nothing to do, no error
    folder(u"p/q/r s/\u00e4").removeFolder();
    EXPECT_EQ(exists(u"p/q/r s/\u00e4"), ExistenceType::DoesNotExist);
    EXPECT_EQ(exists(u"p/q/r s"), ExistenceType::Folder);
}

TEST_P(StorageTest, RefusedCallsNameTheirLocationAndChangeNothing) {
    write(u"keep", "data");
    folder(u"d/sub").createFolderRecursive();
    const auto before = names(folder(u"").listAllRecursive());
    // A location that no provider path can name: "file://" or another memory store.
    const AbsoluteIRI nowhere(GetParam() == "mem" ? u"mem://elsewhere/x" : u"file://");
    const File f(nowhere, storage_);
    const Folder n(nowhere, storage_);
    const std::string none = utf8(nowhere.toString());
    // clang-format off
    struct Row { const char* what; std::function<void()> call; int code; std::string where; };
    const std::vector<Row> rows = {
        {"createFile on a file", [&] { file(u"keep").createFile(); }, 3, where(u"keep")},
        {"createFile on a folder", [&] { file(u"d").createFile(); }, 3, where(u"d")},
        {"createFile, no parent", [&] { file(u"x/f").createFile(); }, 4, where(u"x/f")},
        {"createFile below a file", [&] { file(u"keep/f").createFile(); }, 4, where(u"keep/f")},
        {"removeFile of nothing", [&] { file(u"x").removeFile(); }, 4, where(u"x")},
        {"removeFile of a folder", [&] { file(u"d/sub").removeFile(); }, 5, where(u"d/sub")},
        {"createFolder on a folder", [&] { folder(u"d").createFolder(); }, 3, where(u"d")},
        {"createFolder, no parent", [&] { folder(u"x/y").createFolder(); }, 4, where(u"x/y")},
        // The level that is in the way is named, not the folder asked for.
        {"createFolderRecursive through a file", [&] { folder(u"keep/deeper/x").createFolderRecursive(); }, 3, where(u"keep")},
        {"removeFolder, not empty", [&] { folder(u"d").removeFolder(); }, 5, where(u"d")},
        {"listAll of nothing", [&] { (void)folder(u"x").listAll(); }, 4, where(u"x")},
        {"listAllRecursive of a file", [&] { (void)folder(u"keep").listAllRecursive(); }, 1, where(u"keep")},
        {"read nothing", [&] { IODevice d(file(u"x")); }, 4, where(u"x")},
        {"read a folder", [&] { IODevice d(file(u"d")); }, 1, where(u"d")},
        {"write a folder", [&] { IODevice d(file(u"d"), IODevice::OpenMode::Write); }, 1, where(u"d")},
        {"attributes of nothing", [&] { (void)file(u"x").getAttributes(); }, 4, where(u"x")},
        {"exists nowhere", [&] { (void)vfs::exists(nowhere, storage_); }, 1, none},
        {"existsExtended nowhere", [&] { (void)vfs::existsExtended(nowhere, storage_); }, 1, none},
        {"createFile nowhere", [&] { f.createFile(); }, 1, none},
        {"removeFile nowhere", [&] { f.removeFile(); }, 1, none},
        {"attributes nowhere", [&] { (void)f.getAttributes(); }, 1, none},
        {"read nowhere", [&] { IODevice dev(f); }, 1, none},
        {"createFolder nowhere", [&] { n.createFolder(); }, 1, none},
        {"createFolderRecursive nowhere", [&] { n.createFolderRecursive(); }, 1, none},
        {"listAll nowhere", [&] { (void)n.listAll(); }, 1, none},
    };
    // clang-format on
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(failureOf(row.call), std::make_pair(row.code, row.where));
    }
    EXPECT_EQ(names(folder(u"").listAllRecursive()), before);
    EXPECT_EQ(read(u"keep"), "data");
}

TEST_P(StorageTest, ListingsAreSortedByUtf16CodeUnits) {
    // U+FF21 sorts after the surrogate pair of U+1F600 in UTF-16, before it in UTF-8.
    for (const char16_t* name : {u"b", u"a", u"B", u"_", u"\u00e4", u"Z10", u"Z9", u"\U0001F600",
                                 u"\uFF21", u"a b", u"a%b", u"a#b"}) {
        file(name).createFile();
    }
    folder(u"m").createFolder();
    const std::vector<std::string> expected = {"B",      "Z10",        "Z9",    "_", "a",
                                               "a b",    "a#b",        "a%b",   "b", "m",
                                               "\u00e4", "\U0001F600", "\uFF21"};
    const vfs::FolderListing all = folder(u"").listAll();
    EXPECT_EQ(names(all), expected);
    for (const vfs::ListEntry& e : all) {
        SCOPED_TRACE(utf8(e.getName()));
        EXPECT_EQ(e.getLocation(), at(e.getName()));
        EXPECT_EQ(e.getKind(),
                  e.getName() == u"m" ? vfs::ListEntry::Kind::Folder : vfs::ListEntry::Kind::File);
    }
    // The location of an entry is usable as it is.
    EXPECT_EQ(vfs::exists(all[6].getLocation(), storage_), ExistenceType::File);

    std::vector<std::string> files = expected;
    std::erase(files, "m");
    EXPECT_EQ(names(folder(u"").listFiles()), files);
    EXPECT_EQ(names(folder(u"").listFolders()), std::vector<std::string>{"m"});
}

TEST_P(StorageTest, RecursiveListingIsPreOrderAndPatternsFilterWhatIsReported) {
    folder(u"c").createFolder();
    folder(u"a/y/deep").createFolderRecursive();
    folder(u"d.txt").createFolder();
    for (const char16_t* name : {u"a/x", u"a/y/z", u"b.txt", u"a/y/deep/leaf", u"d.txt/in.txt",
                                 u"d.txt/in.csv", u"top.csv"}) {
        file(name).createFile();
    }
    EXPECT_EQ(
        names(folder(u"").listAllRecursive()),
        (std::vector<std::string>{"a", "a/x", "a/y", "a/y/deep", "a/y/deep/leaf", "a/y/z", "b.txt",
                                  "c", "d.txt", "d.txt/in.csv", "d.txt/in.txt", "top.csv"}));
    EXPECT_EQ(names(folder(u"a").listAllRecursive()),
              (std::vector<std::string>{"a/x", "a/y", "a/y/deep", "a/y/deep/leaf", "a/y/z"}));
    EXPECT_TRUE(folder(u"c").listAllRecursive().empty());
    EXPECT_EQ(names(folder(u"").listAll(u"*.txt")), (std::vector<std::string>{"b.txt", "d.txt"}));
    EXPECT_EQ(names(folder(u"").listFiles(u"*.txt")), (std::vector<std::string>{"b.txt"}));
    // Folders the pattern leaves out are still walked.
    EXPECT_EQ(names(folder(u"").listAllRecursive(u"*.csv")),
              (std::vector<std::string>{"d.txt/in.csv", "top.csv"}));
}

INSTANTIATE_TEST_SUITE_P(Providers, StorageTest, ::testing::Values("file", "mem"),
                         [](const auto& param) { return param.param; });

TEST(UnsupportedScheme, EveryOperationRefusesIt) {
    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const AbsoluteIRI cloud(u"s3://bucket/key");
    EXPECT_IDENTIFIED_ERROR(File(cloud, storage).createFile(), "QUORIN:storage:unsupportedScheme",
                            fl::ustring(u"s3://bucket/key"), fl::ustring(u"s3"));
    EXPECT_THROW((void)vfs::exists(cloud, storage), vfs::UnsupportedIRISchemeException);
    EXPECT_THROW((void)Folder(cloud, storage).listAll(), vfs::UnsupportedIRISchemeException);
    // Scheme names are case-insensitive.
    EXPECT_NO_THROW((void)vfs::exists(AbsoluteIRI(u"FILE:///"), storage));
}

class MemStorage : public ::testing::Test {
protected:
    void SetUp() override { provider::resetMemStorage(); }
    void TearDown() override { provider::resetMemStorage(); }
    vfs::StorageSystemReference storage_;
};

TEST_F(MemStorage, ReadOnlyFoldersRefuseChangesButNotReading) {
    const AbsoluteIRI ro(u"mem://root/ro");
    const File f(ro.getChild(u"f"), storage_);
    Folder(ro, storage_).createFolder();
    f.createFile();
    provider::setMemFolderReadOnly(ro, true);

    const File inside(ro.getChild(u"new"), storage_);
    EXPECT_IDENTIFIED_ERROR(inside.createFile(), "QUORIN:storage:permissionDenied",
                            fl::ustring(u"mem://root/ro/new"));
    EXPECT_EQ(failureOf([&] { Folder(ro.getChild(u"sub"), storage_).createFolder(); }),
              std::make_pair(2, std::string("mem://root/ro/sub")));
    EXPECT_EQ(failureOf([&] { f.removeFile(); }),
              std::make_pair(2, std::string("mem://root/ro/f")));
    EXPECT_EQ(failureOf([&] { IODevice d(f, IODevice::OpenMode::Write); }),
              std::make_pair(2, std::string("mem://root/ro/f")));
    EXPECT_FALSE(f.getAttributes().isWritable());
    EXPECT_FALSE(File(ro, storage_).getAttributes().isWritable());
    EXPECT_NO_THROW(IODevice d(f));
    EXPECT_EQ(Folder(ro, storage_).listAll().size(), 1U);

    provider::setMemFolderReadOnly(ro, false);
    inside.createFile();
    EXPECT_EQ(vfs::exists(inside.getLocation(), storage_), ExistenceType::File);

    // The flag needs an existing memory folder.
    for (const auto& [iri, code] : std::vector<std::pair<const char16_t*, int>>{
             {u"mem://root/none", 4}, {u"mem://root/ro/f", 1}, {u"file:///tmp", 1}}) {
        SCOPED_TRACE(utf8(iri));
        EXPECT_EQ(failureOf([&] { provider::setMemFolderReadOnly(AbsoluteIRI(iri), true); }),
                  std::make_pair(code, utf8(iri)));
    }
}

TEST_F(MemStorage, DotSegmentsTheRootAndStreamsOutlivingTheirFile) {
    Folder(AbsoluteIRI(u"mem://root/a"), storage_).createFolder();
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root/a/./../a"), storage_), ExistenceType::Folder);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root"), storage_), ExistenceType::Folder);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root/"), storage_), ExistenceType::Folder);
    EXPECT_EQ(
        failureOf([&] { (void)vfs::exists(AbsoluteIRI(u"mem://root/../x"), storage_); }).first, 1);
    const Folder root(AbsoluteIRI(u"mem://root/"), storage_);
    EXPECT_EQ(failureOf([&] { root.createFolder(); }).first, 3);
    EXPECT_EQ(failureOf([&] { root.removeFolder(); }).first, 1);
    EXPECT_EQ(Folder(AbsoluteIRI(u"mem://root"), storage_).listAll()[0].getLocation(),
              AbsoluteIRI(u"mem://root/a"));

    const File f(AbsoluteIRI(u"mem://root/f"), storage_);
    IODevice device(f, IODevice::OpenMode::Write);
    f.removeFile();
    EXPECT_NO_THROW(writeTo(device, "late"));
    EXPECT_EQ(vfs::exists(f.getLocation(), storage_), ExistenceType::DoesNotExist);
}

}  // namespace
