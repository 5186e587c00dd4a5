#include "zkfs/test/Call.hpp"

#include "qfs/Library.hpp"
#include "qfs/Parser.hpp"
#include "qfs/Session.hpp"
#include "zkfs/test/LiveArrays.hpp"

#include <gtest/gtest.h>

#include <sstream>

namespace zkfs::test {
namespace {

// The plain form of a typed value, by the rules of qfs --json=plain, built from the
// document so that the streaming writer is checked against an independent reading.
qfs::Json plainOf(const qfs::Json& typed) {
    if (typed.is_null()) return nullptr;
    const std::string cls = typed["class"];
    std::vector<std::size_t> size = typed["size"];
    std::size_t count = 1;
    for (const auto d : size) count *= d;
    const auto element = [&](std::size_t k) -> qfs::Json {
        if (cls == "cell") return plainOf(typed["value"][k]);
        if (cls != "struct") return typed["value"][k];
        qfs::Json object = qfs::Json::object();
        for (const auto& [name, value] : typed["value"][k].items()) object[name] = plainOf(value);
        return object;
    };
    if (cls == "char") {
        if (size.size() == 2 && size[0] <= 1) return typed["value"];
        ADD_FAILURE() << "char matrices are not compared here";
        return nullptr;
    }
    if (count == 1 && cls != "cell") return element(0);
    if (size.size() == 2 && (size[0] == 1 || size[1] == 1 || count == 0)) {
        qfs::Json list = qfs::Json::array();
        for (std::size_t k = 0; k < count; ++k) list.push_back(element(k));
        return list;
    }
    const std::size_t rows = size[0];
    const std::size_t cols = size[1];
    const auto page = [&](std::size_t base) {
        qfs::Json out = qfs::Json::array();
        for (std::size_t r = 0; r < rows; ++r) {
            qfs::Json row = qfs::Json::array();
            for (std::size_t c = 0; c < cols; ++c) row.push_back(element(base + c * rows + r));
            out.push_back(std::move(row));
        }
        return out;
    };
    if (size.size() == 2) return page(0);
    qfs::Json pages = qfs::Json::array();
    for (std::size_t p = 0; rows * cols != 0 && p < count / (rows * cols); ++p)
        pages.push_back(page(p * rows * cols));
    return pages;
}

// Both streaming writers against the document, for every statement a test runs; a line
// with a byte that is not UTF-8 cannot be read back here (its escape is checked apart).
void checkWriters(const qfs::Json& typed, const std::string& typedLine,
                  const std::string& plainLine) {
    if (typedLine.find("\\udc") != std::string::npos) return;
    const qfs::Json readTyped = qfs::Json::parse(typedLine, nullptr, false);
    ASSERT_FALSE(readTyped.is_discarded()) << typedLine;
    EXPECT_EQ(readTyped, typed) << typedLine;
    const qfs::Json readPlain = qfs::Json::parse(plainLine, nullptr, false);
    ASSERT_FALSE(readPlain.is_discarded()) << plainLine;
    if (!typed.contains("outputs")) {
        EXPECT_EQ(readPlain, readTyped);
        return;
    }
    // Output names are the plain form's keys, in slot order; "~" drops one.
    std::vector<qfs::Json> values;
    for (const auto& [name, value] : readPlain.items()) values.push_back(value);
    if (values.size() != typed["outputs"].size()) return;
    for (std::size_t i = 0; i < values.size(); ++i) {
        bool charMatrix = false;
        if (const auto& t = typed["outputs"][i]; t.is_object() && t["class"] == "char") {
            charMatrix = !(t["size"].size() == 2 && t["size"][0] <= 1);
        }
        if (!charMatrix) {
            EXPECT_EQ(values[i], plainOf(typed["outputs"][i])) << plainLine;
        }
    }
}

}  // namespace

qfs::Json call(std::string_view statement) {
    static const qfs::Library library(qfs::Library::defaultPath());
    std::ostringstream err;
    qfs::Json answer;
    {
        const LiveArrayGuard guard;
        qfs::Session(library, err, [&](qfs::Answer a) {
            answer = std::move(a.typed);
            checkWriters(answer, a.typedLine, a.plainLine);
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
