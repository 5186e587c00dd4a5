// qfs as a user runs it: the built binary in a child process, its standard output,
// standard error and exit status, against a stand-in library (exact behaviour known)
// and against the real library (whatever built-ins it exports at the moment).
#include "qfs/Gateways.hpp"
#include "qfs/Identifiers.hpp"
#include "qfs/Library.hpp"
#include "quorin/gateway/Identifiers.hpp"
#include "zkfs/test/TempTree.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

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
        std::vector<char*> argv;
        argv.reserve(args.size() + 1);
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        std::vector<std::string> environment{"LANG=C", "HOME=" + tree_.root().string(),
                                             "PATH=/usr/bin:/bin"};
        if (const char* asan = std::getenv("ASAN_OPTIONS"))
            environment.push_back(std::string("ASAN_OPTIONS=") + asan);
        for (const auto& e : env) {  // a given variable replaces the default of that name
            const std::string key = e.substr(0, e.find('=') + 1);
            std::erase_if(environment, [&](const std::string& d) { return d.starts_with(key); });
            environment.push_back(e);
        }
        std::vector<char*> envp;
        envp.reserve(environment.size() + 1);
        for (auto& e : environment) envp.push_back(e.data());
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
        Result r;
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        r.out = readAll(out);
        r.err = readAll(err);
        return r;
    }

    // With the stand-in library.
    Result fixture(std::vector<std::string> args, const std::string& input = {},
                   const std::vector<std::string>& env = {}) {
        args.insert(args.begin(), {"--library", QFS_FIXTURE_LIBRARY});
        return run(std::move(args), input, env);
    }

    zkfs::test::TempTree tree_;
    int runs_ = 0;
};

// --- values through a real hand-over and back out --------------------------------------

TEST_F(QfsTest, DisplaysEachRequestedOutputUnderItsName) {
    const Result r = fixture({"x = pathFcn([1 2; 3 4])"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "x =\n  2\u00d72 double array\n    1   2\n    3   4\n");
    EXPECT_EQ(r.err, "");

    const Result two = fixture({"[~, b, c] = pathFcn(1, \"two\")"});
    EXPECT_EQ(two.status, 0);
    EXPECT_EQ(two.out, "b =\n    \"two\"\nc =\n  (not assigned)\n");
}

TEST_F(QfsTest, AnUnrequestedFirstResultIsShownAsAns) {
    EXPECT_EQ(fixture({"pathFcn('abc')"}).out, "ans =\n    'abc'\n");
    const Result none = fixture({"pathFcn()"});
    EXPECT_EQ(none.status, 0);
    EXPECT_EQ(none.out, "");
}

TEST_F(QfsTest, SemicolonSuppressesTheDisplayButNotTheCall) {
    const Result r = fixture({"x = pathFcn(1);  % quiet"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "");
}

TEST_F(QfsTest, JsonWritesOneObjectPerStatementWithOutputsInSlotOrder) {
    const Result r = fixture({"--json", "[a, b, c] = pathFcn({1, missing}, struct('P', NaN))"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, R"({"outputs":[{"class":"cell","size":[1,2],"value":[)"
                     R"({"class":"double","size":[1,1],"value":[1.0]},)"
                     R"({"class":"string","size":[1,1],"value":[null]}]},)"
                     R"({"class":"struct","size":[1,1],"fields":["P"],"value":[{"P":)"
                     R"({"class":"double","size":[1,1],"value":["NaN"]}}]},null]})"
                     "\n");
    EXPECT_EQ(fixture({"--json", "pathFcn(true);"}).out,
              "{\"outputs\":[{\"class\":\"logical\",\"size\":[1,1],\"value\":[true]}]}\n");
    EXPECT_EQ(fixture({"--json", "pathFcn()"}).out, "{\"outputs\":[]}\n");
}

TEST_F(QfsTest, BytesThatAreNotUtf8) {
    // Shown as they are; in JSON replaced, so the line stays valid.
    EXPECT_EQ(fixture({"pathFcn('a\xff"
                       "b')"})
                  .out,
              "ans =\n    'a\xff"
              "b'\n");
    const Result j = fixture({"--json",
                              "pathFcn('a\xff"
                              "b')"});
    EXPECT_EQ(j.out,
              "{\"outputs\":[{\"class\":\"char\",\"size\":[1,3],\"value\":\"a\xef\xbf\xbd"
              "b\"}]}\n");
    EXPECT_TRUE(nlohmann::json::accept(j.out));
}

TEST_F(QfsTest, RelativepathIsCalledThroughItsOwnParameterType) {
    const Result r = fixture({"r = relativepath('/src', \"dst\")"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "r =\n    \"/src|dst\"\n");
}

TEST_F(QfsTest, ManyTextArgumentsReachTheGatewayInColumnMajorOrder) {
    const Result r = fixture({R"(tf = isAbsolutePathNoIOFcn(["/a" "b"; missing "/c"]))"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "tf =\n  2\u00d72 logical array\n    1   0\n    0   1\n");
}

// --- errors ------------------------------------------------------------------------

TEST_F(QfsTest, TooManyOutputsIsTheHostsCountError) {
    const Result r = fixture({"[a, b] = isAbsolutePathNoIOFcn('/x')"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "Error using isAbsolutePathNoIOFcn\n" +
                         english(resource_core::BaseMsgID("QUORIN", "TooManyOutputs")) +
                         "\n(QUORIN:TooManyOutputs)\n");

    const Result j = fixture({"--json", "isAbsolutePathNoIOFcn('/x', '/y')"});
    EXPECT_EQ(j.status, 1);
    EXPECT_EQ(j.out, "{\"error\":{\"identifier\":\"QUORIN:TooManyInputs\",\"message\":\"" +
                         english(resource_core::BaseMsgID("QUORIN", "TooManyInputs")) +
                         "\",\"arguments\":[]}}\n");
    EXPECT_EQ(j.err, "");
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
    EXPECT_EQ(fixture({"--json", "isAbsolutePathNoIOFcn(1)"}, {}, {"LANG=de_DE.UTF-8"}).out,
              expected);
    EXPECT_EQ(
        fixture({"--json", "isAbsolutePathNoIOFcn(1)"}, {}, {"LANG=C", "LC_ALL=de_DE.UTF-8"}).out,
        expected);

    const Result en = fixture({"isAbsolutePathNoIOFcn({'/a', 2})"});
    EXPECT_EQ(en.status, 1);
    const std::string inputEn =
        *fl::i18n::MessageCatalog::find_text("QUORIN:FileUtils:inputPath", "en");
    EXPECT_EQ(en.err,
              "Error using isAbsolutePathNoIOFcn\n" +
                  english(QUORIN::string::MustBeCellArrayOfStrings(fl::i18n::to_ustring(inputEn))) +
                  "\n(QUORIN:string:MustBeCellArrayOfStrings)\n");
}

TEST_F(QfsTest, AnExceptionWithoutIdentifierIsReportedNotACrash) {
    const Result r = fixture({"mkFileFcn('x')"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error using mkFileFcn\nthe fixture refuses to make files\n");
    EXPECT_EQ(
        fixture({"--json", "mkFileFcn('x')"}).out,
        R"({"error":{"identifier":"","message":"the fixture refuses to make files","arguments":[]}})"
        "\n");
}

TEST_F(QfsTest, ABuiltInTheLibraryLacksIsNotAvailable) {
    const Result r = fixture({"mkSymlinkFcn('a', 'b')"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err,
              "Error using mkSymlinkFcn\nmkSymlinkFcn is not available in this library.\n"
              "(QUORIN:qfs:NotAvailable)\n");
    EXPECT_EQ(
        fixture({"--json", "mkSymlinkFcn('a', 'b')"}).out,
        R"({"error":{"identifier":"QUORIN:qfs:NotAvailable","message":"mkSymlinkFcn is not available in this library.","arguments":["mkSymlinkFcn"]}})"
        "\n");
}

TEST_F(QfsTest, AnUnknownNameListsTheKnownOnes) {
    const Result r = fixture({"frobnicate(1)"});
    EXPECT_EQ(r.status, 2);
    EXPECT_THAT(r.err, HasSubstr("'frobnicate' is not a built-in"));
    for (const auto& g : qfs::gateways()) EXPECT_THAT(r.err, HasSubstr(g.name));
    EXPECT_THAT(r.err, HasSubstr("(QUORIN:qfs:UnknownFunction)"));
}

TEST_F(QfsTest, ParseErrorsPointAtTheColumnAndExitWithTwo) {
    const Result r = fixture({"x = pathFcn('a' 'b')"});
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err,
              "Error using qfs\n"
              "Parse error at column 17: expected ',' or ')'.\n"
              "    x = pathFcn('a' 'b')\n"
              "                    ^\n"
              "(QUORIN:qfs:ParseError)\n");
    EXPECT_EQ(
        fixture({"--json", "pathFcn([1 'a'])"}).out,
        R"({"error":{"identifier":"QUORIN:qfs:ParseError","message":"Parse error at column 12: cannot concatenate char with double.","arguments":[12,"cannot concatenate char with double"]}})"
        "\n");
}

// --- input modes -------------------------------------------------------------------

TEST_F(QfsTest, AFileRunsLineByLineAndStopsAtTheFirstError) {
    const auto script = tree_.makeFile("script.qfs",
                                       "% a comment line\n"
                                       "\n"
                                       "a = pathFcn(1)\n"
                                       "b = pathFcn('two');\n"
                                       "mkFileFcn('x')\n"
                                       "c = pathFcn(3)\n");
    const Result r = fixture({"-f", script.string()});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.out, "a =\n    1\n");
    EXPECT_THAT(r.err, HasSubstr("Error using mkFileFcn"));

    const auto bad = tree_.makeFile("bad.qfs", "a = pathFcn(1)\nb = pathFcn(\nc = pathFcn(3)\n");
    const Result p = fixture({"-f", bad.string()});
    EXPECT_EQ(p.status, 2);
    EXPECT_EQ(p.out, "a =\n    1\n");

    const auto crlf = tree_.makeFile("crlf.qfs", "a = pathFcn(1)\r\nb = pathFcn(2)\r\n");
    const Result w = fixture({"-f", crlf.string()});
    EXPECT_EQ(w.status, 0);
    EXPECT_EQ(w.out, "a =\n    1\nb =\n    2\n");

    EXPECT_EQ(fixture({"-f", tree_.path("no-such-file").string()}).status, 2);
}

TEST_F(QfsTest, PipedInputIsReadLineByLine) {
    const Result r = fixture({"--json"}, "pathFcn(1)\n% nothing\n\npathFcn(\"x\")\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out,
              "{\"outputs\":[{\"class\":\"double\",\"size\":[1,1],\"value\":[1.0]}]}\n"
              "{\"outputs\":[{\"class\":\"string\",\"size\":[1,1],\"value\":[\"x\"]}]}\n");
    EXPECT_EQ(r.err, "");  // no prompt, no echo

    const Result stop = fixture({}, "[a, b] = isAbsolutePathNoIOFcn('/')\npathFcn(1)\n");
    EXPECT_EQ(stop.status, 1);
    EXPECT_EQ(stop.out, "");
}

// --- the library's life cycle ----------------------------------------------------------

TEST_F(QfsTest, LoadAndUnloadHooksRun) {
    const auto mark = tree_.path("unloaded");
    const Result r =
        fixture({"createURLFromPartsFcn()"}, {}, {"QFS_FIXTURE_UNLOAD_MARK=" + mark.string()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "ans =\n  logical\n    1\n");  // the load hook ran before the call
    EXPECT_EQ(readAll(mark), "unloaded\n");
}

#ifndef NDEBUG
TEST_F(QfsTest, AStatementThatLeavesArraysAliveIsReported) {
    const Result r = fixture({"getPerms_impl()"});
    EXPECT_EQ(r.status, 0);
    EXPECT_THAT(r.err, HasSubstr("1 host array(s) not released after: getPerms_impl()"));
    EXPECT_EQ(fixture({"x = pathFcn({1, struct('a', {2})}, strings(2));"}).err, "");
}
#endif

TEST_F(QfsTest, LibraryThatDoesNotLoad) {
    const Result missing = run({"--library", tree_.path("nothing.so").string(), "help"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.err, HasSubstr("Unable to load the library"));
    EXPECT_THAT(missing.err, HasSubstr("(QUORIN:qfs:LibraryNotLoaded)"));

    const Result hookless = run({"--json", "--library", QFS_HOOKLESS_LIBRARY, "help"});
    EXPECT_EQ(hookless.status, 1);
    EXPECT_THAT(hookless.out, HasSubstr("\"identifier\":\"QUORIN:qfs:LibraryNotLoaded\""));
    EXPECT_THAT(hookless.out, HasSubstr("QNInitialize_libzkfilesystemquorin"));
}

TEST(QfsLibraryTest, GatewaysMissingFromTheLibraryAreAbsent) {
    const qfs::Library lib(QFS_FIXTURE_LIBRARY);
    for (const auto& g : qfs::gateways()) {
        const std::string name = g.name;
        const bool present = name == "pathFcn" || name == "isAbsolutePathNoIOFcn" ||
                             name == "relativepath" || name == "mkFileFcn" ||
                             name == "getPerms_impl" || name == "createURLFromPartsFcn";
        EXPECT_EQ(lib.has(g), present) << name;
    }
    unique_vqarray_ptr slot;
    EXPECT_THROW(lib.call(*qfs::findGateway("isSymlinkFcn"), 0, &slot, 0, nullptr),
                 foundation::core::except::Exception<QUORIN::qfs::NotAvailable>);
    EXPECT_THROW(qfs::Library("/no/such/library.so"),
                 foundation::core::except::Exception<QUORIN::qfs::LibraryNotLoaded>);
}

// --- help and usage ----------------------------------------------------------------

TEST_F(QfsTest, HelpMarksWhatTheLibraryLacks) {
    const Result r = fixture({"help"});
    EXPECT_EQ(r.status, 0);
    const qfs::Library lib(QFS_FIXTURE_LIBRARY);
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
        EXPECT_EQ(line.ends_with("(not available in this library)"), !lib.has(*g)) << line;
    }
    EXPECT_EQ(listed, qfs::gateways().size());

    const Result one = fixture({"help pathFcn"});
    EXPECT_EQ(one.status, 0);
    EXPECT_THAT(one.out, ::testing::StartsWith("parts = pathFcn(paths, convention)\n"));
    EXPECT_THAT(one.out, HasSubstr("at most 1 output, 1 to 3 inputs"));
    EXPECT_THAT(one.out, Not(HasSubstr("not available")));
    EXPECT_THAT(fixture({"help mkSymlinkFcn"}).out, HasSubstr("(not available in this library)"));
    EXPECT_EQ(fixture({"help nosuch"}).status, 2);

    const Result j = fixture({"--json", "help isSymlinkFcn"});
    const auto object = nlohmann::json::parse(j.out);
    EXPECT_THAT(object.at("help").get<std::string>(),
                HasSubstr("[tf, targets] = isSymlinkFcn(paths)"));
}

TEST_F(QfsTest, UsageErrorsExitWithTwo) {
    EXPECT_EQ(run({"--bogus"}).status, 2);
    EXPECT_EQ(run({"pathFcn(1)", "pathFcn(2)"}).status, 2);
    EXPECT_EQ(run({"-f"}).status, 2);
    EXPECT_EQ(run({"--locale"}).status, 2);
    const auto script = tree_.makeFile("s.qfs", "help\n");
    EXPECT_EQ(run({"-f", script.string(), "help"}).status, 2);

    const Result help = run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, ::testing::StartsWith("usage: qfs"));
    EXPECT_THAT(help.out, HasSubstr("--json"));
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

// --- the real library ----------------------------------------------------------------

TEST_F(QfsTest, ByDefaultTheLibraryBesideTheBinaryIsLoaded) {
    const Result r = run({"help"});
    EXPECT_EQ(r.status, 0);
    const auto expected = std::filesystem::weakly_canonical(QFS_REAL_LIBRARY).string();
    const std::string first = r.out.substr(0, r.out.find('\n'));
    EXPECT_EQ(first, "Built-ins of " + expected + ":");
}

TEST_F(QfsTest, EveryBuiltInOfTheRealLibraryKeepsItsOutputLimit) {
    // Grows with the library: whatever it exports must refuse one output too many with
    // the host's count error; whatever it lacks must say so.
    const qfs::Library lib(QFS_REAL_LIBRARY);
    for (const auto& g : qfs::gateways()) {
        SCOPED_TRACE(g.name);
        std::string outputs;
        for (int k = 0; k <= std::max(g.maxOut, 0); ++k)
            outputs += (k ? ", o" : "o") + std::to_string(k);
        const Result r = run({"--json", "[" + outputs + "] = " + g.name + "()"});
        EXPECT_EQ(r.status, 1);
        const auto object = nlohmann::json::parse(r.out);
        const std::string identifier = object.at("error").at("identifier").get<std::string>();
        if (!lib.has(g)) {
            EXPECT_EQ(identifier, "QUORIN:qfs:NotAvailable");
        } else if (g.maxOut < 0) {
            EXPECT_EQ(identifier, "QUORIN:io:filesystem:symlink:NotSupportedOnPosix");
        } else {
            EXPECT_EQ(identifier, "QUORIN:TooManyOutputs");
        }
    }
}

}  // namespace
