#include "quorin/io/filesystem/core/ContentType.hpp"

#include "Internal.hpp"
#include "Posix.hpp"
#include "quorin/io/filesystem/core/PathComponents.hpp"

#include "fl/i18n/unicode.hpp"
#include "foundation/core/except/Exception.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"

#include <magic.h>

#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <sys/stat.h>

namespace quorin::io::filesystem::core {
namespace {

using Table = std::unordered_map<std::string, std::string>;

constexpr const char* folderType = "inode/directory";
constexpr const char* unknownType = "application/octet-stream";

std::string lowerAscii(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

// Data formats that the system tables lack or name too vaguely (they call HDF5 files
// plain "x-hdf", which also covers HDF4).
Table ownTable() {
    return {
        {"parquet", "application/vnd.apache.parquet"},
        {"h5", "application/x-hdf5"},
        {"hdf5", "application/x-hdf5"},
        {"he5", "application/x-hdf5"},
        {"nc4", "application/x-netcdf"},
        {"feather", "application/vnd.apache.arrow.file"},
        {"avro", "application/vnd.apache.avro"},
        {"orc", "application/vnd.apache.orc"},
        {"npy", "application/x-npy"},
        {"npz", "application/x-npz"},
        {"ndjson", "application/x-ndjson"},
        {"jsonl", "application/x-ndjson"},
        {"geojson", "application/geo+json"},
    };
}

// /etc/mime.types: "type ext ext ...", '#' comments; the first line naming an extension
// wins, as in every reader of this file.
Table readMimeTypes(const char* file) {
    Table table;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (const auto hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        std::istringstream words(line);
        std::string type;
        if (!(words >> type)) continue;
        std::string ext;
        while (words >> ext) table.emplace(lowerAscii(ext), type);
    }
    return table;
}

struct Globs {
    Table bySuffix;  // "*.tar.gz" -> "tar.gz"
    Table byName;    // literal names such as "Makefile", lower-cased
};

bool hasWildcard(std::string_view s) { return s.find_first_of("*?[") != std::string_view::npos; }

// shared-mime-info globs2: "weight:type:pattern[:flags]", heaviest first; patterns other
// than "*.suffix" and literal names need a glob matcher and are left to libmagic.
Globs readGlobs(const char* file) {
    Globs globs;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const auto c1 = line.find(':');
        const auto c2 = c1 == std::string::npos ? c1 : line.find(':', c1 + 1);
        if (c2 == std::string::npos) continue;
        const std::string type = line.substr(c1 + 1, c2 - c1 - 1);
        std::string pattern = line.substr(c2 + 1);
        if (const auto c3 = pattern.find(':'); c3 != std::string::npos) pattern.resize(c3);
        if (pattern.size() > 2 && pattern.compare(0, 2, "*.") == 0 &&
            !hasWildcard(std::string_view(pattern).substr(2))) {
            globs.bySuffix.emplace(lowerAscii(pattern.substr(2)), type);
        } else if (!pattern.empty() && !hasWildcard(pattern)) {
            globs.byName.emplace(lowerAscii(pattern), type);
        }
    }
    return globs;
}

struct Tables {
    Table own = ownTable();
    Table mimeTypes = readMimeTypes("/etc/mime.types");
    Globs globs = readGlobs("/usr/share/mime/globs2");
};

const Tables& tables() {
    static const Tables t;
    return t;
}

const std::string* find(const Table& table, const std::string& key) {
    const auto it = table.find(key);
    return it == table.end() ? nullptr : &it->second;
}

// The dotted suffixes of a lower-cased name, longest first ("a.tar.gz": "tar.gz", "gz");
// leading dots mark hidden files and start none.
std::vector<std::string> suffixes(const std::string& name) {
    std::vector<std::string> out;
    const auto firstNonDot = name.find_first_not_of('.');
    if (firstNonDot == std::string::npos) return out;
    for (auto dot = name.find('.', firstNonDot); dot != std::string::npos;
         dot = name.find('.', dot + 1)) {
        if (dot + 1 < name.size()) out.push_back(name.substr(dot + 1));
    }
    return out;
}

// Tables in order of trust, and within each the longest suffix first, so that
// "*.tar.gz" and "spdx.json" beat "*.gz" and "json"; then literal names ("Makefile").
const std::string* byName(const std::string& name) {
    const Tables& t = tables();
    const auto candidates = suffixes(name);
    for (const Table* table : {&t.own, &t.mimeTypes, &t.globs.bySuffix}) {
        for (const auto& suffix : candidates) {
            if (const auto* type = find(*table, suffix)) return type;
        }
    }
    return find(t.globs.byName, name);
}

// One magic handle for the process; libmagic handles are not thread-safe.
class Magic {
public:
    Magic() : cookie_(magic_open(MAGIC_MIME_TYPE | MAGIC_SYMLINK | MAGIC_ERROR)) {
        if (cookie_ != nullptr && magic_load(cookie_, nullptr) != 0) {
            magic_close(cookie_);
            cookie_ = nullptr;
        }
    }
    ~Magic() {
        if (cookie_ != nullptr) magic_close(cookie_);
    }
    Magic(const Magic&) = delete;
    Magic& operator=(const Magic&) = delete;

    std::string typeOf(const std::string& file) {
        if (cookie_ == nullptr) return {};
        const std::lock_guard lock(mutex_);
        const char* answer = magic_file(cookie_, file.c_str());
        return answer == nullptr ? std::string() : std::string(answer);
    }

private:
    magic_t cookie_;
    std::mutex mutex_;
};

Magic& magic() {
    static Magic m;
    return m;
}

}  // namespace

fl::ustring getContentTypeCaller(const fl::ustring& path) {
    const bool isUrl = foundation::storage::vfs::hasIRIPrefix(path);
    const std::string local = detail::localPathOf(path, isUrl);

    struct stat st {};
    const bool exists = !local.empty() && posix::statPath(local, st) == 0;
    if (exists && S_ISDIR(st.st_mode)) return fl::i18n::to_ustring(folderType);

    PathComponents parts;
    try {
        parts = getPathComponents(path, isUrl, FileSystemType::Native);
    } catch (const foundation::core::except::IMsgIDException&) {
        // A bad port says nothing about the name: split the URL's text before its query.
        parts = getPathComponents(path.substr(0, path.find_first_of(u"?#")), false,
                                  FileSystemType::Unix);
    }
    if (const auto* type = byName(lowerAscii(fl::i18n::to_utf8(parts.name + parts.extension)))) {
        return fl::i18n::to_ustring(*type);
    }

    if (exists && S_ISREG(st.st_mode)) {
        const std::string sniffed = magic().typeOf(local);
        // An empty file has no content to tell its type by.
        if (!sniffed.empty() && sniffed != "inode/x-empty") return fl::i18n::to_ustring(sniffed);
    }
    return fl::i18n::to_ustring(unknownType);
}

}  // namespace quorin::io::filesystem::core
