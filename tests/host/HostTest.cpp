// The bundled host below the built-ins: IRIs and their text, the identity and text of every
// host error, the same storage operations over the "file" and "mem" providers (both must
// answer alike), what only the file provider has (links, names that are not UTF-8, FIFOs),
// faults injected through the system-call seams, and the core's path text per convention.
#include "quorin/io/filesystem/core/Existence.hpp"
#include "quorin/io/filesystem/core/Identifiers.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"
#include "quorin/io/filesystem/core/ResolvePath.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/S3.hpp"
#include "zkfs/test/TempTree.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/provider/MemProvider.hpp"
#include "foundation/storage/utility/URL.hpp"
#include "foundation/storage/vfs/vfs.hpp"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace core = quorin::io::filesystem::core;
namespace ids = QUORIN::io::filesystem::core;
namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;
namespace fs = fl::filesystem;
namespace sys = fl::sys;
using core::FileSystemType;
using Ext = provider::ExistenceTypeExtended;
using Type = provider::ExistenceType;
using vfs::AbsoluteIRI;
using vfs::File;
using vfs::Folder;
using vfs::IODevice;
using Names = std::vector<std::string>;

std::string utf8(const fl::ustring& s) { return fl::i18n::to_utf8(s); }
std::string text(const AbsoluteIRI& iri) { return utf8(iri.toString()); }

// An IRI has a scheme of two or more characters, then "://" ("C:\x" is none). Refused: texts
// that are neither an IRI nor an absolute path, and file IRIs that name no local path.
TEST(AbsoluteIRI, TextsThatAreNoIRIOrNoLocalPathAreRefused) {
    // clang-format off
    const std::pair<const char16_t*, bool> prefixes[] = {
        {u"http://a", true}, {u"s3://bucket/k", true}, {u"file:///", true}, {u"a+b.c-d://x", true},
        {u"", false}, {u"C:\\x", false}, {u"c://x", false}, {u"a/b", false}, {u"http:/x", false}, {u"1ab://x", false},
        {u"://x", false}, {u"/tmp/x://", false}, {u"h\u00e4://x", false}, {u"http:x", false}};
    const char16_t* const noIRI[] = {u"", u"relative/path", u"name", u"C:\\x", u"C:/x", u"./a", u"http://[::1/x", u"1abc://x", u"ht tp://x", u":nothing"};
    const char16_t* const noPath[] = {u"file://server/share/x", u"file:///a%2Fb", u"file:///a%00b", u"file://user@localhost/x"};
    // clang-format on
    for (const auto& [input, isIRI] : prefixes) EXPECT_EQ(vfs::hasIRIPrefix(input), isIRI);
    for (const fl::ustring bad : noIRI)
        EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(bad), "QUORIN:storage:invalidIRI", bad);
    for (const fl::ustring bad : noPath)
        EXPECT_IDENTIFIED_ERROR(vfs::fromAbsoluteIRI(AbsoluteIRI(bad)), "QUORIN:storage:invalidIRI",
                                bad);
    EXPECT_THROW((void)AbsoluteIRI(u"name"), vfs::InvalidIRIException);  // the class callers catch
    EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(AbsoluteIRI(u"file:///"), u"http://[bad"),
                            "QUORIN:storage:invalidIRI", fl::ustring(u"http://[bad"));
    EXPECT_IDENTIFIED_ERROR(vfs::toAbsoluteIRI(u"file", u"a/b"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"a/b"));
    EXPECT_IDENTIFIED_ERROR(vfs::toAbsoluteIRI(u"f", u"/a"), "QUORIN:storage:invalidIRI",
                            fl::ustring(u"f"));
    EXPECT_IDENTIFIED_ERROR(vfs::fromAbsoluteIRI(AbsoluteIRI(u"http://h/x")),
                            "QUORIN:storage:unsupportedScheme", fl::ustring(u"http://h/x"),
                            fl::ustring(u"http"));
}

// RFC 3986 text: what is raw is escaped, a well-formed escape stays as written. A file IRI
// converts back to its path (common escapes are createFileURL's rows; these are the rest).
TEST(AbsoluteIRI, TextEscapesWhatIsRawAndFileIRIsConvertBothWays) {
    // clang-format off
    const std::pair<AbsoluteIRI, const char*> rows[] = {
        {AbsoluteIRI(u"http://h/a b/\u00e4?q=\u00fc v#fr ag"), "http://h/a%20b/%C3%A4?q=%C3%BC%20v#fr%20ag"},
        {AbsoluteIRI(u"http://h/100%/x%41"), "http://h/100%25/x%41"},  // a lone "%" is literal
        {AbsoluteIRI(u"http://h/p#a#b"), "http://h/p#a%23b"},  // the first "#" starts the fragment
        {AbsoluteIRI(AbsoluteIRI(u"http://h/a/b#f"), u"c"), "http://h/a/c"},  // the base's fragment plays no part
        {AbsoluteIRI(u"file:///d/").getChild(u"x/y#%"), "file:///d/x%2Fy%23%25"},
        {AbsoluteIRI(u"mem://root/d?q#f").getChild(u"\u00e4"), "mem://root/d/%C3%A4"},
    };
    const std::pair<fl::ustring, const char*> files[] = {
        {u"", "file://"},  // names no file, but converts both ways
        {u"/tmp/100%41", "file:///tmp/100%2541"},
        {u"/tmp/a#b?x=1", "file:///tmp/a%23b%3Fx=1"},
        {u"/tmp/\U0001F600", "file:///tmp/%F0%9F%98%80"},
        {u"/tmp/\xDCFFz", "file:///tmp/%FFz"},  // byte 0xFF of a name that is not UTF-8
        {u"/tmp/semi;colon:at@plus+/", "file:///tmp/semi;colon:at@plus+/"},
    };
    // clang-format on
    for (const auto& [iri, expected] : rows) EXPECT_EQ(text(iri), expected);
    for (const auto& [path, expected] : files) {
        const AbsoluteIRI iri = vfs::toAbsoluteIRI(u"file", path);
        EXPECT_EQ(text(iri), expected);
        EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(iri.toString())), path);
        EXPECT_EQ(path.empty() ? iri : AbsoluteIRI(path), iri);  // the path reads the same way
    }
    EXPECT_EQ(vfs::fromAbsoluteIRI(AbsoluteIRI(u"FILE://localhost/x%20y")), u"/x y");
    EXPECT_EQ(AbsoluteIRI(u"file:///d").getChild(u"n\xDC80").getName(), u"n\xDC80");
    // A parent drops the last segment, the query and the fragment; a root has none.
    EXPECT_EQ(text(AbsoluteIRI(u"http://h/x/y/?q#f").getParent()), "http://h/x");
    EXPECT_EQ(text(AbsoluteIRI(u"file:///a%2Fb/c").getParent()), "file:///a%2Fb");
    EXPECT_FALSE(AbsoluteIRI(u"file:///").hasParent());
    EXPECT_IDENTIFIED_ERROR((void)AbsoluteIRI(u"http://h").getParent(),
                            "QUORIN:storage:invalidLocation", fl::ustring(u"http://h"));
}

// RFC 3986 section 5.4, normal and abnormal examples; a strict parser takes "http:g" as it
// stands.
TEST(AbsoluteIRI, ResolutionFollowsRFC3986Examples) {
    const AbsoluteIRI base(u"http://a/b/c/d;p?q");
    // clang-format off
    const std::pair<const char*, const char*> rows[] = {
        {"g:h", "g:h"},
        {"g", "http://a/b/c/g"},
        {"./g", "http://a/b/c/g"},
        {"g/", "http://a/b/c/g/"},
        {"/g", "http://a/g"},
        {"//g", "http://g"},
        {"?y", "http://a/b/c/d;p?y"},
        {"g?y", "http://a/b/c/g?y"},
        {"#s", "http://a/b/c/d;p?q#s"},
        {"g#s", "http://a/b/c/g#s"},
        {"g?y#s", "http://a/b/c/g?y#s"},
        {";x", "http://a/b/c/;x"},
        {"g;x", "http://a/b/c/g;x"},
        {"g;x?y#s", "http://a/b/c/g;x?y#s"},
        {"", "http://a/b/c/d;p?q"},
        {".", "http://a/b/c/"},
        {"./", "http://a/b/c/"},
        {"..", "http://a/b/"},
        {"../", "http://a/b/"},
        {"../g", "http://a/b/g"},
        {"../..", "http://a/"},
        {"../../", "http://a/"},
        {"../../g", "http://a/g"},
        {"../../../g", "http://a/g"},
        {"../../../../g", "http://a/g"},
        {"/./g", "http://a/g"},
        {"/../g", "http://a/g"},
        {"g.", "http://a/b/c/g."},
        {".g", "http://a/b/c/.g"},
        {"g..", "http://a/b/c/g.."},
        {"..g", "http://a/b/c/..g"},
        {"./../g", "http://a/b/g"},
        {"./g/.", "http://a/b/c/g/"},
        {"g/./h", "http://a/b/c/g/h"},
        {"g/../h", "http://a/b/c/h"},
        {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
        {"g;x=1/../y", "http://a/b/c/y"},
        {"g?y/./x", "http://a/b/c/g?y/./x"},
        {"g?y/../x", "http://a/b/c/g?y/../x"},
        {"g#s/./x", "http://a/b/c/g#s/./x"},
        {"g#s/../x", "http://a/b/c/g#s/../x"},
        {"http:g", "http:g"},
    };
    // clang-format on
    for (const auto& [reference, expected] : rows)
        EXPECT_EQ(text(AbsoluteIRI(base, fl::i18n::to_ustring(reference))), expected) << reference;
}

// Decoding keeps what is malformed; normalising follows RFC 3986 section 6.2.2.
TEST(URLText, DecodeKeepsWhatIsMalformedAndNormaliseFollowsRFC3986) {
    // clang-format off
    const std::tuple<const char16_t*, bool, const char16_t*> decoded[] = {
        {u"/a%20b/%C3%A4%e6%97%a5 100% %zz %4", true, u"/a b/\u00e4\u65e5 100% %zz %4"},
        {u"x%FFy%2F%25", true, u"x\xDCFFy/%"},  // bytes that are no UTF-8 survive as lone surrogates
        {u"%E4%20\u00e4%C3%A4", false, u"\u00e4 \u00e4\u00c3\u00a4"}};
    const std::pair<const char16_t*, const char16_t*> normalized[] = {
        {u"HTTP://User@Example.COM:80/a/./b/../c%2Fd/../e?Q=%7e#F%7e", u"http://User@example.com:80/a/e?Q=~#F~"},
        {u"http://h/%7euser/%2f%3a", u"http://h/~user/%2F%3A"},
        {u"/tmp/a b/\u00e4/../y", u"file:///tmp/a%20b/y"}};
    // clang-format on
    for (fl::ustring s; const auto& [input, asUtf8, expected] : decoded) {
        foundation::storage::utility::decodeURL(s = input, asUtf8);
        EXPECT_EQ(s, expected);
    }
    for (fl::ustring s; const auto& [input, expected] : normalized) {
        foundation::storage::utility::normalizeURL(s = input);
        EXPECT_EQ(s, expected);
    }
    fl::ustring bad = u"not a url";  // refused, and left as it was
    EXPECT_IDENTIFIED_ERROR(foundation::storage::utility::normalizeURL(bad),
                            "QUORIN:storage:invalidIRI", fl::ustring(u"not a url"));
    EXPECT_EQ(bad, u"not a url");
}

// Every kind of host error: its identifier, its arguments, and its English catalog text (one
// hole per argument) as a std::exception's text.
TEST(HostErrors, IdentifiersArgumentsAndEnglishTexts) {
    using foundation::core::except::Exception;
    using foundation::core::except::IMsgIDException;
    using A = std::vector<resource_core::MessageArg>;
    const AbsoluteIRI at(u"file:///x%20y");
    const fl::ustring x = u"file:///x%20y", y = u"/y", v = u"v";
    // clang-format off
    const std::tuple<std::shared_ptr<const IMsgIDException>, const char*, A, const char*> rows[] = {
        {std::make_shared<vfs::Exception>(1, at), "QUORIN:storage:invalidLocation", {x}, "'file:///x%20y' is not a valid storage location."},
        {std::make_shared<vfs::Exception>(2, at), "QUORIN:storage:permissionDenied", {x}, "Permission denied: 'file:///x%20y'."},
        {std::make_shared<vfs::Exception>(3, at, "File exists"), "QUORIN:storage:alreadyExists", {x}, "'file:///x%20y' already exists."},
        {std::make_shared<vfs::Exception>(4, at), "QUORIN:storage:notFound", {x}, "'file:///x%20y' was not found."},
        {std::make_shared<vfs::Exception>(5, at, "Input/output error"), "QUORIN:storage:ioError", {x, std::string("Input/output error")}, "Input/output error at 'file:///x%20y': Input/output error."},
        {std::make_shared<vfs::InvalidIRIException>(u"a/b"), "QUORIN:storage:invalidIRI", {fl::ustring(u"a/b")}, "'a/b' is not a valid absolute IRI or absolute path."},
        {std::make_shared<vfs::UnsupportedIRISchemeException>(u"s3://b/k", u"s3"), "QUORIN:storage:unsupportedScheme", {fl::ustring(u"s3://b/k"), fl::ustring(u"s3")}, "No storage provider serves the scheme 's3' of 's3://b/k'."},
        {std::make_shared<fs::SystemError>(EIO, u"/x"), "QUORIN:filesystem:systemError", {fl::ustring(u"/x"), std::string("Input/output error"), std::int64_t{EIO}}, "System error for '/x': Input/output error (error 5)."},
        {std::make_shared<fs::PathNotFound>(y), "QUORIN:filesystem:pathNotFound", {y}, "'/y' does not exist."},
        {std::make_shared<fs::AccessDenied>(y), "QUORIN:filesystem:accessDenied", {y}, "Access denied: '/y'."},
        {std::make_shared<Exception<ids::InvalidURLPort>>(ids::InvalidURLPort(v)), "QUORIN:io:filesystem:core:InvalidURLPort", {v}, "The port of the URL 'v' must be a whole number from 0 to 65535."},
    };
    // clang-format on
    for (const auto& [error, id, args, what] : rows) {
        EXPECT_TRUE(zkfs::test::matchesIdentifiedError(*error, id, args));
        EXPECT_STREQ(dynamic_cast<const std::exception&>(*error).what(), what);
    }
}

// The code and location text a storage call failed with; {0, ""} when it did not fail.
std::pair<int, std::string> failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const vfs::Exception& e) {
        return {e.getErrorCode(), text(e.getLocation())};
    }
    return {0, ""};
}

void writeTo(IODevice& device, std::string_view content) {
    device.write(std::as_bytes(std::span(content.data(), content.size())));
}

// A base folder on either provider; names are relative to it ("a/b").
class Storage : public ::testing::Test {
protected:
    void init(bool mem) {
        provider::resetMemStorage();
        base_ = mem ? AbsoluteIRI(u"mem://root/work")
                    : vfs::toAbsoluteIRI(u"file", tree_.emplace().upath(""));
        if (mem) Folder(*base_, storage_).createFolder();
    }
    void TearDown() override { provider::resetMemStorage(); }

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
    void write(std::u16string_view relative, std::string_view content,
               IODevice::OpenMode mode = IODevice::OpenMode::Write) const {
        IODevice device(file(relative), mode);
        writeTo(device, content);
        device.close();
    }
    std::string read(std::u16string_view relative) const {
        IODevice device(file(relative));
        std::string out;
        std::byte buffer[7];  // small, so that reading takes several calls
        for (std::size_t n; (n = device.read(buffer)) > 0;)
            out.append(reinterpret_cast<const char*>(buffer), n);
        return out;
    }
    // Names relative to the base, "/" after a folder, "@" after a link, "?" after the rest.
    Names names(const vfs::FolderListing& listing) const {
        Names out;
        const std::size_t skip = base_->getDecodedPath().size() + 1;
        const char* const mark[] = {"", "/", "@", "?"};  // file, folder, link, other
        for (const vfs::ListEntry& e : listing)
            out.push_back(utf8(e.getLocation().getDecodedPath().substr(skip)) +
                          mark[static_cast<int>(e.getKind())]);
        return out;
    }

    vfs::StorageSystemReference storage_ =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    std::optional<zkfs::test::TempTree> tree_;
    std::optional<AbsoluteIRI> base_;
};

// The same rows on every provider; "s3" on the run's local server, a bucket per test.
class Providers : public Storage, public ::testing::WithParamInterface<std::string> {
protected:
    void SetUp() override {
        if (GetParam() != "s3") return init(GetParam() == "mem");
        if (!zkfs::test::useLocalS3()) GTEST_SKIP() << "no local S3 server (ctest fixture s3rver)";
        static int serial = 0;
        const std::string bucket =
            "zkfs-host-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
        zkfs::test::makeBucket(bucket);
        base_ = AbsoluteIRI(fl::i18n::to_ustring("s3://" + bucket + "/work"));
        Folder(*base_, storage_).createFolder();
    }
};

TEST_P(Providers, FilesAndFoldersAreMadeWrittenAndRemoved) {
    file(u"f").createFile();
    EXPECT_EQ(vfs::existsExtended(at(u"f"), storage_), Ext::File);
    write(u"f", "hello, storage");
    write(u"f", "!", IODevice::OpenMode::Append);
    EXPECT_EQ(read(u"f"), "hello, storage!");
    EXPECT_EQ(file(u"f").getAttributes().getSize(), 15U);
    write(u"f", "x");  // a write truncates
    EXPECT_EQ(read(u"f"), "x");
    file(u"f").removeFile();
    EXPECT_EQ(vfs::exists(at(u"f"), storage_), Type::DoesNotExist);
    folder(u"d").createFolder();
    EXPECT_EQ(file(u"d").getAttributes().getSize(), 0U);
    folder(u"p/q/r s/\u00e4").createFolderRecursive();
    folder(u"p/q").createFolderRecursive();  // existing: nothing to do, no error
    folder(u"p/q/r s/\u00e4").removeFolder();
    EXPECT_EQ(names(folder(u"").listAllRecursive()), (Names{"d/", "p/", "p/q/", "p/q/r s/"}));
}

TEST_P(Providers, RefusedCallsNameTheirLocationAndChangeNothing) {
    write(u"keep", "data");
    folder(u"d/sub").createFolderRecursive();
    const Names before = names(folder(u"").listAllRecursive());
    // clang-format off
    struct Row { const char* what; std::function<void()> call; int code; const char16_t* where; };
    const Row rows[] = {
        {"createFile on a file", [&] { file(u"keep").createFile(); }, 3, u"keep"},
        {"createFile on a folder", [&] { file(u"d").createFile(); }, 3, u"d"},
        {"createFile, no parent", [&] { file(u"x/f").createFile(); }, 4, u"x/f"},
        {"createFile below a file", [&] { file(u"keep/f").createFile(); }, 4, u"keep/f"},
        {"removeFile of nothing", [&] { file(u"x").removeFile(); }, 4, u"x"},
        {"removeFile of a folder", [&] { file(u"d/sub").removeFile(); }, 5, u"d/sub"},
        {"createFolder on a folder", [&] { folder(u"d").createFolder(); }, 3, u"d"},
        {"createFolder, no parent", [&] { folder(u"x/y").createFolder(); }, 4, u"x/y"},
        // The level in the way is named, not the folder asked for.
        {"createFolderRecursive through a file", [&] { folder(u"keep/deeper/x").createFolderRecursive(); }, 3, u"keep"},
        {"removeFolder, not empty", [&] { folder(u"d").removeFolder(); }, 5, u"d"},
        {"listAll of nothing", [&] { (void)folder(u"x").listAll(); }, 4, u"x"},
        {"listAllRecursive of a file", [&] { (void)folder(u"keep").listAllRecursive(); }, 1, u"keep"},
        {"read nothing", [&] { IODevice d(file(u"x")); }, 4, u"x"},
        {"read a folder", [&] { IODevice d(file(u"d")); }, 1, u"d"},
        {"write a folder", [&] { IODevice d(file(u"d"), IODevice::OpenMode::Write); }, 1, u"d"},
        {"attributes of nothing", [&] { (void)file(u"x").getAttributes(); }, 4, u"x"},
    };
    // Every operation on a location no provider path can name: "file://", another memory
    // store, a name S3 does not allow for a bucket.
    const AbsoluteIRI nowhere(GetParam() == "mem"  ? u"mem://elsewhere/x"
                              : GetParam() == "s3" ? u"s3://No_Bucket/x"
                                                   : u"file://");
    const File f(nowhere, storage_);
    const std::function<void()> invalid[] = {
        [&] { (void)vfs::exists(nowhere, storage_); }, [&] { (void)vfs::existsExtended(nowhere, storage_); },
        [&] { f.createFile(); }, [&] { f.removeFile(); }, [&] { (void)f.getAttributes(); }, [&] { IODevice d(f); },
        [&] { Folder(nowhere, storage_).createFolder(); }, [&] { Folder(nowhere, storage_).createFolderRecursive(); },
        [&] { (void)Folder(nowhere, storage_).listAll(); }};
    // clang-format on
    for (const Row& row : rows)
        EXPECT_EQ(failureOf(row.call), std::pair(row.code, text(at(row.where)))) << row.what;
    for (const auto& call : invalid)
        EXPECT_EQ(failureOf(call), std::pair(1, text(nowhere))) << &call - invalid;
    EXPECT_THROW(File(AbsoluteIRI(u"gopher://host/key"), storage_).createFile(),
                 vfs::UnsupportedIRISchemeException);
    EXPECT_EQ(names(folder(u"").listAllRecursive()), before);
    EXPECT_EQ(read(u"keep"), "data");
}

TEST_P(Providers, ListingsAreSortedByUtf16CodeUnits) {
    // U+FF21 sorts after the surrogate pair of U+1F600 in UTF-16, before it in UTF-8.
    for (const char16_t* name : {u"b", u"a", u"B", u"_", u"\u00e4", u"Z10", u"Z9", u"\U0001F600",
                                 u"\uFF21", u"a b", u"a%b", u"a#b"})
        file(name).createFile();
    folder(u"m").createFolder();
    const vfs::FolderListing all = folder(u"").listAll();
    EXPECT_EQ(names(all), (Names{"B", "Z10", "Z9", "_", "a", "a b", "a#b", "a%b", "b", "m/",
                                 "\u00e4", "\U0001F600", "\uFF21"}));
    // The location of an entry is usable as it is.
    for (const vfs::ListEntry& e : all) EXPECT_EQ(e.getLocation(), at(e.getName()));
    EXPECT_EQ(vfs::exists(all[6].getLocation(), storage_), Type::File);
    EXPECT_EQ(folder(u"").listFiles().size(), 12U);
    EXPECT_EQ(names(folder(u"").listFolders()), Names{"m/"});
}

TEST_P(Providers, RecursiveListingIsPreOrderAndPatternsFilterWhatIsReported) {
    folder(u"a/y/deep").createFolderRecursive();
    folder(u"c").createFolder();
    folder(u"d.txt").createFolder();
    for (const char16_t* name : {u"a/x", u"a/y/z", u"b.txt", u"a/y/deep/leaf", u"d.txt/in.txt",
                                 u"d.txt/in.csv", u"top.csv"})
        file(name).createFile();
    EXPECT_EQ(names(folder(u"").listAllRecursive()),
              (Names{"a/", "a/x", "a/y/", "a/y/deep/", "a/y/deep/leaf", "a/y/z", "b.txt", "c/",
                     "d.txt/", "d.txt/in.csv", "d.txt/in.txt", "top.csv"}));
    EXPECT_EQ(names(folder(u"a").listAllRecursive()),
              (Names{"a/x", "a/y/", "a/y/deep/", "a/y/deep/leaf", "a/y/z"}));
    EXPECT_TRUE(folder(u"c").listAllRecursive().empty());
    EXPECT_EQ(names(folder(u"").listAll(u"*.txt")), (Names{"b.txt", "d.txt/"}));
    EXPECT_EQ(names(folder(u"").listFiles(u"*.txt")), (Names{"b.txt"}));
    // Folders the pattern leaves out are still walked.
    EXPECT_EQ(names(folder(u"").listAllRecursive(u"*.csv")), (Names{"d.txt/in.csv", "top.csv"}));
}

// The s3 provider shares its pool of connections between threads.
TEST_P(Providers, CallsFromSeveralThreadsAllLand) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([this, t] {
            for (int i = 0; i < 10; ++i) {
                // Appended: "t" + std::string trips g++ 12's -Wrestrict at -O3.
                const fl::ustring name =
                    fl::i18n::to_ustring(std::string("t").append(std::to_string(t * 10 + i)));
                file(name).createFile();
                EXPECT_EQ(vfs::exists(at(name), storage_), Type::File);
            }
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_EQ(folder(u"").listFiles().size(), 80U);
}

INSTANTIATE_TEST_SUITE_P(Storage, Providers, ::testing::Values("file", "mem", "s3"),
                         [](const auto& p) { return p.param; });

class MemStorage : public Storage {
protected:
    void SetUp() override { init(true); }
};

// A host call marks a memory folder read-only (for tests); "." and ".." stay inside the store.
TEST_F(MemStorage, ReadOnlyFoldersDotSegmentsAndTheRoot) {
    write(u"f", "x");
    provider::setMemFolderReadOnly(*base_, true);
    EXPECT_IDENTIFIED_ERROR(file(u"new").createFile(), "QUORIN:storage:permissionDenied",
                            fl::ustring(u"mem://root/work/new"));
    const std::function<void()> refused[] = {[&] { folder(u"sub").createFolder(); },
                                             [&] { file(u"f").removeFile(); },
                                             [&] { write(u"f", "y"); }};
    for (const auto& call : refused) EXPECT_EQ(failureOf(call).first, 2);
    EXPECT_FALSE(file(u"f").getAttributes().isWritable());
    EXPECT_EQ(read(u"f"), "x");
    provider::setMemFolderReadOnly(*base_, false);
    file(u"new").createFile();
    EXPECT_EQ(failureOf([&] { provider::setMemFolderReadOnly(at(u"none"), true); }).first, 4);
    EXPECT_EQ(failureOf([&] { provider::setMemFolderReadOnly(at(u"f"), true); }).first, 1);

    EXPECT_EQ(vfs::exists(AbsoluteIRI(u"mem://root/work/./../work/f"), storage_), Type::File);
    EXPECT_EQ(
        failureOf([&] { (void)vfs::exists(AbsoluteIRI(u"mem://root/../x"), storage_); }).first, 1);
    const Folder root(AbsoluteIRI(u"mem://root/"), storage_);
    EXPECT_EQ(failureOf([&] { root.createFolder(); }).first, 3);
    EXPECT_EQ(failureOf([&] { root.removeFolder(); }).first, 1);
    // A stream outlives the removal of its file.
    IODevice device(file(u"f"), IODevice::OpenMode::Write);
    file(u"f").removeFile();
    EXPECT_NO_THROW(writeTo(device, "late"));
}

class FileProvider : public Storage {
protected:
    void SetUp() override { init(false); }
};

TEST_F(FileProvider, LinksAreSeenAsLinksAndRemovedAsNames) {
    tree_->makeFile("f", "123");
    tree_->makeFolder("d");
    tree_->makeLink("f", "link-to-file");
    tree_->makeLink("d", "link-to-folder");
    tree_->makeLink("missing", "dangling");
    tree_->makeLink("loop", "loop");
    // clang-format off
    const std::pair<const char*, Ext> rows[] = {
        {"link-to-file", Ext::SymbolicLinkToFile}, {"link-to-folder", Ext::SymbolicLinkToFolder}, {"dangling", Ext::BrokenSymbolicLink},
        {"loop", Ext::BrokenSymbolicLink}, {"none", Ext::DoesNotExist}, {"f/below", Ext::DoesNotExist}};
    // clang-format on
    for (const auto& [name, extended] : rows) {
        EXPECT_EQ(vfs::existsExtended(AbsoluteIRI(tree_->upath(name)), storage_), extended) << name;
        // The core reads local paths itself, and must agree.
        EXPECT_EQ(core::getExtendedExistenceType(tree_->upath(name)), extended) << name;
    }
    // Attributes are the target's; "exists" follows links.
    EXPECT_EQ(file(u"link-to-file").getAttributes().getSize(), 3U);
    EXPECT_EQ(vfs::exists(at(u"link-to-folder"), storage_), Type::Folder);
    // Creating over a dangling link is refused (the name is taken) and makes no target.
    EXPECT_EQ(failureOf([&] { file(u"dangling").createFile(); }).first, 3);
    // Removing a link removes the name, never its target.
    file(u"link-to-file").removeFile();
    EXPECT_EQ(names(folder(u"").listAll()),
              (Names{"d/", "dangling@", "f", "link-to-folder@", "loop@"}));
}

TEST_F(FileProvider, NamesThatAreNotUtf8SurviveAndFifosDoNotBlock) {
    tree_->makeFile("\xff\xfe-name", "bytes");
    const vfs::FolderListing listing = folder(u"").listAll();
    ASSERT_EQ(listing.size(), 1U);
    EXPECT_EQ(listing[0].getName(), u"\xDCFF\xDCFE-name");
    EXPECT_TRUE(listing[0].getLocation().toEncodedString().ends_with("/%FF%FE-name"));
    File(listing[0].getLocation(), storage_).removeFile();
    // And the other way: a name given with escapes reaches the disk byte for byte.
    file(u"\xDC80x").createFile();
    EXPECT_TRUE(std::filesystem::exists(tree_->path("\x80x")));

    ASSERT_EQ(::mkfifo(tree_->path("fifo").c_str(), 0600), 0);
    IODevice device(file(u"fifo"));
    std::byte buffer[4];
    EXPECT_EQ(device.read(buffer), 0U);  // no writer: end of data at once
    EXPECT_EQ(vfs::existsExtended(at(u"fifo"), storage_), Ext::File);
    EXPECT_EQ(names(folder(u"").listAll())[0], "fifo?");
}

using sys::Op;
using sys::Phase;

TEST_F(FileProvider, CoreFailuresAreCode5WithTheSystemTextAndTimesKeepMicroseconds) {
    tree_->makeFile("f");
    tree_->makeLink("f", "link");
    {
        // Every way the core looks at the file fails, whichever it takes first.
        const sys::ScopedFaultHook eio([](sys::Call& c) {
            return c.phase == Phase::Before && std::string_view(c.name).ends_with("/f") ? EIO : 0;
        });
        for (const bool follow : {false, true}) {
            try {
                (void)core::resolvePath(tree_->upath("f"), {follow, false, false});
                ADD_FAILURE() << "no exception";
            } catch (const vfs::Exception& e) {
                EXPECT_EQ(
                    std::tuple(e.getErrorCode(), e.getSystemText()),
                    std::tuple(vfs::Exception::OtherIOError, std::string(std::strerror(EIO))));
            }
        }
    }
    // 2001-02-03 04:05:06.789123456 UTC: microseconds are kept, the rest truncated.
    const struct timespec times[2] = {{981173106, 789123456}, {981173106, 789123456}};
    ASSERT_EQ(::utimensat(AT_FDCWD, tree_->path("f").c_str(), times, 0), 0);
    EXPECT_EQ(boost::posix_time::to_iso_extended_string(
                  core::resolvePathWithAttributes(tree_->upath("link"), {}).lastModified),
              "2001-02-03T04:05:06.789123");
}

// Faults through the seam: `fail(c)` answers for each call before it is made, `made(c)`
// once it was made.
class FileProviderFaults : public Storage {
protected:
    void SetUp() override { init(false); }
    std::function<int(sys::Call&)> fail = [](sys::Call&) { return 0; };
    std::function<int(sys::Call&)> made = [](sys::Call&) { return 0; };
    std::map<Op, int> calls;  // made so far, by kind
    sys::ScopedFaultHook hook_{[this](sys::Call& c) {
        if (c.phase == Phase::Before) return fail(c);
        ++calls[c.op];
        return made(c);
    }};
};

TEST_F(FileProviderFaults, WalkReadsEachFolderOnceNeverThroughLinksAndEveryOpenIsCloseOnExec) {
    tree_->makeFile("a/x", "x");
    tree_->makeFile("a/b/y");
    tree_->makeFile("c/z");
    tree_->makeFile("top");
    tree_->makeLink("a", "link");
    tree_->makeLink("..", "a/b/up");  // a loop back to a
    tree_->makeLink("self", "self");
    std::vector<int> openFlags;
    fail = [&](sys::Call& c) {
        if (c.op == Op::Openat) openFlags.push_back(c.flags);
        return 0;
    };
    EXPECT_EQ(names(folder(u"").listAllRecursive()), (Names{"a/", "a/b/", "a/b/up@", "a/b/y", "a/x",
                                                            "c/", "c/z", "link@", "self@", "top"}));
    EXPECT_EQ(calls[Op::Openat], 4);  // the root, a, a/b, c
    EXPECT_EQ(calls[Op::Fstatat], 0);
    for (int flags : openFlags) EXPECT_NE(flags & O_DIRECTORY, 0);
    // Links are files for listFiles, never folders; a folder given as a link is listed.
    EXPECT_EQ(names(folder(u"").listFolders()), (Names{"a/", "c/"}));
    EXPECT_EQ(names(folder(u"").listFiles()), (Names{"link@", "self@", "top"}));
    EXPECT_EQ(folder(u"link").listAllRecursive().size(), 4U);

    file(u"new").createFile();
    { IODevice r(file(u"a/x")); }
    { IODevice w(file(u"a/x"), IODevice::OpenMode::Write); }
    ASSERT_GE(openFlags.size(), 8U);
    for (int flags : openFlags) EXPECT_NE(flags & O_CLOEXEC, 0);
}

TEST_F(FileProviderFaults, UnknownEntryTypesCostOneStatusEach) {
    tree_->makeFile("a/x");
    tree_->makeFile("top");
    tree_->makeLink("a", "link");
    made = [](sys::Call& c) {
        // As a file system without d_type answers.
        for (long at = 0; c.op == Op::Getdents64 && at < c.result;) {
            auto* entry = reinterpret_cast<dirent64*>(static_cast<char*>(c.data) + at);
            entry->d_type = DT_UNKNOWN;
            at += entry->d_reclen;
        }
        return 0;
    };
    EXPECT_EQ(names(folder(u"").listAllRecursive()), (Names{"a/", "a/x", "link@", "top"}));
    EXPECT_EQ(calls[Op::Fstatat], 4);
}

TEST_F(FileProviderFaults, InterruptedCallsAreRetriedButCloseIsNot) {
    tree_->makeFile("d/f");
    Op interrupted{};
    int interrupts = 0;
    fail = [&](sys::Call& c) {
        if (c.op == Op::Write) c.size = std::min<std::size_t>(c.size, 1);  // short writes
        return c.op == interrupted && interrupts > 0 && interrupts-- ? EINTR : 0;
    };
    const auto interrupt = [&](Op op, int times) { interrupted = op, interrupts = times; };
    interrupt(Op::Getdents64, 2);
    EXPECT_EQ(folder(u"d").listAll().size(), 1U);
    EXPECT_EQ(interrupts, 0);
    interrupt(Op::Openat, 1);
    file(u"new").createFile();
    EXPECT_EQ(interrupts, 0);
    interrupt(Op::Write, 1);
    write(u"new", "several bytes");
    EXPECT_EQ(std::tuple(interrupts, std::filesystem::file_size(tree_->path("new"))),
              std::tuple(0, 13U));

    made = [](sys::Call& c) { return c.op == Op::Close ? EINTR : 0; };
    IODevice device(file(u"g"), IODevice::OpenMode::Write);
    calls.clear();
    EXPECT_NO_THROW(device.close());  // EINTR from close: the descriptor is gone anyway
    EXPECT_EQ(calls[Op::Close], 1);
}

TEST_F(FileProviderFaults, ReadWriteAndCloseFailuresCarryTheSystemText) {
    tree_->makeFile("d/f");
    fail = [](sys::Call& c) {
        return c.op == Op::Getdents64 ? EIO : c.op == Op::Write ? ENOSPC : 0;
    };
    made = [](sys::Call& c) { return c.op == Op::Close ? EIO : 0; };
    EXPECT_IDENTIFIED_ERROR((void)folder(u"d").listAll(), "QUORIN:storage:ioError",
                            at(u"d").toString(), std::string("Input/output error"));
    IODevice reader(file(u"d/f"));
    EXPECT_IDENTIFIED_ERROR(reader.close(), "QUORIN:storage:ioError", at(u"d/f").toString(),
                            std::string("Input/output error"));
    IODevice writer(file(u"f"), IODevice::OpenMode::Write);
    EXPECT_IDENTIFIED_ERROR(writeTo(writer, "x"), "QUORIN:storage:ioError", at(u"f").toString(),
                            std::string("No space left on device"));
}

// "parent|name|extension[ @host:port?query#fragment] PathType" then "+" when absolute.
std::string components(const fl::ustring& path, FileSystemType type) {
    const bool isUrl = vfs::hasIRIPrefix(path);
    const core::PathComponents c = core::getPathComponents(path, isUrl, type);
    fl::ustring s = c.parent + u'|' + c.name + u'|' + c.extension;
    const bool port = c.port != core::PathComponents::noPort;
    if (!c.host.empty() || port || !c.query.empty() || !c.fragment.empty())
        s += u" @" + c.host + u':' + fl::i18n::to_ustring(port ? std::to_string(c.port) : "") +
             u'?' + c.query + u'#' + c.fragment;
    return utf8(s + u' ' + core::getPathType(path, isUrl, type)) +
           (core::getIsAbsolute(path, isUrl, type) ? "+" : "-");
}

// Each input under the unix, windows and schema conventions; "=" is the column before.
// The native convention is unix here, and a URL is read as one under every convention.
TEST(PathComponents, EveryConvention) {
    // clang-format off
    const std::tuple<const char16_t*, const char*, const char*, const char*> rows[] = {
        {u"", "|| Local-", "|| Local-", "|| URL-"},
        {u".", "|.| Local-", "|.| Local-", "|.| URL-"},
        {u"..", "|..| Local-", "|..| Local-", "|..| URL-"},
        {u"/", "/|| Local+", "/|| Local-", "/|| URL-"},
        {u"//host", "//|host| Local+", "//host|| @host:?# UNC+", "//host|| @host:?# URL-"},
        {u"C:", "|C:| Local-", "C:|| Local-", "C:|| URL+"},
        {u"C:\\", "|C:\\| Local-", "C:\\|| Local+", "C:|\\| URL+"},
        {u"c:/", "|c:| Local-", "c:/|| Local+", "c:/|| URL+"},
        {u"C:a.txt", "|C:a|.txt Local-", "C:|a|.txt Local-", "C:|a|.txt URL+"},
        {u"C:\\a", "|C:\\a| Local-", "C:\\|a| Local+", "C:|\\a| URL+"},
        {u"C:\\x\\y.txt", "|C:\\x\\y|.txt Local-", "C:\\x|y|.txt Local+", "C:|\\x\\y|.txt URL+"},
        {u"\\x\\y", "|\\x\\y| Local-", "\\x|y| Local-", "|\\x\\y| URL-"},
        {u"dir\\sub/f.tar", "dir\\sub|f|.tar Local-", "=", "dir\\sub|f|.tar URL-"},
        {u"\\\\server\\share", "|\\\\server\\share| Local-", "\\\\server\\share|| @server:?# UNC+", "|\\\\server\\share| URL-"},
        {u"\\\\server\\share\\f", "|\\\\server\\share\\f| Local-", "\\\\server\\share\\|f| @server:?# UNC+", "|\\\\server\\share\\f| URL-"},
        {u"\\\\server\\share\\dir\\f.txt", "|\\\\server\\share\\dir\\f|.txt Local-", "\\\\server\\share\\dir|f|.txt @server:?# UNC+", "|\\\\server\\share\\dir\\f|.txt URL-"},
        // Under schema "?" starts a query, wherever it stands.
        {u"\\\\?\\C:\\long\\p.txt", "|\\\\?\\C:\\long\\p|.txt Local-", "\\\\?\\C:\\long|p|.txt Local+", "|\\\\| @:?\\C:\\long\\p.txt# URL-"},
        {u"\\\\?\\UNC\\srv\\sh\\f", "|\\\\?\\UNC\\srv\\sh\\f| Local-", "\\\\?\\UNC\\srv\\sh\\|f| @srv:?# UNC+", "|\\\\| @:?\\UNC\\srv\\sh\\f# URL-"},
        {u"/a/b.txt", "/a|b|.txt Local+", "/a|b|.txt Local-", "/a|b|.txt URL-"},
        {u"a/b.tar.gz", "a|b.tar|.gz Local-", "=", "a|b.tar|.gz URL-"},
        {u"/a/b/", "/a|b| Local+", "/a|b| Local-", "/a|b| URL-"},
        {u"/a//b", "/a|b| Local+", "/a|b| Local-", "/a|b| URL-"},
        {u"/a.d/b", "/a.d|b| Local+", "/a.d|b| Local-", "/a.d|b| URL-"},
        {u"/home/.bashrc", "/home|.bashrc| Local+", "/home|.bashrc| Local-", "/home|.bashrc| URL-"},
        {u"..x", "|..x| Local-", "=", "|..x| URL-"},
        {u".config.old", "|.config|.old Local-", "=", "|.config|.old URL-"},
        {u"file.", "|file|. Local-", "=", "|file|. URL-"},
        {u"mailto:a@b.c", "|mailto:a@b|.c Local-", "=", "mailto:|a@b|.c URL+"},
        {u"1http:x", "|1http:x| Local-", "=", "|1http:x| URL-"},
        {u"/données/été.csv", "/données|été|.csv Local+", "/données|été|.csv Local-", "/données|été|.csv URL-"},
        {u"C:\\Données\\ファイル.txt", "|C:\\Données\\ファイル|.txt Local-", "C:\\Données|ファイル|.txt Local+", "C:|\\Données\\ファイル|.txt URL+"},
        {u"/\xDCFF\xDCFE.bin", "/|\xFF\xFE|.bin Local+", "/|\xFF\xFE|.bin Local-", "/|\xFF\xFE|.bin URL-"},
        {u"http://example.com:8080/a/b.txt?x=1&y=2#top", "http://example.com:8080/a|b|.txt @example.com:8080?x=1&y=2#top URL+", "=", "="},
        {u"https://example.com", "https://example.com|| @example.com:?# URL+", "=", "="},
        {u"https://example.com/dir/", "https://example.com/|dir| @example.com:?# URL+", "=", "="},
        {u"http://host:/x", "http://host:/|x| @host:?# URL+", "=", "="},
        {u"http://h:0/", "http://h:0/|| @h:0?# URL+", "=", "="},
        {u"http://h:65535/a", "http://h:65535/|a| @h:65535?# URL+", "=", "="},
        {u"http://user:pw@h:21/x", "http://user:pw@h:21/|x| @h:21?# URL+", "=", "="},
        {u"http://[::1]:99/f", "http://[::1]:99/|f| @[::1]:99?# URL+", "=", "="},
        {u"http://h/a?q", "http://h/|a| @h:?q# URL+", "=", "="},
        {u"http://h/a#f?g", "http://h/|a| @h:?#f?g URL+", "=", "="},
        {u"http://h/caf%C3%A9.txt", "http://h/|caf%C3%A9|.txt @h:?# URL+", "=", "="},
        {u"http://h/dir/été.csv", "http://h/dir|été|.csv @h:?# URL+", "=", "="},
        {u"s3://bucket/key/data.parquet", "s3://bucket/key|data|.parquet @bucket:?# URL+", "=", "="},
        {u"file:///tmp/x.txt", "file:///tmp|x|.txt URL+", "=", "="},
    };
    // clang-format on
    for (const auto& [input, unix, windows, schema] : rows) {
        SCOPED_TRACE(utf8(input));
        EXPECT_EQ(components(input, FileSystemType::Unix), unix);
        EXPECT_EQ(components(input, FileSystemType::Windows), *windows == '=' ? unix : windows);
        EXPECT_EQ(components(input, FileSystemType::Schema), *schema != '='    ? schema
                                                             : *windows == '=' ? unix
                                                                               : windows);
        EXPECT_EQ(components(input, FileSystemType::Native), unix);
    }
}

// pathFcn swallows this error, so only the core shows it.
TEST(PathComponents, BadPortIsAnIdentifiedError) {
    for (const char16_t* url :
         {u"http://h:99999/", u"http://h:8a/", u"http://h:-1/", u"http://[::1]x/"})
        EXPECT_IDENTIFIED_ERROR(core::getPathComponents(url, true, FileSystemType::Schema),
                                "QUORIN:io:filesystem:core:InvalidURLPort", fl::ustring(url));
}

}  // namespace
