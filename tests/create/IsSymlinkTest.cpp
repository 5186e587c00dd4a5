// isSymlinkFcn on real trees: classification of links (dangling ones and loops included),
// target texts, per-element failures, shapes and argument errors; and the counts of
// every maker, judged before any argument.
#include "GatewayCall.hpp"
#include "Helpers.hpp"
#include "quorin/gateway/Errors.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"
#include "zkfs/test/Unprivileged.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zkfs::test::create {
namespace {

void isSymlink(int outCount, OutputSlots& out, const ArgList& args) {
    isSymlinkFcn(outCount, out.data(), args.count(), args.data());
}

class IsSymlink : public LiveArrayTest {
protected:
    void SetUp() override {
        LiveArrayTest::SetUp();
        tree.makeFile("data/measurements.csv", "a,b\n");
        tree.makeFolder("data/raw");
        tree.makeLink("data/measurements.csv", "latest");      // relative, to a file
        tree.makeLink(tree.path("data/raw").native(), "raw");  // absolute, to a folder
        tree.makeLink("nowhere.csv", "dangling");
        tree.makeLink("loop-b", "loop-a");
        tree.makeLink("loop-a", "loop-b");
    }
    TempTree tree;
};

TEST_F(IsSymlink, StringArrayKeepsItsShapeAndSkipsMissingElements) {
    // 3x3, column-major: link, file, folder link; missing, dangling, nothing; and
    // locations under schemes where no link can live.
    ArgList args(stringArray(
        {3, 3},
        {tree.upath("latest"), tree.upath("data/measurements.csv"), tree.upath("raw"), std::nullopt,
         tree.upath("dangling"), tree.upath("no/such/path"), fl::ustring(u"https://example.org/a"),
         fl::ustring(u"mem://root/none"), fl::ustring(u"mem://[broken")}));
    OutputSlots out(2);
    isSymlink(2, out, args);
    EXPECT_EQ(dimsOf(out[0]), (Dims{3, 3}));
    EXPECT_EQ(logicalsOf(out[0]),
              (std::vector<bool>{true, false, true, false, true, false, false, false, false}));
    EXPECT_EQ(dimsOf(out[1]), (Dims{3, 3}));
    const std::vector<StringElement> expected{
        fileIRI(tree.path("data/measurements.csv")), u"", fileIRI(tree.path("data/raw")), u"",
        // A dangling link's target cannot be found: the element stays as created.
        u"", u"", u"", u"", u""};
    EXPECT_EQ(stringsOf(out[1]), expected);
}

TEST_F(IsSymlink, CellInputWithALoopAndEmptyText) {
    ArgList args(cellArray(
        {3, 1}, arrays(charRow(tree.upath("loop-a")), charEmpty(), charRow(tree.upath("raw")))));
    OutputSlots out(2);
    isSymlink(2, out, args);
    EXPECT_EQ(dimsOf(out[0]), (Dims{3, 1}));
    // A loop cannot be followed, yet it is a link; its target text is its own (empty)
    // resolved form.
    EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(stringsOf(out[1]),
              (std::vector<StringElement>{u"", u"", fileIRI(tree.path("data/raw"))}));
}

TEST_F(IsSymlink, RelativePathsAndFileURLs) {
    InFolder here(tree.path("data"));
    OutputSlots out(2);
    isSymlink(2, out,
              ArgList(cellRow(charRow(u"../latest"), charRow(u"measurements.csv"),
                              charRow(fileIRI(tree.path("raw"))))));
    EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{true, false, true}));
    // A link named by a URL answers with the local path of its target.
    EXPECT_EQ(stringsOf(out[1]),
              (std::vector<StringElement>{fileIRI(tree.path("data/measurements.csv")), u"",
                                          u16(tree.path("data/raw"))}));
}

TEST_F(IsSymlink, ResultsAskedForAndEmptyInputs) {
    OutputSlots out(2);
    isSymlink(2, out, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(dimsOf(out[0]), (Dims{1, 1}));
    EXPECT_EQ(dimsOf(out[1]), (Dims{1, 1}));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    OutputSlots one(2);
    isSymlink(1, one, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(logicalsOf(one[0]), std::vector<bool>{true});
    EXPECT_EQ(one[1], nullptr);
    // With no result asked for the answer still goes to the first slot.
    OutputSlots implicit(2);
    isSymlink(0, implicit, ArgList(charRow(tree.upath("data"))));
    EXPECT_EQ(logicalsOf(implicit[0]), std::vector<bool>{false});
    EXPECT_EQ(implicit[1], nullptr);

    OutputSlots empty(2);
    isSymlink(2, empty, ArgList(stringArray({0, 0}, {})));
    EXPECT_EQ(dimsOf(empty[0]), (Dims{0, 0}));
    EXPECT_EQ(dimsOf(empty[1]), (Dims{0, 0}));
    EXPECT_EQ(vqGetClassID(empty[0]), vqLOGICAL_CLASS);
    OutputSlots cells(2);
    isSymlink(2, cells, ArgList(cellArray({1, 0}, {})));
    EXPECT_EQ(dimsOf(cells[0]), (Dims{1, 0}));
    EXPECT_EQ(dimsOf(cells[1]), (Dims{1, 0}));
}

TEST_F(IsSymlink, LinkInAFolderThatCannotBeSearchedAnswersFalse) {
    tree.makeFolder("closed");
    tree.makeLink("../data/measurements.csv", "closed/inside");
    if (runningAsRoot()) {
        const auto ids = unprivilegedIds();
        tree.handTo(ids.uid, ids.gid);
    }
    tree.setMode("closed", 0);
    const fl::ustring inside = tree.upath("closed/inside");
    const fl::ustring latest = tree.upath("latest");
    runUnprivileged([&] {
        OutputSlots out(2);
        isSymlink(2, out, ArgList(cellRow(charRow(inside), charRow(latest))));
        EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{false, true}));
    });
}

TEST_F(IsSymlink, WrongKindsOfArgumentNameTheInput) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    expectRefused(call<&isSymlinkFcn>, arrays(charMatrix({u"ab", u"cd"}), doubleScalar(3)),
                  "QUORIN:string:MustBeCharCellArrayOrString", {inputName});
    expectRefused(call<&isSymlinkFcn>,
                  arrays(cellRow(charRow(tree.upath("latest")), doubleScalar(1)),
                         cellRow(charMatrix({u"ab", u"cd"}))),
                  "QUORIN:string:MustBeCellArrayOfStrings", {inputName});
}

TEST(Makers, CountsAreCheckedBeforeAnyArgument) {
    LiveArrayGuard guard;
    // mkSymlinkFcn returns nothing: any result asked for is one too many.
    expectCountErrors({
        {"isSymlink", call<&isSymlinkFcn>, 3, 1, "QUORIN:TooManyOutputs"},
        {"isSymlink", call<&isSymlinkFcn>, 1, 2, "QUORIN:TooManyInputs"},
        {"isSymlink", call<&isSymlinkFcn>, 1, 0, "QUORIN:NotEnoughInputs"},
        {"mkFile", call<&mkFileFcn>, 4, 1, "QUORIN:TooManyOutputs"},
        {"mkFile", call<&mkFileFcn>, 1, 4, "QUORIN:TooManyInputs"},
        {"mkFile", call<&mkFileFcn>, 1, 0, "QUORIN:NotEnoughInputs"},
        {"mkSymlink", call<&mkSymlinkFcn>, 1, 2, "QUORIN:TooManyOutputs"},
        {"mkSymlink", call<&mkSymlinkFcn>, 0, 1, "QUORIN:NotEnoughInputs"},
        {"mkSymlink", call<&mkSymlinkFcn>, 0, 5, "QUORIN:TooManyInputs"},
    });
}

}  // namespace
}  // namespace zkfs::test::create
