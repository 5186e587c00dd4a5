// qfs: calls the filesystem built-ins from a shell, a script or an interactive prompt.
#include "qfs/DebugLog.hpp"
#include "qfs/Json.hpp"
#include "qfs/Library.hpp"
#include "qfs/Session.hpp"

#include "fl/i18n/ZkLocale.hpp"

#include <readline/history.h>
#include <readline/readline.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include <unistd.h>

namespace {

constexpr const char* kUsage =
    "usage: qfs [options] 'STATEMENT'   run one statement\n"
    "       qfs [options] -f FILE       run the statements of a file, one per line\n"
    "       qfs [options]               interactive prompt on a terminal, else standard input\n"
    "\n"
    "statements:\n"
    "  NAME(ARG, ...)   OUT = NAME(...)   [OUT1, OUT2] = NAME(...)   help   help NAME\n"
    "  a trailing ';' suppresses the display; '%' starts a comment\n"
    "values:\n"
    "  'char' (''=0x0)  \"string\"  missing  1 -2.5e3 NaN Inf  true false  [a b; c d]  []\n"
    "  {a, b; c, d}  struct('Name', VALUE, ...)  strings/cell/zeros/false(m, n)\n"
    "  reshape(X, d1, d2, ...)  logical(X)  repmat(X, m, n)  char(code, ...)\n"
    "\n"
    "options:\n"
    "  --json          one JSON object per statement on standard output (JSON Lines)\n"
    "  --locale NAME   message language, e.g. de_DE.UTF-8 (default: LC_ALL, LC_MESSAGES, LANG)\n"
    "  --debug         the filesystem core's debug records on standard error\n"
    "  --library PATH  load this build of libzkfilesystemquorin.so\n"
    "  -f FILE         run a file of statements\n"
    "  --help          this text\n"
    "  --version       the version\n"
    "\n"
    "The first error stops a file or piped input. Exit status: 0 success, 1 an error of a\n"
    "call, 2 a usage or parse error.\n";

struct Options {
    bool json = false;
    bool debug = false;
    std::optional<std::string> locale;
    std::optional<std::string> library;
    std::optional<std::string> file;
    std::optional<std::string> statement;
};

int usageError(const std::string& why) {
    std::cerr << "qfs: " << why << "\n"
              << "Try 'qfs --help'.\n";
    return 2;
}

// Runs lines until one fails; the status of the failing one, else 0.
int runLines(qfs::Session& session, std::istream& in) {
    std::string line;
    while (std::getline(in, line)) {
        const qfs::Status status = session.run(line);
        if (status != qfs::Status::Ok) return static_cast<int>(status);
    }
    return 0;
}

int runInteractive(qfs::Session& session) {
    std::string history;
    if (const char* home = std::getenv("HOME");
        home != nullptr && *home != '\0') {  // NOLINT(concurrency-mt-unsafe)
        history = std::string(home) + "/.qfs_history";
        read_history(history.c_str());
    }
    for (;;) {
        char* raw = readline(">> ");
        if (raw == nullptr) {
            std::cout << "\n";
            break;
        }
        const std::string line(raw);
        std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc): readline's buffer
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos) continue;
        add_history(line.c_str());
        const std::string_view word = std::string_view(line).substr(first);
        if (word == "exit" || word == "quit") break;
        session.run(line);
    }
    if (!history.empty()) write_history(history.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    bool optionsDone = false;
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        auto value = [&](std::string_view name) -> std::optional<std::string> {
            if (a.size() > name.size() && a.substr(0, name.size()) == name &&
                a[name.size()] == '=') {
                return std::string(a.substr(name.size() + 1));
            }
            if (a != name) return std::nullopt;
            if (i + 1 >= argc) return std::string("\x01");  // reported below as missing
            return std::string(argv[++i]);
        };
        if (!optionsDone && a.size() > 1 && a.front() == '-') {
            if (a == "--") {
                optionsDone = true;
            } else if (a == "--help") {
                std::cout << kUsage;
                return 0;
            } else if (a == "--version") {
                std::cout << "qfs " << QFS_VERSION << "\n";
                return 0;
            } else if (a == "--json") {
                opt.json = true;
            } else if (a == "--debug") {
                opt.debug = true;
            } else if (auto v = value("--locale")) {
                if (*v == "\x01") return usageError("--locale needs a locale name");
                opt.locale = *v;
            } else if (auto l = value("--library")) {
                if (*l == "\x01") return usageError("--library needs a path");
                opt.library = *l;
            } else if (auto f = value("-f")) {
                if (*f == "\x01") return usageError("-f needs a file name");
                opt.file = *f;
            } else {
                return usageError("unknown option '" + std::string(a) + "'");
            }
            continue;
        }
        if (opt.statement)
            return usageError("give one statement (use -f or standard input for more)");
        opt.statement = std::string(a);
    }
    if (opt.statement && opt.file)
        return usageError("give either a statement or -f FILE, not both");

    fl::i18n::ZkLocale::global(opt.locale ? fl::i18n::ZkLocale(*opt.locale)
                                          : fl::i18n::ZkLocale::fromEnvironment());
    if (opt.debug) qfs::enableDebugLogging();

    std::ifstream file;
    if (opt.file) {
        file.open(*opt.file);
        if (!file) return usageError("cannot open '" + *opt.file + "'");
    }

    std::optional<qfs::Library> library;
    try {
        library.emplace(opt.library ? *opt.library : qfs::Library::defaultPath());
    } catch (...) {
        const qfs::ErrorReport r = qfs::describeError(std::current_exception());
        if (opt.json) {
            std::cout << qfs::jsonLine(qfs::errorJson(r.identifier, r.message, r.arguments))
                      << "\n";
        } else {
            std::cerr << "Error using qfs\n" << r.message << "\n(" << r.identifier << ")\n";
        }
        return 1;
    }

    qfs::Session session(*library, std::cout, std::cerr, opt.json);
    if (opt.statement) return static_cast<int>(session.run(*opt.statement));
    if (opt.file) return runLines(session, file);
    if (isatty(STDIN_FILENO) == 0) return runLines(session, std::cin);
    return runInteractive(session);
}
