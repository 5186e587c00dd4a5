// Runs the case tables: every *.cases file in this folder, one table per built-in.
//
//   # comment
//   @ SETUP                  a case: a fresh temporary tree, the current folder is its
//                            root, written $T in rows and checks
//   STATEMENT => EXPECTED    a qfs statement run in the case's tree; rows run in order
//   qfs ARGS => exit N "TEXT"  the qfs binary run by the shell in the tree: its exit
//                            status, and TEXT somewhere in what it wrote
//   ~ CHECK                  the tree's state after the rows above
//
// SETUP items, separated by ";": file P [MODE] [= "TEXT"], folder P [MODE], link P -> T,
// root P (P owned by root again), as nobody (the tree is handed to an unprivileged user
// and the rows run as that user, in a child process when the suite runs as root).
// Modes are applied after everything is made, deepest item first. S3 items, on the local
// server of the run (scripts/s3rver; without one the case is skipped): bucket (a fresh
// bucket for the case, written $S3 as "s3://NAME" in rows and checks), object K
// [= "TEXT"] (K may end in "/", a folder marker); $MTIME(K) in a row is that object's
// Last-Modified as LastModified gives it.
// EXPECTED: the outputs separated by ", ", each in qfs's value syntax or as qfs's typed
// JSON ({"class": ...}), or null for a slot left empty; compared as typed JSON, so class
// and size count. Nothing after "=>" means no outputs at all. An error is
// !IDENTIFIER [ARGUMENTS] ["MESSAGE"], the arguments a JSON array.
// CHECK: mode P 0640, link P -> T, file P [SIZE], folder P, none P; keys K... (every key
// of the case's bucket, in the store's order).
//
// Statements run in this process through qfs's own session (parser, loader, JSON writer)
// against the built library, so each row also runs under the sanitizers and must give
// back every host array it made.
#include "qfs/Gateways.hpp"
#include "qfs/Json.hpp"
#include "zkfs/test/Call.hpp"
#include "zkfs/test/Child.hpp"
#include "zkfs/test/S3.hpp"
#include "zkfs/test/TempTree.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using zkfs::test::TempTree;
using Json = qfs::Json;

struct Row {
    int line = 0;
    char kind = '=';   // '=' statement, 'q' qfs process, '~' check
    std::string text;  // statement, qfs arguments or check
    std::string expected;
};

struct Case {
    std::string table;
    int line = 0;
    std::string name;  // the test's name; "lineN" when empty
    std::string setup;
    std::vector<Row> rows;
};

std::string trim(std::string_view s) {
    const auto b = s.find_first_not_of(" \t");
    if (b == std::string_view::npos) return {};
    return std::string(s.substr(b, s.find_last_not_of(" \t") - b + 1));
}

std::string replaceAll(std::string s, std::string_view from, const std::string& to) {
    for (auto p = s.find(from); p != std::string::npos; p = s.find(from, p + to.size()))
        s.replace(p, from.size(), to);
    return s;
}

// Splits at `sep` where it stands outside quotes and brackets; qfs doubles a quote inside
// text, which toggling handles, and JSON escapes one with a backslash.
std::vector<std::string> splitTop(std::string_view s, std::string_view sep, bool once = false) {
    std::vector<std::string> parts;
    char quote = 0;
    int depth = 0;
    std::size_t start = 0;
    for (std::size_t i = 0; i < s.size(); ++i) {
        const char c = s[i];
        if (quote != 0) {
            if (c == '\\' && quote == '"' && i + 1 < s.size())
                ++i;
            else if (c == quote)
                quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '(' || c == '[' || c == '{') {
            ++depth;
        } else if (c == ')' || c == ']' || c == '}') {
            --depth;
        } else if (depth == 0 && s.compare(i, sep.size(), sep) == 0) {
            parts.push_back(trim(s.substr(start, i - start)));
            start = i + sep.size();
            i = start - 1;
            if (once) break;
        }
    }
    parts.push_back(trim(s.substr(start)));
    return parts;
}

std::vector<Case> readTable(const fs::path& file) {
    std::vector<Case> cases;
    std::ifstream in(file);
    const std::string table = file.stem().string();
    std::string raw;
    for (int line = 1; std::getline(in, raw); ++line) {
        const std::string text = trim(raw);
        if (text.empty() || text.front() == '#') continue;
        if (text.front() == '@' || cases.empty()) {
            cases.push_back({table, line, {}, text.front() == '@' ? trim(text.substr(1)) : "", {}});
            if (text.front() == '@') continue;
        }
        Row row{line, '=', text, {}};
        if (text.front() == '~') {
            row.kind = '~';
            row.text = trim(text.substr(1));
        } else {
            // "STATEMENT =>" with nothing after it: no outputs.
            const bool bare = text.size() >= 3 && text.compare(text.size() - 3, 3, " =>") == 0;
            const auto parts = splitTop(bare ? text + " " : text, " => ", true);
            if (parts.size() != 2)
                throw std::runtime_error(file.string() + ":" + std::to_string(line) +
                                         ": no ' => '");
            row.text = parts[0];
            row.expected = parts[1];
            if (row.text.rfind("qfs ", 0) == 0) {
                row.kind = 'q';
                row.text = row.text.substr(4);
            }
        }
        cases.back().rows.push_back(std::move(row));
    }
    return cases;
}

// Words of a setup item or check; a JSON string is one word.
std::vector<std::string> words(std::string_view s) {
    std::vector<std::string> out;
    std::istringstream in{std::string(s)};
    std::string w;
    while (in >> std::ws && !in.eof()) {
        if (in.peek() == '"') {
            Json j;
            in >> j;
            out.push_back(j.get<std::string>());
        } else {
            in >> w;
            out.push_back(w);
        }
    }
    return out;
}

struct Fixture {
    bool unprivileged = false;
    bool foreignEntries = false;  // `root P`: entries of another user than the walker
    std::string bucket;           // `bucket`: this case's bucket on the local S3 server
    bool noS3 = false;            // `bucket` asked for, but no server runs
};

Fixture build(TempTree& tree, const std::string& setup, const std::string& bucket) {
    Fixture result;
    std::vector<std::pair<std::string, unsigned>> modes;
    std::vector<std::string> roots;
    for (const std::string& item : splitTop(setup, ";")) {
        const auto w = words(item);
        if (w.empty()) continue;
        const auto optionalMode = [&](std::size_t at) {
            if (w.size() > at && w[at] != "=")
                modes.emplace_back(w[1], std::stoul(w[at], nullptr, 8));
        };
        if (w[0] == "file" && w.size() >= 2) {
            const auto eq = std::find(w.begin(), w.end(), "=");
            tree.makeFile(w[1], eq != w.end() && eq + 1 != w.end() ? *(eq + 1) : "");
            optionalMode(2);
        } else if (w[0] == "folder" && w.size() >= 2) {
            tree.makeFolder(w[1]);
            optionalMode(2);
        } else if (w[0] == "link" && w.size() == 4 && w[2] == "->") {
            tree.makeLink(w[3], w[1]);
        } else if (w[0] == "root" && w.size() == 2) {
            roots.push_back(w[1]);
            result.foreignEntries = true;
        } else if (w == std::vector<std::string>{"bucket"}) {
            result.noS3 = !zkfs::test::useLocalS3();
            if (result.noS3) return result;
            result.bucket = bucket;
            zkfs::test::makeBucket(bucket);
        } else if (w[0] == "object" && w.size() >= 2 && !result.bucket.empty()) {
            zkfs::test::putObject(result.bucket, w[1], w.size() == 4 && w[2] == "=" ? w[3] : "");
        } else if (w == std::vector<std::string>{"as", "nobody"}) {
            result.unprivileged = true;
        } else {
            throw std::runtime_error("unknown setup item: " + item);
        }
    }
    if (result.unprivileged && zkfs::test::runningAsRoot()) {
        const auto ids = zkfs::test::unprivilegedIds();
        tree.handTo(ids.uid, ids.gid);
        for (const auto& r : roots) {
            if (::lchown(tree.path(r).c_str(), 0, 0) != 0) throw std::runtime_error("lchown " + r);
        }
    }
    for (auto m = modes.rbegin(); m != modes.rend(); ++m) tree.setMode(m->first, m->second);
    return result;
}

// The expected outputs as one JSON array, each written as typed JSON or as a qfs value.
Json expectedOutputs(const std::string& text) {
    Json outputs = Json::array();
    if (text.empty()) return outputs;
    for (const std::string& part : splitTop(text, ", ")) {
        if (part == "null") {
            outputs.push_back(nullptr);  // a slot the built-in left empty
        } else if (part.rfind("{\"", 0) == 0) {
            outputs.push_back(Json::parse(part));
        } else {
            outputs.push_back(zkfs::test::valueOf(part));
        }
    }
    return outputs;
}

void runStatement(const std::string& statement, const std::string& expected) {
    const Json actual = zkfs::test::call(statement);
    if (!expected.empty() && expected.front() == '!') {
        const auto space = expected.find(' ');
        Json e = Json::object();
        e["identifier"] = expected.substr(1, space == std::string::npos ? space : space - 1);
        Json args = Json::array();
        Json message;
        if (space != std::string::npos) {
            std::istringstream rest(expected.substr(space));
            rest >> args;
            if (rest >> std::ws && !rest.eof()) rest >> message;
        }
        ASSERT_TRUE(actual.contains("error"))
            << "expected " << expected << "\n got " << actual.dump();
        const Json& a = actual["error"];
        EXPECT_EQ(a["identifier"], e["identifier"]) << a.dump();
        EXPECT_EQ(a["arguments"], args) << a.dump();
        if (!message.is_null()) {
            EXPECT_EQ(a["message"], message);
        }
        return;
    }
    ASSERT_TRUE(actual.contains("outputs")) << actual.dump();
    const Json want = expectedOutputs(expected);
    EXPECT_EQ(actual["outputs"], want)
        << "\n  actual: " << actual["outputs"].dump() << "\nexpected: " << want.dump();
}

void runProcess(const std::string& args, const std::string& expected) {
    const std::string command = "\"$QFS\" " + args + " 2>&1";
    ::setenv("QFS", ZKFS_QFS_BINARY, 1);
    std::string output;
    FILE* p = ::popen(command.c_str(), "r");
    ASSERT_NE(p, nullptr);
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, p)) > 0;)
        output.append(buffer, n);
    const int status = ::pclose(p);
    std::istringstream want(expected);
    std::string word;
    int code = -1;
    want >> word >> code;
    ASSERT_EQ(word, "exit") << expected;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == code) << "status " << status << ":\n"
                                                                  << output;
    if (want >> std::ws && !want.eof()) {
        Json text;
        want >> text;
        EXPECT_NE(output.find(text.get<std::string>()), std::string::npos) << output;
    }
}

void check(const TempTree& tree, const std::string& bucket, const std::string& text) {
    const auto w = words(text);
    ASSERT_GE(w.size(), 2U) << text;
    if (w[0] == "keys") {
        EXPECT_EQ(zkfs::test::listKeys(bucket), std::vector<std::string>(w.begin() + 1, w.end()));
        return;
    }
    struct stat st {};
    const bool exists = ::lstat(tree.path(w[1]).c_str(), &st) == 0;
    if (w[0] == "none") {
        EXPECT_FALSE(exists) << w[1] << " exists";
        return;
    }
    ASSERT_TRUE(exists) << w[1] << " is missing";
    if (w[0] == "mode" && w.size() == 3) {
        EXPECT_EQ(st.st_mode & 07777, std::stoul(w[2], nullptr, 8))
            << std::oct << (st.st_mode & 07777);
    } else if (w[0] == "link" && w.size() == 4) {
        ASSERT_TRUE(S_ISLNK(st.st_mode));
        EXPECT_EQ(fs::read_symlink(tree.path(w[1])).native(), w[3]);
    } else if (w[0] == "file") {
        ASSERT_TRUE(S_ISREG(st.st_mode));
        if (w.size() == 3) {
            EXPECT_EQ(std::to_string(st.st_size), w[2]);
        }
    } else if (w[0] == "folder") {
        EXPECT_TRUE(S_ISDIR(st.st_mode));
    } else {
        FAIL() << "unknown check: " << text;
    }
}

class CaseTest : public ::testing::Test {
public:
    explicit CaseTest(Case c) : case_(std::move(c)) {}

    void TestBody() override {
        TempTree tree;
        // Bucket names: 3 to 63 of [a-z0-9-], unique to the case and the run.
        const std::string bucket = "zkfs-" + std::to_string(::getpid()) + "-" +
                                   std::to_string(case_.line) + "-" +
                                   std::to_string(std::hash<std::string>{}(case_.table) % 10000);
        const Fixture setup = build(tree, case_.setup, bucket);
        if (setup.noS3) GTEST_SKIP() << "no local S3 server: run through ctest (fixture s3rver)";
        // Only root can give entries to another user; the case cannot be set up otherwise.
        if (setup.foreignEntries && !zkfs::test::runningAsRoot()) {
            GTEST_SKIP() << "entries of another user need the suite to run as root";
        }
        const std::string root = tree.root().native();
        const zkfs::test::InFolder inside(tree.root());
        const auto runRows = [&] {
            for (const Row& row : case_.rows) {
                SCOPED_TRACE(case_.table + ".cases:" + std::to_string(row.line) + ": " + row.text);
                const auto expand = [&](const std::string& t) {
                    std::string out =
                        replaceAll(replaceAll(t, "$T", root), "$S3", "s3://" + setup.bucket);
                    for (auto at = out.find("$MTIME("); at != std::string::npos;
                         at = out.find("$MTIME(")) {
                        const auto end = out.find(')', at);
                        const std::string key = out.substr(at + 7, end - at - 7);
                        out.replace(at, end - at + 1,
                                    std::to_string(zkfs::test::objectTime(setup.bucket, key)));
                    }
                    return out;
                };
                const std::string text = expand(row.text);
                const std::string expected = expand(row.expected);
                if (row.kind == '=') runStatement(text, expected);
                if (row.kind == 'q') runProcess(text, expected);
                if (row.kind == '~') check(tree, setup.bucket, text);
            }
        };
        if (setup.unprivileged) {
            zkfs::test::runUnprivileged(runRows);
        } else {
            runRows();
        }
    }

private:
    Case case_;
};

std::string testName(std::string s) {
    for (char& c : s) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
    }
    return s;
}

// Every built-in's count rules, from the one table of built-ins: each count refusal
// comes before any argument is read, so the arguments here are numbers no built-in takes.
std::vector<Case> countCases() {
    std::vector<Case> cases;
    for (const qfs::GatewayInfo& g : qfs::gateways()) {
        if (g.maxOut < 0) continue;
        const auto call = [&](int outs, int ins) {
            std::string s;
            for (int i = 0; i < outs; ++i) s += (i == 0 ? "[o" : ", o") + std::to_string(i);
            s += outs > 0 ? "] = " : "";
            s += std::string(g.name) + "(";
            for (int i = 0; i < ins; ++i) s += i == 0 ? "1" : ", 1";
            return s + ")";
        };
        Case c{"counts", 0, g.name, "", {}};
        c.rows.push_back(
            {0, '=', call(g.maxOut + 1, g.maxIn < 0 ? 0 : g.maxIn + 1), "!QUORIN:TooManyOutputs"});
        if (g.maxIn >= 0) c.rows.push_back({0, '=', call(0, g.maxIn + 1), "!QUORIN:TooManyInputs"});
        if (g.minIn > 0)
            c.rows.push_back({0, '=', call(0, g.minIn - 1), "!QUORIN:NotEnoughInputs"});
        cases.push_back(std::move(c));
    }
    return cases;
}

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    std::vector<fs::path> tables;
    for (const auto& e : fs::directory_iterator(ZKFS_CASES_DIR)) {
        if (e.path().extension() == ".cases") tables.push_back(e.path());
    }
    std::sort(tables.begin(), tables.end());
    std::vector<Case> cases = countCases();
    for (const auto& table : tables) {
        for (Case& c : readTable(table)) cases.push_back(std::move(c));
    }
    for (const Case& c : cases) {
        const std::string name = c.name.empty() ? "line" + std::to_string(c.line) : c.name;
        ::testing::RegisterTest(testName(c.table).c_str(), name.c_str(), nullptr, nullptr, __FILE__,
                                c.line, [c]() -> ::testing::Test* { return new CaseTest(c); });
    }
    return RUN_ALL_TESTS();
}
