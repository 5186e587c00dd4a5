#include "fl/filesystem/filesystem.hpp"
#include "fl/i18n/unicode.hpp"
#include "fl/sys/SystemCalls.hpp"
#include "resource_core/BaseMsgID.hpp"

#include <string>
#include <utility>

namespace fl::filesystem {

namespace {

struct AccessDeniedID : resource_core::FixedMsgID<1> {
    explicit AccessDeniedID(const fl::ustring& path)
        : FixedMsgID("QUORIN:filesystem", "accessDenied", path) {}
};

struct PathNotFoundID : resource_core::FixedMsgID<1> {
    explicit PathNotFoundID(const fl::ustring& path)
        : FixedMsgID("QUORIN:filesystem", "pathNotFound", path) {}
};

struct InvalidNameID : resource_core::FixedMsgID<1> {
    explicit InvalidNameID(const fl::ustring& path)
        : FixedMsgID("QUORIN:filesystem", "invalidName", path) {}
};

struct SystemErrorID : resource_core::FixedMsgID<3> {
    SystemErrorID(const fl::ustring& path, const std::string& text, int code)
        : FixedMsgID("QUORIN:filesystem", "systemError", path, text, code) {}
};

}  // namespace

// Out-of-line destructors are the key functions: one type identity, in this library.
FsysExceptionBase::FsysExceptionBase(resource_core::BaseMsgID id, fl::ustring path)
    : id_(std::move(id)), path_(std::move(path)) {}
FsysExceptionBase::~FsysExceptionBase() = default;
const char* FsysExceptionBase::what() const noexcept { return IException::what(); }
std::string FsysExceptionBase::GetID() const { return get_error_id(id_); }
const resource_core::BaseMsgID& FsysExceptionBase::GetBaseMsgIDObj() const { return id_; }

AccessDenied::AccessDenied(const fl::ustring& path)
    : FsysExceptionBase(AccessDeniedID(path), path) {}
AccessDenied::~AccessDenied() = default;
AccessDenied* AccessDenied::clone() const { return new AccessDenied(*this); }
void AccessDenied::rethrow() const { throw AccessDenied(*this); }

PathNotFound::PathNotFound(const fl::ustring& path)
    : FsysExceptionBase(PathNotFoundID(path), path) {}
PathNotFound::~PathNotFound() = default;
PathNotFound* PathNotFound::clone() const { return new PathNotFound(*this); }
void PathNotFound::rethrow() const { throw PathNotFound(*this); }

InvalidName::InvalidName(const fl::ustring& path) : FsysExceptionBase(InvalidNameID(path), path) {}
InvalidName::~InvalidName() = default;
InvalidName* InvalidName::clone() const { return new InvalidName(*this); }
void InvalidName::rethrow() const { throw InvalidName(*this); }

SystemError::SystemError(int errorCode, const fl::ustring& path)
    : FsysExceptionBase(SystemErrorID(path, fl::sys::errorText(errorCode), errorCode), path),
      code_(errorCode) {}
SystemError::~SystemError() = default;
SystemError* SystemError::clone() const { return new SystemError(*this); }
void SystemError::rethrow() const { throw SystemError(*this); }

}  // namespace fl::filesystem
