#include "quorin/io/filesystem/core/RelativePath.hpp"

#include "Internal.hpp"

#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <stdexcept>
#include <string_view>
#include <vector>

namespace quorin::io::filesystem::core {
namespace {

namespace vfs = foundation::storage::vfs;
using View = std::u16string_view;

// A location reduced to what the comparison needs.
struct Location {
    bool iri = false;
    fl::ustring scheme;     // lower case
    fl::ustring authority;  // host lower case, rest as written
    std::vector<fl::ustring> segments;
    fl::ustring suffix;  // "?query#fragment" as written
};

// RFC 3986 section 5.2.4 on segments: "." vanishes, ".." drops the previous segment and
// never climbs above the root; empty segments (repeated or trailing "/") carry no name.
void splitClean(View path, std::vector<fl::ustring>& out) {
    std::size_t i = 0;
    while (i <= path.size()) {
        std::size_t end = path.find(u'/', i);
        if (end == View::npos) end = path.size();
        const View segment = path.substr(i, end - i);
        if (segment == u"..") {
            if (!out.empty()) out.pop_back();
        } else if (!segment.empty() && segment != u".") {
            out.emplace_back(segment);
        }
        i = end + 1;
    }
}

fl::ustring lowerHostInAuthority(const fl::ustring& authority) {
    // Only the host is case-insensitive (RFC 3986 section 3.2.2); user information is not.
    const std::size_t at = authority.rfind(u'@');
    const std::size_t hostStart = at == fl::ustring::npos ? 0 : at + 1;
    return authority.substr(0, hostStart) + detail::lowerAscii(authority.substr(hostStart));
}

Location parse(const fl::ustring& text) {
    Location loc;
    fl::ustring path;
    if (vfs::hasIRIPrefix(text)) {
        const vfs::AbsoluteIRI iri(text);  // throws InvalidIRIException naming the text
        loc.iri = true;
        loc.scheme = detail::lowerAscii(iri.getScheme());
        loc.authority = lowerHostInAuthority(iri.getAuthority());
        path = iri.getPath();
        if (iri.hasQuery()) loc.suffix = u"?" + iri.getQuery();
        if (iri.hasFragment()) loc.suffix += u"#" + iri.getFragment();
    } else if (!text.empty() && text[0] == u'/') {
        path = text;
    } else {
        throw vfs::InvalidIRIException(text);
    }
    splitClean(path, loc.segments);
    return loc;
}

}  // namespace

fl::ustring relative_path(const fl::ustring& source, const fl::ustring& destination) {
    const Location from = parse(source);
    const Location to = parse(destination);
    if (from.iri != to.iri || from.scheme != to.scheme || from.authority != to.authority) {
        throw std::invalid_argument("the two locations have no common root");
    }
    std::size_t common = 0;
    while (common < from.segments.size() && common < to.segments.size() &&
           from.segments[common] == to.segments[common]) {
        ++common;
    }
    fl::ustring answer;
    for (std::size_t i = common; i < from.segments.size(); ++i) {
        if (!answer.empty()) answer += u'/';
        answer += u"..";
    }
    for (std::size_t i = common; i < to.segments.size(); ++i) {
        if (!answer.empty()) answer += u'/';
        answer += to.segments[i];
    }
    if (answer.empty()) answer = u".";
    // A first segment with a ":" would read as a scheme in a relative reference
    // (RFC 3986 section 4.2).
    if (to.iri && common < to.segments.size() && common == from.segments.size() &&
        to.segments[common].find(u':') != View::npos) {
        answer.insert(0, u"./");
    }
    return answer + to.suffix;
}

}  // namespace quorin::io::filesystem::core
