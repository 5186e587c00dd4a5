#include "quorin/io/filesystem/core/ResolvePath.hpp"

#include "Internal.hpp"
#include "Posix.hpp"

#include "Hexfarrow/QuorinStorageSystem/StorageSystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "foundation/storage/vfs/AbsoluteIRI.hpp"
#include "foundation/storage/vfs/Exception.hpp"
#include "foundation/storage/vfs/File.hpp"
#include "foundation/storage/vfs/StorageSystem.hpp"

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <cerrno>
#include <string>

#include <unistd.h>

namespace quorin::io::filesystem::core {
namespace {

namespace vfs = foundation::storage::vfs;
using foundation::storage::provider::ExistenceTypeExtended;

// A local path that exists, with what stat(2) said about its final target.
struct LocalHit {
    std::string path;  // the answer, UTF-8
    std::int32_t type = PathType::None;
    struct stat target {};
    bool readable = false;
    bool writable = false;
};

bool isNothingThere(int error) noexcept {
    // ELOOP: a link cycle is a link that cannot be followed, like a dangling one.
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

// "name/" and "name/." name a folder: the system follows a link there, and anything that
// is not a folder is ENOTDIR. The native form drops that ending, so it is noted first.
bool namesFolderOnly(const fl::ustring& path) noexcept {
    if (path.empty()) return false;
    if (path.back() == u'/') return true;
    return path == u"." || path.ends_with(u"/.");
}

// The local answer, or false when nothing is there (also for a dangling link).
bool resolveLocal(const fl::ustring& path, const ResolvePathOptions& options, bool wantAccess,
                  LocalHit& hit) {
    if (path.empty()) return false;
    const std::string native = detail::nativeUtf8(path);
    const bool folderOnly = namesFolderOnly(path);
    if (options.ResolveSymbolicLinks) {
        if (const int e = posix::canonicalPath(native, hit.path, hit.target)) {
            if (isNothingThere(e)) return false;
            detail::throwStorageError(e, native);
        }
        if (folderOnly && !S_ISDIR(hit.target.st_mode)) return false;  // ENOTDIR
        hit.type = S_ISDIR(hit.target.st_mode) ? PathType::Folder : PathType::File;
        if (wantAccess) {
            hit.readable = posix::accessPath(hit.path, R_OK) == 0;
            hit.writable = posix::accessPath(hit.path, W_OK) == 0;
        }
        return true;
    }
    // The name itself first: for anything but a link that one walk tells everything. With
    // the folder ending kept, the system itself follows a link to a folder and refuses
    // any other name.
    const std::string probed = folderOnly && native != "/" ? native + '/' : native;
    if (const int e =
            posix::probeName(probed, hit.target, wantAccess, hit.readable, hit.writable)) {
        if (isNothingThere(e)) return false;
        detail::throwStorageError(e, native);
    }
    const bool link = S_ISLNK(hit.target.st_mode);
    if (link) {
        if (const int e = posix::statPath(native, hit.target)) {
            if (isNothingThere(e)) return false;
            detail::throwStorageError(e, native);
        }
        if (wantAccess) {
            hit.readable = posix::accessPath(native, R_OK) == 0;
            hit.writable = posix::accessPath(native, W_OK) == 0;
        }
    }
    hit.path = native;
    hit.type = link ? PathType::SymbolicLink
                    : (S_ISDIR(hit.target.st_mode) ? PathType::Folder : PathType::File);
    return true;
}

std::int32_t providerType(ExistenceTypeExtended e, bool resolveLinks) {
    switch (e) {
        case ExistenceTypeExtended::File:
            return PathType::File;
        case ExistenceTypeExtended::Folder:
            return PathType::Folder;
        case ExistenceTypeExtended::SymbolicLinkToFile:
            return resolveLinks ? PathType::File : PathType::SymbolicLink;
        case ExistenceTypeExtended::SymbolicLinkToFolder:
            return resolveLinks ? PathType::Folder : PathType::SymbolicLink;
        case ExistenceTypeExtended::BrokenSymbolicLink:
        case ExistenceTypeExtended::DoesNotExist:
            break;
    }
    return PathType::None;
}

boost::posix_time::ptime toPtime(const struct timespec& t) {
    static const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    return epoch + boost::posix_time::seconds(t.tv_sec) +
           boost::posix_time::microseconds(t.tv_nsec / 1000);
}

boost::posix_time::ptime nanosecondsToPtime(std::int64_t ns) {
    static const boost::posix_time::ptime epoch(boost::gregorian::date(1970, 1, 1));
    // Floor division, so that times before 1970 keep their sub-second part right.
    std::int64_t seconds = ns / 1'000'000'000;
    std::int64_t rest = ns % 1'000'000'000;
    if (rest < 0) {
        rest += 1'000'000'000;
        --seconds;
    }
    return epoch + boost::posix_time::seconds(seconds) +
           boost::posix_time::microseconds(rest / 1000);
}

// The attributes of a local hit: its target's time and size (0 for a folder) and the
// caller's access to it.
void fillAttributes(ResolvePathResultWithAttributes& out, const LocalHit& hit) {
    out.readable = hit.readable;
    out.writable = hit.writable;
    out.lastModified = toPtime(hit.target.st_mtim);
    out.size = S_ISDIR(hit.target.st_mode) ? 0 : static_cast<std::int64_t>(hit.target.st_size);
}

ResolvePathResultWithAttributes resolveParsedIRI(const vfs::AbsoluteIRI& iri,
                                                 const ResolvePathOptions& options,
                                                 bool wantAttributes) {
    ResolvePathResultWithAttributes out;
    if (detail::lowerAscii(iri.getScheme()) == u"file") {
        LocalHit hit;
        if (!resolveLocal(vfs::fromAbsoluteIRI(iri), options, wantAttributes, hit)) return out;
        const fl::ustring local = fl::i18n::to_ustring(hit.path);
        out.path =
            options.LocalPathFromFileScheme ? local : vfs::toAbsoluteIRI(u"file", local).toString();
        out.type = hit.type;
        if (wantAttributes) fillAttributes(out, hit);
        return out;
    }

    const auto storage = Hexfarrow::QuorinStorageSystem::GetStorageSystemReference();
    const std::int32_t type =
        providerType(vfs::existsExtended(iri, storage), options.ResolveSymbolicLinks);
    if (type == PathType::None) return out;
    out.path = iri.toString();
    out.type = type;
    if (wantAttributes) {
        const vfs::FileAttributes attributes = vfs::File(iri, storage).getAttributes();
        out.readable = attributes.isReadable();
        out.writable = attributes.isWritable();
        out.lastModified = nanosecondsToPtime(attributes.getLastModified());
        out.size = type == PathType::Folder ? 0 : static_cast<std::int64_t>(attributes.getSize());
    }
    return out;
}

// The core answers for one path with storage errors only (see the header): a text that
// does not parse names no location, located at "<scheme>://", the IRI that names nothing.
vfs::AbsoluteIRI parseLocation(const fl::ustring& text) {
    try {
        return vfs::AbsoluteIRI(text);
    } catch (const vfs::InvalidIRIException&) {
        // Replaced below, outside the handler.
    }
    throw vfs::Exception(vfs::Exception::InvalidLocation,
                         vfs::toAbsoluteIRI(text.substr(0, text.find(u"://")), u""));
}

ResolvePathResultWithAttributes resolveIRI(const vfs::AbsoluteIRI& iri,
                                           const ResolvePathOptions& options, bool wantAttributes) {
    try {
        return resolveParsedIRI(iri, options, wantAttributes);
    } catch (const vfs::InvalidIRIException&) {
        // A "file:" IRI of another host (or with an escaped "/" in a name) names no local
        // file: the storage library's own code for a location naming nothing.
    }
    throw vfs::Exception(vfs::Exception::InvalidLocation, iri);
}

ResolvePathResultWithAttributes resolveWithAttributes(const fl::ustring& path,
                                                      const ResolvePathOptions& options,
                                                      bool wantAttributes) {
    ResolvePathResultWithAttributes out;
    if (!vfs::hasIRIPrefix(path)) {
        LocalHit hit;
        if (!resolveLocal(path, options, wantAttributes, hit)) return out;
        out.path = fl::i18n::to_ustring(hit.path);
        out.type = hit.type;
        if (wantAttributes) fillAttributes(out, hit);
        return out;
    }
    return resolveIRI(parseLocation(path), options, wantAttributes);
}

// A local name's own status, one lstat(2); only a link is followed.
LinkInspection inspectLocal(const fl::ustring& path, bool wantTarget) {
    LinkInspection out;
    if (path.empty()) return out;
    const std::string native = detail::nativeUtf8(path);
    const std::string probed = namesFolderOnly(path) && native != "/" ? native + '/' : native;
    struct stat self {};
    if (const int e = posix::lstatPath(probed, self)) {
        if (isNothingThere(e)) return out;
        detail::throwStorageError(e, native);
    }
    if (!S_ISLNK(self.st_mode)) return out;
    out.isLink = true;
    std::string target;
    struct stat reached {};
    const int e =
        wantTarget ? posix::followPath(native, target, nullptr) : posix::statPath(native, reached);
    if (e == 0) {
        out.leads = true;
        out.target = fl::i18n::to_ustring(target);
    } else if (e != ENOENT && e != ELOOP) {
        detail::throwStorageError(e, native);
    }
    return out;
}

}  // namespace

LinkInspection inspectLink(const fl::ustring& path, bool wantTarget) {
    if (!vfs::hasIRIPrefix(path)) return inspectLocal(path, wantTarget);
    const vfs::AbsoluteIRI iri = parseLocation(path);
    if (detail::lowerAscii(iri.getScheme()) == u"file") {
        fl::ustring local;
        try {
            local = vfs::fromAbsoluteIRI(iri);
        } catch (const vfs::InvalidIRIException&) {
            throw vfs::Exception(vfs::Exception::InvalidLocation, iri);
        }
        return inspectLocal(local, wantTarget);
    }
    const ExistenceTypeExtended found =
        vfs::existsExtended(iri, Hexfarrow::QuorinStorageSystem::GetStorageSystemReference());
    LinkInspection out;
    out.leads = found == ExistenceTypeExtended::SymbolicLinkToFile ||
                found == ExistenceTypeExtended::SymbolicLinkToFolder;
    out.isLink = out.leads || found == ExistenceTypeExtended::BrokenSymbolicLink;
    return out;
}

ResolvePathResult resolvePath(const fl::ustring& path, const ResolvePathOptions& options) {
    ResolvePathResultWithAttributes full = resolveWithAttributes(path, options, false);
    return ResolvePathResult{std::move(full.path), full.type};
}

ResolvePathResultWithAttributes resolvePathWithAttributes(const fl::ustring& path,
                                                          const ResolvePathOptions& options) {
    return resolveWithAttributes(path, options, true);
}

bool setupPathForURLConstruction(fl::ustring& path, ResolveSymbolicLinks mode, bool mustExist) {
    if (path.empty()) return false;
    if (vfs::hasIRIPrefix(path)) return true;
    const std::string native = detail::nativeUtf8(path);
    if (mustExist) {
        struct stat st {};
        if (const int e = posix::lstatPath(native, st)) detail::throwStorageError(e, native);
    }
    std::string prepared = native;
    switch (mode) {
        case ResolveSymbolicLinks::None:
            break;
        case ResolveSymbolicLinks::All:
            prepared = detail::resolveExistingPrefix(native);
            break;
        case ResolveSymbolicLinks::AllButLast:
            prepared = detail::openParent(native).path;
            break;
    }
    path = fl::i18n::to_ustring(prepared);
    return false;
}

}  // namespace quorin::io::filesystem::core
