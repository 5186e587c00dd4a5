#include "qfs/Session.hpp"

#include "qfs/Display.hpp"
#include "qfs/Gateways.hpp"
#include "qfs/Identifiers.hpp"
#include "qfs/Json.hpp"
#include "qfs/Parser.hpp"
#include "qfs/Texts.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"
#include "vq/vqArray.hpp"

#include <algorithm>
#include <new>
#include <ostream>
#include <set>
#include <utility>
#include <variant>

namespace qfs {
namespace {

template <class ID>
ErrorReport describeIdentified(const ID& id) {
    return describeError(std::make_exception_ptr(foundation::core::except::Exception<ID>(id)));
}

// The line again with a caret under the column, for parse errors.
std::string caretLines(std::string_view line, std::size_t column) {
    std::string caret;
    std::size_t seen = 1;
    for (std::size_t i = 0; i < line.size() && seen < column; ++i) {
        const auto byte = static_cast<unsigned char>(line[i]);
        if ((byte & 0xC0U) == 0x80U) continue;
        caret += line[i] == '\t' ? '\t' : ' ';
        ++seen;
    }
    return "    " + std::string(line) + "\n    " + caret + "^\n";
}

// The counts a call can really have: pathFcn reads its convention always, and
// modifyPerms_impl reads a scope only as its fifth input.
std::string countsText(const GatewayInfo& g) {
    using A = std::vector<resource_core::MessageArg>;
    const auto n = [](int v) { return std::int64_t{v}; };
    const std::string_view name = g.name;
    if (g.maxOut < 0) return tr("help:countsNone");
    if (name == "modifyPerms_impl") return tr("help:countsEither", A{n(g.maxOut), n(3), n(5)});
    const int minIn = name == "pathFcn" ? 2 : g.minIn;
    if (g.maxIn < 0) return tr("help:countsOpen", A{n(g.maxOut), n(minIn)});
    if (minIn == g.maxIn) return tr("help:countsExact", A{n(g.maxOut), n(minIn)});
    return tr("help:countsRange", A{n(g.maxOut), n(minIn), n(g.maxIn)});
}

std::vector<std::string> builtinNames() {
    std::vector<std::string> names;
    for (const auto& g : gateways()) names.emplace_back(g.name);
    return names;
}

// Arrays are shared by reference (one missing string in many fields): each counts once.
void arraysIn(const vqArray* a, std::set<const vqArray*>& seen) {
    if (a == nullptr || !seen.insert(a).second) return;
    const std::size_t count = vqGetNumberOfElements(a);
    if (vqIsCell(a)) {
        for (std::size_t k = 0; k < count; ++k) arraysIn(vqGetCell(a, k), seen);
    } else if (vqIsStruct(a)) {
        for (std::size_t k = 0; k < count; ++k) {
            for (int f = 0; f < vqGetNumberOfFields(a); ++f)
                arraysIn(vqGetFieldByNumber(a, k, f), seen);
        }
    }
}

// Every text a char row, string array or cell of char rows holds (missing ones left out).
std::vector<std::string> textsOf(const vqArray* a) {
    std::vector<std::string> out;
    if (a == nullptr) return out;
    if (vqIsChar(a) && vqGetM(a) <= 1) {
        out.push_back(fl::i18n::to_utf8(fl::ustring_view(vqGetChars(a), vqGetNumberOfElements(a))));
    } else if (Hexfarrow::String::isString(a)) {
        for (std::size_t k = 0; k < vqGetNumberOfElements(a); ++k) {
            if (const auto* rec = Hexfarrow::String::getString(a).get(k))
                out.push_back(fl::i18n::to_utf8(fl::ustring_view(rec->text, rec->length)));
        }
    } else if (vqIsCell(a)) {
        for (std::size_t k = 0; k < vqGetNumberOfElements(a); ++k) {
            for (auto& t : textsOf(vqGetCell(a, k))) out.push_back(std::move(t));
        }
    }
    return out;
}

std::string joined(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& i : items) out += (out.empty() ? "" : ", ") + ("'" + i + "'");
    return out;
}

}  // namespace

ErrorReport describeError(const std::exception_ptr& error) {
    ErrorReport r;
    try {
        std::rethrow_exception(error);
    } catch (const foundation::core::except::IMsgIDException& e) {
        r.identifier = e.GetID();
        r.arguments = e.GetBaseMsgIDObj().getArgs();
        try {
            r.message = fl::i18n::to_utf8(e.GetUnicodeMessageTxt());
        } catch (...) {
            r.message = r.identifier;  // the catalog failed us; the identifier still says it
        }
    } catch (const foundation::core::except::IException& e) {
        r.message = e.what();
    } catch (const std::bad_alloc&) {
        // A container of the library's own ran out: the host's error, its size unknown.
        try {
            vqThrowOutOfMemory(0);
        } catch (...) {
            return describeError(std::current_exception());
        }
    } catch (const std::exception& e) {
        r.message = e.what();
    } catch (...) {
        r.message = tr("unknownException");
    }
    return r;
}

Session::Session(const Library& library, std::ostream& out, std::ostream& err, Output form,
                 bool quiet)
    : library_(library), out_(out), err_(err), form_(form), quiet_(quiet) {}

Session::Session(const Library& library, std::ostream& err, std::function<void(Answer)> sink)
    : library_(library), out_(err), err_(err), form_(Output::Typed), sink_(std::move(sink)) {}

Session::~Session() = default;

std::vector<std::string> Session::variableNames() const {
    std::vector<std::string> names;
    for (const auto& [name, value] : variables_) names.push_back(name);
    return names;
}

long Session::heldArrays() const {
    std::set<const vqArray*> seen;
    for (const auto& [name, value] : variables_) arraysIn(value.get(), seen);
    return static_cast<long>(seen.size());
}

void Session::keep(const std::string& name, unique_vqarray_ptr value) {
    if (!value) return;
    variables_.insert_or_assign(name, std::move(value));
}

Status Session::run(std::string_view line) {
    [[maybe_unused]] const long before = vqLiveArrayCount() - heldArrays();
    const Status status = runStatement(line);
#ifndef NDEBUG
    if (const long now = vqLiveArrayCount() - heldArrays(); now != before) {
        err_ << "qfs: " << tr("leak", {std::int64_t{now - before}, std::string(line)}) << "\n";
    }
#endif
    return status;
}

void Session::note(const std::string& text) {
    if (quiet_) return;
    err_ << tr("notePrefix", {text}) << "\n";
    err_.flush();
}

void reportError(Output form, std::ostream& err, const std::function<void(const Json&)>& emit,
                 const std::string& where, const ErrorReport& error, const std::string& origin,
                 std::string_view line) {
    if (form != Output::Display) {
        Json object = errorJson(error.identifier, error.message, error.arguments);
        if (!origin.empty()) object["error"]["origin"] = origin;
        emit(object);
        return;
    }
    if (!origin.empty()) err << origin << ": ";
    err << tr("errorUsing", {where}) << "\n" << error.message << "\n";
    if (error.identifier == "QUORIN:qfs:ParseError" && !error.arguments.empty() &&
        std::holds_alternative<std::int64_t>(error.arguments.front())) {
        err << caretLines(
            line, static_cast<std::size_t>(std::get<std::int64_t>(error.arguments.front())));
    }
    if (!error.identifier.empty()) err << "(" << error.identifier << ")\n";
    err.flush();
}

void Session::report(const std::string& where, const ErrorReport& error, std::string_view line) {
    reportError(
        form_, err_, [this](const Json& object) { emitLine(object); }, where, error, origin_, line);
}

void Session::emitValues(const std::vector<std::string>& names,
                         const std::vector<const vqArray*>& values) {
    if (form_ == Output::Display) {
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (names[i] != "~") out_ << displayValue(names[i], values[i]);
        }
        out_.flush();
        return;
    }
    std::string typed = "{\"outputs\":[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i != 0) typed += ',';
        writeTyped(typed, values[i]);
    }
    typed += "]}";
    std::string plain = "{";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (names[i] == "~") continue;
        if (plain.size() > 1) plain += ',';
        writeString(plain, names[i]);
        plain += ':';
        writePlain(plain, values[i]);
    }
    plain += '}';
    Json document;  // only the in-process form hands over the document
    if (sink_) {
        document = Json::object();
        document["outputs"] = Json::array();
        for (const vqArray* v : values) document["outputs"].push_back(toJson(v));
    }
    emitLine(std::move(document), std::move(typed), std::move(plain));
}

void Session::emitLine(Json document) {
    std::string line = jsonLine(document);
    std::string plain = line;
    emitLine(std::move(document), std::move(line), std::move(plain));
}

void Session::emitLine(Json document, std::string typed, std::string plain) {
    if (sink_) {
        sink_(Answer{std::move(document), std::move(typed), std::move(plain)});
        return;
    }
    const std::string& line = form_ == Output::Plain ? plain : typed;
    out_.write(line.data(), static_cast<std::streamsize>(line.size()));
    out_ << '\n';
    out_.flush();
}

void Session::emitText(const char* key, const std::string& text) {
    if (form_ == Output::Display) {
        out_ << text;
        out_.flush();
        return;
    }
    Json object = Json::object();
    object[key] = text;
    emitLine(std::move(object));
}

Status Session::runStatement(std::string_view line) {
    Statement st;
    const Variables variables{[this](std::string_view name) -> const vqArray* {
                                  const auto it = variables_.find(name);
                                  return it == variables_.end() ? nullptr : it->second.get();
                              },
                              [this] { return variableNames(); }};
    try {
        st = parseStatement(line, &variables);
    } catch (...) {
        report("qfs", describeError(std::current_exception()), line);
        return Status::Usage;
    }
    switch (st.kind) {
        case Statement::Kind::Empty:
            return Status::Ok;
        case Statement::Kind::Help:
            return help(st.name);
        case Statement::Kind::Who: {
            if (form_ != Output::Display) {  // tools get the names, not the sentence
                Json object = Json::object();
                object["who"] = variableNames();
                emitLine(std::move(object));
                return Status::Ok;
            }
            std::string text;
            for (const auto& n : variableNames()) text += (text.empty() ? "" : "  ") + n;
            emitText("who", variables_.empty() ? tr("noVariables") + "\n"
                                               : tr("yourVariables") + "\n  " + text + "\n");
            return Status::Ok;
        }
        case Statement::Kind::Clear:
            if (st.outputs.empty()) {
                variables_.clear();
            } else {
                for (const auto& n : st.outputs) {
                    if (const auto it = variables_.find(n); it != variables_.end())
                        variables_.erase(it);
                }
            }
            return Status::Ok;
        case Statement::Kind::Value:
            return assign(st);
        case Statement::Kind::Call:
            return call(st);
    }
    return Status::Ok;
}

Status Session::assign(Statement& st) {
    try {
        unique_vqarray_ptr value = std::move(st.args.front());
        if (!st.name.empty()) {  // a bare variable shows itself, ans stays
            const vqArray* shown = variables_.find(st.name)->second.get();
            if (!st.suppressed || form_ != Output::Display) emitValues({st.name}, {shown});
            return Status::Ok;
        }
        const std::string target = st.outputs.empty() ? "ans" : st.outputs.front();
        const vqArray* shown = value.get();
        if (!st.suppressed || form_ != Output::Display) emitValues({target}, {shown});
        keep(target, std::move(value));
    } catch (...) {
        report("qfs", describeError(std::current_exception()));
        return Status::Failed;
    }
    return Status::Ok;
}

Status Session::call(Statement& st) {
    const GatewayInfo* gateway = findGateway(st.name);
    if (gateway == nullptr) {
        std::vector<std::string> candidates = builtinNames();
        for (auto& v : variableNames()) candidates.push_back(std::move(v));
        const std::string near = nearest(st.name, candidates);
        report("qfs",
               near.empty()
                   ? describeIdentified(QUORIN::qfs::UnknownFunction(st.name, gatewayNames()))
                   : describeError(std::make_exception_ptr(UnknownNameError(st.name, near))));
        return Status::Usage;
    }
    notesFor(st);
    const int outCount = static_cast<int>(st.outputs.size());
    std::vector<unique_vqarray_ptr> slots(std::max<std::size_t>(1, st.outputs.size()));
    std::vector<const vqArray*> args;
    for (const auto& a : st.args) args.push_back(a.get());
    try {
        library_.call(*gateway, outCount, slots.data(), static_cast<int>(args.size()), args.data());
    } catch (...) {
        report(st.name, describeError(std::current_exception()));
        return Status::Failed;
    }

    try {
        std::vector<std::string> names = st.outputs;
        std::vector<const vqArray*> values;
        if (outCount == 0 && slots.front()) names = {"ans"};
        if (!names.empty()) {
            for (const auto& s : slots) values.push_back(s.get());
        }
        if (!st.suppressed || form_ != Output::Display) emitValues(names, values);
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (names[i] != "~") keep(names[i], std::move(slots[i]));
        }
    } catch (...) {
        report(st.name, describeError(std::current_exception()));
        return Status::Failed;
    }
    return Status::Ok;
}

// Calls the built-ins take without a word and that change nothing, or not what the words
// suggest: they keep doing exactly that, and the prompt says so.
void Session::notesFor(const Statement& st) {
    using A = std::vector<resource_core::MessageArg>;
    if (quiet_) return;
    if (st.name == "modifyPerms_impl" && st.args.size() >= 3 && vqIsStruct(st.args[2].get())) {
        const std::vector<std::string> table = {"Readable",  "Writable",   "UserExecute",
                                                "GroupRead", "GroupWrite", "GroupExecute",
                                                "OtherRead", "OtherWrite", "OtherExecute"};
        for (const auto& name : st.args[2]->get_struct_field_names()) {
            if (std::find(table.begin(), table.end(), name) != table.end()) continue;
            const std::string near = nearest(name, table);
            note(near.empty() ? tr("note:permission", A{name, joined(table)})
                              : tr("note:permissionNear", A{name, near}));
        }
    }
    if (st.name == "modifyPerms_impl" && st.args.size() >= 5) {
        const auto scopes = textsOf(st.args[4].get());
        const auto types = textsOf(st.args[1].get());
        if (scopes.size() == 1 && types.size() == 1) {
            const std::string& type = types.front();
            std::vector<std::string> known = {"symboliclinks", "target"};
            if (type == "Folder") known = {"", "files", "folders", "all"};
            if (type == "File") known = {"all"};
            if (std::find(known.begin(), known.end(), scopes.front()) == known.end())
                note(tr("note:scope", A{scopes.front(), type, joined(known)}));
        }
    }
    if (st.name == "pathFcn" && st.args.size() >= 2) {
        const std::vector<std::string> conventions = {"windows", "unix", "schema"};
        std::set<std::string> seen;
        for (const auto& word : textsOf(st.args[1].get())) {
            if (word.empty() || !seen.insert(word).second) continue;
            if (std::find(conventions.begin(), conventions.end(), word) != conventions.end())
                continue;
            const std::string near = nearest(word, conventions);
            note(near.empty() ? tr("note:convention", A{word})
                              : tr("note:conventionNear", A{word, near}));
        }
    }
}

Status Session::help(const std::string& topic) {
    std::string text;
    if (topic.empty()) {
        text = tr("help:intro", {library_.path()}) + "\n";
        std::size_t width = 0;
        for (const auto& g : gateways()) width = std::max(width, std::string_view(g.name).size());
        for (const auto& g : gateways()) {
            text += "  " + std::string(g.name) +
                    std::string(width + 2 - std::string_view(g.name).size(), ' ') +
                    tr("help:" + std::string(g.name) + ":purpose");
            if (!library_.has(g)) text += "  " + tr("help:notAvailable");
            text += "\n";
        }
        text += tr("help:outro") + "\n";
    } else {
        const GatewayInfo* g = findGateway(topic);
        if (g == nullptr) {
            const std::string near = nearest(topic, builtinNames());
            report("help",
                   near.empty()
                       ? describeIdentified(QUORIN::qfs::UnknownFunction(topic, gatewayNames()))
                       : describeError(std::make_exception_ptr(UnknownNameError(topic, near))));
            return Status::Usage;
        }
        const std::string name = g->name;
        text = name + ": " + tr("help:" + name + ":purpose") + "\n";
        const std::string details = tr("help:" + name);
        std::string_view body = details;
        while (!body.empty()) {
            const auto end = body.find('\n');
            text += "  " + std::string(body.substr(0, end)) + "\n";
            body.remove_prefix(end == std::string_view::npos ? body.size() : end + 1);
        }
        text += "  " + countsText(*g) + "\n";
        if (!library_.has(*g)) text += "  " + tr("help:notAvailable") + "\n";
    }
    emitText("help", text);
    return Status::Ok;
}

}  // namespace qfs
