// The "s3" provider: s3://BUCKET/KEY on an S3-compatible object store. Folders are
// modelled as the S3 tools model them on a flat store: a key prefix ending in "/" that
// has a marker object of that name or any key below it.
#include "foundation/storage/provider/S3Provider.hpp"

#include "IRIText.hpp"
#include "Providers.hpp"
#include "S3Client.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fnmatch.h>
#include <map>
#include <memory>
#include <optional>
#include <pugixml.hpp>
#include <string>
#include <vector>

namespace foundation::storage::provider {

namespace {

using vfs::AbsoluteIRI;
using vfs::ListEntry;
using Code = vfs::Exception::Code;
using s3::Client;
using s3::Request;
using s3::Response;

std::string_view sv(boost::urls::string_view s) { return {s.data(), s.size()}; }

// S3's bucket naming rules (general purpose buckets).
bool validBucket(std::string_view b) {
    if (b.size() < 3 || b.size() > 63) return false;
    bool allDigitsAndDots = true;
    for (const char c : b) {
        const bool lowerOrDigit = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (!lowerOrDigit && c != '.' && c != '-') return false;
        if ((c < '0' || c > '9') && c != '.') allDigitsAndDots = false;
    }
    const auto alnum = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    if (!alnum(b.front()) || !alnum(b.back())) return false;
    if (b.find("..") != std::string_view::npos || b.find(".-") != std::string_view::npos ||
        b.find("-.") != std::string_view::npos) {
        return false;
    }
    if (allDigitsAndDots) return false;  // looks like an IPv4 address
    if (b.rfind("xn--", 0) == 0 || b.rfind("sthree-", 0) == 0) return false;
    const auto endsWith = [&](std::string_view s) {
        return b.size() >= s.size() && b.substr(b.size() - s.size()) == s;
    };
    return !endsWith("-s3alias") && !endsWith("--ol-s3");
}

bool validUtf8(std::string_view s) {
    for (std::size_t i = 0; i < s.size();) {
        const auto c = static_cast<unsigned char>(s[i]);
        std::size_t n = 0;
        std::uint32_t cp = 0;
        if (c < 0x80) {
            ++i;
            continue;
        }
        if ((c & 0xE0) == 0xC0) {
            n = 1;
            cp = c & 0x1FU;
        } else if ((c & 0xF0) == 0xE0) {
            n = 2;
            cp = c & 0x0FU;
        } else if ((c & 0xF8) == 0xF0) {
            n = 3;
            cp = c & 0x07U;
        } else {
            return false;
        }
        for (std::size_t k = 1; k <= n; ++k) {
            if (i + k >= s.size()) return false;
            const auto d = static_cast<unsigned char>(s[i + k]);
            if ((d & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (d & 0x3FU);
        }
        static constexpr std::array<std::uint32_t, 4> minimum{0, 0x80, 0x800, 0x10000};
        if (cp < minimum[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        i += n + 1;
    }
    return true;
}

struct Location {
    std::string bucket;
    std::string key;          // without a trailing "/"; empty for the bucket
    bool folderOnly = false;  // written with a trailing "/": only a folder can answer
};

// Keys are the IRI's decoded segments joined by "/"; "." and ".." apply as in every
// IRI, so a key holding such a segment, or an empty one, cannot be named.
Location parse(const AbsoluteIRI& location) {
    const auto parsed = boost::urls::parse_uri(location.toEncodedString());
    if (!parsed) throw vfs::Exception(Code::InvalidLocation, location);
    const auto& u = *parsed;
    if (!storage::detail::iequalsAscii(sv(u.scheme()), "s3") || !u.has_authority() ||
        u.has_userinfo() || u.has_port() || u.has_query() || u.has_fragment() ||
        !validBucket(sv(u.encoded_host()))) {
        throw vfs::Exception(Code::InvalidLocation, location);
    }
    Location out;
    out.bucket = std::string(sv(u.encoded_host()));
    const std::string_view path = sv(u.encoded_path());
    out.folderOnly = path.size() > 1 && path.back() == '/';
    const auto segments = storage::detail::decodedSegments(path);
    if (!segments) throw vfs::Exception(Code::InvalidLocation, location);
    for (const auto& s : *segments) out.key += (out.key.empty() ? "" : "/") + s;
    if (out.key.empty()) out.folderOnly = false;
    // S3 keys are UTF-8 of at most 1024 bytes (the folder marker's "/" included).
    if (out.key.size() > 1023 || !validUtf8(out.key)) {
        throw vfs::Exception(Code::InvalidLocation, location);
    }
    return out;
}

std::string errorText(const Response& r) {
    if (r.status == 0) return r.transportError;
    std::string text = "HTTP " + std::to_string(r.status);
    pugi::xml_document doc;
    if (!r.body.empty() && doc.load_buffer(r.body.data(), r.body.size())) {
        const auto e = doc.child("Error");
        const std::string code = e.child_value("Code");
        const std::string message = e.child_value("Message");
        if (!code.empty()) text += " " + code;
        if (!message.empty()) text += ": " + message;
        if (!code.empty()) return text;
    }
    const auto reason = r.headers.find(":reason");
    if (reason != r.headers.end() && !reason->second.empty()) text += " " + reason->second;
    return text;
}

[[noreturn]] void fail(const Response& r, const AbsoluteIRI& location) {
    if (r.status == 403) throw vfs::Exception(Code::PermissionDenied, location);
    if (r.status == 404) throw vfs::Exception(Code::NotFound, location);
    if (r.status == 412) throw vfs::Exception(Code::AlreadyExists, location);
    throw vfs::Exception(Code::OtherIOError, location, errorText(r));
}

bool ok(const Response& r) { return r.status >= 200 && r.status < 300; }

int month(std::string_view name) {
    static constexpr std::array<std::string_view, 12> names{
        "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (names[i] == name) return static_cast<int>(i);
    }
    return -1;
}

std::int64_t toNanoseconds(std::tm& tm, long fractionNs) {
    return static_cast<std::int64_t>(::timegm(&tm)) * 1'000'000'000 + fractionNs;
}

// RFC 7231 IMF-fixdate ("Tue, 02 Jan 2024 03:04:05 GMT"), read by hand: strptime's
// month names follow the process locale.
std::int64_t httpDate(const std::string& text) {
    std::tm tm{};
    std::array<char, 4> mon{};
    if (std::sscanf(text.c_str(), "%*[^,], %d %3s %d %d:%d:%d", &tm.tm_mday, mon.data(),
                    &tm.tm_year, &tm.tm_hour, &tm.tm_min, &tm.tm_sec) != 6 ||
        month(mon.data()) < 0) {
        return 0;
    }
    tm.tm_mon = month(mon.data());
    tm.tm_year -= 1900;
    return toNanoseconds(tm, 0);
}

// ISO 8601 as listings write it ("2024-01-02T03:04:05.678Z").
std::int64_t isoDate(const std::string& text) {
    std::tm tm{};
    if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%d", &tm.tm_year, &tm.tm_mon, &tm.tm_mday,
                    &tm.tm_hour, &tm.tm_min, &tm.tm_sec) != 6) {
        return 0;
    }
    long fraction = 0;
    if (const auto dot = text.find('.'); dot != std::string::npos) {
        long scale = 100'000'000;
        for (std::size_t i = dot + 1; i < text.size() && std::isdigit(text[i]) != 0; ++i) {
            fraction += (text[i] - '0') * scale;
            scale /= 10;
        }
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    return toNanoseconds(tm, fraction);
}

Response call(const std::string& method, const Location& l, const std::string& key,
              std::vector<std::pair<std::string, std::string>> query = {}, std::string body = {}) {
    Request r;
    r.method = method;
    r.bucket = l.bucket;
    r.key = key;
    r.query = std::move(query);
    r.body = std::move(body);
    return Client::instance().send(r);
}

struct ListedKey {
    std::string key;
    std::int64_t modified = 0;
};

struct Page {
    std::vector<ListedKey> keys;
    std::vector<std::string> prefixes;
};

// ListObjectsV2 under `prefix`, every page (continuation tokens) or only the first
// `maxKeys`. Code 4 when the bucket is missing.
Page listKeys(const Location& l, const std::string& prefix, bool oneLevel, int maxKeys,
              const AbsoluteIRI& location) {
    Page page;
    std::string token;
    for (;;) {
        std::vector<std::pair<std::string, std::string>> q{{"list-type", "2"}};
        if (!prefix.empty()) q.emplace_back("prefix", prefix);
        if (oneLevel) q.emplace_back("delimiter", "/");
        if (maxKeys > 0) q.emplace_back("max-keys", std::to_string(maxKeys));
        if (!token.empty()) q.emplace_back("continuation-token", token);
        const Response r = call("GET", l, "", std::move(q));
        if (!ok(r)) fail(r, location);
        pugi::xml_document doc;
        const auto parsed = doc.load_buffer(r.body.data(), r.body.size());
        const auto root = doc.child("ListBucketResult");
        if (!parsed || !root) {
            throw vfs::Exception(Code::OtherIOError, location,
                                 std::string("the listing could not be read: ") +
                                     (parsed ? "no ListBucketResult" : parsed.description()));
        }
        for (const auto c : root.children("Contents")) {
            page.keys.push_back({c.child_value("Key"), isoDate(c.child_value("LastModified"))});
        }
        for (const auto c : root.children("CommonPrefixes")) {
            page.prefixes.emplace_back(c.child_value("Prefix"));
        }
        if (maxKeys > 0 || std::strcmp(root.child_value("IsTruncated"), "true") != 0) break;
        const std::string next = root.child_value("NextContinuationToken");
        if (next.empty() || next == token) {
            throw vfs::Exception(Code::OtherIOError, location,
                                 "the listing is cut off without a continuation token");
        }
        token = next;
    }
    return page;
}

bool bucketExists(const Location& l, const AbsoluteIRI& location) {
    const Response r = call("HEAD", l, "");
    if (ok(r)) return true;
    if (r.status == 404) return false;
    fail(r, location);
}

// A folder: its marker or any key below it. The first key found, for its time.
std::optional<ListedKey> folderProbe(const Location& l, const std::string& key,
                                     const AbsoluteIRI& location) {
    try {
        Page p = listKeys(l, key + "/", false, 1, location);
        if (!p.keys.empty()) return p.keys.front();
        return std::nullopt;
    } catch (const vfs::Exception& e) {
        if (e.getErrorCode() == Code::NotFound) return std::nullopt;  // no such bucket
        throw;
    }
}

// HEAD of an object: its response when there is one, nothing when the key is missing.
std::optional<Response> headObject(const Location& l, const AbsoluteIRI& location) {
    Response r = call("HEAD", l, l.key);
    if (ok(r)) return r;
    if (r.status == 404) return std::nullopt;
    fail(r, location);
}

std::string parentKey(const std::string& key) {
    const auto slash = key.rfind('/');
    return slash == std::string::npos ? std::string() : key.substr(0, slash);
}

bool folderExists(const Location& l, const std::string& key, const AbsoluteIRI& location) {
    return key.empty() ? bucketExists(l, location) : folderProbe(l, key, location).has_value();
}

ExistenceType existence(const Location& l, const AbsoluteIRI& location) {
    if (l.key.empty()) {
        return bucketExists(l, location) ? ExistenceType::Folder : ExistenceType::DoesNotExist;
    }
    if (!l.folderOnly && headObject(l, location)) return ExistenceType::File;
    return folderProbe(l, l.key, location) ? ExistenceType::Folder : ExistenceType::DoesNotExist;
}

void put(const Location& l, const std::string& key, std::string body, bool exclusive,
         const AbsoluteIRI& location) {
    Request r;
    r.method = "PUT";
    r.bucket = l.bucket;
    r.key = key;
    r.body = std::move(body);
    if (exclusive) r.headers.emplace_back("If-None-Match", "*");
    const Response answer = Client::instance().send(r);
    if (!ok(answer)) fail(answer, location);
}

class S3Stream final : public Stream {
public:
    S3Stream(Location l, AbsoluteIRI location, std::string content, bool writing)
        : l_(std::move(l)),
          location_(std::move(location)),
          content_(std::move(content)),
          writing_(writing) {}

    ~S3Stream() override {
        try {
            close();
        } catch (const vfs::Exception&) {
            // A stream dropped without close() has no one to tell; close() reports it.
        }
    }

    std::size_t read(std::span<std::byte> buffer) override {
        const std::size_t n =
            std::min(buffer.size(), content_.size() - std::min(pos_, content_.size()));
        if (n > 0) std::memcpy(buffer.data(), content_.data() + pos_, n);
        pos_ += n;
        return n;
    }

    void write(std::span<const std::byte> data) override {
        if (!writing_) throw vfs::Exception(Code::InvalidLocation, location_, "opened for reading");
        content_.append(reinterpret_cast<const char*>(data.data()), data.size());
        dirty_ = true;
    }

    // An object is written whole: the buffered bytes go up in one PUT.
    void close() override {
        if (!dirty_) return;
        dirty_ = false;
        put(l_, l_.key, std::move(content_), false, location_);
        content_.clear();
    }

private:
    Location l_;
    AbsoluteIRI location_;
    std::string content_;
    std::size_t pos_ = 0;
    bool writing_;
    bool dirty_ = false;
};

struct Tree {
    bool file = false;
    bool folder = false;
    std::map<fl::ustring, std::unique_ptr<Tree>> children;

    Tree& child(const std::string& raw) {
        auto& slot = children[fl::i18n::to_ustring(raw)];
        if (!slot) slot = std::make_unique<Tree>();
        return *slot;
    }
};

class S3Provider final : public Provider {
public:
    ExistenceType exists(const AbsoluteIRI& location) const override {
        return existence(parse(location), location);
    }

    void createFile(const AbsoluteIRI& location) const override { create(location, false); }
    void createFolder(const AbsoluteIRI& location) const override { create(location, true); }

    void removeFile(const AbsoluteIRI& location) const override {
        const Location l = parse(location);
        if (l.key.empty()) throw vfs::Exception(Code::InvalidLocation, location);
        if (l.folderOnly || !headObject(l, location)) {
            if (folderProbe(l, l.key, location)) {
                throw vfs::Exception(Code::OtherIOError, location, "Is a directory");
            }
            throw vfs::Exception(Code::NotFound, location);
        }
        keepParent(l, l.key, location);
        const Response r = call("DELETE", l, l.key);
        if (!ok(r)) fail(r, location);
    }

    void removeFolder(const AbsoluteIRI& location) const override {
        const Location l = parse(location);
        if (l.key.empty()) throw vfs::Exception(Code::InvalidLocation, location);
        const Page p = listKeys(l, l.key + "/", false, 2, location);
        if (p.keys.empty()) {
            if (!l.folderOnly && headObject(l, location)) {
                throw vfs::Exception(Code::OtherIOError, location, "Not a directory");
            }
            throw vfs::Exception(Code::NotFound, location);
        }
        for (const ListedKey& k : p.keys) {
            if (k.key != l.key + "/") {
                throw vfs::Exception(Code::OtherIOError, location, "Directory not empty");
            }
        }
        keepParent(l, l.key + "/", location);
        const Response r = call("DELETE", l, l.key + "/");
        if (!ok(r)) fail(r, location);
    }

    // Readable: the store answered for the name. Writable: the client signs its requests
    // (an anonymous one can write nowhere); S3 tells no more without trying a write.
    Attributes getAttributes(const AbsoluteIRI& location) const override {
        const Location l = parse(location);
        Attributes a;
        a.readable = true;
        a.writable = !Client::instance().config().anonymous();
        if (!l.key.empty() && !l.folderOnly) {
            if (const auto head = headObject(l, location)) {
                const auto size = head->headers.find("content-length");
                const auto modified = head->headers.find("last-modified");
                a.size = size == head->headers.end() ? 0 : std::stoull(size->second);
                a.lastModified = modified == head->headers.end() ? 0 : httpDate(modified->second);
                return a;
            }
        }
        a.isFolder = true;
        if (l.key.empty()) {
            if (!bucketExists(l, location)) throw vfs::Exception(Code::NotFound, location);
            const Page p = listKeys(l, "", false, 1, location);
            if (!p.keys.empty()) a.lastModified = p.keys.front().modified;
            return a;
        }
        const auto first = folderProbe(l, l.key, location);
        if (!first) throw vfs::Exception(Code::NotFound, location);
        a.lastModified = first->modified;
        return a;
    }

    std::unique_ptr<Stream> open(const AbsoluteIRI& location, OpenMode mode) const override {
        const Location l = parse(location);
        if (l.key.empty() || l.folderOnly) throw vfs::Exception(Code::InvalidLocation, location);
        std::string content;
        if (mode != OpenMode::Write) {
            const Response r = call("GET", l, l.key);
            if (ok(r)) {
                content = r.body;
            } else if (r.status != 404) {
                fail(r, location);
            } else if (folderProbe(l, l.key, location)) {
                throw vfs::Exception(Code::InvalidLocation, location);
            } else if (mode == OpenMode::Read) {
                throw vfs::Exception(Code::NotFound, location);
            }
        }
        if (mode != OpenMode::Read) {
            if (folderProbe(l, l.key, location)) {
                throw vfs::Exception(Code::InvalidLocation, location);
            }
            if (!folderExists(l, parentKey(l.key), location)) {
                throw vfs::Exception(Code::NotFound, location);
            }
        }
        auto stream =
            std::make_unique<S3Stream>(l, location, std::move(content), mode != OpenMode::Read);
        // Opening for writing makes the object at once, as a file system's open does.
        if (mode == OpenMode::Write) {
            put(l, l.key, {}, false, location);
        }
        return stream;
    }

    void list(const AbsoluteIRI& folder, ListScope scope, const fl::ustring& pattern,
              std::vector<ListEntry>& out) const override {
        const Location l = parse(folder);
        const std::string prefix = l.key.empty() ? std::string() : l.key + "/";
        const bool recursive = scope == ListScope::AllRecursive;
        const Page page = listKeys(l, prefix, !recursive, 0, folder);
        if (page.keys.empty() && page.prefixes.empty() && !l.key.empty()) {
            if (!l.folderOnly && headObject(l, folder)) {
                throw vfs::Exception(Code::InvalidLocation, folder);
            }
            throw vfs::Exception(Code::NotFound, folder);
        }
        Tree tree;
        for (const ListedKey& k : page.keys) add(tree, k.key.substr(prefix.size()), recursive);
        for (const std::string& p : page.prefixes) add(tree, p.substr(prefix.size()), false);
        std::string base = "s3://" + l.bucket;
        for (std::string_view rest = l.key; !rest.empty();) {
            const auto end = std::min(rest.find('/'), rest.size());
            base += '/';
            storage::detail::appendEncodedSegment(base, rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        std::vector<ListEntry> entries;
        walk(tree, base, scope, fl::i18n::to_utf8(pattern), entries);
        out.insert(out.end(), std::make_move_iterator(entries.begin()),
                   std::make_move_iterator(entries.end()));
    }

private:
    // Removing the last key below an implied folder would remove the folder with it,
    // which no file system does (and the replace rule's remove-then-create would find
    // no parent): the folder gets its marker first.
    static void keepParent(const Location& l, const std::string& key, const AbsoluteIRI& location) {
        const std::string parent =
            parentKey(key.back() == '/' ? key.substr(0, key.size() - 1) : key);
        if (parent.empty()) return;
        const Page p = listKeys(l, parent + "/", false, 2, location);
        if (p.keys.size() == 1 && p.keys.front().key == key)
            put(l, parent + "/", {}, false, location);
    }

    // A key below the listed folder, split at "/": every level above the last is a
    // folder; a key ending in "/" is a folder's marker. Keys with an empty level cannot
    // be named by an IRI and are left out.
    static void add(Tree& root, std::string_view rest, bool recursive) {
        Tree* node = &root;
        while (!rest.empty()) {
            const auto slash = rest.find('/');
            if (slash == 0) return;
            if (slash == std::string_view::npos) {
                node->child(std::string(rest)).file = true;
                return;
            }
            Tree& next = node->child(std::string(rest.substr(0, slash)));
            next.folder = true;
            if (!recursive) return;
            node = &next;
            rest.remove_prefix(slash + 1);
        }
    }

    static void walk(const Tree& folder, const std::string& prefix, ListScope scope,
                     const std::string& pattern, std::vector<ListEntry>& out) {
        for (const auto& [name, child] : folder.children) {
            const std::string raw = fl::i18n::to_utf8(name);
            std::string text = prefix + '/';
            storage::detail::appendEncodedSegment(text, raw);
            const bool matches = pattern.empty() || ::fnmatch(pattern.c_str(), raw.c_str(), 0) == 0;
            if (child->file && matches && scope != ListScope::Folders) {
                out.emplace_back(AbsoluteIRI::fromTrustedText(text), name, ListEntry::Kind::File);
            }
            if (child->folder) {
                if (matches && scope != ListScope::Files) {
                    out.emplace_back(AbsoluteIRI::fromTrustedText(text), name,
                                     ListEntry::Kind::Folder);
                }
                if (scope == ListScope::AllRecursive) walk(*child, text, scope, pattern, out);
            }
        }
    }

    // Exclusive: nothing may have the name, the parent folder must be there, and the PUT
    // carries If-None-Match so that a server that honours it closes the race between
    // the check and the write.
    static void create(const AbsoluteIRI& location, bool folder) {
        const Location l = parse(location);
        if (l.key.empty()) {
            throw vfs::Exception(bucketExists(l, location) ? Code::AlreadyExists : Code::NotFound,
                                 location);
        }
        if (l.folderOnly && !folder) throw vfs::Exception(Code::InvalidLocation, location);
        if (existence(l, location) != ExistenceType::DoesNotExist) {
            throw vfs::Exception(Code::AlreadyExists, location);
        }
        if (!folderExists(l, parentKey(l.key), location)) {
            throw vfs::Exception(Code::NotFound, location);
        }
        put(l, folder ? l.key + "/" : l.key, {}, true, location);
    }
};

}  // namespace

const Provider& s3Provider() {
    static const S3Provider provider;
    return provider;
}

void reloadS3Configuration() { Client::instance().reload(); }

}  // namespace foundation::storage::provider
