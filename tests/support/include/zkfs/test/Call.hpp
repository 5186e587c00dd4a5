#pragma once
// A built-in called as a user calls it: a qfs statement run in this process through qfs's
// own session (parser, loader, JSON encoding) against the built library. The answer is the
// object `qfs --json` writes for the statement, {"outputs": [...]} or {"error": {...}},
// with text that is not UTF-8 kept as its bytes. A statement that leaves host arrays alive
// adds a failure to the running test.
#include "qfs/Json.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace zkfs::test {

qfs::Json call(std::string_view statement);

// Name and Cause of each row of a failure report (modifyPerms_impl's output), in order. An
// answer that is no such report adds a failure and gives no rows.
struct Failure {
    std::string name;
    std::string cause;
    bool operator==(const Failure&) const = default;
};
std::vector<Failure> failuresIn(const qfs::Json& answer);

// A value written in qfs's syntax, as the JSON of the answers: valueOf("[true false]").
qfs::Json valueOf(std::string_view qfsValue);

// Text as a qfs char literal: 'it''s'. Bytes that are not UTF-8 pass as they are.
std::string charLiteral(std::string_view text);

}  // namespace zkfs::test
