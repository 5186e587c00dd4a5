// Paths of 4,096 bytes and more, existing (a real folder chain made one level at a time)
// and not: every built-in answers as for a path it cannot reach, or with an identified
// error naming the whole path; nothing is made or changed at a shortened path.
#include "FaultsSupport.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace zkfs::test::faults {
namespace {

namespace vfs = foundation::storage::vfs;

constexpr const char* kUnableToSet = "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions";
constexpr const char* kInvalidLocation = "QUORIN:virtualfilesystem:invalidLocation";
constexpr const char* kUnknown = "QUORIN:virtualfilesystem:unknownError";
constexpr std::size_t kKernelLimit = 4096;  // PATH_MAX, the terminating NUL included

class LongPaths : public LiveArrayTest {
protected:
    TempTree tree;
};

// What every path-taking built-in does with one path it cannot name to the kernel.
void expectUnreachable(const fl::ustring& path) {
    const Resolved r = resolve(path);
    EXPECT_EQ(r.path, u"");
    EXPECT_EQ(r.type, u"None");
    const Resolved a = resolveWithAttributes(path);
    EXPECT_EQ(a.type, u"None");
    EXPECT_FALSE(a.readable);
    EXPECT_TRUE(std::isnan(a.lastModified));
    EXPECT_FALSE(isSymlink(path).isLink);
    EXPECT_IDENTIFIED_ERROR(
        perms::modifyPermsNoOut(path, u"File", perms::request({{"Writable", false}}), std::nullopt),
        kUnableToSet, path, std::string("File name too long"));
    const auto out =
        perms::modifyPermsOut(path, u"File", perms::request({{"Writable", false}}), u"all");
    const auto rows = perms::failureRows(out.get());
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].name, path);
    EXPECT_EQ(rows[0].cause, u"File name too long");
    // The query keeps the standard library's error for a status it cannot read.
    EXPECT_THROW((void)perms::getPerms(ArgList(stringScalar(path), charRow(u"File"))),
                 std::filesystem::filesystem_error);
    // Text only: the URL carries the whole path.
    const auto urls = stringsFrom(call<&quorin::io::filesystem::quorin::createFileURL>,
                                  ArgList(stringScalar(path)), {1, 1});
    ASSERT_EQ(urls.size(), 1U);
    EXPECT_EQ(vfs::fromAbsoluteIRI(vfs::AbsoluteIRI(urls[0].value_or(u""))), path);
}

TEST_F(LongPaths, AnExistingFilePastTheLimitIsNamedWholeAndLeftAsItIs) {
    DeepFolder deep(tree.root(), 4400);
    const fl::ustring file = hostText(deep.makeFile("f.txt"));
    ASSERT_GE(file.size(), 4400U);
    expectUnreachable(file);
    EXPECT_EQ(deep.fileMode("f.txt"), 0644U);

    // The makers refuse with the whole path and make nothing, there or anywhere above:
    // storage calls a name the system cannot take an invalid location; the link maker's
    // core reports it as an error of its own kind.
    tree.makeFile("target.txt");
    const auto before = rawNames(tree.root().native());
    const fl::ustring made = hostText(deep.path() + "/new.txt");
    OutputSlots out(3);
    EXPECT_IDENTIFIED_ERROR(call<&mkFileFcn>(0, out, ArgList(charRow(made))), kInvalidLocation,
                            made);
    call<&mkFileFcn>(3, out, ArgList(charRow(made)));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
    EXPECT_EQ(stringsOf(out[2]),
              std::vector<StringElement>{fl::i18n::to_ustring(kInvalidLocation)});

    const fl::ustring link = hostText(deep.path() + "/link");
    OutputSlots none;
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none, ArgList(charRow(link), charRow(tree.upath("target.txt")))),
        kUnknown, link);
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none, ArgList(charRow(tree.upath("l")), charRow(file))), kUnknown,
        file);
    EXPECT_EQ(deep.names(), std::vector<std::string>{"f.txt"});
    EXPECT_EQ(rawNames(tree.root().native()), before);
    EXPECT_EQ(rawNames(deep.top()), std::vector<std::string>{std::string(200, 'd')});
}

TEST_F(LongPaths, NonexistentPathsPastTheLimitAreRefusedWhole) {
    const std::string base = tree.root().native();
    // One name longer than a file system allows, and many short ones past the limit.
    std::string manyNames = base;
    while (manyNames.size() < 5000) manyNames += "/abcdefghij";
    const std::vector<std::string> paths = {base + "/" + std::string(5000, 'x'), manyNames};
    const auto before = tree.snapshot();
    for (const auto& p : paths) {
        const fl::ustring path = hostText(p);
        SCOPED_TRACE(p.size());
        expectUnreachable(path);
        OutputSlots out(3);
        call<&mkFileFcn>(3, out, ArgList(charRow(path)));
        EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{false});
        EXPECT_EQ(stringsOf(out[2]),
                  std::vector<StringElement>{fl::i18n::to_ustring(kInvalidLocation)});
        OutputSlots none;
        tree.makeFile("t.txt");
        EXPECT_IDENTIFIED_ERROR(
            call<&mkSymlinkFcn>(0, none, ArgList(charRow(path), charRow(tree.upath("t.txt")))),
            kUnknown, path);
        std::filesystem::remove(tree.path("t.txt"));
    }
    EXPECT_EQ(tree.snapshot(), before);
}

// A walk lists the chain level by level, changes every entry it can name, and reports
// each one past the limit by its whole path.
TEST_F(LongPaths, AWalkThroughAChainPastTheLimitReportsEachEntryItCannotName) {
    DeepFolder deep(tree.root(), 4500);
    const std::string file = deep.makeFile("f.txt");
    std::vector<fl::ustring> expected;
    for (std::size_t d = 1; d <= deep.depth(); ++d) {
        if (deep.folderPath(d).size() >= kKernelLimit)
            expected.push_back(hostText(deep.folderPath(d)));
    }
    expected.push_back(hostText(file));

    const auto out = perms::modifyPermsOut(tree.upath(""), u"Folder",
                                           perms::request({{"OtherExecute", false}}), u"all");
    std::vector<fl::ustring> names;
    for (const auto& row : perms::failureRows(out.get())) {
        names.push_back(row.name);
        EXPECT_EQ(row.cause, u"File name too long");
    }
    EXPECT_EQ(names, expected);
    for (std::size_t d = 1; d <= deep.depth(); ++d) {
        const bool reachable = deep.folderPath(d).size() < kKernelLimit;
        EXPECT_EQ(deep.folderMode(d), reachable ? 0754U : 0755U) << d;
    }
    EXPECT_EQ(deep.fileMode("f.txt"), 0644U);
}

// The length rule is the host's, in UTF-16 code units, whatever the file system allows.
TEST_F(LongPaths, LengthValidationCountsCodeUnitsAtTheHostsLimit) {
    DeepFolder deep(tree.root(), 4400);
    const fl::ustring real = hostText(deep.path());
    const fl::ustring at(4352, u'a');
    const fl::ustring past(4353, u'a');
    const fl::ustring pairs = fl::ustring(4350, u'a') + u"\U0001F600";       // 4352 units
    const fl::ustring escaped = fl::ustring(4352, u'a') + hostText("\xff");  // 4353 units
    const auto valid =
        logicalsFrom(call<&pathNameLengthValidation>,
                     ArgList(stringArray({1, 5}, {at, past, pairs, escaped, real})), {5, 1});
    EXPECT_EQ(valid, (std::vector<bool>{true, false, true, false, real.size() <= 4352}));
}

}  // namespace
}  // namespace zkfs::test::faults
