// mkFileFcn's storage failures in both forms: thrown when no result is asked for, naming
// the prepared path; reported as status, message and identifier otherwise, the message
// naming the decoded path. Either way the tree is left exactly as it was. isSymlinkFcn
// on more paths than one thread answers.
#include "zkfs/test/Call.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zkfs::test {
namespace {

TEST(MkFile, StorageFailuresAreThrownWithoutResultsAndReportedWithThem) {
    TempTree tree;
    tree.makeFile("notes.txt", "keep me");
    tree.makeFile("sensor log.txt", "x");
    tree.makeFile("real/f.txt");
    tree.makeLink("real", "via");
    tree.makeLink("missing.txt", "dangling");
    tree.makeFile("plain", "content");
    tree.makeFolder("results/keep");
    const InFolder inside(tree.root());
    const auto before = tree.snapshot();
    const std::string t = tree.root().native();
    struct Row {
        std::string args;
        std::string id;
        std::string thrown;  // the path the thrown error names
        std::string reported = thrown;
    };
    const std::vector<Row> rows = {
        {"'notes.txt'", "virtualfilesystem:resourceAlreadyExists", t + "/notes.txt"},
        {"'file://" + t + "/sensor%20log.txt'", "virtualfilesystem:resourceAlreadyExists",
         "file://" + t + "/sensor%20log.txt", "file://" + t + "/sensor log.txt"},
        // Links in the parents are resolved, and "." dropped, before the path is named.
        {"'via/./f.txt'", "virtualfilesystem:resourceAlreadyExists", t + "/real/f.txt"},
        // A link at the path is neither followed nor replaced.
        {"'dangling'", "virtualfilesystem:resourceAlreadyExists", t + "/dangling"},
        {"'plain/child.txt'", "virtualfilesystem:resourceNotFound", t + "/plain/child.txt"},
        {"''", "virtualfilesystem:invalidLocation", ""},
        // The removal refuses a folder with a plain I/O failure, which has no name of its own.
        {"'results', 'ReplacementRule', 'overwrite'", "virtualfilesystem:unknownError",
         t + "/results"},
        // A scheme without a provider is an invalid IRI; an IRI that does not parse is no
        // valid URL. The crosswise names are the host's.
        {"'https://data.example.org/v1/summary.csv'", "virtualfileio:path:invalidIRI",
         "https://data.example.org/v1/summary.csv"},
        {"'mem://[broken/x.txt'", "virtualfileio:localtoremote:notValidURL", "mem://[broken/x.txt"},
        {"'mem://elsewhere/x.txt'", "virtualfilesystem:invalidLocation", "mem://elsewhere/x.txt"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.args);
        const std::string id = "QUORIN:" + row.id;
        const qfs::Json thrown = call("mkFileFcn(" + row.args + ")");
        ASSERT_TRUE(thrown.contains("error")) << thrown.dump();
        EXPECT_EQ(thrown["error"]["identifier"], id);
        EXPECT_EQ(thrown["error"]["arguments"], qfs::Json::array({row.thrown}));
        std::string message = thrown["error"]["message"];
        const auto at = message.find(row.thrown);
        ASSERT_NE(at, std::string::npos) << message;
        message.replace(at, row.thrown.size(), row.reported);
        const qfs::Json reported = call("[ok, msg, id] = mkFileFcn(" + row.args + ")");
        const auto text = [](const std::string& s) {
            return qfs::Json{{"class", "string"}, {"size", {1, 1}}, {"value", {s}}};
        };
        EXPECT_EQ(reported,
                  (qfs::Json{{"outputs",
                              {{{"class", "logical"}, {"size", {1, 1}}, {"value", {false}}},
                               text(message),
                               text(id)}}}));
    }
    EXPECT_EQ(tree.snapshot(), before);
}

// Thousands of paths are answered on two threads; each answer is the one the path gets
// alone, links, files, nothing there and IRIs alike, in its own element.
TEST(IsSymlink, ManyPathsAnswerAsEachAlone) {
    TempTree tree;
    tree.makeFile("f");
    tree.makeLink("f", "l");
    tree.makeLink("nowhere", "dangling");
    tree.makeLink("f/x", "through");
    const InFolder inside(tree.root());
    const std::string t = tree.root().native();
    const std::vector<std::string> kinds = {
        "l", "f", "dangling", "through", "missing", "l/", "file://" + t + "/l", "mem://root/none"};
    std::vector<qfs::Json> alone;
    for (const std::string& path : kinds) {
        alone.push_back(call("[tf, t] = isSymlinkFcn(\"" + path + "\")")["outputs"]);
    }
    constexpr std::size_t kPaths = 5001;  // odd, so the halves differ
    std::string list;
    for (std::size_t i = 0; i < kPaths; ++i) list += " \"" + kinds[(i * 5) % kinds.size()] + "\"";
    const qfs::Json many = call("[tf, t] = isSymlinkFcn([" + list + "])")["outputs"];
    ASSERT_EQ(many.size(), 2U) << many.dump();
    for (std::size_t i = 0; i < kPaths; ++i) {
        const qfs::Json& one = alone[(i * 5) % kinds.size()];
        ASSERT_EQ(many[0]["value"][i], one[0]["value"][0]) << kinds[(i * 5) % kinds.size()];
        ASSERT_EQ(many[1]["value"][i], one[1]["value"][0]) << kinds[(i * 5) % kinds.size()];
    }
}

}  // namespace
}  // namespace zkfs::test
