#pragma once
// Statements and values as qfs reads them, one statement at a time.
//
//   NAME(ARG, ...)  |  OUT = NAME(...)  |  [OUT1, OUT2] = NAME(...)  |  NAME
//   VAR = VALUE  |  VALUE  |  help [NAME]  |  who  |  clear [VAR ...]
// A trailing ";" suppresses the display; "%" starts a comment outside quotes; a blank or
// comment-only line is an empty statement. "~" in an output list drops that output.
//
// Values: 'char' ('' is 0x0), "string", missing, numbers (NaN, Inf, -2.5e3), true,
// false, [ ... ] concatenation (",", spaces, ";"), { ... } cells, struct(...),
// strings/cell/zeros/false(m, n, ...), reshape(X, d1, d2, ...), logical(X),
// repmat(X, m, n, ...), and variables with field access and one-based subscripts:
// r.Type, r(2).Type, c{1}, x(2, :), x(end). Text is UTF-8 on the line; bytes that are not
// UTF-8 survive as the host's escaped code units.
//
// An array built by strings/cell/zeros/false/repmat holds at most kMaxElements elements,
// so a typing slip cannot ask for terabytes.
// Every failure throws the identified error QUORIN:qfs:ParseError with the 1-based
// column (in characters) where the problem starts and a detail in the current locale; a
// name used as a value that is neither a variable, a built-in nor a value qfs knows
// throws QUORIN:qfs:UnknownName (the name, the nearest built-in or variable, or "").
// A call of an unknown name is left to the caller. Arrays built so far are released;
// variables are only read.
#include "vq/vqArray.hpp"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qfs {

inline constexpr std::size_t kMaxElements = std::size_t{1} << 24;

// The session's variables as the parser sees them: the value of a name (borrowed), or
// null; and every name, for suggestions.
struct Variables {
    std::function<const vqArray*(std::string_view)> find;
    std::function<std::vector<std::string>()> names;
};

struct Statement {
    enum class Kind { Empty, Call, Help, Value, Who, Clear };
    Kind kind = Kind::Empty;
    std::string name;                      // built-in, help topic ("" for the list), or the
                                           // variable a bare name shows
    std::size_t nameColumn = 0;            // 1-based, for errors about the name
    std::vector<std::string> outputs;      // Call: one per output; Value: the target, if any;
                                           // Clear: the names to clear (none: all)
    std::vector<unique_vqarray_ptr> args;  // Value: the one value
    bool suppressed = false;
};

Statement parseStatement(std::string_view line, const Variables* variables = nullptr);

// One value filling the whole text (surrounding blanks allowed).
unique_vqarray_ptr parseValue(std::string_view text);

// 1-based character column of a byte offset (UTF-8 lead bytes counted).
std::size_t columnOf(std::string_view line, std::size_t byteOffset);

// A line ending in "..." (outside quotes, before any comment) continues on the next one:
// the text before the dots, else nullopt.
std::optional<std::string> continuedPart(std::string_view line);

// The value builders a statement may use (struct, zeros, ...), for completion.
const std::vector<std::string>& valueFunctions();

}  // namespace qfs
