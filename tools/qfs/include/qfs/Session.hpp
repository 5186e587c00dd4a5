#pragma once
// Runs statements one at a time against a loaded library, keeping the session's
// variables, and writes what they give: the display (or one JSON line per statement in a
// JSON form) on `out`; in display mode, errors on `err` as
//
//   [FILE:LINE: ]Error using NAME
//   <catalog text in the current locale>
//   (identifier)
//
// Every output name becomes a variable; an unassigned first output becomes `ans`. Values
// stay host arrays owned by the session: clear, or the session's end, releases them.
// Notes (one line each on `err`, never on `out`) point out a call the built-ins accept
// but that changes nothing or not what its words suggest; `quiet` turns them off.
//
// Any exception of a call, identified or not, is reported and the session goes on; the
// caller decides whether to stop. Every host array a statement builds and does not keep
// is released before run() returns; builds with assertions check the live-array count
// after each statement and say on `err` when it did not come back.
#include "qfs/Json.hpp"
#include "qfs/Library.hpp"
#include "qfs/Parser.hpp"

#include "resource_core/MessageArg.hpp"
#include "vq/vqArray.hpp"

#include <exception>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace qfs {

// Exit statuses: 0 success, 1 an error of a call, 2 a usage or parse error.
enum class Status { Ok = 0, Failed = 1, Usage = 2 };

enum class Output { Display, Typed, Plain };

// What a reported error consists of; the identifier is "" for an exception that has none.
struct ErrorReport {
    std::string identifier;
    std::string message;
    std::vector<resource_core::MessageArg> arguments;
};

ErrorReport describeError(const std::exception_ptr& error);

// How qfs reports every error: in a JSON form one document handed to `emit`, on a display
// the lines above on `err` (the origin, a caret under a parse error's column in `line`,
// and the identifier only when there is one).
void reportError(Output form, std::ostream& err, const std::function<void(const Json&)>& emit,
                 const std::string& where, const ErrorReport& error, const std::string& origin = {},
                 std::string_view line = {});

// What the in-process form hands over for each statement: the typed document (text kept
// as its bytes) and the two lines the streaming writers wrote for it.
struct Answer {
    Json typed;
    std::string typedLine;
    std::string plainLine;
};

class Session {
public:
    Session(const Library& library, std::ostream& out, std::ostream& err, Output form,
            bool quiet = false);
    // In-process: each answer handed to `sink`, nothing written on out.
    Session(const Library& library, std::ostream& err, std::function<void(Answer)> sink);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Status run(std::string_view line);
    // Where the next statements come from ("FILE:LINE"), for the error's first line.
    void setOrigin(std::string origin) { origin_ = std::move(origin); }

    // Variable names in order, for who and completion.
    [[nodiscard]] std::vector<std::string> variableNames() const;

private:
    Status runStatement(std::string_view line);
    Status help(const std::string& topic);
    Status call(Statement& st);
    Status assign(Statement& st);
    void notesFor(const Statement& st);
    void note(const std::string& text);
    void report(const std::string& where, const ErrorReport& error, std::string_view line = {});
    void emitValues(const std::vector<std::string>& names,
                    const std::vector<const vqArray*>& values);
    void emitText(const char* key, const std::string& text);
    // Every JSON line a statement answers: handed to the sink, else written on out (the
    // plain line in --json=plain). The document itself is only for the sink.
    void emitLine(Json document, std::string typed, std::string plain);
    void emitLine(Json document);  // one line serves both forms
    void keep(const std::string& name, unique_vqarray_ptr value);
    [[nodiscard]] long heldArrays() const;

    const Library& library_;
    std::ostream& out_;
    std::ostream& err_;
    Output form_;
    bool quiet_ = false;
    std::function<void(Answer)> sink_;
    std::string origin_;
    std::map<std::string, unique_vqarray_ptr, std::less<>> variables_;
};

}  // namespace qfs
