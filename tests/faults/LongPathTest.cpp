// A real folder chain whose paths pass the system's limit of 4,096 bytes, made one level
// at a time (no case table can build one): every built-in answers for the whole path as
// for one it cannot reach, and nothing is made or changed at a shortened path.
#include "FaultsSupport.hpp"
#include "zkfs/test/Call.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <string>
#include <system_error>
#include <vector>

namespace zkfs::test::faults {
namespace {

constexpr std::size_t kKernelLimit = 4096;  // PATH_MAX, the terminating NUL included

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
    // The query keeps the standard library's own error for a status it cannot read.
    EXPECT_EQ(errorOf("p = getPerms_impl" + q + ", 'File')")["identifier"], "");
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
    EXPECT_EQ(rawNames(tree.root().native()),
              (std::vector<std::string>{std::string(200, 'd'), "t.txt"}));
}

// A walk lists the chain level by level, changes every entry it can name, and reports
// each one past the limit by its whole path.
TEST(LongPaths, AWalkThroughAChainPastTheLimitReportsEachEntryItCannotName) {
    TempTree tree;
    DeepFolder deep(tree.root(), 4500);
    const std::string file = deep.makeFile("f.txt");
    std::vector<fl::ustring> expected;
    for (std::size_t d = 1; d <= deep.depth(); ++d) {
        if (deep.path(d).size() >= kKernelLimit) expected.push_back(hostText(deep.path(d)));
    }
    expected.push_back(hostText(file));
    const LiveArrayGuard guard;
    const auto failures =
        modifyPerms(1, tree.upath(""), u"Folder", {{"OtherExecute", false}}, u"all");
    EXPECT_EQ(namesOf(failures), expected);
    for (const Failure& f : failures) EXPECT_EQ(f.cause, u"File name too long");
    for (std::size_t d = 1; d <= deep.depth(); ++d) {
        EXPECT_EQ(deep.mode(d), deep.path(d).size() < kKernelLimit ? 0754U : 0755U) << d;
    }
    EXPECT_EQ(deep.mode(deep.depth(), "f.txt"), 0644U);
}

}  // namespace
}  // namespace zkfs::test::faults
