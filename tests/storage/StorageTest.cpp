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
#include <memory>
#include <span>
#include <string>
#include <string_view>
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
    File file(std::u16string_view relative) const { return {at(relative), storage_}; }
    Folder folder(std::u16string_view relative) const { return {at(relative), storage_}; }

    void write(std::u16string_view relative, std::string_view content) const {
        IODevice device(file(relative), IODevice::OpenMode::Write);
        device.write(std::as_bytes(std::span(content.data(), content.size())));
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

    AbsoluteIRI invalidLocation() const {
        return AbsoluteIRI(GetParam() == "mem" ? u"mem://elsewhere/x" : u"file://");
    }

    vfs::StorageSystemReference storage_ =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    std::unique_ptr<zkfs::test::TempTree> tree_;
    std::unique_ptr<AbsoluteIRI> base_;
};

int codeOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const vfs::Exception& e) {
        return e.getErrorCode();
    }
    return 0;
}

TEST_P(StorageTest, CreateFileMakesAnEmptyFileOnce) {
    file(u"f").createFile();
    EXPECT_EQ(vfs::exists(at(u"f"), storage_), ExistenceType::File);
    EXPECT_EQ(vfs::existsExtended(at(u"f"), storage_), ExistenceTypeExtended::File);
    EXPECT_EQ(file(u"f").getAttributes().getSize(), 0U);
    write(u"f", "kept");
    EXPECT_IDENTIFIED_ERROR(file(u"f").createFile(), "QUORIN:storage:alreadyExists",
                            at(u"f").toString());
    EXPECT_EQ(read(u"f"), "kept");
}

TEST_P(StorageTest, CreateFileNeedsItsParent) {
    EXPECT_IDENTIFIED_ERROR(file(u"missing/f").createFile(), "QUORIN:storage:notFound",
                            at(u"missing/f").toString());
    EXPECT_EQ(vfs::exists(at(u"missing"), storage_), ExistenceType::DoesNotExist);
    file(u"plain").createFile();
    EXPECT_EQ(codeOf([&] { file(u"plain/f").createFile(); }), 4);
}

TEST_P(StorageTest, RemoveFile) {
    file(u"f").createFile();
    file(u"f").removeFile();
    EXPECT_EQ(vfs::exists(at(u"f"), storage_), ExistenceType::DoesNotExist);
    EXPECT_IDENTIFIED_ERROR(file(u"f").removeFile(), "QUORIN:storage:notFound",
                            at(u"f").toString());
    folder(u"d").createFolder();
    EXPECT_EQ(codeOf([&] { file(u"d").removeFile(); }), 5);
    EXPECT_EQ(vfs::exists(at(u"d"), storage_), ExistenceType::Folder);
}

TEST_P(StorageTest, FoldersOneLevelAndRecursive) {
    folder(u"d").createFolder();
    EXPECT_EQ(vfs::exists(at(u"d"), storage_), ExistenceType::Folder);
    EXPECT_EQ(vfs::existsExtended(at(u"d"), storage_), ExistenceTypeExtended::Folder);
    EXPECT_EQ(codeOf([&] { folder(u"d").createFolder(); }), 3);
    EXPECT_EQ(codeOf([&] { folder(u"x/y").createFolder(); }), 4);

    folder(u"p/q/r s/\u00e4").createFolderRecursive();
    EXPECT_EQ(vfs::exists(at(u"p/q/r s/\u00e4"), storage_), ExistenceType::Folder);
    folder(u"p/q").createFolderRecursive();  // existing: nothing to do, no error

    file(u"p/blocker").createFile();
    EXPECT_IDENTIFIED_ERROR(folder(u"p/blocker/deeper/x").createFolderRecursive(),
                            "QUORIN:storage:alreadyExists", at(u"p/blocker").toString());
    EXPECT_EQ(vfs::exists(at(u"p/blocker"), storage_), ExistenceType::File);

    EXPECT_EQ(codeOf([&] { folder(u"p/q").removeFolder(); }), 5);  // not empty
    folder(u"p/q/r s/\u00e4").removeFolder();
    EXPECT_EQ(vfs::exists(at(u"p/q/r s/\u00e4"), storage_), ExistenceType::DoesNotExist);
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
    EXPECT_EQ(names(folder(u"").listAll()), expected);

    std::vector<std::string> files = expected;
    std::erase(files, "m");
    EXPECT_EQ(names(folder(u"").listFiles()), files);
    EXPECT_EQ(names(folder(u"").listFolders()), std::vector<std::string>{"m"});
}

TEST_P(StorageTest, EntriesCarryLocationNameAndKind) {
    file(u"a b#c").createFile();
    folder(u"sub").createFolder();
    const vfs::FolderListing listing = folder(u"").listAll();
    ASSERT_EQ(listing.size(), 2U);
    EXPECT_EQ(listing[0].getName(), u"a b#c");
    EXPECT_EQ(listing[0].getLocation(), at(u"a b#c"));
    EXPECT_EQ(listing[0].getKind(), vfs::ListEntry::Kind::File);
    EXPECT_EQ(listing[1].getName(), u"sub");
    EXPECT_EQ(listing[1].getKind(), vfs::ListEntry::Kind::Folder);
    // The location of an entry is usable as it is.
    EXPECT_EQ(vfs::exists(listing[0].getLocation(), storage_), ExistenceType::File);
}

TEST_P(StorageTest, RecursiveListingIsPreOrder) {
    folder(u"c").createFolder();
    folder(u"a/y/deep").createFolderRecursive();
    file(u"a/x").createFile();
    file(u"a/y/z").createFile();
    file(u"b").createFile();
    file(u"a/y/deep/leaf").createFile();
    const std::vector<std::string> expected = {"a",     "a/x", "a/y", "a/y/deep", "a/y/deep/leaf",
                                               "a/y/z", "b",   "c"};
    EXPECT_EQ(names(folder(u"").listAllRecursive()), expected);
    EXPECT_EQ(names(folder(u"a").listAllRecursive()),
              (std::vector<std::string>{"a/x", "a/y", "a/y/deep", "a/y/deep/leaf", "a/y/z"}));
    EXPECT_TRUE(folder(u"c").listAllRecursive().empty());
}

TEST_P(StorageTest, PatternsFilterWhatIsReported) {
    folder(u"d.txt").createFolder();
    file(u"d.txt/in.txt").createFile();
    file(u"d.txt/in.csv").createFile();
    file(u"top.txt").createFile();
    file(u"top.csv").createFile();
    EXPECT_EQ(names(folder(u"").listAll(u"*.txt")), (std::vector<std::string>{"d.txt", "top.txt"}));
    EXPECT_EQ(names(folder(u"").listFiles(u"*.txt")), (std::vector<std::string>{"top.txt"}));
    EXPECT_EQ(names(folder(u"").listAllRecursive(u"*.csv")),
              (std::vector<std::string>{"d.txt/in.csv", "top.csv"}));
}

TEST_P(StorageTest, ListingWhatIsNoFolder) {
    EXPECT_IDENTIFIED_ERROR((void)folder(u"nothing").listAll(), "QUORIN:storage:notFound",
                            at(u"nothing").toString());
    file(u"f").createFile();
    EXPECT_EQ(codeOf([&] { (void)folder(u"f").listAllRecursive(); }), 1);
}

TEST_P(StorageTest, DevicesReadAndWrite) {
    write(u"f", "hello, storage");
    EXPECT_EQ(read(u"f"), "hello, storage");
    EXPECT_EQ(file(u"f").getAttributes().getSize(), 14U);
    EXPECT_TRUE(file(u"f").getAttributes().isWritable());
    {
        IODevice device(file(u"f"), IODevice::OpenMode::Append);
        const std::string more = "!";
        device.write(std::as_bytes(std::span(more.data(), more.size())));
    }
    EXPECT_EQ(read(u"f"), "hello, storage!");
    write(u"f", "x");
    EXPECT_EQ(read(u"f"), "x");

    EXPECT_EQ(codeOf([&] { IODevice d(file(u"none")); }), 4);
    folder(u"d").createFolder();
    EXPECT_EQ(codeOf([&] { IODevice d(file(u"d")); }), 1);
    EXPECT_EQ(codeOf([&] { IODevice d(file(u"d"), IODevice::OpenMode::Write); }), 1);
    EXPECT_EQ(file(u"d").getAttributes().getSize(), 0U);
    EXPECT_EQ(codeOf([&] { (void)file(u"none").getAttributes(); }), 4);
}

TEST_P(StorageTest, LocationsNamingNothingFailWithCode1) {
    const AbsoluteIRI nowhere = invalidLocation();
    const File f(nowhere, storage_);
    const Folder d(nowhere, storage_);
    EXPECT_EQ(codeOf([&] { (void)vfs::exists(nowhere, storage_); }), 1);
    EXPECT_EQ(codeOf([&] { (void)vfs::existsExtended(nowhere, storage_); }), 1);
    EXPECT_EQ(codeOf([&] { f.createFile(); }), 1);
    EXPECT_EQ(codeOf([&] { f.removeFile(); }), 1);
    EXPECT_EQ(codeOf([&] { (void)f.getAttributes(); }), 1);
    EXPECT_EQ(codeOf([&] { IODevice dev(f); }), 1);
    EXPECT_EQ(codeOf([&] { d.createFolder(); }), 1);
    EXPECT_EQ(codeOf([&] { d.createFolderRecursive(); }), 1);
    EXPECT_EQ(codeOf([&] { (void)d.listAll(); }), 1);
}

TEST_P(StorageTest, FailedCallsLeaveTheFolderAsItWas) {
    write(u"keep", "data");
    folder(u"sub").createFolder();
    const auto before = names(folder(u"").listAllRecursive());
    EXPECT_EQ(codeOf([&] { file(u"keep").createFile(); }), 3);
    EXPECT_EQ(codeOf([&] { folder(u"sub").createFolder(); }), 3);
    EXPECT_EQ(codeOf([&] { file(u"absent/x").createFile(); }), 4);
    EXPECT_EQ(names(folder(u"").listAllRecursive()), before);
    EXPECT_EQ(read(u"keep"), "data");
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
    Folder(ro, storage_).createFolder();
    File(ro.getChild(u"f"), storage_).createFile();
    provider::setMemFolderReadOnly(ro, true);

    const File inside(ro.getChild(u"new"), storage_);
    EXPECT_IDENTIFIED_ERROR(inside.createFile(), "QUORIN:storage:permissionDenied",
                            fl::ustring(u"mem://root/ro/new"));
    EXPECT_EQ(codeOf([&] { Folder(ro.getChild(u"sub"), storage_).createFolder(); }), 2);
    EXPECT_EQ(codeOf([&] { File(ro.getChild(u"f"), storage_).removeFile(); }), 2);
    EXPECT_EQ(
        codeOf([&] { IODevice d(File(ro.getChild(u"f"), storage_), IODevice::OpenMode::Write); }),
        2);
    EXPECT_FALSE(File(ro.getChild(u"f"), storage_).getAttributes().isWritable());
    EXPECT_FALSE(File(ro, storage_).getAttributes().isWritable());
    EXPECT_NO_THROW(IODevice d(File(ro.getChild(u"f"), storage_)));
    EXPECT_EQ(Folder(ro, storage_).listAll().size(), 1U);

    provider::setMemFolderReadOnly(ro, false);
    inside.createFile();
    EXPECT_EQ(vfs::exists(inside.getLocation(), storage_), ExistenceType::File);
}

TEST_F(MemStorage, ReadOnlyFlagNeedsAnExistingFolder) {
    EXPECT_IDENTIFIED_ERROR(provider::setMemFolderReadOnly(AbsoluteIRI(u"mem://root/none"), true),
                            "QUORIN:storage:notFound", fl::ustring(u"mem://root/none"));
    File(AbsoluteIRI(u"mem://root/f"), storage_).createFile();
    EXPECT_EQ(codeOf([&] { provider::setMemFolderReadOnly(AbsoluteIRI(u"mem://root/f"), true); }),
              1);
    EXPECT_EQ(codeOf([&] { provider::setMemFolderReadOnly(AbsoluteIRI(u"file:///tmp"), true); }),
              1);
}

TEST_F(MemStorage, DotSegmentsAndTheRoot) {
    Folder(AbsoluteIRI(u"mem://root/a"), storage_).createFolder();
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root/a/./../a"), storage_), ExistenceType::Folder);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root"), storage_), ExistenceType::Folder);
    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root/"), storage_), ExistenceType::Folder);
    EXPECT_EQ(codeOf([&] { (void)vfs::exists(AbsoluteIRI(u"mem://root/../x"), storage_); }), 1);
    EXPECT_EQ(codeOf([&] { Folder(AbsoluteIRI(u"mem://root/"), storage_).createFolder(); }), 3);
    EXPECT_EQ(codeOf([&] { Folder(AbsoluteIRI(u"mem://root/"), storage_).removeFolder(); }), 1);
    EXPECT_EQ(Folder(AbsoluteIRI(u"mem://root"), storage_).listAll()[0].getLocation(),
              AbsoluteIRI(u"mem://root/a"));
}

TEST_F(MemStorage, AStreamOutlivesItsFile) {
    const File f(AbsoluteIRI(u"mem://root/f"), storage_);
    IODevice device(f, IODevice::OpenMode::Write);
    f.removeFile();
    const std::string data = "late";
    EXPECT_NO_THROW(device.write(std::as_bytes(std::span(data.data(), data.size()))));
    EXPECT_EQ(vfs::exists(f.getLocation(), storage_), ExistenceType::DoesNotExist);
}

}  // namespace
