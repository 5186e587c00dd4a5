#pragma once
// Runs statements one at a time against a loaded library and writes what they give:
// the display (or one JSON line per statement with --json) on `out`; in display mode,
// errors on `err` as
//
//   Error using NAME
//   <catalog text in the current locale>
//   (identifier)
//
// Any exception of a call, identified or not, is reported and the session goes on; the
// caller decides whether to stop. Every host array a statement builds is released before
// run() returns; builds with assertions check the live-array count after each statement
// and say on `err` when it did not come back.
#include "qfs/Json.hpp"
#include "qfs/Library.hpp"

#include "resource_core/MessageArg.hpp"

#include <exception>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qfs {

// Exit statuses: 0 success, 1 an error of a call, 2 a usage or parse error.
enum class Status { Ok = 0, Failed = 1, Usage = 2 };

// What a reported error consists of; the identifier is "" for an exception that has none.
struct ErrorReport {
    std::string identifier;
    std::string message;
    std::vector<resource_core::MessageArg> arguments;
};

ErrorReport describeError(const std::exception_ptr& error);

class Session {
public:
    Session(const Library& library, std::ostream& out, std::ostream& err, bool json);
    // --json with each object handed to `sink` instead of written as a line: text that is
    // not UTF-8 keeps its bytes (a line would carry U+FFFD in their place).
    Session(const Library& library, std::ostream& err, std::function<void(Json)> sink);

    Status run(std::string_view line);

private:
    Status runStatement(std::string_view line);
    Status help(const std::string& topic);
    void report(const std::string& where, const ErrorReport& error, std::string_view line = {});
    void emit(Json object);

    const Library& library_;
    std::ostream& out_;
    std::ostream& err_;
    bool json_;
    std::function<void(Json)> sink_;
};

}  // namespace qfs
