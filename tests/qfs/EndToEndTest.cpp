// qfs as a user runs it: the built binary in a child process, its standard output,
// standard error and exit status, against a stand-in library (exact behaviour known)
// and against the real library (whatever built-ins it exports at the moment).
#include "qfs/Gateways.hpp"
#include "qfs/Library.hpp"
#include "quorin/gateway/Identifiers.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

std::string readAll(const std::filesystem::path& p) {
    std::ifstream in(p, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string english(const resource_core::BaseMsgID& id, const char* locale = "en_US.UTF-8") {
    return fl::i18n::to_utf8(fl::i18n::MessageCatalog::get_message(id, fl::i18n::ZkLocale(locale)));
}

class QfsTest : public ::testing::Test {
protected:
    // Runs qfs with these arguments; `input` is its standard input (a file, so never a
    // terminal). The environment is fixed to an English locale unless `env` says more.
    Result run(std::vector<std::string> args, const std::string& input = {},
               const std::vector<std::string>& env = {}) {
        const auto n = std::to_string(++runs_);
        const auto in = tree_.makeFile("run" + n + ".in", input);
        const auto out = tree_.path("run" + n + ".out");
        const auto err = tree_.path("run" + n + ".err");
        args.insert(args.begin(), QFS_BINARY);
        std::vector<std::string> environment{"LANG=C", "HOME=" + tree_.root().string(),
                                             "PATH=/usr/bin:/bin"};
        if (const char* asan = std::getenv("ASAN_OPTIONS"))
            environment.push_back(std::string("ASAN_OPTIONS=") + asan);
        for (const auto& e : env) {  // a given variable replaces the default of that name
            const std::string key = e.substr(0, e.find('=') + 1);
            std::erase_if(environment, [&](const std::string& d) { return d.starts_with(key); });
            environment.push_back(e);
        }
        std::vector<char*> argv, envp;
        for (auto& a : args) argv.push_back(a.data());
        for (auto& e : environment) envp.push_back(e.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);

        const pid_t pid = fork();
        if (pid == 0) {
            const int i = open(in.c_str(), O_RDONLY | O_CLOEXEC);
            const int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            const int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            if (i < 0 || o < 0 || e < 0 || dup2(i, 0) < 0 || dup2(o, 1) < 0 || dup2(e, 2) < 0)
                _exit(126);
            execve(argv[0], argv.data(), envp.data());
            _exit(127);
        }
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readAll(out),
                readAll(err)};
    }

    // With the stand-in library.
    Result fixture(std::vector<std::string> args, const std::string& input = {},
                   const std::vector<std::string>& env = {}) {
        args.insert(args.begin(), {"--library", QFS_FIXTURE_LIBRARY});
        return run(std::move(args), input, env);
    }

    // The exit status, and the texts standard error holds (or, given `out`, its exact
    // standard output).
    static void expectRun(const Result& r, int status, std::initializer_list<std::string> err,
                          const std::optional<std::string>& out = std::nullopt) {
        EXPECT_EQ(r.status, status);
        for (const auto& e : err) EXPECT_THAT(r.err, HasSubstr(e));
        if (out) {
            EXPECT_EQ(r.out, *out);
        }
    }

    zkfs::test::TempTree tree_;
    int runs_ = 0;
};

TEST_F(QfsTest, StatementsPrintTheirValuesOrTheirErrors) {
    const auto text = [](const char* id) {
        return english(resource_core::BaseMsgID("QUORIN", id));
    };
    const std::string tooManyOutputs = "Error using isAbsolutePathNoIOFcn\n" +
                                       text("TooManyOutputs") + "\n(QUORIN:TooManyOutputs)\n";
    const std::string d1 = R"({"class":"double","size":[1,1],"value":[1.0]})";
    struct Case {
        bool json;
        std::string statement;  // none: the statements come on standard input
        int status;
        std::string out, err, input = {};
    };
    // clang-format off
    const std::vector<Case> cases = {
        // Each requested output under its name; "~" skips one; an unset slot says so.
        {false, "x = pathFcn([1 2; 3 4])", 0, "x =\n  2\u00d72 double array\n    1   2\n    3   4\n", ""},
        {false, "[~, b, c] = pathFcn(1, \"two\")", 0, "b =\n    \"two\"\nc =\n  (not assigned)\n", ""},
        {false, "pathFcn('abc')", 0, "ans =\n    'abc'\n", ""},
        {false, "pathFcn()", 0, "", ""},
        {false, "x = pathFcn(1);  % quiet", 0, "", ""},
        {true, "[a, b, c] = pathFcn({1, missing}, struct('P', NaN))", 0, R"({"outputs":[{"class":"cell","size":[1,2],"value":[)" + d1 + R"(,{"class":"string","size":[1,1],"value":[null]}]},{"class":"struct","size":[1,1],"fields":["P"],"value":[{"P":{"class":"double","size":[1,1],"value":["NaN"]}}]},null]})" "\n", ""},
        {true, "pathFcn(true);", 0, R"({"outputs":[{"class":"logical","size":[1,1],"value":[true]}]})" "\n", ""},
        {true, "pathFcn()", 0, "{\"outputs\":[]}\n", ""},
        // Bytes that are not UTF-8 are shown as they are; in JSON replaced.
        {false, "pathFcn('a\xff" "b')", 0, "ans =\n    'a\xff" "b'\n", ""},
        {true, "pathFcn('a\xff" "b')", 0, R"({"outputs":[{"class":"char","size":[1,3],"value":"a)" "\xef\xbf\xbd" R"(b"}]})" "\n", ""},
        // relativepath takes the mutable outer pointer; many texts go in column-major.
        {false, "r = relativepath('/src', \"dst\")", 0, "r =\n    \"/src|dst\"\n", ""},
        {false, R"(tf = isAbsolutePathNoIOFcn(["/a" "b"; missing "/c"]))", 0, "tf =\n  2\u00d72 logical array\n    1   0\n    0   1\n", ""},
        // Errors: the host's count errors, one without identifier, a missing built-in.
        {false, "[a, b] = isAbsolutePathNoIOFcn('/x')", 1, "", tooManyOutputs},
        {true, "isAbsolutePathNoIOFcn('/x', '/y')", 1, R"({"error":{"identifier":"QUORIN:TooManyInputs","message":")" + text("TooManyInputs") + R"(","arguments":[]}})" "\n", ""},
        {false, "mkFileFcn('x')", 1, "", "Error using mkFileFcn\nthe fixture refuses to make files\n"},
        {true, "mkFileFcn('x')", 1, R"({"error":{"identifier":"","message":"the fixture refuses to make files","arguments":[]}})" "\n", ""},
        {false, "mkSymlinkFcn('a', 'b')", 1, "", "Error using mkSymlinkFcn\nmkSymlinkFcn is not available in this library.\n(QUORIN:qfs:NotAvailable)\n"},
        {true, "mkSymlinkFcn('a', 'b')", 1, R"({"error":{"identifier":"QUORIN:qfs:NotAvailable","message":"mkSymlinkFcn is not available in this library.","arguments":["mkSymlinkFcn"]}})" "\n", ""},
        // Parse errors point at the column and exit with 2.
        {false, "x = pathFcn('a' 'b')", 2, "", "Error using qfs\nParse error at column 17: expected ',' or ')'.\n    x = pathFcn('a' 'b')\n                    ^\n(QUORIN:qfs:ParseError)\n"},
        {true, "pathFcn([1 'a'])", 2, R"({"error":{"identifier":"QUORIN:qfs:ParseError","message":"Parse error at column 12: cannot concatenate char with double.","arguments":[12,"cannot concatenate char with double"]}})" "\n", ""},
        // Piped input runs line by line, without prompt or echo, up to the first error.
        {true, "", 0, R"({"outputs":[)" + d1 + "]}\n" R"({"outputs":[{"class":"string","size":[1,1],"value":["x"]}]})" "\n", "", "pathFcn(1)\n% nothing\n\npathFcn(\"x\")\n"},
        {false, "", 1, "", tooManyOutputs, "[a, b] = isAbsolutePathNoIOFcn('/')\npathFcn(1)\n"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE((c.json ? "--json " : "") + c.statement + " < " + c.input);
        std::vector<std::string> args;
        if (c.json) args.emplace_back("--json");
        if (!c.statement.empty()) args.push_back(c.statement);
        const Result r = fixture(args, c.input);
        EXPECT_EQ(std::tie(r.status, r.out, r.err), std::tie(c.status, c.out, c.err));
        std::istringstream lines(c.json ? r.out : "");
        for (std::string line; std::getline(lines, line);)
            EXPECT_TRUE(nlohmann::json::accept(line));
    }
}

TEST_F(QfsTest, IdentifiedErrorsShowTheCatalogTextOfTheLocale) {
    const std::string inputDe =
        *fl::i18n::MessageCatalog::find_text("QUORIN:FileUtils:inputPath", "de");
    const QUORIN::string::MustBeCharCellArrayOrString id(fl::i18n::to_ustring(inputDe));
    const std::string expected =
        nlohmann::ordered_json{{"error",
                                {{"identifier", "QUORIN:string:MustBeCharCellArrayOrString"},
                                 {"message", english(id, "de_DE.UTF-8")},
                                 {"arguments", {inputDe}}}}}
            .dump() +
        "\n";
    EXPECT_EQ(fixture({"--json", "--locale", "de_DE.UTF-8", "isAbsolutePathNoIOFcn(1)"}).out,
              expected);
    // The same from the environment, the way a user's shell sets it.
    for (const std::vector<std::string>& env :
         {std::vector<std::string>{"LANG=de_DE.UTF-8"}, {"LANG=C", "LC_ALL=de_DE.UTF-8"}})
        EXPECT_EQ(fixture({"--json", "isAbsolutePathNoIOFcn(1)"}, {}, env).out, expected);

    const Result en = fixture({"isAbsolutePathNoIOFcn({'/a', 2})"});
    EXPECT_EQ(en.status, 1);
    const std::string inputEn =
        *fl::i18n::MessageCatalog::find_text("QUORIN:FileUtils:inputPath", "en");
    EXPECT_EQ(en.err,
              "Error using isAbsolutePathNoIOFcn\n" +
                  english(QUORIN::string::MustBeCellArrayOfStrings(fl::i18n::to_ustring(inputEn))) +
                  "\n(QUORIN:string:MustBeCellArrayOfStrings)\n");
}

TEST_F(QfsTest, AnUnknownNameListsTheKnownOnes) {
    const Result r = fixture({"frobnicate(1)"});
    expectRun(r, 2, {"'frobnicate' is not a built-in", "(QUORIN:qfs:UnknownFunction)"});
    for (const auto& g : qfs::gateways()) EXPECT_THAT(r.err, HasSubstr(g.name));
}

TEST_F(QfsTest, AFileRunsLineByLineAndStopsAtTheFirstError) {
    struct Case {
        const char* script;
        int status;
        const char* out;
        const char* err;  // the start of
    };
    // clang-format off
    for (const Case& c : {
             Case{"% a comment line\n\na = pathFcn(1)\nb = pathFcn('two');\nmkFileFcn('x')\nc = pathFcn(3)\n", 1, "a =\n    1\n", "Error using mkFileFcn\n"},
             Case{"a = pathFcn(1)\nb = pathFcn(\nc = pathFcn(3)\n", 2, "a =\n    1\n", "Error using qfs\n"},
             Case{"a = pathFcn(1)\r\nb = pathFcn(2)\r\n", 0, "a =\n    1\nb =\n    2\n", ""}}) {
        // clang-format on
        SCOPED_TRACE(c.script);
        const auto script = tree_.makeFile("s" + std::to_string(c.status) + ".qfs", c.script);
        const Result r = fixture({"-f", script.string()});
        expectRun(r, c.status, {}, c.out);
        EXPECT_THAT(r.err, ::testing::StartsWith(c.err));
    }
    EXPECT_EQ(fixture({"-f", tree_.path("no-such-file").string()}).status, 2);
}

TEST_F(QfsTest, TheLibrarysLifeCycle) {
    const auto mark = tree_.path("unloaded");
    // The load hook ran before the call.
    expectRun(
        fixture({"createURLFromPartsFcn()"}, {}, {"QFS_FIXTURE_UNLOAD_MARK=" + mark.string()}), 0,
        {}, "ans =\n  logical\n    1\n");
    EXPECT_EQ(readAll(mark), "unloaded\n");
    expectRun(run({"--library", tree_.path("nothing.so").string(), "help"}), 1,
              {"Unable to load the library", "(QUORIN:qfs:LibraryNotLoaded)"});
    const Result hookless = run({"--json", "--library", QFS_HOOKLESS_LIBRARY, "help"});
    EXPECT_EQ(hookless.status, 1);
    EXPECT_THAT(hookless.out,
                ::testing::AllOf(HasSubstr("\"identifier\":\"QUORIN:qfs:LibraryNotLoaded\""),
                                 HasSubstr("QNInitialize_libzkfilesystemquorin")));

    // By default the library beside the binary.
    const Result real = run({"help"});
    EXPECT_EQ(real.status, 0);
    EXPECT_EQ(real.out.substr(0, real.out.find('\n')),
              "Built-ins of " + std::filesystem::weakly_canonical(QFS_REAL_LIBRARY).string() + ":");
}

#ifndef NDEBUG
TEST_F(QfsTest, AStatementThatLeavesArraysAliveIsReported) {
    expectRun(fixture({"getPerms_impl()"}), 0,
              {"1 host array(s) not released after: getPerms_impl()"});
    EXPECT_EQ(fixture({"x = pathFcn({1, struct('a', {2})}, strings(2));"}).err, "");
}
#endif

TEST_F(QfsTest, HelpMarksWhatTheLibraryLacks) {
    const Result r = fixture({"help"});
    EXPECT_EQ(r.status, 0);
    const std::set<std::string> present{"pathFcn",       "isAbsolutePathNoIOFcn",
                                        "relativepath",  "mkFileFcn",
                                        "getPerms_impl", "createURLFromPartsFcn"};
    std::istringstream lines(r.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_THAT(line, HasSubstr("Built-ins of "));
    std::size_t listed = 0;
    while (std::getline(lines, line)) {
        const auto* g = qfs::findGateway(line.substr(2, line.find(' ', 2) - 2));
        if (g == nullptr) continue;
        ++listed;
        EXPECT_THAT(line, HasSubstr(g->usage));
        EXPECT_EQ(line.ends_with("(not available in this library)"), present.count(g->name) == 0)
            << line;
    }
    EXPECT_EQ(listed, qfs::gateways().size());

    const Result one = fixture({"help pathFcn"});
    EXPECT_EQ(one.status, 0);
    EXPECT_THAT(one.out,
                ::testing::AllOf(::testing::StartsWith("parts = pathFcn(paths, convention)\n"),
                                 HasSubstr("at most 1 output, 1 to 3 inputs"),
                                 ::testing::Not(HasSubstr("not available"))));
    EXPECT_THAT(fixture({"help mkSymlinkFcn"}).out, HasSubstr("(not available in this library)"));
    EXPECT_EQ(fixture({"help nosuch"}).status, 2);
    const auto object = nlohmann::json::parse(fixture({"--json", "help isSymlinkFcn"}).out);
    EXPECT_THAT(object.at("help").get<std::string>(),
                HasSubstr("[tf, targets] = isSymlinkFcn(paths)"));
}

TEST_F(QfsTest, UsageErrorsExitWithTwo) {
    const auto script = tree_.makeFile("s.qfs", "help\n");
    using Args = std::vector<std::string>;
    for (const Args& args : {Args{"--bogus"}, Args{"pathFcn(1)", "pathFcn(2)"}, Args{"-f"},
                             Args{"--locale"}, Args{"-f", script.string(), "help"}})
        EXPECT_EQ(run(args).status, 2) << ::testing::PrintToString(args);
    const Result help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out,
                ::testing::AllOf(::testing::StartsWith("usage: qfs"), HasSubstr("--json")));
}

TEST_F(QfsTest, DebugSwitchesTheCoreLoggerOn) {
    const Result r = fixture({"--debug", "pathFcn(1);"});
    EXPECT_EQ(r.status, 0);
#if defined(QFS_HAVE_FSCORE)
    EXPECT_EQ(r.err, "");
#else
    EXPECT_THAT(r.err, HasSubstr("--debug has no effect"));
#endif
}

TEST_F(QfsTest, EveryBuiltInOfTheRealLibraryKeepsItsCountRules) {
    // Grows with the library: whatever it exports must refuse one output too many, one
    // input too few and one too many with the host's count errors, as its help says;
    // whatever it lacks must say so.
    const qfs::Library lib(QFS_REAL_LIBRARY);
    const auto identifier = [this](const std::string& statement) {
        const Result r = run({"--json", statement});
        EXPECT_EQ(r.status, 1) << statement;
        return nlohmann::json::parse(r.out).at("error").at("identifier").get<std::string>();
    };
    for (const auto& g : qfs::gateways()) {
        SCOPED_TRACE(g.name);
        const std::string name = g.name;
        std::string outputs;
        for (int k = 0; k <= std::max(g.maxOut, 0); ++k)
            outputs += (k ? ", o" : "o") + std::to_string(k);
        const std::string tooMany = identifier("[" + outputs + "] = " + name + "()");
        if (!lib.has(g)) {
            EXPECT_EQ(tooMany, "QUORIN:qfs:NotAvailable");
        } else if (g.maxOut < 0) {
            EXPECT_EQ(tooMany, "QUORIN:io:filesystem:symlink:NotSupportedOnPosix");
        } else {
            EXPECT_EQ(tooMany, "QUORIN:TooManyOutputs");
            if (g.minIn > 0) {
                EXPECT_EQ(identifier(name + "()"), "QUORIN:NotEnoughInputs");
            }
            if (g.maxIn < 0) continue;
            std::string args = "1";
            for (int k = 0; k < g.maxIn; ++k) args += ", 1";
            EXPECT_EQ(identifier(name + "(" + args + ")"), "QUORIN:TooManyInputs");
        }
    }
}

}  // namespace
