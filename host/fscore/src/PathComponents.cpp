#include "quorin/io/filesystem/core/PathComponents.hpp"

#include "quorin/io/filesystem/core/Identifiers.hpp"

#include "foundation/core/except/Exception.hpp"

#include <string_view>

namespace quorin::io::filesystem::core {
namespace {

using View = std::u16string_view;
constexpr std::size_t npos = View::npos;

bool isAsciiAlpha(char16_t c) noexcept {
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}
bool isAsciiDigit(char16_t c) noexcept { return c >= u'0' && c <= u'9'; }

bool isSeparator(char16_t c, bool windows) noexcept { return c == u'/' || (windows && c == u'\\'); }

// Where the root of a local path ends, and what kind of root it is.
struct Root {
    std::size_t length = 0;
    bool absolute = false;
    bool unc = false;
    View server;
};

std::size_t skipSeparators(View p, std::size_t i, bool windows) noexcept {
    while (i < p.size() && isSeparator(p[i], windows)) ++i;
    return i;
}

std::size_t skipComponent(View p, std::size_t i, bool windows) noexcept {
    while (i < p.size() && !isSeparator(p[i], windows)) ++i;
    return i;
}

Root unixRoot(View p) noexcept {
    // POSIX leaves a leading "//" to the implementation; Linux reads it as "/", so any
    // leading run of separators is the root, kept as written.
    Root r;
    r.length = skipSeparators(p, 0, false);
    r.absolute = r.length > 0;
    return r;
}

bool startsWithDrive(View p, std::size_t at) noexcept {
    return p.size() >= at + 2 && isAsciiAlpha(p[at]) && p[at + 1] == u':';
}

// "\\server\share" and its "//" spelling; the share may be missing.
Root uncRoot(View p, std::size_t serverStart) noexcept {
    Root r;
    r.unc = true;
    r.absolute = true;
    const std::size_t serverEnd = skipComponent(p, serverStart, true);
    r.server = p.substr(serverStart, serverEnd - serverStart);
    std::size_t end = serverEnd;
    if (end < p.size()) {
        const std::size_t shareStart = skipSeparators(p, end, true);
        end = skipComponent(p, shareStart, true);
    }
    r.length = skipSeparators(p, end, true);
    return r;
}

Root windowsRoot(View p) noexcept {
    const std::size_t leading = skipSeparators(p, 0, true);
    // Win32 file and device namespaces: "\\?\C:\x", "\\.\C:\x", "\\?\UNC\server\share".
    if (leading == 2 && p.size() >= 4 && (p[2] == u'?' || p[2] == u'.') &&
        isSeparator(p[3], true)) {
        const View rest = p.substr(4);
        if (rest.size() >= 4 && (rest[0] == u'U' || rest[0] == u'u') &&
            (rest[1] == u'N' || rest[1] == u'n') && (rest[2] == u'C' || rest[2] == u'c') &&
            isSeparator(rest[3], true)) {
            return uncRoot(p, skipSeparators(p, 8, true));
        }
        Root r;
        r.absolute = true;
        r.length = startsWithDrive(p, 4) ? skipSeparators(p, 6, true) : 4;
        return r;
    }
    if (leading >= 2 && leading < p.size()) return uncRoot(p, leading);
    Root r;
    if (leading > 0) {
        // "\x" is rooted on the current drive: not absolute.
        r.length = leading;
        return r;
    }
    if (startsWithDrive(p, 0)) {
        r.length = skipSeparators(p, 2, true);
        r.absolute = r.length > 2;
    }
    return r;
}

struct Split {
    View parent;
    View last;
};

// Parent and last component after a root of rootLength characters; trailing separators
// belong to no component.
Split splitAfterRoot(View p, std::size_t rootLength, bool windows) noexcept {
    std::size_t end = p.size();
    while (end > rootLength && isSeparator(p[end - 1], windows)) --end;
    std::size_t start = end;
    while (start > rootLength && !isSeparator(p[start - 1], windows)) --start;
    std::size_t parentEnd = start;
    while (parentEnd > rootLength && isSeparator(p[parentEnd - 1], windows)) --parentEnd;
    return {p.substr(0, parentEnd), p.substr(start, end - start)};
}

void setNameAndExtension(View last, PathComponents& out) {
    const std::size_t dot = last.rfind(u'.');
    const std::size_t firstNonDot = last.find_first_not_of(u'.');
    // Leading dots mark hidden files, not extensions; "." and ".." are names.
    if (dot == npos || firstNonDot == npos || dot < firstNonDot) {
        out.name.assign(last);
        return;
    }
    out.name.assign(last.substr(0, dot));
    out.extension.assign(last.substr(dot));
}

// RFC 3986 section 3.1: ALPHA *( ALPHA / DIGIT / "+" / "-" / "." ).
std::size_t schemeLength(View p) noexcept {
    if (p.empty() || !isAsciiAlpha(p[0])) return 0;
    std::size_t i = 1;
    while (i < p.size() && (isAsciiAlpha(p[i]) || isAsciiDigit(p[i]) || p[i] == u'+' ||
                            p[i] == u'-' || p[i] == u'.')) {
        ++i;
    }
    return (i < p.size() && p[i] == u':') ? i : 0;
}

// The pieces of a URI reference, split as RFC 3986 Appendix B does, each a view into the
// text as written.
struct UrlParts {
    std::size_t schemeEnd = 0;  // 0 when there is no scheme
    bool hasAuthority = false;
    View authority;
    std::size_t pathStart = 0;
    View path;
    View query;
    View fragment;
};

UrlParts splitUrl(View p) noexcept {
    UrlParts u;
    u.schemeEnd = schemeLength(p);
    std::size_t i = u.schemeEnd == 0 ? 0 : u.schemeEnd + 1;
    if (p.substr(i, 2) == u"//") {
        const std::size_t start = i + 2;
        std::size_t end = p.find_first_of(u"/?#", start);
        if (end == npos) end = p.size();
        u.hasAuthority = true;
        u.authority = p.substr(start, end - start);
        i = end;
    }
    u.pathStart = i;
    std::size_t pathEnd = p.find_first_of(u"?#", i);
    if (pathEnd == npos) pathEnd = p.size();
    u.path = p.substr(i, pathEnd - i);
    i = pathEnd;
    if (i < p.size() && p[i] == u'?') {
        std::size_t end = p.find(u'#', i);
        if (end == npos) end = p.size();
        u.query = p.substr(i + 1, end - i - 1);
        i = end;
    }
    if (i < p.size() && p[i] == u'#') u.fragment = p.substr(i + 1);
    return u;
}

std::uint64_t parsePort(View port, const fl::ustring& url) {
    if (port.empty()) return PathComponents::noPort;  // "host:" names no port (RFC 3986 6.2.3)
    std::uint64_t value = 0;
    for (char16_t c : port) {
        if (!isAsciiDigit(c))
            foundation::core::except::throwMsgID(QUORIN::io::filesystem::core::InvalidURLPort(url));
        value = value * 10 + static_cast<std::uint64_t>(c - u'0');
        if (value > 65535)
            foundation::core::except::throwMsgID(QUORIN::io::filesystem::core::InvalidURLPort(url));
    }
    return value;
}

void splitAuthority(View authority, const fl::ustring& url, PathComponents& out) {
    const std::size_t at = authority.rfind(u'@');
    const View hostPort = at == npos ? authority : authority.substr(at + 1);
    std::size_t hostEnd = 0;
    if (!hostPort.empty() && hostPort[0] == u'[') {
        // IP literal: the colons inside the brackets are not the port's.
        const std::size_t close = hostPort.find(u']');
        hostEnd = close == npos ? hostPort.size() : close + 1;
    } else {
        hostEnd = hostPort.find(u':');
        if (hostEnd == npos) hostEnd = hostPort.size();
    }
    out.host.assign(hostPort.substr(0, hostEnd));
    if (hostEnd < hostPort.size() && hostPort[hostEnd] == u':') {
        out.port = parsePort(hostPort.substr(hostEnd + 1), url);
    } else if (hostEnd < hostPort.size()) {
        foundation::core::except::throwMsgID(QUORIN::io::filesystem::core::InvalidURLPort(url));
    }
}

bool usesUrlRules(bool isUrl, FileSystemType type) noexcept {
    return isUrl || type == FileSystemType::Schema;
}

bool isWindows(FileSystemType type) noexcept { return type == FileSystemType::Windows; }

}  // namespace

PathComponents getPathComponents(const fl::ustring& path, bool isUrl, FileSystemType type) {
    PathComponents out;
    const View p = path;
    if (usesUrlRules(isUrl, type)) {
        const UrlParts u = splitUrl(p);
        if (u.hasAuthority) splitAuthority(u.authority, path, out);
        const std::size_t rootLength = (!u.path.empty() && u.path[0] == u'/') ? 1 : 0;
        const Split s = splitAfterRoot(u.path, rootLength, false);
        // The parent stays a location: scheme and authority come first in the text.
        out.parent.assign(p.substr(0, u.pathStart + s.parent.size()));
        setNameAndExtension(s.last, out);
        out.query.assign(u.query);
        out.fragment.assign(u.fragment);
        return out;
    }
    const bool windows = isWindows(type);
    const Root root = windows ? windowsRoot(p) : unixRoot(p);
    const Split s = splitAfterRoot(p, root.length, windows);
    out.parent.assign(s.parent);
    setNameAndExtension(s.last, out);
    if (root.unc) out.host.assign(root.server);
    return out;
}

fl::ustring getPathType(const fl::ustring& path, bool isUrl, FileSystemType type) {
    if (usesUrlRules(isUrl, type)) return u"URL";
    if (isWindows(type) && windowsRoot(path).unc) return u"UNC";
    return u"Local";
}

bool getIsAbsolute(const fl::ustring& path, bool isUrl, FileSystemType type) {
    if (isUrl) return true;
    if (type == FileSystemType::Schema) return schemeLength(path) > 0;
    if (isWindows(type)) return windowsRoot(path).absolute;
    return unixRoot(path).absolute;
}

}  // namespace quorin::io::filesystem::core
