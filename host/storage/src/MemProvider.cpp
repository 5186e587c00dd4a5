// The "mem" provider: one process-wide in-memory tree under mem://root/.
#include "foundation/storage/provider/MemProvider.hpp"

#include "IRIText.hpp"
#include "Providers.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/Exception.hpp"

#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>

#include <chrono>
#include <cstring>
#include <fnmatch.h>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace foundation::storage::provider {

namespace {

using vfs::AbsoluteIRI;
using vfs::ListEntry;
using Code = vfs::Exception::Code;

std::int64_t now() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

struct Node {
    bool isFolder = false;
    bool readOnly = false;
    std::int64_t modified = now();
    // Sorted by UTF-16 code units, the listing order.
    std::map<fl::ustring, std::unique_ptr<Node>> children;
    // Shared with open streams, so that a removed file's stream stays valid.
    std::shared_ptr<std::string> content;
};

struct Store {
    std::mutex mutex;
    std::unique_ptr<Node> root = makeFolder();

    static std::unique_ptr<Node> makeFolder() {
        auto n = std::make_unique<Node>();
        n->isFolder = true;
        return n;
    }
};

Store& store() {
    static Store s;
    return s;
}

std::string_view sv(boost::urls::string_view s) { return {s.data(), s.size()}; }

// The decoded segments below the root; "." and ".." are applied lexically, which is
// exact here because the tree has no links.
std::vector<fl::ustring> segmentsOf(const AbsoluteIRI& location) {
    const auto u = boost::urls::parse_uri(location.toEncodedString()).value();
    if (!storage::detail::iequalsAscii(sv(u.scheme()), "mem") || !u.has_authority() ||
        u.has_userinfo() || u.has_port() || sv(u.encoded_host()) != "root") {
        throw vfs::Exception(Code::InvalidLocation, location);
    }
    const auto raw = storage::detail::decodedSegments(sv(u.encoded_path()));
    if (!raw) throw vfs::Exception(Code::InvalidLocation, location);
    std::vector<fl::ustring> segments;
    segments.reserve(raw->size());
    for (const auto& segment : *raw) segments.push_back(fl::i18n::to_ustring(segment));
    return segments;
}

// The node at the segments, or null. `parent` receives the folder that would hold it
// (null when a level above is missing or is a file).
Node* find(Node* root, const std::vector<fl::ustring>& segments, Node** parent = nullptr) {
    Node* node = root;
    Node* holder = nullptr;
    for (const fl::ustring& s : segments) {
        if (node == nullptr || !node->isFolder) {
            holder = nullptr;
            node = nullptr;
            break;
        }
        holder = node;
        auto it = node->children.find(s);
        node = it == node->children.end() ? nullptr : it->second.get();
    }
    if (parent != nullptr) *parent = holder;
    return node;
}

class MemStream final : public Stream {
public:
    MemStream(std::shared_ptr<std::string> content, bool append)
        : content_(std::move(content)), pos_(append ? content_->size() : 0) {}

    std::size_t read(std::span<std::byte> buffer) override {
        std::lock_guard lock(store().mutex);
        const std::size_t n =
            std::min(buffer.size(), content_->size() - std::min(pos_, content_->size()));
        if (n > 0) std::memcpy(buffer.data(), content_->data() + pos_, n);
        pos_ += n;
        return n;
    }

    void write(std::span<const std::byte> data) override {
        std::lock_guard lock(store().mutex);
        if (content_->size() < pos_ + data.size()) content_->resize(pos_ + data.size());
        if (!data.empty()) std::memcpy(content_->data() + pos_, data.data(), data.size());
        pos_ += data.size();
    }

    void close() override {}

private:
    std::shared_ptr<std::string> content_;
    std::size_t pos_;
};

class MemProvider final : public Provider {
public:
    ExistenceType exists(const AbsoluteIRI& location) const override {
        const auto segments = segmentsOf(location);
        std::lock_guard lock(store().mutex);
        const Node* n = find(store().root.get(), segments);
        if (n == nullptr) return ExistenceType::DoesNotExist;
        return n->isFolder ? ExistenceType::Folder : ExistenceType::File;
    }

    void createFile(const AbsoluteIRI& location) const override { create(location, false); }
    void createFolder(const AbsoluteIRI& location) const override { create(location, true); }
    void removeFile(const AbsoluteIRI& location) const override { remove(location, false); }
    void removeFolder(const AbsoluteIRI& location) const override { remove(location, true); }

    Attributes getAttributes(const AbsoluteIRI& location) const override {
        const auto segments = segmentsOf(location);
        std::lock_guard lock(store().mutex);
        Node* parent = nullptr;
        const Node* n = find(store().root.get(), segments, &parent);
        if (n == nullptr) throw vfs::Exception(Code::NotFound, location);
        Attributes a;
        a.isFolder = n->isFolder;
        a.readable = true;
        a.writable = n->isFolder ? !n->readOnly : (parent == nullptr || !parent->readOnly);
        a.size = n->isFolder ? 0 : n->content->size();
        a.lastModified = n->modified;
        return a;
    }

    std::unique_ptr<Stream> open(const AbsoluteIRI& location, OpenMode mode) const override {
        const auto segments = segmentsOf(location);
        std::lock_guard lock(store().mutex);
        Node* parent = nullptr;
        Node* n = find(store().root.get(), segments, &parent);
        if (n != nullptr && n->isFolder) throw vfs::Exception(Code::InvalidLocation, location);
        if (mode == OpenMode::Read) {
            if (n == nullptr) throw vfs::Exception(Code::NotFound, location);
            return std::make_unique<MemStream>(n->content, false);
        }
        if (parent == nullptr) throw vfs::Exception(Code::NotFound, location);
        if (parent->readOnly) throw vfs::Exception(Code::PermissionDenied, location);
        if (n == nullptr) {
            auto node = std::make_unique<Node>();
            node->content = std::make_shared<std::string>();
            n = node.get();
            parent->children.emplace(segments.back(), std::move(node));
            parent->modified = now();
        } else if (mode == OpenMode::Write) {
            n->content->clear();
        }
        n->modified = now();
        return std::make_unique<MemStream>(n->content, mode == OpenMode::Append);
    }

    void list(const AbsoluteIRI& folder, ListScope scope, const fl::ustring& pattern,
              std::vector<ListEntry>& out) const override {
        const auto segments = segmentsOf(folder);
        const std::string patternText = fl::i18n::to_utf8(pattern);
        std::vector<ListEntry> entries;
        std::lock_guard lock(store().mutex);
        const Node* n = find(store().root.get(), segments);
        if (n == nullptr) throw vfs::Exception(Code::NotFound, folder);
        if (!n->isFolder) throw vfs::Exception(Code::InvalidLocation, folder);
        std::string prefix = "mem://root";
        for (const fl::ustring& s : segments) {
            prefix += '/';
            storage::detail::appendEncodedSegment(prefix, fl::i18n::to_utf8(s));
        }
        walk(*n, prefix, scope, patternText, entries);
        out.insert(out.end(), std::make_move_iterator(entries.begin()),
                   std::make_move_iterator(entries.end()));
    }

private:
    static void walk(const Node& folder, const std::string& prefix, ListScope scope,
                     const std::string& pattern, std::vector<ListEntry>& out) {
        for (const auto& [name, child] : folder.children) {
            const std::string raw = fl::i18n::to_utf8(name);
            std::string text = prefix + '/';
            storage::detail::appendEncodedSegment(text, raw);
            const bool wanted = scope == ListScope::All || scope == ListScope::AllRecursive ||
                                (scope == ListScope::Folders) == child->isFolder;
            if (wanted && (pattern.empty() || ::fnmatch(pattern.c_str(), raw.c_str(), 0) == 0)) {
                out.emplace_back(AbsoluteIRI::fromTrustedText(text), name,
                                 child->isFolder ? ListEntry::Kind::Folder : ListEntry::Kind::File);
            }
            if (scope == ListScope::AllRecursive && child->isFolder) {
                walk(*child, text, scope, pattern, out);
            }
        }
    }

    static void create(const AbsoluteIRI& location, bool folder) {
        const auto segments = segmentsOf(location);
        std::lock_guard lock(store().mutex);
        if (segments.empty()) throw vfs::Exception(Code::AlreadyExists, location);
        Node* parent = nullptr;
        const Node* n = find(store().root.get(), segments, &parent);
        if (n != nullptr) throw vfs::Exception(Code::AlreadyExists, location);
        if (parent == nullptr) throw vfs::Exception(Code::NotFound, location);
        if (parent->readOnly) throw vfs::Exception(Code::PermissionDenied, location);
        auto node = std::make_unique<Node>();
        node->isFolder = folder;
        if (!folder) node->content = std::make_shared<std::string>();
        parent->children.emplace(segments.back(), std::move(node));
        parent->modified = now();
    }

    static void remove(const AbsoluteIRI& location, bool folder) {
        const auto segments = segmentsOf(location);
        std::lock_guard lock(store().mutex);
        if (segments.empty()) throw vfs::Exception(Code::InvalidLocation, location);
        Node* parent = nullptr;
        const Node* n = find(store().root.get(), segments, &parent);
        if (n == nullptr) throw vfs::Exception(Code::NotFound, location);
        if (n->isFolder != folder) {
            throw vfs::Exception(Code::OtherIOError, location,
                                 folder ? "Not a directory" : "Is a directory");
        }
        if (folder && !n->children.empty()) {
            throw vfs::Exception(Code::OtherIOError, location, "Directory not empty");
        }
        if (parent->readOnly) throw vfs::Exception(Code::PermissionDenied, location);
        parent->children.erase(segments.back());
        parent->modified = now();
    }
};

}  // namespace

const Provider& memProvider() {
    static const MemProvider provider;
    return provider;
}

void setMemFolderReadOnly(const vfs::AbsoluteIRI& folder, bool readOnly) {
    const auto segments = segmentsOf(folder);
    std::lock_guard lock(store().mutex);
    Node* n = find(store().root.get(), segments);
    if (n == nullptr) throw vfs::Exception(Code::NotFound, folder);
    if (!n->isFolder) throw vfs::Exception(Code::InvalidLocation, folder);
    n->readOnly = readOnly;
}

void resetMemStorage() {
    std::lock_guard lock(store().mutex);
    store().root = Store::makeFolder();
}

}  // namespace foundation::storage::provider
