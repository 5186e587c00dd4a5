#include "qfs/Session.hpp"

#include "qfs/Display.hpp"
#include "qfs/Gateways.hpp"
#include "qfs/Identifiers.hpp"
#include "qfs/Json.hpp"
#include "qfs/Parser.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"

#include <algorithm>
#include <ostream>
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

std::string countsText(const GatewayInfo& g) {
    if (g.maxOut < 0) return "no argument-count rules";
    std::string text =
        "at most " + std::to_string(g.maxOut) + " output" + (g.maxOut == 1 ? "" : "s");
    text += ", ";
    if (g.maxIn < 0) {
        text += std::to_string(g.minIn) + " or more inputs";
    } else if (g.minIn == g.maxIn) {
        text += std::to_string(g.minIn) + " input" + (g.minIn == 1 ? "" : "s");
    } else {
        text += std::to_string(g.minIn) + " to " + std::to_string(g.maxIn) + " inputs";
    }
    return text;
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
    } catch (const std::exception& e) {
        r.message = e.what();
    } catch (...) {
        r.message = "unknown exception (not derived from std::exception)";
    }
    return r;
}

Session::Session(const Library& library, std::ostream& out, std::ostream& err, bool json)
    : library_(library), out_(out), err_(err), json_(json) {}

Session::Session(const Library& library, std::ostream& err, std::function<void(Json)> sink)
    : library_(library), out_(err), err_(err), json_(true), sink_(std::move(sink)) {}

void Session::emit(Json object) {
    if (sink_) {
        sink_(std::move(object));
        return;
    }
    out_ << jsonLine(object) << "\n";
    out_.flush();
}

Status Session::run(std::string_view line) {
    const long before = vqLiveArrayCount();
    const Status status = runStatement(line);
#ifndef NDEBUG
    if (const long now = vqLiveArrayCount(); now != before) {
        err_ << "qfs: " << (now - before) << " host array(s) not released after: " << line << "\n";
    }
#endif
    return status;
}

void Session::report(const std::string& where, const ErrorReport& error, std::string_view line) {
    if (json_) {
        emit(errorJson(error.identifier, error.message, error.arguments));
        return;
    }
    err_ << "Error using " << where << "\n" << error.message << "\n";
    if (error.identifier == "QUORIN:qfs:ParseError" && !error.arguments.empty() &&
        std::holds_alternative<std::int64_t>(error.arguments.front())) {
        err_ << caretLines(
            line, static_cast<std::size_t>(std::get<std::int64_t>(error.arguments.front())));
    }
    if (!error.identifier.empty()) err_ << "(" << error.identifier << ")\n";
    err_.flush();
}

Status Session::runStatement(std::string_view line) {
    Statement st;
    try {
        st = parseStatement(line);
    } catch (...) {
        report("qfs", describeError(std::current_exception()), line);
        return Status::Usage;
    }
    if (st.kind == Statement::Kind::Empty) return Status::Ok;
    if (st.kind == Statement::Kind::Help) return help(st.name);

    const GatewayInfo* gateway = findGateway(st.name);
    if (gateway == nullptr) {
        report("qfs", describeIdentified(QUORIN::qfs::UnknownFunction(st.name, gatewayNames())));
        return Status::Usage;
    }
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
        if (json_) {
            Json outputs = Json::array();
            if (outCount == 0) {
                if (slots.front()) outputs.push_back(toJson(slots.front().get()));
            } else {
                for (const auto& s : slots) outputs.push_back(toJson(s.get()));
            }
            Json result = Json::object();
            result["outputs"] = std::move(outputs);
            emit(std::move(result));
        } else if (!st.suppressed) {
            if (outCount == 0) {
                if (slots.front()) out_ << displayValue("ans", slots.front().get());
            } else {
                for (std::size_t i = 0; i < slots.size(); ++i) {
                    if (st.outputs[i] != "~") out_ << displayValue(st.outputs[i], slots[i].get());
                }
            }
        }
        out_.flush();
    } catch (...) {
        report(st.name, describeError(std::current_exception()));
        return Status::Failed;
    }
    return Status::Ok;
}

Status Session::help(const std::string& topic) {
    std::string text;
    if (topic.empty()) {
        text = "Built-ins of " + library_.path() + ":\n";
        std::size_t width = 0;
        for (const auto& g : gateways()) width = std::max(width, std::string_view(g.name).size());
        for (const auto& g : gateways()) {
            text += "  " + std::string(g.name) +
                    std::string(width + 2 - std::string_view(g.name).size(), ' ') + g.usage;
            if (!library_.has(g)) text += "  (not available in this library)";
            text += "\n";
        }
        text += "help NAME shows one built-in's arguments, options and outputs.\n";
    } else {
        const GatewayInfo* g = findGateway(topic);
        if (g == nullptr) {
            report("help", describeIdentified(QUORIN::qfs::UnknownFunction(topic, gatewayNames())));
            return Status::Usage;
        }
        text = std::string(g->usage) + "\n";
        std::string_view details = g->details;
        while (!details.empty()) {
            const auto end = details.find('\n');
            text += "  " + std::string(details.substr(0, end)) + "\n";
            details.remove_prefix(end == std::string_view::npos ? details.size() : end + 1);
        }
        text += "  " + countsText(*g) + "\n";
        if (!library_.has(*g)) text += "  (not available in this library)\n";
    }
    if (json_) {
        Json object = Json::object();
        object["help"] = text;
        emit(std::move(object));
    } else {
        out_ << text;
    }
    out_.flush();
    return Status::Ok;
}

}  // namespace qfs
