// Link loops (two links naming each other, a link naming itself), alone and inside a
// walked tree: every built-in ends, answers them as links that lead nowhere, and refuses
// to follow them with the right identifier.
#include "FaultsSupport.hpp"
#include "zkfs/test/GatewayCall.hpp"
#include "PermsTestSupport.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test::faults {
namespace {

namespace ids = QUORIN::io::filesystem::filePermissions;
using perms::catalogText;
using perms::failureRows;
using perms::modifyPermsNoOut;
using perms::modifyPermsOut;
using perms::request;

class Loops : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeLink("loop-b", "loop-a");
        tree.makeLink("loop-a", "loop-b");
        tree.makeLink("self", "self");
        tree.makeFile("walked/x.txt", "x");
        tree.makeLink("lb", "walked/la");
        tree.makeLink("la", "walked/lb");
        tree.makeLink("me", "walked/me");
        tree.setMode("walked/x.txt", 0644);
    }
    TempTree tree;
};

TEST_F(Loops, ALoopIsALinkThatLeadsNowhere) {
    for (const char* name : {"loop-a", "loop-b", "self"}) {
        SCOPED_TRACE(name);
        const fl::ustring path = tree.upath(name);
        const Resolved r = resolve(path);
        EXPECT_EQ(r.type, u"None");
        EXPECT_EQ(r.path, u"");
        const Resolved a = resolveWithAttributes(path);
        EXPECT_EQ(a.type, u"None");
        EXPECT_TRUE(std::isnan(a.lastModified));
        const LinkAnswer link = isSymlink(path);
        EXPECT_TRUE(link.isLink);
        EXPECT_EQ(link.target, u"");
        // The link's own mode, never a target's.
        const auto s = perms::getPerms(ArgList(stringScalar(path), charRow(u"Other")));
        for (const auto& [field, value] : perms::logicalFields(s.get()))
            EXPECT_TRUE(value) << field;

        // Its target cannot be determined; the link itself cannot be changed on Linux.
        const auto target =
            modifyPermsOut(path, u"Other", request({{"Writable", false}}), u"target");
        auto rows = failureRows(target.get());
        ASSERT_EQ(rows.size(), 1U);
        EXPECT_EQ(rows[0].name, path);
        EXPECT_EQ(rows[0].cause, catalogText<ids::UnableToDetermineTarget>(path));
        EXPECT_NO_THROW(
            modifyPermsNoOut(path, u"Other", request({{"Writable", false}}), u"target"));
        EXPECT_IDENTIFIED_ERROR(
            modifyPermsNoOut(path, u"Other", request({{"Writable", false}}), u"symboliclinks"),
            "QUORIN:io:filesystem:filePermissions:UnableToSetPermissions", path,
            std::string("Operation not supported"));
    }
}

TEST_F(Loops, MakingALinkToALoopOrOverALoop) {
    const auto before = tree.snapshot();
    OutputSlots none;
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none,
                            ArgList(charRow(tree.upath("new")), charRow(tree.upath("self")))),
        "QUORIN:io:filesystem:symlink:TargetNotFound", tree.upath("self"));
    tree.makeFile("t.txt");
    const auto withTarget = tree.snapshot();
    EXPECT_IDENTIFIED_ERROR(
        call<&mkSymlinkFcn>(0, none,
                            ArgList(charRow(tree.upath("loop-a")), charRow(tree.upath("t.txt")))),
        "QUORIN:io:filesystem:symlink:FileExists", tree.upath("loop-a"));
    EXPECT_EQ(tree.snapshot(), withTarget);
    // Under "overwrite" the loop is replaced by a working link.
    call<&mkSymlinkFcn>(0, none,
                        ArgList(charRow(tree.upath("loop-a")), charRow(tree.upath("t.txt")),
                                charRow(u"ReplacementRule"), charRow(u"overwrite")));
    EXPECT_EQ(std::filesystem::read_symlink(tree.path("loop-a")), tree.path("t.txt"));
    EXPECT_EQ(resolve(tree.upath("loop-b")).type, u"SymbolicLink");
    EXPECT_NE(tree.snapshot(), before);
}

// Each walk, in every scope that meets links, ends and names each loop once per attempt.
TEST_F(Loops, EveryWalkThroughLoopsEndsAndReportsThem) {
    const fl::ustring folder = tree.upath("walked");
    const std::vector<fl::ustring> links = {tree.upath("walked/la"), tree.upath("walked/lb"),
                                            tree.upath("walked/me")};
    const std::vector<std::vector<std::pair<std::string, bool>>> walks = {
        {{"OtherWrite", false}}, {{"Readable", false}}, {{"Readable", true}}};
    for (const auto& walk : walks) {
        SCOPED_TRACE(walk[0].first + (walk[0].second ? " granted" : " revoked"));
        for (const char16_t* scope : {u"files", u"symboliclinks", u"target", u"all"}) {
            SCOPED_TRACE(bytesOf(scope));
            tree.setMode("walked", 0755);
            tree.setMode("walked/x.txt", 0644);
            const auto out = modifyPermsOut(folder, u"Folder", request(walk), scope);
            std::vector<fl::ustring> names;
            for (const auto& row : failureRows(out.get())) {
                names.push_back(row.name);
                const bool target = fl::ustring(scope) == u"target";
                EXPECT_EQ(row.cause, target ? catalogText<ids::UnableToDetermineTarget>(row.name)
                                            : u"Operation not supported");
            }
            EXPECT_EQ(names, fl::ustring(scope) == u"files" ? std::vector<fl::ustring>{} : links);
            // The file among the loops was reached.
            const bool reachesFiles =
                fl::ustring(scope) == u"files" || fl::ustring(scope) == u"all";
            if (reachesFiles && walk[0].first == "Readable" && !walk[0].second) {
                EXPECT_EQ(tree.mode("walked/x.txt"), 0244U);
            }
        }
    }
}

}  // namespace
}  // namespace zkfs::test::faults
