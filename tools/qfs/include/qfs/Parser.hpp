#pragma once
// Statements and values as qfs reads them, one line at a time.
//
//   NAME(ARG, ...)  |  OUT = NAME(...)  |  [OUT1, OUT2] = NAME(...)  |  NAME
//   help  |  help NAME
// A trailing ";" suppresses the display; "%" starts a comment outside quotes; a blank or
// comment-only line is an empty statement. Output names are labels ("~" hides one).
//
// Values: 'char' ('' is 0x0), "string", missing, numbers (NaN, Inf, -2.5e3), true,
// false, [ ... ] concatenation (",", spaces, ";"), { ... } cells, struct(...),
// strings/cell/zeros/false(m, n, ...), reshape(X, d1, d2, ...), logical(X),
// repmat(X, m, n, ...). Text is UTF-8 on the line; bytes that are not UTF-8 survive as
// the host's escaped code units.
//
// An array built by strings/cell/zeros/false/repmat holds at most kMaxElements elements,
// so a typing slip cannot ask for terabytes.
// Every failure throws the identified error QUORIN:qfs:ParseError with the 1-based
// column (in characters) where the problem starts; arrays built so far are released.
#include "vq/vqArray.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qfs {

inline constexpr std::size_t kMaxElements = std::size_t{1} << 24;

struct Statement {
    enum class Kind { Empty, Call, Help };
    Kind kind = Kind::Empty;
    std::string name;                  // built-in, or the help topic ("" for the list)
    std::size_t nameColumn = 0;        // 1-based, for errors about the name
    std::vector<std::string> outputs;  // one label per requested output
    std::vector<unique_vqarray_ptr> args;
    bool suppressed = false;
};

Statement parseStatement(std::string_view line);

// One value filling the whole text (surrounding blanks allowed).
unique_vqarray_ptr parseValue(std::string_view text);

// 1-based character column of a byte offset (UTF-8 lead bytes counted).
std::size_t columnOf(std::string_view line, std::size_t byteOffset);

}  // namespace qfs
