#include "qfs/Parser.hpp"

#include "qfs/Identifiers.hpp"
#include "qfs/Values.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

namespace qfs {

void throwParseError(std::size_t column, const std::string& detail) {
    foundation::core::except::throwMsgID(
        QUORIN::qfs::ParseError(static_cast<std::int64_t>(column), detail));
}

std::size_t columnOf(std::string_view line, std::size_t byteOffset) {
    std::size_t column = 1;
    for (std::size_t i = 0; i < byteOffset && i < line.size(); ++i) {
        // UTF-8 continuation bytes do not start a character.
        if ((static_cast<unsigned char>(line[i]) & 0xC0U) != 0x80U) ++column;
    }
    return column;
}

namespace {

bool isIdentStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isIdentChar(char c) { return isIdentStart(c) || (c >= '0' && c <= '9'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// A parsed value and where it started, for errors that point at it.
struct Parsed {
    unique_vqarray_ptr value;
    std::size_t start;
};

class Parser {
public:
    explicit Parser(std::string_view text) : s_(text) {}

    Statement statement();
    unique_vqarray_ptr wholeValue();

private:
    [[noreturn]] void fail(std::size_t at, const std::string& detail) const {
        throwParseError(columnOf(s_, at), detail);
    }
    [[nodiscard]] bool atEnd() const { return pos_ >= s_.size(); }
    [[nodiscard]] char peek() const { return atEnd() ? '\0' : s_[pos_]; }
    bool skipBlanks() {
        const std::size_t from = pos_;
        while (!atEnd() && (s_[pos_] == ' ' || s_[pos_] == '\t')) ++pos_;
        return pos_ != from;
    }
    [[nodiscard]] bool atStatementEnd() const { return atEnd() || peek() == '%'; }
    std::string identifier() {
        const std::size_t from = pos_;
        while (!atEnd() && isIdentChar(s_[pos_])) ++pos_;
        return std::string(s_.substr(from, pos_ - from));
    }
    void expect(char c, const char* what) {
        skipBlanks();
        if (peek() != c) fail(pos_, std::string("expected ") + what);
        ++pos_;
    }

    Parsed value();
    Parsed quoted(char quote);
    Parsed number();
    Parsed named();
    Parsed bracketed(char open);
    std::vector<Parsed> callArguments(const std::string& name);

    std::string_view s_;
    std::size_t pos_ = 0;
    std::size_t depth_ = 0;  // values inside values being read now
};

// Deeper nesting than any real argument needs is refused, so that no line can exhaust
// the stack of the recursive reader.
constexpr std::size_t kMaxNesting = 200;

Parsed Parser::value() {
    skipBlanks();
    if (depth_ >= kMaxNesting) fail(pos_, "values nested too deeply");
    struct Depth {
        std::size_t& d;
        explicit Depth(std::size_t& x) : d(++x) {}
        ~Depth() { --d; }
        Depth(const Depth&) = delete;
        Depth& operator=(const Depth&) = delete;
    } depth(depth_);
    const char c = peek();
    if (atEnd() || c == '%') fail(pos_, "expected a value");
    if (c == '\'' || c == '"') return quoted(c);
    if (c == '[' || c == '{') return bracketed(c);
    if (isDigit(c) || c == '.' || c == '-' || c == '+') return number();
    if (isIdentStart(c)) return named();
    fail(pos_, std::string("unexpected '") + c + "'");
}

Parsed Parser::quoted(char quote) {
    const std::size_t start = pos_++;
    std::string text;
    for (;;) {
        if (atEnd()) {
            fail(start, quote == '\'' ? "unterminated character text (missing ')"
                                      : "unterminated string (missing \")");
        }
        const char c = s_[pos_++];
        if (c == quote) {
            if (peek() != quote) break;
            ++pos_;  // a doubled quote stands for one
        }
        text += c;
    }
    const fl::ustring u = fl::i18n::to_ustring(text);
    if (quote == '\'') return {vqCreateString(u), start};
    return {Hexfarrow::String::createStringArray(u), start};
}

Parsed Parser::number() {
    const std::size_t start = pos_;
    bool negative = false;
    if (peek() == '-' || peek() == '+') {
        negative = peek() == '-';
        ++pos_;
    }
    double v = 0;
    if (isIdentStart(peek())) {
        const std::string word = identifier();
        if (word == "Inf") {
            v = std::numeric_limits<double>::infinity();
        } else if (word == "NaN") {
            v = std::numeric_limits<double>::quiet_NaN();
        } else {
            fail(start, "expected a number after the sign");
        }
    } else {
        const std::size_t digits = pos_;
        bool any = false;
        while (isDigit(peek())) {
            ++pos_;
            any = true;
        }
        if (peek() == '.') {
            ++pos_;
            while (isDigit(peek())) {
                ++pos_;
                any = true;
            }
        }
        if (!any) fail(start, "expected a number");
        if (peek() == 'e' || peek() == 'E') {
            ++pos_;
            if (peek() == '+' || peek() == '-') ++pos_;
            if (!isDigit(peek())) fail(start, "expected digits in the exponent");
            while (isDigit(peek())) ++pos_;
        }
        std::string literal(s_.substr(digits, pos_ - digits));
        if (literal.front() == '.') literal.insert(literal.begin(), '0');
        const auto [end, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), v);
        if (ec == std::errc::result_out_of_range) {
            v = std::numeric_limits<double>::infinity();
        } else if (ec != std::errc() || end != literal.data() + literal.size()) {
            fail(start, "malformed number");
        }
    }
    if (isIdentChar(peek()) || peek() == '.') fail(pos_, "unexpected character after a number");
    return {vqCreateDoubleScalar(negative ? -v : v), start};
}

// A non-negative whole number given as a double scalar (sizes, repetitions).
vqSize sizeArgument(const Parsed& p, std::string_view line) {
    const vqArray* a = p.value.get();
    if (!vqIsDouble(a) || !vqIsScalar(a)) {
        throwParseError(columnOf(line, p.start), "expected a size: a non-negative whole number");
    }
    const double d = *vqGetPr(a);
    if (!(d >= 0) || d != std::floor(d) || d > 1e12) {
        throwParseError(columnOf(line, p.start), "expected a size: a non-negative whole number");
    }
    return static_cast<vqSize>(d);
}

// Elements of an array that qfs builds, times `factor`, checked against kMaxElements
// without overflowing.
bool withinElementLimit(const std::vector<vqSize>& dims, std::size_t factor) {
    std::size_t n = factor;
    for (const vqSize d : dims) {
        if (d != 0 && n > kMaxElements / d) return false;
        n *= d;
    }
    return n <= kMaxElements;
}

bool isFieldName(const std::string& name) {
    if (name.empty() || !isIdentStart(name.front()) || name.front() == '_') return false;
    for (const char c : name) {
        if (!isIdentChar(c)) return false;
    }
    return true;
}

Parsed Parser::named() {
    const std::size_t start = pos_;
    const std::string word = identifier();
    if (word == "missing") return {Hexfarrow::String::createMissingString(), start};
    if (word == "NaN")
        return {vqCreateDoubleScalar(std::numeric_limits<double>::quiet_NaN()), start};
    if (word == "Inf")
        return {vqCreateDoubleScalar(std::numeric_limits<double>::infinity()), start};
    if (word == "true") return {vqCreateLogicalScalar(true), start};
    if (word == "false" && peek() != '(') return {vqCreateLogicalScalar(false), start};

    const bool sized = word == "strings" || word == "cell" || word == "zeros" || word == "false";
    if (!sized && word != "struct" && word != "reshape" && word != "logical" && word != "repmat" &&
        word != "char") {
        fail(start, "unknown value '" + word + "' (qfs has no variables)");
    }
    if (peek() != '(') fail(pos_, "expected '(' after " + word);
    std::vector<Parsed> args = callArguments(word);
    auto sizes = [&](std::size_t from) {
        std::vector<vqSize> dims;
        for (std::size_t i = from; i < args.size(); ++i) dims.push_back(sizeArgument(args[i], s_));
        if (dims.size() == 1) dims.push_back(dims.front());  // one size n means n-by-n
        const std::size_t each = from == 0 ? 1 : vqGetNumberOfElements(args[0].value.get());
        if (!withinElementLimit(dims, each)) {
            fail(start, "an array of more than " + std::to_string(kMaxElements) +
                            " elements is more than qfs builds");
        }
        return dims;
    };
    try {
        if (sized) {
            if (args.empty()) fail(start, word + " needs at least one size");
            const std::vector<vqSize> dims = sizes(0);
            if (word == "strings") {
                return {Hexfarrow::String::createStringArray(dims.size(), dims.data()), start};
            }
            if (word == "cell") return {vqCreateCellArray(dims), start};
            return {vqCreateNumericArray(dims, word == "zeros" ? vqDOUBLE_CLASS : vqLOGICAL_CLASS),
                    start};
        }
        if (word == "struct") {
            if (args.size() % 2 != 0) fail(start, "struct takes field names and values in pairs");
            std::vector<std::string> fields;
            for (std::size_t i = 0; i < args.size(); i += 2) {
                const vqArray* n = args[i].value.get();
                if (!Hexfarrow::String::isScalarText(n, false, false) ||
                    Hexfarrow::String::isMissingScalarString(n)) {
                    fail(args[i].start, "expected a field name as text");
                }
                const fl::ustring u =
                    Hexfarrow::String::isString(n)
                        ? fl::ustring(Hexfarrow::String::getString(n).get(0)->text,
                                      Hexfarrow::String::getString(n).get(0)->length)
                        : fl::ustring(vqGetChars(n), vqGetNumberOfElements(n));
                std::string name = fl::i18n::to_utf8(u);
                if (!isFieldName(name))
                    fail(args[i].start, "'" + name + "' is not a valid field name");
                for (const auto& f : fields) {
                    if (f == name) fail(args[i].start, "duplicate field name '" + name + "'");
                }
                fields.push_back(std::move(name));
            }
            auto s = vqCreateStructArray({1, 1}, fields);
            for (std::size_t i = 1; i < args.size(); i += 2) {
                vqSetFieldByNumber(s.get(), 0, static_cast<int>(i / 2), args[i].value.release());
            }
            return {std::move(s), start};
        }
        if (word == "char") {
            // Code units no quoted text can carry (U+0000, a lone surrogate).
            fl::ustring units;
            for (const Parsed& a : args) {
                const vqSize unit = sizeArgument(a, s_);
                if (unit > 0xFFFF) fail(a.start, "a char code is at most 65535");
                units.push_back(static_cast<char16_t>(unit));
            }
            return {vqCreateString(units), start};
        }
        if (word == "logical") {
            if (args.size() != 1) fail(start, "logical takes one value");
            return {toLogical(args[0].value.get()), start};
        }
        if (word == "reshape") {
            if (args.size() < 3) fail(start, "reshape takes a value and at least two sizes");
            std::vector<vqSize> dims;
            for (std::size_t i = 1; i < args.size(); ++i) dims.push_back(sizeArgument(args[i], s_));
            return {reshapeArray(args[0].value.get(), dims), start};
        }
        // repmat
        if (args.size() < 2) fail(start, "repmat takes a value and at least one count");
        return {repmatArray(args[0].value.get(), sizes(1)), start};
    } catch (const std::invalid_argument& e) {
        fail(start, e.what());
    }
}

std::vector<Parsed> Parser::callArguments(const std::string& name) {
    const std::size_t open = pos_++;
    std::vector<Parsed> args;
    skipBlanks();
    if (peek() == ')') {
        ++pos_;
        return args;
    }
    for (;;) {
        args.push_back(value());
        skipBlanks();
        if (atEnd() || peek() == '%') fail(open, "missing ')' to close the arguments of " + name);
        if (peek() == ')') break;
        if (peek() != ',') fail(pos_, "expected ',' or ')'");
        ++pos_;
    }
    ++pos_;
    return args;
}

Parsed Parser::bracketed(char open) {
    const std::size_t start = pos_++;
    const char close = open == '[' ? ']' : '}';
    std::vector<std::vector<Parsed>> rows(1);
    bool needSeparator = false;
    for (;;) {
        const bool blank = skipBlanks();
        if (atEnd() || peek() == '%') fail(start, std::string("missing '") + close + "'");
        const char c = peek();
        if (c == close) {
            ++pos_;
            break;
        }
        if (c == ';') {
            ++pos_;
            rows.emplace_back();
            needSeparator = false;
            continue;
        }
        if (c == ',') {
            if (!needSeparator) fail(pos_, "unexpected ','");
            ++pos_;
            needSeparator = false;
            continue;
        }
        if (needSeparator && !blank) {
            fail(pos_, std::string("expected ',', ';', a blank or '") + close + "'");
        }
        rows.back().push_back(value());
        needSeparator = true;
    }
    std::erase_if(rows, [](const std::vector<Parsed>& r) { return r.empty(); });

    if (open == '{') {
        if (rows.empty()) return {vqCreateCellArray({0, 0}), start};
        const std::size_t cols = rows.front().size();
        for (const auto& r : rows) {
            if (r.size() != cols)
                fail(r.front().start,
                     "every row of a cell array needs the same number of elements");
        }
        auto cell = vqCreateCellArray({rows.size(), cols});
        for (std::size_t i = 0; i < rows.size(); ++i) {
            for (std::size_t j = 0; j < cols; ++j) {
                vqSetCell(cell.get(), j * rows.size() + i, rows[i][j].value.release());
            }
        }
        return {std::move(cell), start};
    }

    if (rows.empty()) return {vqCreateDoubleMatrix(0, 0), start};
    std::vector<Parsed> joined;
    for (auto& r : rows) {
        if (r.size() == 1) {
            joined.push_back(std::move(r.front()));
            continue;
        }
        std::vector<const vqArray*> pieces;
        pieces.reserve(r.size());
        for (const auto& p : r) pieces.push_back(p.value.get());
        std::size_t failed = 0;
        try {
            joined.push_back({concatHorizontal(pieces, failed), r.front().start});
        } catch (const std::invalid_argument& e) {
            fail(r[failed].start, e.what());
        }
    }
    if (joined.size() == 1) return {std::move(joined.front().value), start};
    std::vector<const vqArray*> pieces;
    pieces.reserve(joined.size());
    for (const auto& p : joined) pieces.push_back(p.value.get());
    std::size_t failed = 0;
    try {
        return {concatVertical(pieces, failed), start};
    } catch (const std::invalid_argument& e) {
        fail(joined[failed].start, e.what());
    }
}

unique_vqarray_ptr Parser::wholeValue() {
    Parsed p = value();
    skipBlanks();
    if (!atEnd()) fail(pos_, "unexpected text after the value");
    return std::move(p.value);
}

Statement Parser::statement() {
    Statement st;
    skipBlanks();
    if (atStatementEnd()) return st;

    if (peek() == '[') {
        const std::size_t open = pos_++;
        for (;;) {
            skipBlanks();
            if (atStatementEnd()) fail(open, "missing ']' after the output names");
            if (peek() == ']') {
                ++pos_;
                break;
            }
            if (peek() == ',') {
                if (st.outputs.empty()) fail(pos_, "unexpected ','");
                ++pos_;
                continue;
            }
            if (peek() == '~') {
                ++pos_;
                st.outputs.emplace_back("~");
            } else if (isIdentStart(peek())) {
                st.outputs.push_back(identifier());
            } else {
                fail(pos_, "expected an output name");
            }
        }
        if (st.outputs.empty()) fail(open, "expected at least one output name");
        expect('=', "'=' after the output names");
        skipBlanks();
        if (!isIdentStart(peek())) fail(pos_, "expected the name of a built-in");
        st.nameColumn = columnOf(s_, pos_);
        st.name = identifier();
    } else if (isIdentStart(peek())) {
        const std::size_t first = pos_;
        std::string word = identifier();
        const std::size_t after = pos_;
        skipBlanks();
        if (peek() == '=' && (pos_ + 1 >= s_.size() || s_[pos_ + 1] != '=')) {
            ++pos_;
            st.outputs.push_back(std::move(word));
            skipBlanks();
            if (!isIdentStart(peek())) fail(pos_, "expected the name of a built-in");
            st.nameColumn = columnOf(s_, pos_);
            st.name = identifier();
        } else {
            pos_ = after;
            st.nameColumn = columnOf(s_, first);
            st.name = std::move(word);
        }
    } else {
        fail(pos_, "expected a statement: NAME(...), OUT = NAME(...) or [OUT1, OUT2] = NAME(...)");
    }

    if (st.name == "help" && st.outputs.empty()) {
        st.kind = Statement::Kind::Help;
        skipBlanks();
        if (isIdentStart(peek()))
            st.name = identifier();
        else
            st.name.clear();
    } else {
        st.kind = Statement::Kind::Call;
        skipBlanks();
        if (peek() == '(') {
            for (Parsed& p : callArguments(st.name)) st.args.push_back(std::move(p.value));
        }
    }
    skipBlanks();
    if (peek() == ';') {
        ++pos_;
        st.suppressed = true;
        skipBlanks();
    }
    if (!atStatementEnd()) fail(pos_, "unexpected text after the statement");
    return st;
}

std::string_view withoutCarriageReturn(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

}  // namespace

Statement parseStatement(std::string_view line) {
    return Parser(withoutCarriageReturn(line)).statement();
}

unique_vqarray_ptr parseValue(std::string_view text) {
    return Parser(withoutCarriageReturn(text)).wholeValue();
}

}  // namespace qfs
