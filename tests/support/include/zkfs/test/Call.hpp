#pragma once
// A built-in called as a user calls it: a qfs statement run in this process through qfs's
// own session (parser, loader, JSON writer) against the built library. The answer is the
// object `qfs --json` writes for the statement: {"outputs": [...]} or {"error": {...}}.
// A statement that leaves host arrays alive adds a failure to the running test.
#include "qfs/Json.hpp"

#include <string_view>

namespace zkfs::test {

qfs::Json call(std::string_view statement);

}  // namespace zkfs::test
