// Reading and changing POSIX permissions of files, folders and links, down whole trees.
//
// getPerms_impl reports named permission bits as a 1x1 struct of logicals; modifyPerms_impl
// grants or revokes them on one location, a link (itself or its target) or a folder tree.
// Each operation computes a failure record (or a list for a tree); only the gateway
// decides whether to throw the first one (no output requested) or hand all of them back
// as a struct array with the fields "Name" and "Cause".
//
// Trees are walked through the storage library's listings, which never descend through
// a link; the only change that may land outside the tree is the scope "target", which
// changes a link's own target.
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
#include "foundation/storage/vfs/vfs.hpp"
#include "matrix/matrix.hpp"
#include "vq/vqArray.hpp"

#include <boost/exception/diagnostic_information.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <cerrno>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quorin::io::filesystem::quorin {

namespace fs = std::filesystem;
namespace vfs = foundation::storage::vfs;
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

fs::path toNativePath(const fl::ustring& path) { return {fl::i18n::to_utf8(path)}; }

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

fs::file_status getPermissionsOnUnix(const fl::ustring& path) {
    // The name itself: a link answers with its own mode, never its target's.
    return fs::symlink_status(toNativePath(path));
}

OrderedMap<fl::ustring, bool> getPermissionsOnCurrentPlatform(
    const fl::ustring& path, const std::vector<fl::ustring>& names) {
    ZKFS_TRACE_SCOPE();
    auto table = getPermNameAndFilesystemPermsMap();
    const fs::file_status status = getPermissionsOnUnix(path);
    // Nothing there reports every permission as absent (the library's own value for a
    // missing name is "unknown", all bits set).
    const fs::perms bits =
        status.type() == fs::file_type::not_found ? fs::perms::none : status.permissions();

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

OptionalFailure setPermissionsOnUnix(const fl::ustring& path, const fs::perms& bits,
                                     const fs::perm_options& options, int outCount) {
    std::error_code ec;
    try {
        const fs::path native = toNativePath(path);
        errno = 0;
        fs::permissions(native, bits, options, ec);
    } catch (const fs::filesystem_error&) {
        logCaughtException();
        return std::nullopt;
    }
    if (!ec) return std::nullopt;
    const std::string message = ec.message();
    if (outCount == 0) {
        gateway::throwError<QUORIN::io::filesystem::filePermissions::UnableToSetPermissions>(
            path, message);
    }
    return Failure{path, message};
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

// What one walk needs at every entry; the request's bits are worked out once.
struct Walk {
    PermissionChange change;
    const fl::ustring& scope;
    int outCount;
    vfs::StorageSystemReference storage;

    void append(FailureList& failures, OptionalFailure failure) const {
        if (failure) failures.push_back(std::move(*failure));
    }

    // A listing or classification that failed becomes a failure of that path and the walk
    // goes on; only a failed permission call ends a walk that has no output to report to.
    void recordCaught(FailureList& failures, const fl::ustring& path) const {
        logCaughtException();
        failures.emplace_back(path, reasonOfCurrentException());
    }
};

// The listing already read each entry's kind without following links; only a link needs
// a second look (what it leads to), so plain entries are never stat'ed twice.
ExistenceTypeExtended existenceOf(const vfs::ListEntry& entry,
                                  const vfs::StorageSystemReference& storage) {
    switch (entry.getKind()) {
        case vfs::ListEntry::Kind::Folder:
            return ExistenceTypeExtended::Folder;
        case vfs::ListEntry::Kind::SymbolicLink:
            return vfs::existsExtended(entry.getLocation(), storage);
        case vfs::ListEntry::Kind::File:
        case vfs::ListEntry::Kind::Other:
            break;
    }
    return ExistenceTypeExtended::File;
}

// Pre-order, as a recursive listing gives it: a folder's entry, then what it holds. Each
// folder that refuses its listing becomes a failure of its own, and the walk goes on.
void listFolderByFolder(const Walk& walk, const vfs::Folder& folder,
                        std::vector<vfs::ListEntry>& out, FailureList& failures) {
    const fl::ustring path = Hexfarrow::PathManagement::GetStringFromIRI(folder.getLocation());
    vfs::FolderListing listing;
    try {
        listing = folder.listAll(fl::ustring());
    } catch (...) {
        walk.recordCaught(failures, path);
        return;
    }
    for (const auto& entry : listing) {
        out.push_back(entry);
        if (entry.getKind() == vfs::ListEntry::Kind::Folder) {
            listFolderByFolder(walk, vfs::Folder(entry.getLocation(), walk.storage), out, failures);
        }
    }
}

// The whole tree in one listing. A listing that fails part way returns nothing, so when
// one folder refuses (closed to the caller, removed meanwhile) the tree is listed again
// folder by folder: only what lies below the refusing folder is missed, and the failure
// names that folder rather than the whole tree.
vfs::FolderListing listTree(const Walk& walk, const vfs::Folder& root, FailureList& failures) {
    try {
        return root.listAllRecursive(fl::ustring());
    } catch (...) {
        logCaughtException();
    }
    std::vector<vfs::ListEntry> entries;
    listFolderByFolder(walk, root, entries, failures);
    return vfs::FolderListing(std::move(entries));
}

OptionalFailure changeFolderItself(const Walk& walk, const fl::ustring& folder) {
    const vfs::Folder f(Hexfarrow::PathManagement::GetIRIFromString(folder), walk.storage);
    return applyChange(Hexfarrow::PathManagement::GetStringFromIRI(f.getLocation()), walk.change,
                       walk.outCount, false);
}

void changeEntry(const Walk& walk, FailureList& failures, const fl::ustring& path,
                 ExistenceTypeExtended existence) {
    const auto [change, link] = permissionsTargetConditionalCheck(walk.scope, existence);
    if (walk.scope == u"all") {
        walk.append(failures, applyChange(path, walk.change, walk.outCount, link));
    } else if (change) {
        walk.append(failures,
                    link ? setPermissionsForLinkWith(path, walk.change, walk.scope, walk.outCount)
                         : applyChange(path, walk.change, walk.outCount, false));
    }
}

// Changes every entry of a listing that is not a folder, in listing order, and answers
// the folders' paths (in the same order) for the caller's own order of visiting them.
std::vector<fl::ustring> changeEntriesButFolders(const Walk& walk,
                                                 const vfs::FolderListing& listing,
                                                 FailureList& failures) {
    std::vector<fl::ustring> folders;
    for (const auto& entry : listing) {
        fl::ustring path;
        try {
            path = Hexfarrow::PathManagement::GetStringFromIRI(entry.getLocation());
            if (entry.getKind() == vfs::ListEntry::Kind::Folder) {
                folders.push_back(std::move(path));
                continue;
            }
            changeEntry(walk, failures, path, existenceOf(entry, walk.storage));
        } catch (const vfs::StorageException&) {
            walk.recordCaught(failures, path);
        }
    }
    return folders;
}

void walkTopDown(const Walk& walk, const fl::ustring& folder, FailureList& failures) {
    // Made readable before it is listed.
    walk.append(failures, changeFolderItself(walk, folder));

    vfs::FolderListing listing;
    try {
        listing = vfs::Folder(Hexfarrow::PathManagement::GetIRIFromString(folder), walk.storage)
                      .listAll(fl::ustring());
    } catch (...) {
        walk.recordCaught(failures, folder);
        return;
    }

    const bool foldersToo = walk.scope == u"folders" || walk.scope == u"all";
    if (foldersToo) {
        for (const auto& entry : listing) {
            fl::ustring path;
            try {
                path = Hexfarrow::PathManagement::GetStringFromIRI(entry.getLocation());
                if (entry.getKind() == vfs::ListEntry::Kind::Folder) {
                    walkTopDown(walk, path, failures);
                    continue;
                }
                const auto decision =
                    permissionsTargetConditionalCheck(walk.scope, existenceOf(entry, walk.storage));
                walk.append(failures,
                            applyChange(path, walk.change, walk.outCount, decision.second));
            } catch (const vfs::StorageException&) {
                walk.recordCaught(failures, path);
            }
        }
        return;
    }

    // Files of this folder first (one listing read serves both passes), then each
    // subfolder in listing order, which changes itself before it lists.
    for (const auto& sub : changeEntriesButFolders(walk, listing, failures)) {
        walkTopDown(walk, sub, failures);
    }
}

}  // namespace

FailureList setPermissionsForFolderContentsTopDown(const fl::ustring& folder,
                                                   const PermissionRequest& request,
                                                   const fl::ustring& scope, int outCount,
                                                   FailureList failures) {
    ZKFS_TRACE_SCOPE();
    const Walk walk{changeOf(request), scope, outCount,
                    Hexfarrow::QuorinStorageSystem::GetStorageSystemReference()};
    walkTopDown(walk, folder, failures);
    return failures;
}

FailureList setPermissionsForFolderContentsBottomUp(const fl::ustring& folder,
                                                    const PermissionRequest& request,
                                                    const fl::ustring& scope, int outCount,
                                                    FailureList failures) {
    ZKFS_TRACE_SCOPE();
    const Walk walk{changeOf(request), scope, outCount,
                    Hexfarrow::QuorinStorageSystem::GetStorageSystemReference()};

    // The whole tree is listed before any read permission is taken away, so removing it
    // cannot hide entries from the walk.
    const vfs::FolderListing listing = listTree(
        walk, vfs::Folder(Hexfarrow::PathManagement::GetIRIFromString(folder), walk.storage),
        failures);

    const std::vector<fl::ustring> folders = changeEntriesButFolders(walk, listing, failures);

    if (scope == u"all" || scope == u"folders") {
        // Deepest first: a folder keeps its read permission until its contents are done.
        for (auto sub = folders.rbegin(); sub != folders.rend(); ++sub) {
            walk.append(failures, changeFolderItself(walk, *sub));
        }
    }
    walk.append(failures, changeFolderItself(walk, folder));
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
    const vfs::StorageSystemReference storage =
        Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const vfs::Folder root(Hexfarrow::PathManagement::GetIRIFromString(folder), storage);
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

    const Walk walk{changeOf(request), scope, outCount, storage};
    walk.append(failures, applyChange(location, walk.change, outCount, false));
    const vfs::FolderListing listing = listTree(walk, root, failures);
    for (const auto& entry : listing) {
        fl::ustring path;
        try {
            path = Hexfarrow::PathManagement::GetStringFromIRI(entry.getLocation());
            changeEntry(walk, failures, path, existenceOf(entry, storage));
        } catch (const vfs::StorageException&) {
            walk.recordCaught(failures, path);
        }
    }
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
