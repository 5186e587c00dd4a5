#include "zkfs/test/Call.hpp"

#include "qfs/Library.hpp"
#include "qfs/Parser.hpp"
#include "qfs/Session.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace zkfs::test {

qfs::Json call(std::string_view statement) {
    static const qfs::Library library(qfs::Library::defaultPath());
    std::ostringstream err;
    qfs::Json answer;
    {
        const LiveArrayGuard guard;
        qfs::Session(library, err, [&](qfs::Json object) {
            answer = std::move(object);
        }).run(statement);
    }
    if (answer.is_null()) ADD_FAILURE() << statement << ": qfs answered nothing. " << err.str();
    return answer;
}

std::vector<Failure> failuresIn(const qfs::Json& answer) {
    std::vector<Failure> rows;
    const qfs::Json* report =
        answer.contains("outputs") && !answer["outputs"].empty() ? &answer["outputs"][0] : nullptr;
    if (report == nullptr || !report->is_object() || (*report)["class"] != "struct") {
        ADD_FAILURE() << "no failure report: "
                      << answer.dump(-1, ' ', false, qfs::Json::error_handler_t::replace);
        return rows;
    }
    for (const qfs::Json& row : (*report)["value"]) {
        rows.push_back({row["Name"]["value"][0], row["Cause"]["value"][0]});
    }
    return rows;
}

qfs::Json valueOf(std::string_view qfsValue) {
    return qfs::toJson(qfs::parseValue(qfsValue).get());
}

std::string charLiteral(std::string_view text) {
    std::string out = "'";
    for (const char c : text) out += c == '\'' ? std::string("''") : std::string(1, c);
    return out + "'";
}

}  // namespace zkfs::test
