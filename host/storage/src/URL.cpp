#include "foundation/storage/utility/URL.hpp"

#include "IRIText.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <string>
#include <string_view>

namespace foundation::storage::utility {

namespace {

int hexValue(char16_t c) noexcept {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

bool isUnreserved(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

int hexByte(char c) noexcept { return hexValue(static_cast<char16_t>(c)); }

// RFC 3986 section 6.2.2.1 and 6.2.2.2 on one component: escapes in upper case, escaped
// unreserved characters decoded.
std::string normalizeEscapes(std::string_view in) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (in[i] == '%' && i + 2 < in.size()) {
            const int value = hexByte(in[i + 1]) * 16 + hexByte(in[i + 2]);
            const char c = static_cast<char>(value);
            if (isUnreserved(c)) {
                out += c;
            } else {
                out += '%';
                out += digits[value >> 4];
                out += digits[value & 0xF];
            }
            i += 2;
        } else {
            out += in[i];
        }
    }
    return out;
}

std::string lower(std::string s) {
    for (char& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

std::string_view sv(boost::urls::string_view s) { return {s.data(), s.size()}; }

}  // namespace

void decodeURL(fl::ustring& text, bool asUtf8) {
    if (text.find(u'%') == fl::ustring::npos) return;
    fl::ustring out;
    out.reserve(text.size());
    std::string run;
    auto flush = [&] {
        if (run.empty()) return;
        if (asUtf8) {
            fl::i18n::append_ustring(out, run);
        } else {
            for (char c : run) out += static_cast<char16_t>(static_cast<unsigned char>(c));
        }
        run.clear();
    };
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 &&
            hexValue(text[i + 2]) >= 0) {
            run += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
            i += 2;
        } else {
            flush();
            out += text[i];
        }
    }
    flush();
    text = std::move(out);
}

void normalizeURL(fl::ustring& text) {
    const vfs::AbsoluteIRI iri(text);  // throws InvalidIRIException, text untouched
    const auto u = boost::urls::parse_uri(iri.toEncodedString()).value();
    std::string out = lower(std::string(sv(u.scheme())));
    out += ':';
    if (u.has_authority()) {
        out += "//";
        if (u.has_userinfo()) {
            out += normalizeEscapes(sv(u.encoded_userinfo()));
            out += '@';
        }
        out += normalizeEscapes(lower(std::string(sv(u.encoded_host()))));
        if (u.has_port()) {
            out += ':';
            out += sv(u.port());
        }
    }
    out += detail::removeDotSegments(normalizeEscapes(sv(u.encoded_path())));
    if (u.has_query()) {
        out += '?';
        out += normalizeEscapes(sv(u.encoded_query()));
    }
    if (u.has_fragment()) {
        out += '#';
        out += normalizeEscapes(sv(u.encoded_fragment()));
    }
    text = fl::i18n::to_ustring(out);
}

}  // namespace foundation::storage::utility
