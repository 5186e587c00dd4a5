// isSymlinkFcn on real trees: classification of links (dangling ones and loops included),
// target texts, per-element failures, shapes and argument errors.
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

namespace fs = std::filesystem;

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

TEST_F(IsSymlink, CharInputLinkToAFile) {
    OutputSlots out(2);
    isSymlink(2, out, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(dimsOf(out[0]), (Dims{1, 1}));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    EXPECT_EQ(dimsOf(out[1]), (Dims{1, 1}));
    EXPECT_EQ(stringsOf(out[1]),
              std::vector<StringElement>{fileIRI(tree.path("data/measurements.csv"))});
}

TEST_F(IsSymlink, StringArrayKeepsItsShapeAndSkipsMissingElements) {
    // 2x3, column-major: link, file, folder link, missing, dangling, nothing.
    ArgList args(stringArray(
        {2, 3}, {tree.upath("latest"), tree.upath("data/measurements.csv"), tree.upath("raw"),
                 std::nullopt, tree.upath("dangling"), tree.upath("no/such/path")}));
    OutputSlots out(2);
    isSymlink(2, out, args);
    EXPECT_EQ(dimsOf(out[0]), (Dims{2, 3}));
    EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{true, false, true, false, true, false}));
    EXPECT_EQ(dimsOf(out[1]), (Dims{2, 3}));
    const std::vector<StringElement> expected{
        fileIRI(tree.path("data/measurements.csv")), u"", fileIRI(tree.path("data/raw")), u"",
        // A dangling link's target cannot be found: the element stays as created.
        u"", u""};
    EXPECT_EQ(stringsOf(out[1]), expected);
}

TEST_F(IsSymlink, CellInputWithALoopAndEmptyText) {
    ArgList args(cellArray({3, 1}, [&] {
        std::vector<unique_vqarray_ptr> v;
        v.push_back(charRow(tree.upath("loop-a")));
        v.push_back(charEmpty());
        v.push_back(charRow(tree.upath("raw")));
        return v;
    }()));
    OutputSlots out(2);
    isSymlink(2, out, args);
    EXPECT_EQ(dimsOf(out[0]), (Dims{3, 1}));
    // A loop cannot be followed, yet it is a link; its target text is its own (empty)
    // resolved form.
    EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(stringsOf(out[1]),
              (std::vector<StringElement>{u"", u"", fileIRI(tree.path("data/raw"))}));
}

TEST_F(IsSymlink, SecondResultOnlyWhenAskedFor) {
    OutputSlots out(2);
    isSymlink(1, out, ArgList(charRow(tree.upath("latest"))));
    EXPECT_EQ(logicalsOf(out[0]), std::vector<bool>{true});
    EXPECT_EQ(out[1], nullptr);

    // With no result asked for the answer still goes to the first slot.
    OutputSlots implicit(2);
    isSymlink(0, implicit, ArgList(charRow(tree.upath("data"))));
    EXPECT_EQ(logicalsOf(implicit[0]), std::vector<bool>{false});
    EXPECT_EQ(implicit[1], nullptr);
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

TEST_F(IsSymlink, EmptyInputsGiveEmptyResults) {
    OutputSlots out(2);
    isSymlink(2, out, ArgList(stringArray({0, 0}, {})));
    EXPECT_EQ(dimsOf(out[0]), (Dims{0, 0}));
    EXPECT_EQ(dimsOf(out[1]), (Dims{0, 0}));
    EXPECT_EQ(vqGetClassID(out[0]), vqLOGICAL_CLASS);

    OutputSlots cells(2);
    isSymlink(2, cells, ArgList(cellArray({1, 0}, {})));
    EXPECT_EQ(dimsOf(cells[0]), (Dims{1, 0}));
    EXPECT_EQ(dimsOf(cells[1]), (Dims{1, 0}));
}

TEST_F(IsSymlink, OtherSchemesAnswerFalse) {
    OutputSlots out(2);
    isSymlink(2, out,
              ArgList(stringArray(
                  {1, 3}, {fl::ustring(u"https://example.org/a"), fl::ustring(u"mem://root/none"),
                           fl::ustring(u"mem://[broken")})));
    EXPECT_EQ(logicalsOf(out[0]), (std::vector<bool>{false, false, false}));
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

TEST_F(IsSymlink, WrongKindsOfArgument) {
    const fl::ustring inputName = quorin::gateway::inputPathName();
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(isSymlink(2, out, ArgList(charMatrix({u"ab", u"cd"}))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(isSymlink(1, out, ArgList(doubleScalar(3))),
                            "QUORIN:string:MustBeCharCellArrayOrString", inputName);
    EXPECT_IDENTIFIED_ERROR(
        isSymlink(2, out, ArgList(cellRow(charRow(tree.upath("latest")), doubleScalar(1)))),
        "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_IDENTIFIED_ERROR(isSymlink(2, out, ArgList(cellRow(charMatrix({u"ab", u"cd"})))),
                            "QUORIN:string:MustBeCellArrayOfStrings", inputName);
    EXPECT_EQ(out[0], nullptr);
    EXPECT_EQ(out[1], nullptr);
}

TEST_F(IsSymlink, CountsAreCheckedFirst) {
    OutputSlots out(3);
    EXPECT_IDENTIFIED_ERROR(isSymlink(3, out, ArgList(doubleScalar(1))), "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(isSymlink(1, out, ArgList(doubleScalar(1), doubleScalar(1))),
                            "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(isSymlink(1, out, ArgList()), "QUORIN:NotEnoughInputs");
}

}  // namespace
}  // namespace zkfs::test::create
