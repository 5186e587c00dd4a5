#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include "IRIText.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace foundation::storage {

namespace detail {

namespace {

constexpr char hexDigits[] = "0123456789ABCDEF";

bool isHex(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return c - 'a' + 10;
}

bool isAlpha(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// RFC 3986 "pchar" without "%": unreserved, sub-delims, ":" and "@".
constexpr std::array<bool, 256> makePcharTable() {
    std::array<bool, 256> t{};
    for (int c = 'a'; c <= 'z'; ++c) t[static_cast<std::size_t>(c)] = true;
    for (int c = 'A'; c <= 'Z'; ++c) t[static_cast<std::size_t>(c)] = true;
    for (int c = '0'; c <= '9'; ++c) t[static_cast<std::size_t>(c)] = true;
    for (char c : std::string_view("-._~!$&'()*+,;=:@")) t[static_cast<unsigned char>(c)] = true;
    return t;
}
constexpr std::array<bool, 256> pchar = makePcharTable();

void appendEscape(std::string& out, unsigned char byte) {
    out += '%';
    out += hexDigits[byte >> 4];
    out += hexDigits[byte & 0xF];
}

}  // namespace

void appendEncodedSegment(std::string& out, std::string_view raw) {
    for (char c : raw) {
        const auto byte = static_cast<unsigned char>(c);
        if (pchar[byte])
            out += c;
        else
            appendEscape(out, byte);
    }
}

void appendEncodedPath(std::string& out, std::string_view raw) {
    for (char c : raw) {
        const auto byte = static_cast<unsigned char>(c);
        if (pchar[byte] || c == '/')
            out += c;
        else
            appendEscape(out, byte);
    }
}

std::string encodeIRIText(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 8);
    bool seenHash = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const auto byte = static_cast<unsigned char>(c);
        if (c == '%') {
            if (i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2])) {
                out += c;
            } else {
                appendEscape(out, byte);
            }
        } else if (c == '#') {
            if (seenHash)
                appendEscape(out, byte);
            else
                out += c;
            seenHash = true;
        } else if (byte <= 0x20 || byte >= 0x7F ||
                   std::string_view("\"<>\\^`{|}").find(c) != std::string_view::npos) {
            appendEscape(out, byte);
        } else {
            out += c;
        }
    }
    return out;
}

std::string percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && isHex(text[i + 1]) && isHex(text[i + 2])) {
            out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::optional<std::vector<std::string>> decodedSegments(std::string_view path) {
    std::vector<std::string> segments;
    while (!path.empty()) {
        if (path.front() == '/') {
            path.remove_prefix(1);
            continue;
        }
        const auto end = std::min(path.find('/'), path.size());
        std::string raw = percentDecode(path.substr(0, end));
        path.remove_prefix(end);
        if (raw == ".") continue;
        if (raw == "..") {
            if (segments.empty()) return std::nullopt;
            segments.pop_back();
            continue;
        }
        if (raw.find('/') != std::string::npos || raw.find('\0') != std::string::npos) {
            return std::nullopt;
        }
        segments.push_back(std::move(raw));
    }
    return segments;
}

std::string removeDotSegments(std::string_view in) {
    std::string out;
    out.reserve(in.size());
    while (!in.empty()) {
        if (in.starts_with("../")) {
            in.remove_prefix(3);
        } else if (in.starts_with("./") || in.starts_with("/./")) {
            in.remove_prefix(2);
        } else if (in == "/.") {
            in = "/";
        } else if (in.starts_with("/../") || in == "/..") {
            in = in.size() == 3 ? std::string_view("/") : in.substr(3);
            const auto slash = out.rfind('/');
            out.erase(slash == std::string::npos ? 0 : slash);
        } else if (in == "." || in == "..") {
            in = {};
        } else {
            const auto next = in.find('/', in.front() == '/' ? 1 : 0);
            const auto len = next == std::string_view::npos ? in.size() : next;
            out.append(in.substr(0, len));
            in.remove_prefix(len);
        }
    }
    return out;
}

bool isSchemeText(std::string_view text, std::size_t minLength) noexcept {
    if (text.size() < minLength || text.empty() || !isAlpha(text.front())) return false;
    for (char c : text) {
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
    }
    return true;
}

bool iequalsAscii(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

}  // namespace detail

namespace vfs {

namespace {

// "file:/p" (RFC 8089 section 2, no authority), the scheme in any case.
bool isFileWithoutAuthority(const fl::ustring& text) noexcept {
    if (text.size() < 6 || text[5] != u'/' || (text.size() > 6 && text[6] == u'/')) return false;
    constexpr char16_t kFile[] = u"file:";
    for (std::size_t i = 0; i < 5; ++i) {
        char16_t c = text[i];
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != kFile[i]) return false;
    }
    return true;
}

using boost::urls::url_view;

url_view view(const std::string& text) {
    // The stored text was parsed when the value was made, so this cannot fail.
    return boost::urls::parse_uri(text).value();
}

fl::ustring widen(boost::urls::string_view s) {
    return fl::i18n::to_ustring(std::string_view(s.data(), s.size()));
}

// scheme ":" ["//" authority] path ["?" query] ["#" fragment], composed by hand: setting
// the parts on a boost::urls::url rewrites some paths ("/" becomes "/./").
std::string compose(std::string_view scheme, const std::string_view* authority,
                    std::string_view path, const std::string_view* query,
                    const std::string_view* fragment) {
    std::string out;
    out.reserve(scheme.size() + path.size() + 16);
    out.append(scheme).append(":");
    if (authority != nullptr) out.append("//").append(*authority);
    out.append(path);
    if (query != nullptr) out.append("?").append(*query);
    if (fragment != nullptr) out.append("#").append(*fragment);
    return out;
}

std::string_view sv(boost::urls::string_view s) { return {s.data(), s.size()}; }

// The path without a trailing "/" (the root stays "/").
std::string_view trimmedPath(std::string_view path) {
    if (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

std::string prefixOf(const url_view& u) {
    std::string out;
    out.append(sv(u.scheme())).append(":");
    if (u.has_authority()) out.append("//").append(sv(u.encoded_authority()));
    return out;
}

}  // namespace

AbsoluteIRI AbsoluteIRI::fromTrustedText(std::string text) {
    AbsoluteIRI iri;
    iri.text_ = std::move(text);
    return iri;
}

AbsoluteIRI::AbsoluteIRI(const fl::ustring& text) {
    if (!text.empty() && text.front() == u'/') {
        text_ = toAbsoluteIRI(u"file", text).text_;
        return;
    }
    std::string utf8 = fl::i18n::to_utf8(text);
    if (utf8.size() > 5 && detail::iequalsAscii(std::string_view(utf8).substr(0, 5), "file:")) {
        // RFC 8089 section 2: "file:/p" has no authority and names the same file as
        // "file:///p"; one spelling keeps every comparison and listing alike.
        if (utf8[5] == '/' && (utf8.size() == 6 || utf8[6] != '/')) utf8.insert(5, "//");
        // A file URL is decoded into a name: a "%" that escapes nothing names no file.
        for (std::size_t i = utf8.find('%'); i != std::string::npos; i = utf8.find('%', i + 1)) {
            if (i + 2 >= utf8.size() || !detail::isHex(utf8[i + 1]) ||
                !detail::isHex(utf8[i + 2])) {
                throw InvalidIRIException(text);
            }
        }
    }
    std::string encoded = detail::encodeIRIText(utf8);
    auto parsed = boost::urls::parse_uri(encoded);
    if (!parsed || !detail::isSchemeText(sv(parsed->scheme()))) throw InvalidIRIException(text);
    text_ = std::move(encoded);
}

AbsoluteIRI::AbsoluteIRI(const AbsoluteIRI& base, const fl::ustring& relative) {
    const std::string encoded = detail::encodeIRIText(fl::i18n::to_utf8(relative));
    auto parsedRef = boost::urls::parse_uri_reference(encoded);
    if (!parsedRef) throw InvalidIRIException(relative);
    const url_view r = *parsedRef;
    const url_view b = view(base.text_);

    // RFC 3986 section 5.2.2, strict: a reference with a scheme is taken as it is.
    std::string scheme;
    std::string authority;
    bool hasAuthority = false;
    std::string path;
    std::string query;
    bool hasQuery = false;
    auto takeQuery = [&](const url_view& u) {
        hasQuery = u.has_query();
        query = sv(u.encoded_query());
    };
    if (r.has_scheme()) {
        // As written in RFC 3986: a reference may carry any scheme, one letter included.
        if (!detail::isSchemeText(sv(r.scheme()), 1)) throw InvalidIRIException(relative);
        scheme = sv(r.scheme());
        hasAuthority = r.has_authority();
        authority = sv(r.encoded_authority());
        path = detail::removeDotSegments(sv(r.encoded_path()));
        takeQuery(r);
    } else {
        scheme = sv(b.scheme());
        if (r.has_authority()) {
            hasAuthority = true;
            authority = sv(r.encoded_authority());
            path = detail::removeDotSegments(sv(r.encoded_path()));
            takeQuery(r);
        } else {
            hasAuthority = b.has_authority();
            authority = sv(b.encoded_authority());
            const std::string_view refPath = sv(r.encoded_path());
            if (refPath.empty()) {
                path = sv(b.encoded_path());
                if (r.has_query())
                    takeQuery(r);
                else
                    takeQuery(b);
            } else {
                if (refPath.front() == '/') {
                    path = detail::removeDotSegments(refPath);
                } else {
                    // Section 5.2.3: merge with the base path.
                    const std::string_view basePath = sv(b.encoded_path());
                    std::string merged;
                    if (b.has_authority() && basePath.empty()) {
                        merged = "/";
                    } else {
                        const auto slash = basePath.rfind('/');
                        if (slash != std::string_view::npos) merged = basePath.substr(0, slash + 1);
                    }
                    merged.append(refPath);
                    path = detail::removeDotSegments(merged);
                }
                takeQuery(r);
            }
        }
    }
    const std::string_view authView = authority;
    const std::string_view queryView = query;
    const std::string_view fragmentView = sv(r.encoded_fragment());
    std::string out =
        compose(scheme, hasAuthority ? &authView : nullptr, path, hasQuery ? &queryView : nullptr,
                r.has_fragment() ? &fragmentView : nullptr);
    if (!boost::urls::parse_uri(out)) throw InvalidIRIException(relative);
    text_ = std::move(out);
}

fl::ustring AbsoluteIRI::toString() const { return fl::i18n::to_ustring(text_); }
fl::ustring AbsoluteIRI::getScheme() const { return widen(view(text_).scheme()); }
fl::ustring AbsoluteIRI::getAuthority() const { return widen(view(text_).encoded_authority()); }
fl::ustring AbsoluteIRI::getHost() const { return widen(view(text_).encoded_host()); }
fl::ustring AbsoluteIRI::getPath() const { return widen(view(text_).encoded_path()); }
fl::ustring AbsoluteIRI::getQuery() const { return widen(view(text_).encoded_query()); }
fl::ustring AbsoluteIRI::getFragment() const { return widen(view(text_).encoded_fragment()); }
bool AbsoluteIRI::hasQuery() const { return view(text_).has_query(); }
bool AbsoluteIRI::hasFragment() const { return view(text_).has_fragment(); }

long AbsoluteIRI::getPort() const {
    const url_view u = view(text_);
    if (!u.has_port() || u.port().empty()) return -1;
    return static_cast<long>(u.port_number());
}

fl::ustring AbsoluteIRI::getDecodedPath() const {
    return fl::i18n::to_ustring(detail::percentDecode(sv(view(text_).encoded_path())));
}

fl::ustring AbsoluteIRI::getName() const {
    const std::string_view path = trimmedPath(sv(view(text_).encoded_path()));
    const auto slash = path.rfind('/');
    const std::string_view last = slash == std::string_view::npos ? path : path.substr(slash + 1);
    return fl::i18n::to_ustring(detail::percentDecode(last));
}

bool AbsoluteIRI::hasParent() const {
    const std::string_view path = trimmedPath(sv(view(text_).encoded_path()));
    return !path.empty() && path != "/" && path.find('/') != std::string_view::npos;
}

AbsoluteIRI AbsoluteIRI::getParent() const {
    const url_view u = view(text_);
    const std::string_view path = trimmedPath(sv(u.encoded_path()));
    const auto slash = path.rfind('/');
    if (path.empty() || path == "/" || slash == std::string_view::npos) {
        throw Exception(Exception::InvalidLocation, *this);
    }
    std::string out = prefixOf(u);
    out.append(slash == 0 ? std::string_view("/") : path.substr(0, slash));
    return fromTrustedText(std::move(out));
}

AbsoluteIRI AbsoluteIRI::getChild(const fl::ustring& name) const {
    const url_view u = view(text_);
    std::string out = prefixOf(u);
    const std::string_view path = sv(u.encoded_path());
    out.append(path);
    if (out.back() != '/') out += '/';
    detail::appendEncodedSegment(out, fl::i18n::to_utf8(name));
    if (!boost::urls::parse_uri(out)) throw InvalidIRIException(name);
    return fromTrustedText(std::move(out));
}

bool hasIRIPrefix(const fl::ustring& text) noexcept {
    if (isFileWithoutAuthority(text)) return true;
    const auto colon = text.find(u"://");
    if (colon == fl::ustring::npos || colon < 2) return false;
    for (std::size_t i = 0; i < colon; ++i) {
        const char16_t c = text[i];
        const bool alpha = (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
        const bool digit = c >= u'0' && c <= u'9';
        if (i == 0 ? !alpha : !(alpha || digit || c == u'+' || c == u'-' || c == u'.')) {
            return false;
        }
    }
    return true;
}

AbsoluteIRI toAbsoluteIRI(const fl::ustring& scheme, const fl::ustring& path) {
    const std::string schemeText = fl::i18n::to_utf8(scheme);
    if (!detail::isSchemeText(schemeText)) throw InvalidIRIException(scheme);
    if (!path.empty() && path.front() != u'/') throw InvalidIRIException(path);
    std::string out = schemeText + "://";
    detail::appendEncodedPath(out, fl::i18n::to_utf8(path));
    return AbsoluteIRI::fromTrustedText(std::move(out));
}

fl::ustring fromAbsoluteIRI(const AbsoluteIRI& iri) {
    // The common case, a plain "file:///" IRI as listings and toAbsoluteIRI make them, is
    // read without a full parse: folder walks ask this once per entry.
    const std::string& text = iri.toEncodedString();
    std::string_view path;
    if (text.starts_with("file:///") && text.find_first_of("?#") == std::string::npos) {
        path = std::string_view(text).substr(7);
    } else {
        const url_view u = view(text);
        if (!detail::iequalsAscii(sv(u.scheme()), "file")) {
            throw UnsupportedIRISchemeException(iri.toString(), widen(u.scheme()));
        }
        const std::string_view host = sv(u.encoded_host());
        if (u.has_userinfo() || u.has_port() ||
            !(host.empty() || detail::iequalsAscii(host, "localhost"))) {
            throw InvalidIRIException(iri.toString());
        }
        path = sv(u.encoded_path());
    }
    if (!path.empty() && path.front() != '/') throw InvalidIRIException(iri.toString());
    std::string decoded = detail::percentDecode(path);
    // An escaped "/" or NUL would name another file than the IRI says.
    if (decoded.find('\0') != std::string::npos ||
        std::count(decoded.begin(), decoded.end(), '/') !=
            std::count(path.begin(), path.end(), '/')) {
        throw InvalidIRIException(iri.toString());
    }
    return fl::i18n::to_ustring(decoded);
}

}  // namespace vfs

}  // namespace foundation::storage
