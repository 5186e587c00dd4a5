#include "qfs/Parser.hpp"

#include "qfs/Gateways.hpp"
#include "qfs/Identifiers.hpp"
#include "qfs/Texts.hpp"
#include "qfs/Values.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/i18n/unicode.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

namespace qfs {

void throwParseError(std::size_t column, const std::string& detail) {
    foundation::core::except::throwMsgID(
        QUORIN::qfs::ParseError(static_cast<std::int64_t>(column), detail));
}

fl::ustring UnknownNameError::GetUnicodeMessageTxt() const {
    const auto& args = getMsgID().getArgs();
    const auto* nearest = std::get_if<std::string>(&args.at(1));
    if (nearest != nullptr && nearest->empty())
        return fl::i18n::to_ustring(tr("UnknownName:noGuess", {args.at(0)}));
    return Exception::GetUnicodeMessageTxt();
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
    Parser(std::string_view text, const Variables* variables) : s_(text), vars_(variables) {}

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
    [[nodiscard]] const vqArray* variable(std::string_view name) const {
        return vars_ != nullptr && vars_->find ? vars_->find(name) : nullptr;
    }
    [[noreturn]] void unknownName(const std::string& name) const;
    [[nodiscard]] bool looksLikeOutputs() const;
    [[nodiscard]] std::size_t countSubscripts() const;

    Parsed value();
    Parsed primary();
    Parsed quoted(char quote);
    Parsed number();
    Parsed named();
    Parsed bracketed(char open);
    std::vector<Parsed> callArguments(const std::string& name);
    unique_vqarray_ptr postfix(const vqArray* base);
    unique_vqarray_ptr subscripted(const vqArray* a, char open);
    void callOrValue(Statement& st, const std::string& word, std::size_t first);

    std::string_view s_;
    const Variables* vars_;
    std::size_t pos_ = 0;
    std::size_t depth_ = 0;     // values inside values being read now
    std::vector<vqSize> ends_;  // what `end` stands for in the subscripts being read
    std::string unknown_;       // a bare name nobody knows, reported once the line parses
};

// Deeper nesting than any real argument needs is refused, so that no line can exhaust
// the stack of the recursive reader.
constexpr std::size_t kMaxNesting = 200;

Parsed Parser::value() {
    skipBlanks();
    if (depth_ >= kMaxNesting) fail(pos_, tr("parse:nestedTooDeeply"));
    struct Depth {
        std::size_t& d;
        explicit Depth(std::size_t& x) : d(++x) {}
        ~Depth() { --d; }
        Depth(const Depth&) = delete;
        Depth& operator=(const Depth&) = delete;
    } depth(depth_);
    Parsed first = primary();
    const std::size_t blanks = pos_;
    skipBlanks();
    if (peek() != ':') {
        pos_ = blanks;  // a blank may separate elements of a bracket
        return first;
    }
    // first:last or first:step:last, a row of doubles.
    std::vector<Parsed> bounds;
    bounds.push_back(std::move(first));
    while (peek() == ':' && bounds.size() < 3) {
        ++pos_;
        skipBlanks();
        bounds.push_back(primary());
        const std::size_t after = pos_;
        skipBlanks();
        if (peek() != ':') pos_ = after;
    }
    std::vector<double> v;
    for (const Parsed& b : bounds) {
        if (!vqIsDouble(b.value.get()) || !vqIsScalar(b.value.get()))
            fail(b.start, tr("parse:rangeBound"));
        v.push_back(*vqGetPr(b.value.get()));
    }
    const double step = v.size() == 3 ? v[1] : 1;
    const double span = (v.back() - v.front()) / step;
    std::size_t count = 0;
    if (step != 0 && span >= 0) {
        // A step such as 0.1 is inexact: a last element a rounding short of `last` counts.
        const double n = std::floor(span + span * 4 * std::numeric_limits<double>::epsilon()) + 1;
        if (!(n <= static_cast<double>(kMaxElements))) {
            fail(bounds.front().start,
                 tr("parse:tooManyElements", {static_cast<std::int64_t>(kMaxElements)}));
        }
        count = static_cast<std::size_t>(n);
    }
    auto row = vqCreateDoubleMatrix(1, count);
    double* pr = vqGetPr(row.get());
    for (std::size_t k = 0; k < count; ++k) pr[k] = v.front() + static_cast<double>(k) * step;
    return {std::move(row), bounds.front().start};
}

Parsed Parser::primary() {
    skipBlanks();
    const char c = peek();
    if (atEnd() || c == '%') fail(pos_, tr("parse:expectedValue"));
    if (c == '\'' || c == '"') return quoted(c);
    if (c == '[' || c == '{') return bracketed(c);
    if (isDigit(c) || c == '.' || c == '-' || c == '+') return number();
    if (isIdentStart(c)) return named();
    fail(pos_, tr("parse:unexpectedChar", {std::string(1, c)}));
}

Parsed Parser::quoted(char quote) {
    const std::size_t start = pos_++;
    std::string text;
    for (;;) {
        if (atEnd()) {
            fail(start, tr(quote == '\'' ? "parse:unterminatedChar" : "parse:unterminatedString"));
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
            fail(start, tr("parse:signWithoutNumber"));
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
        if (!any) fail(start, tr("parse:expectedNumber"));
        if (peek() == 'e' || peek() == 'E') {
            ++pos_;
            if (peek() == '+' || peek() == '-') ++pos_;
            if (!isDigit(peek())) fail(start, tr("parse:exponentDigits"));
            while (isDigit(peek())) ++pos_;
        }
        std::string literal(s_.substr(digits, pos_ - digits));
        if (literal.front() == '.') literal.insert(literal.begin(), '0');
        const auto [end, ec] = std::from_chars(literal.data(), literal.data() + literal.size(), v);
        if (ec == std::errc::result_out_of_range) {
            v = std::numeric_limits<double>::infinity();
        } else if (ec != std::errc() || end != literal.data() + literal.size()) {
            fail(start, tr("parse:malformedNumber"));
        }
    }
    if (isIdentChar(peek()) || peek() == '.') fail(pos_, tr("parse:afterNumber"));
    return {vqCreateDoubleScalar(negative ? -v : v), start};
}

// A non-negative whole number given as a double scalar (sizes, repetitions).
vqSize sizeArgument(const Parsed& p, std::string_view line) {
    const vqArray* a = p.value.get();
    if (!vqIsDouble(a) || !vqIsScalar(a)) {
        throwParseError(columnOf(line, p.start), tr("parse:expectedSize"));
    }
    const double d = *vqGetPr(a);
    if (!(d >= 0) || d != std::floor(d) || d > 1e12) {
        throwParseError(columnOf(line, p.start), tr("parse:expectedSize"));
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
    if (const vqArray* v = variable(word)) return {postfix(v), start};
    if (word == "end" && !ends_.empty()) {
        return {vqCreateDoubleScalar(static_cast<double>(ends_.back())), start};
    }
    if (word == "missing") return {Hexfarrow::String::createMissingString(), start};
    if (word == "NaN")
        return {vqCreateDoubleScalar(std::numeric_limits<double>::quiet_NaN()), start};
    if (word == "Inf")
        return {vqCreateDoubleScalar(std::numeric_limits<double>::infinity()), start};
    if (word == "true") return {vqCreateLogicalScalar(true), start};
    if (word == "false" && peek() != '(') return {vqCreateLogicalScalar(false), start};

    const bool sized = word == "strings" || word == "cell" || word == "zeros" || word == "false";
    if (!sized && word != "struct" && word != "reshape" && word != "logical" && word != "repmat" &&
        word != "char" && word != "string") {
        unknownName(word);
    }
    if (peek() != '(') fail(pos_, tr("parse:expectedParenAfter", {word}));
    std::vector<Parsed> args = callArguments(word);
    auto sizes = [&](std::size_t from) {
        std::vector<vqSize> dims;
        for (std::size_t i = from; i < args.size(); ++i) dims.push_back(sizeArgument(args[i], s_));
        if (dims.size() == 1) dims.push_back(dims.front());  // one size n means n-by-n
        const std::size_t each = from == 0 ? 1 : vqGetNumberOfElements(args[0].value.get());
        if (!withinElementLimit(dims, each)) {
            fail(start, tr("parse:tooManyElements", {static_cast<std::int64_t>(kMaxElements)}));
        }
        return dims;
    };
    try {
        if (sized) {
            if (args.empty()) fail(start, tr("parse:needsSize", {word}));
            const std::vector<vqSize> dims = sizes(0);
            if (word == "strings") {
                return {Hexfarrow::String::createStringArray(dims.size(), dims.data()), start};
            }
            if (word == "cell") return {vqCreateCellArray(dims), start};
            return {vqCreateNumericArray(dims, word == "zeros" ? vqDOUBLE_CLASS : vqLOGICAL_CLASS),
                    start};
        }
        if (word == "struct") {
            if (args.size() % 2 != 0) fail(start, tr("parse:structPairs"));
            std::vector<std::string> fields;
            for (std::size_t i = 0; i < args.size(); i += 2) {
                const vqArray* n = args[i].value.get();
                if (!Hexfarrow::String::isScalarText(n, false, false) ||
                    Hexfarrow::String::isMissingScalarString(n)) {
                    fail(args[i].start, tr("parse:fieldNameText"));
                }
                const fl::ustring u =
                    Hexfarrow::String::isString(n)
                        ? fl::ustring(Hexfarrow::String::getString(n).get(0)->text,
                                      Hexfarrow::String::getString(n).get(0)->length)
                        : fl::ustring(vqGetChars(n), vqGetNumberOfElements(n));
                std::string name = fl::i18n::to_utf8(u);
                if (!isFieldName(name)) fail(args[i].start, tr("parse:badFieldName", {name}));
                for (const auto& f : fields) {
                    if (f == name) fail(args[i].start, tr("parse:duplicateField", {name}));
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
                if (unit > 0xFFFF) fail(a.start, tr("parse:charCode"));
                units.push_back(static_cast<char16_t>(unit));
            }
            return {vqCreateString(units), start};
        }
        if (word == "string") {
            if (args.size() != 1) fail(start, tr("parse:stringArgs"));
            return {toStringArray(args[0].value.get()), start};
        }
        if (word == "logical") {
            if (args.size() != 1) fail(start, tr("parse:logicalArgs"));
            return {toLogical(args[0].value.get()), start};
        }
        if (word == "reshape") {
            if (args.size() < 3) fail(start, tr("parse:reshapeArgs"));
            std::vector<vqSize> dims;
            for (std::size_t i = 1; i < args.size(); ++i) dims.push_back(sizeArgument(args[i], s_));
            return {reshapeArray(args[0].value.get(), dims), start};
        }
        // repmat
        if (args.size() < 2) fail(start, tr("parse:repmatArgs"));
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
        if (atEnd() || peek() == '%') fail(open, tr("parse:missingParen", {name}));
        if (peek() == ')') break;
        if (peek() != ',') fail(pos_, tr("parse:expectedCommaOrParen"));
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
        if (atEnd() || peek() == '%')
            fail(start, tr("parse:missingClose", {std::string(1, close)}));
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
            if (!needSeparator) fail(pos_, tr("parse:unexpectedComma"));
            ++pos_;
            needSeparator = false;
            continue;
        }
        if (needSeparator && !blank) {
            fail(pos_, tr("parse:expectedSeparator", {std::string(1, close)}));
        }
        rows.back().push_back(value());
        needSeparator = true;
    }
    std::erase_if(rows, [](const std::vector<Parsed>& r) { return r.empty(); });

    if (open == '{') {
        if (rows.empty()) return {vqCreateCellArray({0, 0}), start};
        const std::size_t cols = rows.front().size();
        for (const auto& r : rows) {
            if (r.size() != cols) fail(r.front().start, tr("parse:cellRows"));
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
    if (!atEnd()) fail(pos_, tr("parse:textAfterValue"));
    return std::move(p.value);
}

void Parser::unknownName(const std::string& name) const {
    std::vector<std::string> candidates;
    for (const auto& g : gateways()) candidates.emplace_back(g.name);
    if (vars_ != nullptr && vars_->names) {
        for (auto& v : vars_->names()) candidates.push_back(std::move(v));
    }
    throw UnknownNameError(name, nearest(name, candidates));
}

// "[a, ~, b] =" ahead: an output list, not a concatenation.
bool Parser::looksLikeOutputs() const {
    std::size_t i = pos_ + 1;
    while (i < s_.size() && s_[i] != ']') {
        const char c = s_[i];
        if (!isIdentChar(c) && c != '~' && c != ',' && c != ' ' && c != '\t') return false;
        ++i;
    }
    if (i >= s_.size()) return false;
    ++i;
    while (i < s_.size() && (s_[i] == ' ' || s_[i] == '\t')) ++i;
    return i < s_.size() && s_[i] == '=' && (i + 1 >= s_.size() || s_[i + 1] != '=');
}

// Subscripts between the bracket at pos_ and its partner, so that `end` can mean the
// extent of its own dimension.
std::size_t Parser::countSubscripts() const {
    std::size_t count = 1;
    int depth = 0;
    char quote = 0;
    for (std::size_t i = pos_ + 1; i < s_.size(); ++i) {
        const char c = s_[i];
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '(' || c == '[' || c == '{') {
            ++depth;
        } else if (c == ')' || c == ']' || c == '}') {
            if (depth-- == 0) break;
        } else if (c == ',' && depth == 0) {
            ++count;
        }
    }
    return count;
}

unique_vqarray_ptr Parser::subscripted(const vqArray* a, char open) {
    const std::size_t start = pos_++;
    const char close = open == '(' ? ')' : '}';
    const std::size_t count = countSubscripts();
    if (count > 2) fail(start, tr("index:tooManySubscripts"));
    std::vector<Subscript> subs;
    const std::size_t numel = vqGetNumberOfElements(a);
    const vqSize rows = vqGetM(a);
    for (;;) {
        skipBlanks();
        const std::size_t at = pos_;
        Subscript sub;
        if (peek() == ':') {
            ++pos_;
            sub.all = true;
        } else {
            const std::size_t k = subs.size();
            ends_.push_back(count == 1 ? numel : k == 0 ? rows : (rows == 0 ? 0 : numel / rows));
            Parsed p = value();
            ends_.pop_back();
            try {
                sub = subscriptOf(p.value.get());
            } catch (const std::invalid_argument&) {
                fail(at, tr("index:badSubscript"));
            }
        }
        sub.column = columnOf(s_, at);
        subs.push_back(std::move(sub));
        skipBlanks();
        if (peek() == close) break;
        if (peek() != ',') fail(pos_, tr("parse:expectedCommaOr", {std::string(1, close)}));
        ++pos_;
    }
    ++pos_;
    try {
        return indexArray(a, subs, open == '{');
    } catch (const std::out_of_range& e) {
        fail(start, e.what());
    } catch (const std::invalid_argument& e) {
        fail(start, e.what());
    }
}

unique_vqarray_ptr Parser::postfix(const vqArray* base) {
    unique_vqarray_ptr owned;
    const vqArray* current = base;
    bool empty = false;  // an unset field or cell slot: []
    for (;;) {
        const char c = peek();
        if (c == '.' && pos_ + 1 < s_.size() && isIdentStart(s_[pos_ + 1])) {
            const std::size_t at = ++pos_;
            const std::string field = identifier();
            if (empty || !vqIsStruct(current)) {
                fail(at, tr("index:notStruct", {empty ? std::string("double")
                                                      : std::string(vqGetClassName(current))}));
            }
            if (vqGetNumberOfElements(current) != 1) {
                fail(at, tr("index:structArray", {formatDims(current)}));
            }
            const auto names = current->get_struct_field_names();
            if (std::find(names.begin(), names.end(), field) == names.end()) {
                std::string list;
                for (const auto& n : names) list += (list.empty() ? "" : ", ") + n;
                fail(at, tr("index:noField", {field, list}));
            }
            current = vqGetField(current, 0, field.c_str());
            empty = current == nullptr;
        } else if ((c == '(' || c == '{') && !empty) {
            auto next = subscripted(current, c);
            owned = std::move(next);
            current = owned.get();
            empty = current == nullptr;
        } else {
            break;
        }
    }
    if (empty) return vqCreateDoubleMatrix(0, 0);
    if (owned && current == owned.get()) return owned;
    return vqDuplicateArray(current);
}

// NAME with what follows it: a built-in's call, a value (a variable, a value builder),
// or a name nobody knows, reported after its arguments are read.
void Parser::callOrValue(Statement& st, const std::string& word, std::size_t first) {
    const std::size_t after = pos_;
    const auto& builders = valueFunctions();
    const bool builder = std::find(builders.begin(), builders.end(), word) != builders.end();
    // A variable shadows a built-in of its name. A name nobody knows is reported once the
    // rest of the line has parsed: after "(" by the session as a call, else here, as a
    // value that is not there.
    if (variable(word) == nullptr && (findGateway(word) != nullptr || !builder)) {
        skipBlanks();
        if (findGateway(word) == nullptr && peek() != '(') unknown_ = word;
        st.kind = Statement::Kind::Call;
        st.nameColumn = columnOf(s_, first);
        st.name = word;
        if (peek() == '(') {
            for (Parsed& p : callArguments(st.name)) st.args.push_back(std::move(p.value));
        }
        return;
    }
    pos_ = first;
    st.kind = Statement::Kind::Value;
    st.args.push_back(value().value);
    // A bare variable is shown under its own name; `x = r` makes x.
    if (pos_ == after && variable(word) != nullptr && st.outputs.empty()) st.name = word;
}

Statement Parser::statement() {
    Statement st;
    skipBlanks();
    if (atStatementEnd()) return st;

    if (peek() == '[' && looksLikeOutputs()) {
        const std::size_t open = pos_++;
        for (;;) {
            skipBlanks();
            if (peek() == ']') {
                ++pos_;
                break;
            }
            if (peek() == ',') {
                if (st.outputs.empty()) fail(pos_, tr("parse:unexpectedComma"));
                ++pos_;
                continue;
            }
            if (peek() == '~') {
                ++pos_;
                st.outputs.emplace_back("~");
            } else if (isIdentStart(peek())) {
                const std::size_t at = pos_;
                st.outputs.push_back(identifier());
                if (findGateway(st.outputs.back()) != nullptr)
                    fail(at, tr("parse:assignBuiltin", {st.outputs.back()}));
            } else {
                fail(pos_, tr("parse:expectedOutputName"));
            }
        }
        if (st.outputs.empty()) fail(open, tr("parse:atLeastOneOutput"));
        skipBlanks();
        ++pos_;  // the '=' looksLikeOutputs saw
        skipBlanks();
        if (!isIdentStart(peek())) fail(pos_, tr("parse:expectedBuiltin"));
        const std::size_t first = pos_;
        const std::string word = identifier();
        const auto& builders = valueFunctions();
        if (findGateway(word) == nullptr &&
            (variable(word) != nullptr ||
             std::find(builders.begin(), builders.end(), word) != builders.end())) {
            fail(first, tr("parse:expectedBuiltin"));
        }
        callOrValue(st, word, first);  // a name nobody knows is reported with a suggestion
    } else if (isIdentStart(peek())) {
        const std::size_t first = pos_;
        std::string word = identifier();
        const std::size_t after = pos_;
        skipBlanks();
        const bool known = variable(word) != nullptr;
        if (peek() == '=' && (pos_ + 1 >= s_.size() || s_[pos_ + 1] != '=')) {
            if (findGateway(word) != nullptr) fail(first, tr("parse:assignBuiltin", {word}));
            ++pos_;
            st.outputs.push_back(std::move(word));
            skipBlanks();
            if (atStatementEnd()) fail(pos_, tr("parse:expectedValue"));
            const std::size_t rhs = pos_;
            if (isIdentStart(peek())) {
                const std::string name = identifier();
                callOrValue(st, name, rhs);
            } else {
                st.kind = Statement::Kind::Value;
                st.args.push_back(value().value);
            }
        } else if (!known && (word == "help" || word == "who" || word == "clear")) {
            st.kind = word == "help"  ? Statement::Kind::Help
                      : word == "who" ? Statement::Kind::Who
                                      : Statement::Kind::Clear;
            while (isIdentStart(peek())) {
                std::string name = identifier();
                if (st.kind == Statement::Kind::Help) {
                    st.name = std::move(name);
                    skipBlanks();
                    break;
                }
                if (st.kind == Statement::Kind::Who) {
                    pos_ -= name.size();
                    break;
                }
                st.outputs.push_back(std::move(name));
                skipBlanks();
            }
        } else {
            pos_ = after;
            callOrValue(st, word, first);
        }
    } else {
        st.kind = Statement::Kind::Value;
        st.args.push_back(value().value);
    }
    skipBlanks();
    if (peek() == ';') {
        ++pos_;
        st.suppressed = true;
        skipBlanks();
    }
    if (!atStatementEnd()) fail(pos_, tr("parse:textAfterStatement"));
    if (!unknown_.empty()) unknownName(unknown_);
    return st;
}

std::string_view withoutCarriageReturn(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

}  // namespace

Statement parseStatement(std::string_view line, const Variables* variables) {
    return Parser(withoutCarriageReturn(line), variables).statement();
}

unique_vqarray_ptr parseValue(std::string_view text) {
    return Parser(withoutCarriageReturn(text), nullptr).wholeValue();
}

std::optional<std::string> continuedPart(std::string_view line) {
    line = withoutCarriageReturn(line);
    char quote = 0;
    std::size_t end = line.size();
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote != 0) {
            if (c == quote) quote = 0;  // a doubled quote closes and reopens: same state
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '%') {
            end = i;
            break;
        }
    }
    std::string_view code = line.substr(0, end);
    while (!code.empty() && (code.back() == ' ' || code.back() == '\t')) code.remove_suffix(1);
    if (code.size() < 3 || code.substr(code.size() - 3) != "...") return std::nullopt;
    return std::string(code.substr(0, code.size() - 3)) + " ";
}

const std::vector<std::string>& valueFunctions() {
    static const std::vector<std::string> names = {
        "struct",  "strings", "cell",   "zeros", "false", "true",   "missing",
        "reshape", "logical", "repmat", "NaN",   "Inf",   "string", "char"};
    return names;
}

}  // namespace qfs
