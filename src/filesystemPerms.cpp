// Reading and changing POSIX permissions of files, folders and links, down whole trees.
//
// getPerms_impl reports named permission bits as a 1x1 struct of logicals; modifyPerms_impl
// grants or revokes them on one location, a link (itself or its target) or a folder tree.
// Each operation computes a failure record (or a list for a tree); only the gateway
// decides whether to throw the first one (no output requested) or hand all of them back
// as a struct array with the fields "Name" and "Cause".
//
// Trees are walked by the storage library relative to open folders, so a link met inside
// a tree is never followed; the only change that may land outside the tree is the scope
// "target", which changes a link's own target.
#include "quorin/gateway/Errors.hpp"
#include "quorin/gateway/Gateway.hpp"
#include "quorin/gateway/Text.hpp"
#include "quorin/io/filesystem/core/Existence.hpp"
#include "quorin/io/filesystem/core/Log.hpp"
#include "quorin/io/filesystem/quorin/Builtins.hpp"

#include "Hexfarrow/PathManagement/PathManagement.hpp"
#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "Hexfarrow/String/String.hpp"
#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/MessageCatalog.hpp"
#include "fl/i18n/ZkLocale.hpp"
#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"
#include "foundation/storage/provider/TreeWalk.hpp"
#include "foundation/storage/vfs/vfs.hpp"
#include "matrix/matrix.hpp"
#include "vq/vqArray.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace quorin::io::filesystem::quorin {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;
namespace provider = foundation::storage::provider;
namespace core = ::quorin::io::filesystem::core;
using foundation::storage::provider::ExistenceTypeExtended;

namespace {

constexpr const char* kSourceFile = "src/filesystemPerms";

// requireRowVector off: a char array of any shape is read whole, in column-major order.
constexpr bool kAnyCharShape = false;

// Debug records cost one flag test when debug logging is off: nothing is formatted.
void logCaughtException() {
    if (!core::log::isDebugLoggingEnabled()) return;
    BOOST_LOG_SEV(core::log::getLogger(), core::log::Severity::debug)
        << "Exception caught: " << boost::current_exception_diagnostic_information();
}

// Entry and exit of a function, with its source and signature, for debug sessions.
class ScopeTrace {
public:
    explicit ScopeTrace(const char* signature) noexcept
        : signature_(core::log::isDebugLoggingEnabled() ? signature : nullptr) {
        if (signature_ != nullptr) write("enter");
    }
    ScopeTrace(const ScopeTrace&) = delete;
    ScopeTrace& operator=(const ScopeTrace&) = delete;
    ~ScopeTrace() {
        if (signature_ != nullptr) write("leave");
    }

private:
    void write(const char* what) const noexcept {
        try {
            BOOST_LOG_SEV(core::log::getLogger(), core::log::Severity::debug)
                << what << ' ' << kSourceFile << ": " << signature_;
        } catch (...) {  // tracing must never change what a call does
        }
    }
    const char* signature_;
};

#define ZKFS_TRACE_SCOPE() \
    const ScopeTrace zkfsScopeTrace_(static_cast<const char*>(__PRETTY_FUNCTION__))

bool equalsAsciiNoCase(const fl::ustring& a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i];
        char16_t y = b[i];
        if (x >= u'A' && x <= u'Z') x = static_cast<char16_t>(x - u'A' + u'a');
        if (y >= u'A' && y <= u'Z') y = static_cast<char16_t>(y - u'A' + u'a');
        if (x != y) return false;
    }
    return true;
}

bool isFileScheme(const vfs::AbsoluteIRI& iri) {
    return equalsAsciiNoCase(iri.getScheme(), u"file");
}

// The catalog text of a message in the user's locale, as 8-bit text for a "Cause".
template <class ID, class... A>
std::string catalogText(const A&... args) {
    return fl::i18n::to_utf8(
        fl::i18n::MessageCatalog::get_message(ID(args...), fl::i18n::ZkLocale::global()));
}

// A readable reason for an exception caught in a walk.
std::string reasonOfCurrentException() {
    try {
        throw;
    } catch (const foundation::core::except::IMsgIDException& e) {
        return fl::i18n::to_utf8(e.GetUnicodeMessageTxt());
    } catch (const std::exception& e) {
        return e.what();
    } catch (...) {
        return "unknown error";
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The permission model

// A map that remembers the order in which its keys first arrived: that order becomes the
// field order of the structs handed back and the order in which requests are applied.
template <class K, class V>
class OrderedMap {
public:
    OrderedMap() { map.max_load_factor(1.0F); }

    V& operator[](const K& key) {
        auto found = map.find(key);
        if (found != map.end()) return found->second;
        keys.push_back(key);
        try {
            return map.emplace(key, V{}).first->second;
        } catch (...) {
            keys.pop_back();
            throw;
        }
    }

    [[nodiscard]] const V* find(const K& key) const {
        auto found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }
    [[nodiscard]] const V& at(const K& key) const { return map.at(key); }
    [[nodiscard]] bool contains(const K& key) const { return map.find(key) != map.end(); }
    [[nodiscard]] std::size_t size() const noexcept { return keys.size(); }
    [[nodiscard]] bool empty() const noexcept { return keys.empty(); }
    [[nodiscard]] auto begin() const noexcept { return keys.begin(); }
    [[nodiscard]] auto end() const noexcept { return keys.end(); }

    std::vector<K> keys;
    std::unordered_map<K, V> map;
};

using PermissionRequest = OrderedMap<fl::ustring, bool>;
using Failure = std::pair<fl::ustring, std::string>;
using OptionalFailure = std::optional<Failure>;
using FailureList = std::vector<Failure>;

// The owner's read and write bits are "Readable" and "Writable" with no "User" prefix,
// but its execute bit is "UserExecute": these are user-visible names, keep them so.
OrderedMap<fl::ustring, fs::perms> getPermNameAndFilesystemPermsMap() {
    OrderedMap<fl::ustring, fs::perms> table;
    table[u"Readable"] = fs::perms::owner_read;
    table[u"Writable"] = fs::perms::owner_write;
    table[u"UserExecute"] = fs::perms::owner_exec;
    table[u"GroupRead"] = fs::perms::group_read;
    table[u"GroupWrite"] = fs::perms::group_write;
    table[u"GroupExecute"] = fs::perms::group_exec;
    table[u"OtherRead"] = fs::perms::others_read;
    table[u"OtherWrite"] = fs::perms::others_write;
    table[u"OtherExecute"] = fs::perms::others_exec;
    return table;
}

// The array ends with a null entry, so that it can be released knowing nothing else.
const char** getFieldNames(const OrderedMap<fl::ustring, bool>& m) {
    auto names = std::make_unique<const char*[]>(m.size() + 1);
    std::size_t made = 0;
    try {
        for (const auto& key : m.keys) {
            const std::string narrow = fl::i18n::to_utf8(key);
            auto copy = std::make_unique<char[]>(narrow.size() + 1);
            narrow.copy(copy.get(), narrow.size());
            copy[narrow.size()] = '\0';
            names[made++] = copy.release();
        }
    } catch (...) {
        for (std::size_t i = 0; i < made; ++i) delete[] names[i];
        throw;
    }
    return names.release();
}

void freeFieldNames(const char** names) {
    if (names == nullptr) return;
    for (const char** name = names; *name != nullptr; ++name) delete[] * name;
    delete[] names;
}

unique_vqarray_ptr createStruct(const OrderedMap<fl::ustring, bool>& m) {
    ZKFS_TRACE_SCOPE();
    const std::size_t count = m.size();
    const char** names = getFieldNames(m);
    struct Release {
        const char** names;
        ~Release() { freeFieldNames(names); }
    } release{names};

    std::vector<std::string> fieldNames(names, names + count);
    unique_vqarray_ptr result = matrix::detail::do_create_struct({1, 1}, fieldNames);
    for (std::size_t i = 0; i < count; ++i) {
        unique_vqarray_ptr value =
            matrix::detail::do_create_numeric({1, 1}, vqLOGICAL_CLASS, vqREAL);
        vqGetLogicals(value.get())[0] = m.at(m.keys[i]);
        const int field = vqGetFieldNumber(result.get(), names[i]);
        vqSetFieldByNumber(result.get(), 0, field, value.get());
        (void)value.release();  // the struct holds it now
    }
    return result;
}

namespace {

// A cloud permission is whether its probe completes; a failure is logged, not raised.
template <class Probe>
bool probeSucceeds(Probe&& probe) {
    try {
        probe();
        return true;
    } catch (...) {
        logCaughtException();
        return false;
    }
}

OrderedMap<fl::ustring, bool> readableWritable(bool readable, bool writable) {
    OrderedMap<fl::ustring, bool> perms;
    perms[u"Readable"] = readable;
    perms[u"Writable"] = writable;
    return perms;
}

}  // namespace

const OrderedMap<fl::ustring, bool> basicPermsOnCloudPaths(const vfs::File& file) {
    ZKFS_TRACE_SCOPE();
    const bool readable = probeSucceeds([&] { const vfs::IODevice device(file); });
    bool writable = false;
    (void)probeSucceeds([&] { writable = file.getAttributes().isWritable(); });
    return readableWritable(readable, writable);
}

const OrderedMap<fl::ustring, bool> basicPermsOnCloudPaths(const vfs::Folder& folder) {
    ZKFS_TRACE_SCOPE();
    const bool readable = probeSucceeds([&] { (void)folder.listAll(fl::ustring()); });
    // Whether entries can be made here is only known by making one; a random name keeps
    // the probe from meeting anything that is already there. A failing entropy source
    // is not a storage answer and leaves the call.
    const boost::uuids::uuid id = boost::uuids::random_generator()();
    const fl::ustring probeName = fl::i18n::to_ustring(boost::lexical_cast<std::string>(id));
    const bool writable = probeSucceeds([&] {
        const vfs::File probe(folder.getLocation().getChild(probeName), folder.getStorage());
        probe.createFile();
        probe.removeFile();
    });
    return readableWritable(readable, writable);
}

// ---------------------------------------------------------------------------------------
// The query

struct ResolvePathResult {
    enum class Type { File, Folder, Other };
    fl::ustring location;
    Type type;
};

ResolvePathResult validateAndResolveInputLocation(const vqArray* location, const vqArray* type) {
    ZKFS_TRACE_SCOPE();
    // Leniently, as every text of the permission built-ins: a char matrix is one text.
    ResolvePathResult result{gateway::convertScalarText(location, kAnyCharShape),
                             ResolvePathResult::Type::Other};
    const fl::ustring typeText = gateway::convertScalarText(type, kAnyCharShape);
    if (typeText == u"File") {
        result.type = ResolvePathResult::Type::File;
    } else if (typeText == u"Folder") {
        result.type = ResolvePathResult::Type::Folder;
    }
    return result;
}

fl::filesystem::file_status getPermissionsOnUnix(const fl::ustring& path) {
    // The name itself: a link answers with its own mode, never its target's.
    return fl::filesystem::symlink_status(path);
}

OrderedMap<fl::ustring, bool> getPermissionsOnCurrentPlatform(
    const fl::ustring& path, const std::vector<fl::ustring>& names) {
    ZKFS_TRACE_SCOPE();
    auto table = getPermNameAndFilesystemPermsMap();
    // Nothing there reports every permission as absent (the library's own value for a
    // missing name is "unknown", all bits set).
    const auto bits = static_cast<fs::perms>(getPermissionsOnUnix(path).permissions());

    OrderedMap<fl::ustring, bool> result;
    const std::vector<fl::ustring>& report = names.empty() ? table.keys : names;
    for (const auto& name : report) {
        // An unknown name is entered with no bit, so it is still reported, as false.
        result[name] = (bits & table[name]) != fs::perms::none;
    }
    return result;
}

namespace {

std::vector<fl::ustring> readRequestedNames(const vqArray* arg) {
    std::vector<fl::ustring> names;
    gateway::forEachText(arg, [&](std::size_t index, const std::optional<fl::ustring_view>& text) {
        // A missing string is reported as a bad cell element, as the host has always done.
        if (!text) gateway::throwBadCellElement(index, gateway::CellErrorArgument::InputName);
        names.emplace_back(*text);
    });
    return names;
}

vfs::AbsoluteIRI locationIRI(const fl::ustring& location) {
    return vfs::hasIRIPrefix(location) ? Hexfarrow::PathManagement::GetIRIFromString(location)
                                       : vfs::AbsoluteIRI(location);
}

OrderedMap<fl::ustring, bool> cloudPermissions(const vfs::AbsoluteIRI& iri) {
    try {
        const vfs::StorageSystemReference storage =
            Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
        const ExistenceTypeExtended existence = vfs::existsExtended(iri, storage);
        if (core::isFile(existence)) return basicPermsOnCloudPaths(vfs::File(iri, storage));
        if (core::isFolder(existence)) return basicPermsOnCloudPaths(vfs::Folder(iri, storage));
        return {};
    } catch (...) {
        // Storage failures are identified errors already: the user sees them as they are.
        logCaughtException();
        throw;
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------
// The change

// The bits a request grants and revokes, worked out once per call (a walk reuses them
// for every entry).
struct PermissionChange {
    fs::perms toAdd = fs::perms::none;
    fs::perms toRemove = fs::perms::none;
};

namespace {

PermissionChange changeOf(const PermissionRequest& request) {
    auto table = getPermNameAndFilesystemPermsMap();
    PermissionChange change;
    for (const auto& name : request.keys) {
        const fs::perms* bit = table.find(name);
        if (bit == nullptr) continue;  // a name outside the table changes nothing
        if (request.at(name)) {
            change.toAdd |= *bit;
        } else {
            change.toRemove |= *bit;
        }
    }
    return change;
}

}  // namespace

namespace {

// A permission call that failed: thrown when no output is asked for, else returned.
Failure permissionFailure(const fl::ustring& path, const std::string& message, int outCount) {
    if (outCount == 0) {
        gateway::throwError<QUORIN::io::filesystem::filePermissions::UnableToSetPermissions>(
            path, message);
    }
    return {path, message};
}

}  // namespace

OptionalFailure setPermissionsOnUnix(const fl::ustring& path, const fs::perms& bits,
                                     const fs::perm_options& options, int outCount) {
    std::string native;
    try {
        native = fl::filesystem::detail::native_bytes(path);
    } catch (const fl::filesystem::InvalidName& e) {
        return permissionFailure(path, fl::i18n::to_utf8(e.GetUnicodeMessageTxt()), outCount);
    }
    const int atFlags =
        (options & fs::perm_options::nofollow) != fs::perm_options{} ? AT_SYMLINK_NOFOLLOW : 0;
    struct stat st {};
    int result = fl::sys::fstatat(AT_FDCWD, native.c_str(), st, atFlags);
    if (result == 0) {
        const auto mode = static_cast<fs::perms>(st.st_mode & 07777U);
        const fs::perms wanted =
            (options & fs::perm_options::add) != fs::perm_options{} ? mode | bits : mode & ~bits;
        // Linux keeps no modes on a link: under AT_SYMLINK_NOFOLLOW a link is refused.
        result =
            fl::sys::fchmodat(AT_FDCWD, native.c_str(), static_cast<unsigned>(wanted), atFlags);
    }
    if (result == 0) return std::nullopt;
    return permissionFailure(path, fl::sys::errorText(errno), outCount);
}

// One change per call, by design: additions win, and the removals of that call are
// dropped, so a request never both grants and revokes.
OptionalFailure modifyPermissions(const fl::ustring& path, const fs::perms& toAdd,
                                  const fs::perms& toRemove, int outCount, bool noFollow) {
    const fs::perm_options follow = noFollow ? fs::perm_options::nofollow : fs::perm_options{};
    if (toAdd != fs::perms::none) {
        return setPermissionsOnUnix(path, toAdd, fs::perm_options::add | follow, outCount);
    }
    if (toRemove != fs::perms::none) {
        return setPermissionsOnUnix(path, toRemove, fs::perm_options::remove | follow, outCount);
    }
    return std::nullopt;
}

namespace {

OptionalFailure applyChange(const fl::ustring& path, const PermissionChange& change, int outCount,
                            bool noFollow) {
    return modifyPermissions(path, change.toAdd, change.toRemove, outCount, noFollow);
}

}  // namespace

OptionalFailure setPermissionsOnCurrentPlatform(const fl::ustring& path,
                                                const PermissionRequest& request, int outCount,
                                                bool noFollow) {
    return applyChange(path, changeOf(request), outCount, noFollow);
}

namespace {

OptionalFailure setPermissionsForLinkWith(const fl::ustring& path, const PermissionChange& change,
                                          const fl::ustring& scope, int outCount) {
    if (scope != u"target") return applyChange(path, change, outCount, true);

    fl::ustring target;
    try {
        target = fl::filesystem::canonical(path, fl::ustring());
    } catch (const fl::filesystem::PathNotFound&) {
        logCaughtException();
        return Failure{path,
                       catalogText<QUORIN::io::filesystem::filePermissions::BrokenSymlink>(path)};
    } catch (const fl::filesystem::AccessDenied&) {
        logCaughtException();
        return Failure{
            path, catalogText<QUORIN::io::filesystem::filePermissions::TargetAccessDenied>(path)};
    } catch (...) {
        logCaughtException();
        return Failure{
            path,
            catalogText<QUORIN::io::filesystem::filePermissions::UnableToDetermineTarget>(path)};
    }
    return applyChange(target, change, outCount, false);
}

}  // namespace

OptionalFailure setPermissionsForLink(const fl::ustring& path, const PermissionRequest& request,
                                      const fl::ustring& scope, int outCount) {
    ZKFS_TRACE_SCOPE();
    return setPermissionsForLinkWith(path, changeOf(request), scope, outCount);
}

namespace {

unique_vqarray_ptr failureStruct(const FailureList& failures, const std::vector<vqSize>& dims) {
    unique_vqarray_ptr result = matrix::detail::do_create_struct(dims, {"Name", "Cause"});
    const int nameField = vqGetFieldNumber(result.get(), "Name");
    const int causeField = vqGetFieldNumber(result.get(), "Cause");
    for (std::size_t k = 0; k < failures.size(); ++k) {
        unique_vqarray_ptr name = Hexfarrow::String::createStringArray(failures[k].first);
        vqSetFieldByNumber(result.get(), k, nameField, name.get());
        (void)name.release();  // the struct holds it now
        unique_vqarray_ptr cause =
            Hexfarrow::String::createStringArray(fl::i18n::to_ustring(failures[k].second));
        vqSetFieldByNumber(result.get(), k, causeField, cause.get());
        (void)cause.release();
    }
    return result;
}

unique_vqarray_ptr setPermFailures(const OptionalFailure& failure, unique_vqarray_ptr output) {
    if (failure) {
        output = failureStruct(FailureList{*failure}, {1, 1});
    } else {
        output = failureStruct({}, {0, 0});
    }
    return output;
}

unique_vqarray_ptr setPermFailuresForFolders(const FailureList& failures,
                                             unique_vqarray_ptr output) {
    if (failures.empty()) {
        output = failureStruct(failures, {0, 0});
    } else {
        output = failureStruct(failures, {failures.size(), 1});
    }
    return output;
}

}  // namespace

// ---------------------------------------------------------------------------------------
// Folder walks
//
// Every entry below the top folder is reached by its name in its own open folder
// (storage's walkTree), so a link met in the tree is never the way out: it is changed as
// a link where the scope names links, and left alone otherwise. The one way outside is
// the scope "target", which changes a link's own target, found by its whole path.

std::pair<bool, bool> permissionsTargetConditionalCheck(const fl::ustring& scope,
                                                        ExistenceTypeExtended existence) {
    const bool all = scope == u"all";
    const bool link =
        (scope == u"symboliclinks" || all || scope == u"target") && core::isSymlink(existence);
    const bool change = ((scope == u"files" || all) && core::isFile(existence)) ||
                        ((scope == u"folders" || all) && core::isFolder(existence)) || link;
    return {change, link};
}

namespace {

using provider::EntryKind;
using provider::FolderRefusal;
using provider::TreeEntry;
using provider::TreeFolder;

// What one walk needs at every entry: the request's bits and the scope's words are worked
// out once.
class Walk {
public:
    Walk(const PermissionRequest& request, const fl::ustring& scope, int outCount,
         FailureList& failures)
        : change_(changeOf(request)),
          scope_(scope),
          all_(scope == u"all"),
          folders_(scope == u"folders"),
          files_(scope == u"files"),
          links_(scope == u"symboliclinks"),
          outCount_(outCount),
          failures_(failures) {}

    [[nodiscard]] bool all() const noexcept { return all_; }
    // Whether the request changes any bit at all (else no entry is even looked at).
    [[nodiscard]] bool changes() const noexcept {
        return change_.toAdd != fs::perms::none || change_.toRemove != fs::perms::none;
    }
    // "folders" and "all" walk in listing order and change the files they meet.
    [[nodiscard]] bool foldersToo() const noexcept { return all_ || folders_; }

    void append(OptionalFailure failure) const {
        if (failure) failures_.push_back(std::move(*failure));
    }

    // A listing or classification that failed becomes a failure of that path and the walk
    // goes on; only a failed permission call ends a walk that has no output to report to.
    void recordCaught(FailureList& rows, const fl::ustring& path) const {
        logCaughtException();
        rows.emplace_back(path, reasonOfCurrentException());
    }
    void recordRefusal(FailureList& rows, const FolderRefusal& refusal) const {
        try {
            throw refusal.exception;
        } catch (...) {
            recordCaught(rows, fl::i18n::to_ustring(refusal.path));
        }
    }

    // The entry's kind as the storage layer's existence test answers it; only a link needs
    // a look (what it leads to). Nothing when that look fails: it is a failure of its own.
    [[nodiscard]] std::optional<ExistenceTypeExtended> existenceOf(TreeFolder& folder,
                                                                   const TreeEntry& entry) const {
        switch (entry.kind) {
            case EntryKind::Folder:
                return ExistenceTypeExtended::Folder;
            case EntryKind::SymbolicLink:
                try {
                    return folder.existence(entry.name);
                } catch (const vfs::StorageException&) {
                    recordCaught(failures_, fl::i18n::to_ustring(folder.pathOf(entry.name)));
                    return std::nullopt;
                }
            case EntryKind::File:
            case EntryKind::Other:
                break;
        }
        return ExistenceTypeExtended::File;
    }

    // One entry by its name in its folder: one status, and a change only when the mode
    // differs or setting it could fail anyway (a failure the caller must hear of). An
    // entry that is a link by now is changed as a link when `links`, else left alone.
    void changeEntry(TreeFolder& folder, const std::string& name, bool links) const {
        if (!changes()) return;
        provider::EntryStatus status;
        if (const int err = folder.status(name, status)) {
            fail(folder, name, err);
            return;
        }
        const bool link = status.kind == EntryKind::SymbolicLink;
        if (link && !links) return;
        const auto add = static_cast<unsigned>(change_.toAdd);
        const unsigned mode =
            add != 0 ? status.mode | add : status.mode & ~static_cast<unsigned>(change_.toRemove);
        // A link's own mode is always tried: the system's refusal is the answer.
        if (!link && mode == status.mode && !status.changeMayFail) return;
        if (const int err = folder.setMode(name, mode)) fail(folder, name, err);
    }

    // Whether changeByScope reads the status of an entry of this kind as listed.
    [[nodiscard]] bool readsByScope(EntryKind kind) const noexcept {
        if (!changes()) return false;
        if (all_) return true;
        switch (kind) {
            case EntryKind::Folder:
                return folders_;
            case EntryKind::SymbolicLink:
                return links_;  // "target" changes what it leads to, by its path
            case EntryKind::File:
            case EntryKind::Other:
                break;
        }
        return files_;
    }

    // The rule for an entry that is not walked into: "all" changes everything; any other
    // scope what it names, a link it names as a link, or with "target" what the link
    // leads to.
    void changeByScope(TreeFolder& folder, const TreeEntry& entry,
                       ExistenceTypeExtended existence) const {
        if (all_) {
            changeEntry(folder, entry.name, true);
            return;
        }
        const auto [named, link] = permissionsTargetConditionalCheck(scope_, existence);
        if (!named) return;
        if (link && scope_ == u"target") {
            append(setPermissionsForLinkWith(fl::i18n::to_ustring(folder.pathOf(entry.name)),
                                             change_, scope_, outCount_));
            return;
        }
        changeEntry(folder, entry.name, link);
    }

    // The folder the walk started from, by its path (a link there is the caller's own).
    void changeTop(const fl::ustring& folder) const {
        const vfs::Folder f(Hexfarrow::PathManagement::GetIRIFromString(folder),
                            Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
        append(applyChange(Hexfarrow::PathManagement::GetStringFromIRI(f.getLocation()), change_,
                           outCount_, false));
    }

    FailureList& failures() const noexcept { return failures_; }

private:
    void fail(const TreeFolder& folder, const std::string& name, int err) const {
        append(permissionFailure(fl::i18n::to_ustring(folder.pathOf(name)),
                                 std::error_code(err, std::generic_category()).message(),
                                 outCount_));
    }

    PermissionChange change_;
    const fl::ustring& scope_;
    bool all_;
    bool folders_;
    bool files_;
    bool links_;
    int outCount_;
    FailureList& failures_;
};

// A subfolder that is gone, or is no folder any more, since its folder was read.
bool vanished(const FolderRefusal& refusal) {
    return refusal.opening &&
           (refusal.error == ENOENT || refusal.error == ENOTDIR || refusal.error == ELOOP);
}

// Each folder before what it holds. With "folders" and "all", in listing order; with any
// other scope a folder's files first, then its subfolders.
class TopDown final : public provider::TreeVisitor {
public:
    explicit TopDown(const Walk& walk) : walk_(walk) {}

    void arrange(TreeFolder& /*folder*/, std::vector<TreeEntry>& entries) override {
        if (walk_.foldersToo()) return;
        std::stable_partition(entries.begin(), entries.end(),
                              [](const TreeEntry& e) { return e.kind != EntryKind::Folder; });
    }
    [[nodiscard]] bool asksStatus(const TreeEntry& entry) const override {
        if (!walk_.changes()) return false;
        if (entry.kind == EntryKind::Folder) return true;
        if (!walk_.foldersToo()) return walk_.readsByScope(entry.kind);
        return entry.kind != EntryKind::SymbolicLink || walk_.all();
    }
    void visit(TreeFolder& folder, const TreeEntry& entry) override {
        const auto existence = walk_.existenceOf(folder, entry);
        if (!existence) return;
        if (!walk_.foldersToo()) {
            walk_.changeByScope(folder, entry, *existence);
        } else if (!core::isSymlink(*existence) || walk_.all()) {
            // "folders" changes the files it meets too, but never follows a link.
            walk_.changeEntry(folder, entry.name, walk_.all());
        }
    }
    bool enter(TreeFolder& folder, const TreeEntry& entry) override {
        // Changed before it is read, so that granting read opens it.
        walk_.changeEntry(folder, entry.name, false);
        return true;
    }
    void refused(const FolderRefusal& refusal) override {
        // A folder that became a link is not entered, silently.
        if (refusal.opening && refusal.error == ELOOP) return;
        walk_.recordRefusal(walk_.failures(), refusal);
    }

private:
    const Walk& walk_;
};

// Listings refused while the tree is read are reported before the changes, where a walk
// that lists the whole tree first would report them.
class ListingRefusals {
public:
    explicit ListingRefusals(const Walk& walk) : walk_(walk), at_(walk.failures().size()) {}
    ListingRefusals(const ListingRefusals&) = delete;
    ListingRefusals& operator=(const ListingRefusals&) = delete;
    ~ListingRefusals() = default;

    void record(const FolderRefusal& refusal) { walk_.recordRefusal(rows_, refusal); }
    void place() {
        FailureList& all = walk_.failures();
        all.insert(all.begin() + static_cast<std::ptrdiff_t>(at_),
                   std::make_move_iterator(rows_.begin()), std::make_move_iterator(rows_.end()));
    }

private:
    const Walk& walk_;
    std::size_t at_;
    FailureList rows_;
};

// Every entry in pre-order (a folder, then what it holds), folders changed like files.
class Flat final : public provider::TreeVisitor {
public:
    Flat(const Walk& walk, ListingRefusals& refusals) : walk_(walk), refusals_(refusals) {}

    [[nodiscard]] bool asksStatus(const TreeEntry& entry) const override {
        return walk_.readsByScope(entry.kind);
    }
    void visit(TreeFolder& folder, const TreeEntry& entry) override {
        if (const auto existence = walk_.existenceOf(folder, entry)) {
            walk_.changeByScope(folder, entry, *existence);
        }
    }
    bool enter(TreeFolder& folder, const TreeEntry& entry) override {
        walk_.changeByScope(folder, entry, ExistenceTypeExtended::Folder);
        return true;
    }
    void refused(const FolderRefusal& refusal) override {
        if (!vanished(refusal)) refusals_.record(refusal);
    }

private:
    const Walk& walk_;
    ListingRefusals& refusals_;
};

// Bottom-up, first pass: every entry that is not a folder, in pre-order. The folders that
// vanished meanwhile are remembered (there are no more of them than failures), so that
// the second pass still reports them in their place.
class NonFoldersFirst final : public provider::TreeVisitor {
public:
    NonFoldersFirst(const Walk& walk, ListingRefusals& refusals, std::vector<std::string>& gone)
        : walk_(walk), refusals_(refusals), gone_(gone) {}

    [[nodiscard]] bool asksStatus(const TreeEntry& entry) const override {
        return entry.kind != EntryKind::Folder && walk_.readsByScope(entry.kind);
    }
    void visit(TreeFolder& folder, const TreeEntry& entry) override {
        if (const auto existence = walk_.existenceOf(folder, entry)) {
            walk_.changeByScope(folder, entry, *existence);
        }
    }
    bool enter(TreeFolder& /*folder*/, const TreeEntry& /*entry*/) override { return true; }
    void refused(const FolderRefusal& refusal) override {
        if (vanished(refusal)) {
            gone_.push_back(refusal.path);
        } else {
            refusals_.record(refusal);
        }
    }

private:
    const Walk& walk_;
    ListingRefusals& refusals_;
    std::vector<std::string>& gone_;
};

// Bottom-up, second pass: the folders in the reverse of their pre-order (each after all
// it holds, subfolders last listed first), read again rather than kept from the first
// pass, so that memory stays within the deepest chain of folders.
class FoldersLast final : public provider::TreeVisitor {
public:
    FoldersLast(const Walk& walk, const std::vector<std::string>& gone)
        : walk_(walk), gone_(gone) {}

    [[nodiscard]] bool keeps(EntryKind kind) const override { return kind == EntryKind::Folder; }
    [[nodiscard]] bool asksStatus(const TreeEntry& /*entry*/) const override {
        return walk_.changes();
    }
    void arrange(TreeFolder& folder, std::vector<TreeEntry>& entries) override {
        if (!gone_.empty()) restoreGone(folder.pathOf({}), entries);
        std::reverse(entries.begin(), entries.end());
    }
    void visit(TreeFolder& /*folder*/, const TreeEntry& /*entry*/) override {}
    bool enter(TreeFolder& /*folder*/, const TreeEntry& /*entry*/) override { return true; }
    [[nodiscard]] bool wantsLeave() const override { return true; }
    void leave(TreeFolder& folder, const TreeEntry& entry) override {
        walk_.changeEntry(folder, entry.name, false);
    }
    // Each refusal was reported by the first pass.
    void refused(const FolderRefusal& /*refusal*/) override {}

private:
    // The first pass's vanished subfolders of `parent`, back in their listing place.
    void restoreGone(const std::string& parent, std::vector<TreeEntry>& entries) const {
        const std::string prefix = parent.ends_with('/') ? parent : parent + '/';
        for (const std::string& path : gone_) {
            if (!path.starts_with(prefix) || path.find('/', prefix.size()) != std::string::npos)
                continue;
            const std::string name = path.substr(prefix.size());
            const fl::ustring key = fl::i18n::to_ustring(name);
            const auto place = std::find_if(
                entries.begin(), entries.end(),
                [&](const TreeEntry& e) { return fl::i18n::to_ustring(e.name) >= key; });
            if (place == entries.end() || place->name != name) {
                entries.insert(place, TreeEntry{name, EntryKind::Folder});
            }
        }
    }

    const Walk& walk_;
    const std::vector<std::string>& gone_;
};

vfs::AbsoluteIRI folderIRI(const fl::ustring& folder) {
    return Hexfarrow::PathManagement::GetIRIFromString(folder);
}

bool isOutOfMemory(const foundation::core::except::IMsgIDException& e) {
    return e.GetID().rfind("QUORIN:OutOfMemory", 0) == 0;
}

// Runs a walk of `folder`. Memory that runs out stops it where it is; the tree is then
// half changed, which is never left unsaid: the report gets the folder whose walk stopped,
// with the host's text for it, after what it already holds (thrown when no report is
// asked for).
template <class WalkBody>
void walkUnlessMemoryRunsOut(const fl::ustring& folder, int outCount, FailureList& failures,
                             WalkBody&& body) {
    std::string why;
    try {
        body();
        return;
    } catch (const std::bad_alloc&) {
    } catch (const foundation::core::except::IMsgIDException& e) {
        if (!isOutOfMemory(e)) throw;
        why = fl::i18n::to_utf8(e.GetUnicodeMessageTxt());
    }
    if (why.empty()) {
        try {
            vqThrowOutOfMemory(0);
        } catch (const foundation::core::except::IMsgIDException& e) {
            why = fl::i18n::to_utf8(e.GetUnicodeMessageTxt());
        }
    }
    failures.push_back(permissionFailure(folder, why, outCount));
}

}  // namespace

FailureList setPermissionsForFolderContentsTopDown(const fl::ustring& folder,
                                                   const PermissionRequest& request,
                                                   const fl::ustring& scope, int outCount,
                                                   FailureList failures) {
    ZKFS_TRACE_SCOPE();
    const Walk walk(request, scope, outCount, failures);
    walkUnlessMemoryRunsOut(folder, outCount, failures, [&] {
        // Made readable before it is listed.
        walk.changeTop(folder);
        TopDown visitor(walk);
        provider::walkTree(folderIRI(folder), visitor);
    });
    return failures;
}

FailureList setPermissionsForFolderContentsBottomUp(const fl::ustring& folder,
                                                    const PermissionRequest& request,
                                                    const fl::ustring& scope, int outCount,
                                                    FailureList failures) {
    ZKFS_TRACE_SCOPE();
    const Walk walk(request, scope, outCount, failures);
    // Read permission is taken from a folder only after everything below it is done.
    ListingRefusals refusals(walk);
    walkUnlessMemoryRunsOut(folder, outCount, failures, [&] {
        std::vector<std::string> gone;
        NonFoldersFirst first(walk, refusals, gone);
        provider::walkTree(folderIRI(folder), first);
        if (walk.foldersToo()) {
            FoldersLast last(walk, gone);
            provider::walkTree(folderIRI(folder), last);
        }
        walk.changeTop(folder);
    });
    refusals.place();
    return failures;
}

OptionalFailure setPermissionsForFolder(const fl::ustring& folder, const PermissionRequest& request,
                                        int outCount) {
    ZKFS_TRACE_SCOPE();
    const vfs::Folder f(Hexfarrow::PathManagement::GetIRIFromString(folder),
                        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
    return setPermissionsOnCurrentPlatform(
        Hexfarrow::PathManagement::GetStringFromIRI(f.getLocation()), request, outCount, false);
}

FailureList setPermissionsForFolderRecursively(const fl::ustring& folder,
                                               const PermissionRequest& request,
                                               const fl::ustring& scope, int outCount) {
    ZKFS_TRACE_SCOPE();
    const vfs::Folder root(Hexfarrow::PathManagement::GetIRIFromString(folder),
                           Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
    const fl::ustring location = Hexfarrow::PathManagement::GetStringFromIRI(root.getLocation());

    FailureList failures;
    if (scope.empty()) {
        if (auto failure = setPermissionsForFolder(location, request, outCount)) {
            failures.push_back(std::move(*failure));
        }
        return failures;
    }

    // Keyed on "Readable" alone: granting it must happen before a folder is listed,
    // revoking it only after its contents are done.
    if (const bool* readable = request.find(u"Readable")) {
        return *readable ? setPermissionsForFolderContentsTopDown(location, request, scope,
                                                                  outCount, std::move(failures))
                         : setPermissionsForFolderContentsBottomUp(location, request, scope,
                                                                   outCount, std::move(failures));
    }

    // Flat: the folder, then every entry in pre-order.
    const Walk walk(request, scope, outCount, failures);
    ListingRefusals refusals(walk);
    walkUnlessMemoryRunsOut(location, outCount, failures, [&] {
        walk.changeTop(location);
        Flat visitor(walk, refusals);
        provider::walkTree(root.getLocation(), visitor);
    });
    refusals.place();
    return failures;
}

namespace {

PermissionRequest readRequest(const vqArray* arg) {
    if (arg == nullptr || !vqIsStruct(arg) || !vqIsScalar(arg)) {
        gateway::throwError<QUORIN::io::common::validation::ExpectedScalarStruct>();
    }
    PermissionRequest request;
    const std::vector<std::string> names = arg->get_struct_field_names();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const vqArray* value = vqGetFieldByNumber(arg, 0, static_cast<int>(i));
        if (value == nullptr || !vqIsLogical(value) || vqIsEmpty(value)) {
            gateway::throwError<QUORIN::io::common::validation::InternalError>(
                std::string("Expected logical scalar"));
        }
        request[fl::i18n::to_ustring(names[i])] = vqGetLogicals(value)[0];
    }
    return request;
}

}  // namespace

}  // namespace quorin::io::filesystem::quorin

using namespace quorin::io::filesystem::quorin;  // NOLINT(google-build-using-namespace)

void getPerms_impl(int outCount, unique_vqarray_ptr* outputs, int argCount,
                   const vqArray* const* args) {
    ZKFS_TRACE_SCOPE();
    quorin::gateway::checkCounts<&getPerms_impl>(outCount, argCount);
    const ResolvePathResult location = validateAndResolveInputLocation(args[0], args[1]);

    if (argCount == 2) {
        quorin::gateway::handOver(
            outputs, 0, createStruct(getPermissionsOnCurrentPlatform(location.location, {})));
        return;
    }

    const std::vector<fl::ustring> names = readRequestedNames(args[2]);
    const vfs::AbsoluteIRI iri = locationIRI(location.location);
    OrderedMap<fl::ustring, bool> result;
    if (vfs::hasIRIPrefix(location.location) && !isFileScheme(iri)) {
        result = cloudPermissions(iri);
    } else {
        const fl::ustring path = isFileScheme(iri)
                                     ? Hexfarrow::PathManagement::GetStringFromIRI(iri)
                                     : location.location;
        result = getPermissionsOnCurrentPlatform(path, names);
    }
    quorin::gateway::handOver(outputs, 0, createStruct(result));
}

void modifyPerms_impl(int outCount, unique_vqarray_ptr* outputs, int argCount,
                      const vqArray* const* args) {
    ZKFS_TRACE_SCOPE();
    quorin::gateway::checkCounts<&modifyPerms_impl>(outCount, argCount);
    // The scope is the fifth argument; a call with four has none to read.
    if (argCount == 4) matrix::detail::error_minrhs();

    const ResolvePathResult location = validateAndResolveInputLocation(args[0], args[1]);

    bool fileIRI = false;
    std::optional<vfs::AbsoluteIRI> iri;
    if (vfs::hasIRIPrefix(location.location)) {
        iri = Hexfarrow::PathManagement::GetIRIFromString(location.location);
        fileIRI = isFileScheme(*iri);
        if (!fileIRI) {
            if (outCount == 0) {
                quorin::gateway::throwError<
                    QUORIN::io::filesystem::filePermissions::CannotModifyCloudPermissions>();
            }
            quorin::gateway::handOver(
                outputs, 0,
                setPermFailures(
                    Failure{location.location, catalogText<QUORIN::io::filesystem::filePermissions::
                                                               CannotModifyCloudPermissions>()},
                    nullptr));
            return;
        }
    }
    // A file IRI names a local path, and is changed as that path.
    const fl::ustring path =
        fileIRI ? Hexfarrow::PathManagement::GetStringFromIRI(*iri) : location.location;

    const PermissionRequest request = readRequest(args[2]);
    const std::optional<fl::ustring> scope =
        argCount > 3
            ? std::optional<fl::ustring>(quorin::gateway::convertScalarText(args[4], kAnyCharShape))
            : std::nullopt;

    OptionalFailure failure;
    if (!scope) {
        // A link given without a scope is changed itself, never followed.
        failure = setPermissionsOnCurrentPlatform(path, request, outCount,
                                                  location.type == ResolvePathResult::Type::Other);
    } else if (location.type == ResolvePathResult::Type::Folder) {
        FailureList failures = setPermissionsForFolderRecursively(path, request, *scope, outCount);
        if (outCount == 1) {
            quorin::gateway::handOver(outputs, 0, setPermFailuresForFolders(failures, nullptr));
        }
        return;
    } else if (location.type == ResolvePathResult::Type::Other &&
               (*scope == u"target" || *scope == u"symboliclinks")) {
        failure = setPermissionsForLink(path, request, *scope, outCount);
    } else if (location.type == ResolvePathResult::Type::File && *scope == u"all") {
        failure = setPermissionsOnCurrentPlatform(path, request, outCount, false);
    } else {
        // Any other combination is accepted and changes nothing, as callers rely on.
        return;
    }
    if (outCount == 1) quorin::gateway::handOver(outputs, 0, setPermFailures(failure, nullptr));
}
