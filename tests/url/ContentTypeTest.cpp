// getContentTypeFcn: one location in, its media type out as a string scalar.
#include "GatewayCall.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"
#include "zkfs/test/Arrays.hpp"
#include "zkfs/test/Errors.hpp"
#include "zkfs/test/LiveArrays.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

namespace {

using namespace zkfs::test;
using quorin::io::filesystem::quorin::getContentTypeFcn;

class GetContentType : public LiveArrayTest {
protected:
    TempTree tree;
};

void expectType(unique_vqarray_ptr result, const fl::ustring& expected) {
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(dimsOf(result.get()), (Dims{1, 1}));
    EXPECT_EQ(stringsOf(result.get()), std::vector<StringElement>{expected});
}

TEST_F(GetContentType, KnownExtensionOfAnExistingFileFromCharRow) {
    tree.makeFile("data/measurements.csv", "a,b\n1,2\n");
    expectType(
        callForResult(getContentTypeFcn, ArgList(charRow(tree.upath("data/measurements.csv")))),
        u"text/csv");
}

TEST_F(GetContentType, DataFormatFromStringScalarWithoutTheFileExisting) {
    expectType(callForResult(getContentTypeFcn, ArgList(stringScalar(u"/nowhere/summary.PARQUET"))),
               u"application/vnd.apache.parquet");
}

TEST_F(GetContentType, FolderIsADirectory) {
    tree.makeFolder("sub");
    expectType(callForResult(getContentTypeFcn, ArgList(stringScalar(tree.upath("sub")))),
               u"inode/directory");
}

TEST_F(GetContentType, ResultFillsTheFirstSlotWhenNoOutputIsAskedFor) {
    OutputSlots out;
    callGateway(getContentTypeFcn, 0, out, ArgList(charRow(u"/x/readme.csv")));
    ASSERT_NE(out[0], nullptr);
    EXPECT_EQ(stringsOf(out[0]), std::vector<StringElement>{u"text/csv"});
}

TEST_F(GetContentType, RefusesWhatIsNotOneText) {
    const char* notScalar = "QUORIN:string:MustBeStringScalarOrCharacterVector";
    struct Row {
        const char* what;
        unique_vqarray_ptr arg;
        const char* id;
    };
    std::vector<Row> rows;
    rows.push_back({"1x2 string", stringArray({1, 2}, {u"/a.csv", u"/b.csv"}), notScalar});
    rows.push_back({"0x0 string", stringArray({0, 0}, {}), notScalar});
    rows.push_back({"2x3 char", charMatrix({u"abc", u"def"}), notScalar});
    rows.push_back({"0x3 char", charArray({0, 3}, u""), notScalar});
    rows.push_back({"1x2x2 char", charArray({1, 2, 2}, u"abcd"), notScalar});
    rows.push_back({"cell of char", cellRow(charRow(u"/a.csv")), notScalar});
    rows.push_back({"double", doubleScalar(1), notScalar});
    rows.push_back({"missing", missingString(), "QUORIN:string:MissingNotSupported"});
    for (auto& row : rows) {
        SCOPED_TRACE(row.what);
        OutputSlots out;
        ArgList args(std::move(row.arg));
        EXPECT_IDENTIFIED_ERROR(callGateway(getContentTypeFcn, 1, out, args), row.id);
        EXPECT_EQ(out[0], nullptr);
    }
}

TEST_F(GetContentType, CountsAreCheckedBeforeTheArgument) {
    OutputSlots out(2);
    EXPECT_IDENTIFIED_ERROR(callGateway(getContentTypeFcn, 2, out, ArgList(doubleScalar(1))),
                            "QUORIN:TooManyOutputs");
    EXPECT_IDENTIFIED_ERROR(
        callGateway(getContentTypeFcn, 1, out, ArgList(doubleScalar(1), doubleScalar(2))),
        "QUORIN:TooManyInputs");
    EXPECT_IDENTIFIED_ERROR(callGateway(getContentTypeFcn, 1, out, ArgList()),
                            "QUORIN:NotEnoughInputs");
    EXPECT_EQ(out[0], nullptr);
}

}  // namespace
