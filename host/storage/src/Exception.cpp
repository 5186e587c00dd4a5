#include "foundation/storage/vfs/Exception.hpp"

#include "fl/sys/SystemCalls.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <cerrno>
#include <string>
#include <utility>

namespace foundation::storage::vfs {

namespace {

// One identifier per storage error code; the location text is always the first argument.
struct InvalidLocationID : resource_core::FixedMsgID<1> {
    explicit InvalidLocationID(const fl::ustring& location)
        : FixedMsgID("QUORIN:storage", "invalidLocation", location) {}
};
struct PermissionDeniedID : resource_core::FixedMsgID<1> {
    explicit PermissionDeniedID(const fl::ustring& location)
        : FixedMsgID("QUORIN:storage", "permissionDenied", location) {}
};
struct AlreadyExistsID : resource_core::FixedMsgID<1> {
    explicit AlreadyExistsID(const fl::ustring& location)
        : FixedMsgID("QUORIN:storage", "alreadyExists", location) {}
};
struct NotFoundID : resource_core::FixedMsgID<1> {
    explicit NotFoundID(const fl::ustring& location)
        : FixedMsgID("QUORIN:storage", "notFound", location) {}
};
struct IOErrorID : resource_core::FixedMsgID<2> {
    IOErrorID(const fl::ustring& location, const std::string& text)
        : FixedMsgID("QUORIN:storage", "ioError", location, text) {}
};
struct InvalidIRIID : resource_core::FixedMsgID<1> {
    explicit InvalidIRIID(const fl::ustring& text)
        : FixedMsgID("QUORIN:storage", "invalidIRI", text) {}
};
struct UnsupportedSchemeID : resource_core::FixedMsgID<2> {
    UnsupportedSchemeID(const fl::ustring& iri, const fl::ustring& scheme)
        : FixedMsgID("QUORIN:storage", "unsupportedScheme", iri, scheme) {}
};

resource_core::BaseMsgID idFor(int code, const AbsoluteIRI& location, const std::string& text) {
    const fl::ustring where = location.toString();
    switch (code) {
        case Exception::InvalidLocation:
            return InvalidLocationID(where);
        case Exception::PermissionDenied:
            return PermissionDeniedID(where);
        case Exception::AlreadyExists:
            return AlreadyExistsID(where);
        case Exception::NotFound:
            return NotFoundID(where);
        default:
            return IOErrorID(where, text.empty() && code != Exception::OtherIOError
                                        ? "storage error " + std::to_string(code)
                                        : text);
    }
}

}  // namespace

// Out-of-line destructors are the key functions: one type identity, in this library.
StorageException::StorageException(resource_core::BaseMsgID id) : id_(std::move(id)) {}
StorageException::~StorageException() = default;
const char* StorageException::what() const noexcept { return IException::what(); }
std::string StorageException::GetID() const { return get_error_id(id_); }
const resource_core::BaseMsgID& StorageException::GetBaseMsgIDObj() const { return id_; }

Exception::Exception(int code, const AbsoluteIRI& location, const std::string& osText)
    : StorageException(idFor(code, location, osText)),
      code_(code),
      location_(location),
      osText_(osText) {}
Exception::~Exception() = default;

Exception Exception::fromSystemError(int error, const AbsoluteIRI& location) {
    int code = OtherIOError;
    switch (error) {
        case ENOENT:
        case ENOTDIR:
            code = NotFound;
            break;
        case EACCES:
        case EPERM:
        case EROFS:
            code = PermissionDenied;
            break;
        case EEXIST:
            code = AlreadyExists;
            break;
        case ENAMETOOLONG:
            code = InvalidLocation;
            break;
        default:
            break;
    }
    return Exception(code, location, fl::sys::errorText(error));
}
Exception* Exception::clone() const { return new Exception(*this); }
void Exception::rethrow() const { throw Exception(*this); }

InvalidIRIException::InvalidIRIException(const fl::ustring& text)
    : StorageException(InvalidIRIID(text)), text_(text) {}
InvalidIRIException::~InvalidIRIException() = default;
InvalidIRIException* InvalidIRIException::clone() const { return new InvalidIRIException(*this); }
void InvalidIRIException::rethrow() const { throw InvalidIRIException(*this); }

UnsupportedIRISchemeException::UnsupportedIRISchemeException(const fl::ustring& iriText,
                                                             const fl::ustring& scheme)
    : StorageException(UnsupportedSchemeID(iriText, scheme)), iri_(iriText), scheme_(scheme) {}
UnsupportedIRISchemeException::~UnsupportedIRISchemeException() = default;
UnsupportedIRISchemeException* UnsupportedIRISchemeException::clone() const {
    return new UnsupportedIRISchemeException(*this);
}
void UnsupportedIRISchemeException::rethrow() const { throw UnsupportedIRISchemeException(*this); }

}  // namespace foundation::storage::vfs
