// qfs: calls the filesystem built-ins from a shell, a script or an interactive prompt.
#include "qfs/DebugLog.hpp"
#include "qfs/Gateways.hpp"
#include "qfs/Json.hpp"
#include "qfs/Library.hpp"
#include "qfs/Parser.hpp"
#include "qfs/Session.hpp"
#include "qfs/Texts.hpp"

#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/sys/SystemCalls.hpp"

#include <readline/history.h>
#include <readline/readline.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using Args = std::vector<resource_core::MessageArg>;

struct Options {
    qfs::Output form = qfs::Output::Display;
    bool debug = false;
    bool quiet = false;
    std::optional<std::string> locale;
    std::optional<std::string> library;
    std::optional<std::string> file;
    std::optional<std::string> statement;
};

int usageError(const std::string& why) {
    std::cerr << "qfs: " << why << "\n" << qfs::tr("tryHelp") << "\n";
    return 2;
}

void note(bool quiet, const std::string& text) {
    if (!quiet) std::cerr << qfs::tr("notePrefix", Args{text}) << "\n";
}

// Standard output through the system-call seam, so that a failed write keeps its errno
// until qfs reports it.
class OutputBuffer : public std::streambuf {
public:
    explicit OutputBuffer(int fd) : fd_(fd) { setp(buffer_, buffer_ + sizeof buffer_); }
    OutputBuffer(const OutputBuffer&) = delete;
    OutputBuffer& operator=(const OutputBuffer&) = delete;
    ~OutputBuffer() override { flushAll(); }
    [[nodiscard]] int error() const { return error_; }

protected:
    int_type overflow(int_type c) override {
        if (!flushAll()) return traits_type::eof();
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        if (n > epptr() - pptr()) {
            if (!flushAll() || !writeAll(s, static_cast<std::size_t>(n))) return 0;
            return n;
        }
        std::memcpy(pptr(), s, static_cast<std::size_t>(n));
        pbump(static_cast<int>(n));
        return n;
    }
    int sync() override { return flushAll() ? 0 : -1; }

private:
    bool writeAll(const char* p, std::size_t n) {
        while (n > 0) {
            const long done = fl::sys::write(fd_, p, n);
            if (done < 0) {
                error_ = errno;
                return false;
            }
            p += done;
            n -= static_cast<std::size_t>(done);
        }
        return true;
    }
    bool flushAll() {
        const auto n = static_cast<std::size_t>(pptr() - pbase());
        setp(buffer_, buffer_ + sizeof buffer_);
        return error_ == 0 && writeAll(buffer_, n);
    }

    int fd_;
    int error_ = 0;
    char buffer_[1 << 16];
};

// Lines of a descriptor, read through the seam; a read error keeps its errno.
class LineReader {
public:
    explicit LineReader(int fd) : fd_(fd) {}
    // False at the end of the input or after an error (then error() is its errno).
    bool next(std::string& line) {
        for (;;) {
            if (const auto nl = buffer_.find('\n', start_); nl != std::string::npos) {
                line.assign(buffer_, start_, nl - start_);
                start_ = nl + 1;
                return true;
            }
            buffer_.erase(0, start_);
            start_ = 0;
            if (eof_) break;
            char chunk[1 << 16];
            const long n = fl::sys::read(fd_, chunk, sizeof chunk);
            if (n < 0) {
                error_ = errno;
                return false;
            }
            if (n == 0) eof_ = true;
            buffer_.append(chunk, static_cast<std::size_t>(n));
        }
        if (buffer_.empty()) return false;
        line.swap(buffer_);
        buffer_.clear();
        return true;
    }
    [[nodiscard]] int error() const { return error_; }

private:
    int fd_;
    std::string buffer_;
    std::size_t start_ = 0;
    bool eof_ = false;
    int error_ = 0;
};

// Runs statements until one fails; the status of the failing one, else 0. Lines ending
// in "..." join the next; a file's statements carry FILE:LINE of their first line.
int runLines(qfs::Session& session, LineReader& in, const std::string& name, bool named) {
    std::string line;
    std::string pending;
    std::size_t number = 0;
    std::size_t first = 0;
    while (in.next(line)) {
        ++number;
        if (pending.empty()) first = number;
        if (auto part = qfs::continuedPart(line)) {
            pending += *part;
            continue;
        }
        pending += line;
        if (named) session.setOrigin(name + ":" + std::to_string(first));
        const qfs::Status status = session.run(pending);
        pending.clear();
        if (status != qfs::Status::Ok) return static_cast<int>(status);
    }
    if (in.error() != 0) {
        std::cerr << "qfs: " << qfs::tr("cannotRead", Args{name, fl::sys::errorText(in.error())})
                  << "\n";
        return 1;
    }
    if (!pending.empty()) return usageError(qfs::tr("unfinished"));
    return 0;
}

// ---- the interactive prompt

qfs::Session* gSession = nullptr;
volatile std::sig_atomic_t gInterrupted = 0;
std::string gPending;  // a statement continued with "..."
constexpr const char* kPrompt = ">> ";
constexpr const char* kContinued = ".. ";

void onInterrupt(int /*signal*/) { gInterrupted = 1; }

// Ctrl-C at the prompt: the line being typed (and any continued statement) is dropped
// and a fresh prompt shown.
void abandonLine() {
    gInterrupted = 0;
    gPending.clear();
    rl_replace_line("", 0);
    rl_point = rl_end = 0;
    rl_crlf();
    rl_set_prompt(kPrompt);
    rl_on_new_line();
    rl_redisplay();
}

// The terminal opened again, non-blocking, for the prompt's reads alone: a Ctrl-C flushes
// the terminal's input (POSIX, ISIG without NOFLSH), so a key that ppoll saw may be gone
// by the read, which must then not wait. Where it cannot be opened (a terminal of another
// user) the shared descriptor is made non-blocking for each read only.
fl::sys::UniqueFd gKeys;

long readOneKey(int shared, unsigned char& key) {
    if (gKeys.valid()) return fl::sys::read(gKeys.get(), &key, 1);
    const int flags = fl::sys::fcntl(shared, F_GETFL, 0);
    if (flags < 0 || fl::sys::fcntl(shared, F_SETFL, flags | O_NONBLOCK) < 0) return -1;
    const long n = fl::sys::read(shared, &key, 1);
    const int e = errno;
    fl::sys::fcntl(shared, F_SETFL, flags);
    errno = e;
    return n;
}

// readline's key reader. SIGINT stays blocked on every thread of an interactive session
// and is let in only while this waits for a key, so a Ctrl-C that comes while readline is
// still busy with earlier keys stays pending until here instead of being caught and then
// left unseen behind a read() that waits for the next key.
int readKey(FILE* stream) {
    const int shared = fileno(stream);
    sigset_t waiting;
    pthread_sigmask(SIG_BLOCK, nullptr, &waiting);
    sigdelset(&waiting, SIGINT);
    for (;;) {
        pollfd ready{gKeys.valid() ? gKeys.get() : shared, POLLIN, 0};
        // Not through the seam: its EINTR policy would retry, and the EINTR is the point.
        if (ppoll(&ready, 1, nullptr, &waiting) < 0) {
            if (errno != EINTR) return RL_ISSTATE(RL_STATE_READCMD) ? READERR : EOF;
            if (gInterrupted != 0) abandonLine();
            rl_check_signals();  // readline's own, a resize
            continue;
        }
        unsigned char key = 0;
        const long n = readOneKey(shared, key);
        if (n == 1) return key;
        if (n < 0 && errno == EAGAIN) continue;
        if (n == 0) return EOF;
        return RL_ISSTATE(RL_STATE_READCMD) ? READERR : EOF;
    }
}

std::vector<std::string> gMatches;

char* nextMatch(const char* /*text*/, int state) {
    static std::size_t index = 0;
    if (state == 0) index = 0;
    if (index >= gMatches.size()) return nullptr;
    return strdup(gMatches[index++].c_str());  // readline frees it
}

// The built-in whose argument list holds `at`, or "".
std::string enclosingCall(std::string_view line, std::size_t at) {
    int depth = 0;
    for (std::size_t i = std::min(at, line.size()); i-- > 0;) {
        const char c = line[i];
        if (c == ')' || c == ']' || c == '}') ++depth;
        if (c == '(' || c == '[' || c == '{') {
            if (depth-- > 0) continue;
            if (c != '(') return {};
            std::size_t b = i;
            while (b > 0 && (std::isalnum(static_cast<unsigned char>(line[b - 1])) != 0 ||
                             line[b - 1] == '_'))
                --b;
            return std::string(line.substr(b, i - b));
        }
    }
    return {};
}

char** complete(const char* text, int start, int /*end*/) {
    const std::string_view prefix = text;
    std::vector<std::string> candidates;
    gMatches.clear();
    if (rl_completion_quote_character != 0) {
        // Inside quotes: an option name where the built-in takes name-value pairs, else a
        // file name (readline's own completion).
        const std::string call = enclosingCall(rl_line_buffer, static_cast<std::size_t>(start));
        if (call == "resolvePathFcn" || call == "resolvePathFcnWithAttributes") {
            candidates = {"ResolveSymbolicLinks", "LocalPathFromFileScheme",
                          "CaseCorrectAndResolveOnWindows"};
        } else if (call == "mkFileFcn" || call == "mkSymlinkFcn") {
            candidates = {"ReplacementRule"};
        }
        for (const auto& c : candidates) {
            if (c.rfind(prefix, 0) == 0) gMatches.push_back(c);
        }
        if (gMatches.empty()) return nullptr;
        rl_attempted_completion_over = 1;
        return rl_completion_matches(text, nextMatch);
    }
    rl_attempted_completion_over = 1;  // no file names outside quotes
    rl_completion_append_character = '\0';
    for (const auto& g : qfs::gateways()) candidates.emplace_back(g.name);
    const std::string_view before(rl_line_buffer, static_cast<std::size_t>(start));
    if (before.find_first_not_of(" \t") == std::string_view::npos ||
        before.substr(before.find_first_not_of(" \t")) != "help ") {
        if (gSession != nullptr) {
            for (auto& v : gSession->variableNames()) candidates.push_back(std::move(v));
        }
        for (const auto& f : qfs::valueFunctions()) candidates.push_back(f);
        for (const char* c : {"help", "who", "clear", "exit"}) candidates.emplace_back(c);
    }
    for (const auto& c : candidates) {
        if (c.rfind(prefix, 0) == 0) gMatches.push_back(c);
    }
    std::sort(gMatches.begin(), gMatches.end());
    gMatches.erase(std::unique(gMatches.begin(), gMatches.end()), gMatches.end());
    if (gMatches.empty()) return nullptr;
    return rl_completion_matches(text, nextMatch);
}

// Runs one statement on a worker thread while this one watches Ctrl-C: a built-in runs to
// its end, so the first Ctrl-C only says so; a second ends qfs with the history saved.
void runWatched(qfs::Session& session, const std::string& line, const std::string& history) {
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGINT);
    sigaddset(&watched, SIGUSR1);  // the worker's "done"
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &watched, &before);
    const pthread_t self = pthread_self();
    std::atomic<bool> done{false};
    std::thread worker([&] {
        // Inherited already; kept explicit because a Ctrl-C taken here would go unseen.
        pthread_sigmask(SIG_BLOCK, &watched, nullptr);
        session.run(line);
        done = true;
        pthread_kill(self, SIGUSR1);
    });
    int presses = 0;
    while (!done) {
        if (sigwaitinfo(&watched, nullptr) != SIGINT) continue;
        if (++presses == 1) {
            std::cerr << "\nqfs: " << qfs::tr("running") << "\n";
            continue;
        }
        if (!history.empty()) write_history(history.c_str());
        std::_Exit(130);
    }
    worker.join();
    // A "done" that arrived after the loop saw the flag must not stay pending.
    const timespec none{0, 0};
    sigset_t finished;
    sigemptyset(&finished);
    sigaddset(&finished, SIGUSR1);
    while (sigtimedwait(&finished, nullptr, &none) == SIGUSR1) {
    }
    // A Ctrl-C after the worker ended stays pending for the prompt.
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

int runInteractive(qfs::Session& session, bool banner) {
    std::string history;
    if (const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
        home != nullptr && *home != '\0') {
        history = std::string(home) + "/.qfs_history";
        if (const int e = read_history(history.c_str()); e != 0 && e != ENOENT) {
            std::cerr << "qfs: " << qfs::tr("cannotRead", Args{history, fl::sys::errorText(e)})
                      << "\n";
        }
    }
    gSession = &session;
    gKeys = fl::sys::openat(AT_FDCWD, "/proc/self/fd/0", O_RDONLY | O_NONBLOCK | O_NOCTTY);
    rl_readline_name = "qfs";
    rl_catch_signals = 0;
    rl_getc_function = readKey;
    rl_attempted_completion_function = complete;
    rl_completer_quote_characters = "'\"";
    rl_basic_word_break_characters = const_cast<char*>(" \t\n\"'([{,;=~+*<>");  // NOLINT
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);

    if (banner) std::cout << qfs::tr("banner", Args{std::string(QFS_VERSION)}) << "\n";
    for (;;) {
        char* raw = readline(gPending.empty() ? kPrompt : kContinued);
        if (raw == nullptr) {
            std::cout << "\n";
            break;
        }
        const std::string line(raw);
        std::free(raw);  // NOLINT(cppcoreguidelines-no-malloc): readline's buffer
        const auto first = line.find_first_not_of(" \t");
        if (first == std::string::npos && gPending.empty()) continue;
        add_history(line.c_str());
        if (auto part = qfs::continuedPart(line)) {
            gPending += *part;
            continue;
        }
        const std::string statement = gPending + line;
        gPending.clear();
        const std::string_view word = std::string_view(line).substr(std::min(first, line.size()));
        if (word == "exit" || word == "quit") break;
        runWatched(session, statement, history);
    }
    if (!history.empty()) {
        if (const int e = write_history(history.c_str()); e != 0) {
            std::cerr << "qfs: "
                      << qfs::tr("cannotWriteHistory", Args{history, fl::sys::errorText(e)})
                      << "\n";
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    bool optionsDone = false;
    // The locale first, so that usage errors already speak its language.
    fl::i18n::ZkLocale::global(fl::i18n::ZkLocale::fromEnvironment());
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        if (a == "--locale" && i + 1 < argc)
            fl::i18n::ZkLocale::global(fl::i18n::ZkLocale(argv[i + 1]));
        if (a.rfind("--locale=", 0) == 0)
            fl::i18n::ZkLocale::global(fl::i18n::ZkLocale(std::string(a.substr(9))));
    }
    for (int i = 1; i < argc; ++i) {
        const std::string_view a = argv[i];
        std::optional<std::string> missing;
        auto value = [&](std::string_view name) -> std::optional<std::string> {
            if (a.size() > name.size() && a.substr(0, name.size()) == name &&
                a[name.size()] == '=') {
                return std::string(a.substr(name.size() + 1));
            }
            if (a != name) return std::nullopt;
            if (i + 1 >= argc) {
                missing = std::string(name);
                return std::string();
            }
            return std::string(argv[++i]);
        };
        if (!optionsDone && a.size() > 1 && a.front() == '-') {
            if (a == "--") {
                optionsDone = true;
            } else if (a == "--help") {
                std::cout << qfs::tr("usage") << "\n";
                return 0;
            } else if (a == "--version") {
                std::cout << "qfs " << QFS_VERSION << "\n";
                return 0;
            } else if (a == "--json" || a == "--json=typed") {
                opt.form = qfs::Output::Typed;
            } else if (a == "--json=plain") {
                opt.form = qfs::Output::Plain;
            } else if (a.rfind("--json=", 0) == 0) {
                return usageError(qfs::tr("badJsonForm", Args{std::string(a.substr(7))}));
            } else if (a == "--debug") {
                opt.debug = true;
            } else if (a == "--quiet" || a == "-q") {
                opt.quiet = true;
            } else if (auto v = value("--locale")) {
                opt.locale = *v;
            } else if (auto l = value("--library")) {
                opt.library = *l;
            } else if (auto f = value("-f")) {
                opt.file = *f;
            } else {
                return usageError(qfs::tr("unknownOption", Args{std::string(a)}));
            }
            if (missing) return usageError(qfs::tr("needsValue", Args{*missing}));
            continue;
        }
        if (opt.statement) return usageError(qfs::tr("oneStatement"));
        opt.statement = std::string(a);
    }
    if (opt.statement && opt.file) return usageError(qfs::tr("statementOrFile"));

    const fl::i18n::ZkLocale& locale = fl::i18n::ZkLocale::global();
    const auto languages = fl::i18n::MessageCatalog::languages();
    if (std::find(languages.begin(), languages.end(), locale.language()) == languages.end()) {
        note(opt.quiet, qfs::tr("unknownLocale", Args{locale.name()}));
    }
    if (opt.debug) qfs::enableDebugLogging();

    fl::sys::UniqueFd file;
    if (opt.file) {
        file = fl::sys::openat(AT_FDCWD, opt.file->c_str(), O_RDONLY);
        if (!file.valid()) {
            const int e = errno;
            std::cerr << "qfs: " << qfs::tr("cannotOpen", Args{*opt.file, fl::sys::errorText(e)})
                      << "\n";
            return 2;
        }
    }

    const bool prompt = !opt.statement && !opt.file && isatty(STDIN_FILENO) != 0;
    if (prompt) {
        // Before the library can start a thread: each one inherits the block, so a Ctrl-C
        // reaches only the prompt's wait for a key.
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    }
    OutputBuffer output(STDOUT_FILENO);
    std::ostream out(&output);
    std::optional<qfs::Library> library;
    try {
        library.emplace(opt.library ? *opt.library : qfs::Library::defaultPath());
    } catch (...) {
        qfs::reportError(
            opt.form, std::cerr, [&](const qfs::Json& line) { out << qfs::jsonLine(line) << "\n"; },
            "qfs", qfs::describeError(std::current_exception()));
        return 1;
    }

    int status = 0;
    {
        qfs::Session session(*library, out, std::cerr, opt.form, opt.quiet);
        if (opt.statement) {
            status = static_cast<int>(session.run(*opt.statement));
        } else if (opt.file) {
            LineReader in(file.get());
            status = runLines(session, in, *opt.file, true);
        } else if (prompt) {
            status = runInteractive(session,
                                    opt.form == qfs::Output::Display && isatty(STDOUT_FILENO) != 0);
        } else {
            LineReader in(STDIN_FILENO);
            status = runLines(session, in, "-", false);
        }
        out.flush();
    }
    if (output.error() != 0) {
        std::cerr << "qfs: "
                  << qfs::tr("cannotWriteOutput", Args{fl::sys::errorText(output.error())}) << "\n";
        return status == 0 ? 1 : status;
    }
    return status;
}
