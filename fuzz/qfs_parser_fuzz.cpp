// qfs's statement and value parser on arbitrary lines, then the display and JSON forms
// of whatever it built: every line parses or raises QUORIN:qfs:ParseError (or the host's
// own identified error for a value it refuses), and nothing it built is left behind.
#include "FuzzTarget.hpp"
#include "qfs/Display.hpp"
#include "qfs/Json.hpp"
#include "qfs/Parser.hpp"

#include "foundation/core/except/Exception.hpp"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

[[noreturn]] void finding(const char* what) {
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

// Elements in a value and everything it holds.
std::size_t weight(const vqArray* a) {
    if (a == nullptr) return 1;
    std::size_t n = vqGetNumberOfElements(a);
    if (vqIsCell(a)) {
        for (std::size_t i = 0; i < vqGetNumberOfElements(a); ++i) n += weight(vqGetCell(a, i));
    } else if (vqIsStruct(a)) {
        for (std::size_t i = 0; i < vqGetNumberOfElements(a); ++i) {
            for (int f = 0; f < vqGetNumberOfFields(a); ++f)
                n += weight(vqGetFieldByNumber(a, i, f));
        }
    }
    return n;
}

void exercise(const vqArray* value) {
    // Showing millions of elements teaches nothing new and would slow the search down.
    if (weight(value) > 4096) return;
    (void)qfs::displayValue("x", value);
    (void)qfs::jsonLine(qfs::toJson(value));
}

template <typename F>
void expectIdentified(F&& body) {
    try {
        body();
    } catch (const foundation::core::except::IMsgIDException& e) {
        if (e.GetID().empty()) finding("an error without an identifier");
        (void)e.GetUnicodeMessageTxt();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "unidentified exception: %s\n", e.what());
        finding("an unidentified exception left the parser");
    } catch (...) {
        finding("a non-standard exception left the parser");
    }
}

int noSetUp(const std::vector<std::string>&) { return 0; }

int runOne(const std::uint8_t* data, std::size_t size) {
    // One line at a time, as qfs reads them.
    std::string_view line(reinterpret_cast<const char*>(data), size);
    if (const auto nl = line.find('\n'); nl != std::string_view::npos) line = line.substr(0, nl);
    const long before = vqLiveArrayCount();
    expectIdentified([&] {
        const auto st = qfs::parseStatement(line);
        for (const auto& a : st.args) exercise(a.get());
    });
    expectIdentified([&] {
        const auto v = qfs::parseValue(line);
        exercise(v.get());
    });
    if (vqLiveArrayCount() != before) finding("host arrays were not released");
    return 0;
}

}  // namespace

zkfs::fuzz::Target zkfs::fuzz::qfsParserTarget() { return {"qfs_parser", noSetUp, runOne}; }
