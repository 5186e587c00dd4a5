#pragma once
// The storage failures that the file and link makers translate into their own
// identifiers, shared by mkFile and mkSymlink.
//
// A failure is recorded while the storage exception is caught and raised (or reported)
// only after its handler has ended, so the storage exception is gone before the
// replacement is built. Internal to the library: no host or OS types leak from here.
#include "quorin/gateway/Identifiers.hpp"

#include "foundation/core/except/Exception.hpp"

#include <exception>
#include <type_traits>
#include <utility>

namespace quorin::io::filesystem::quorin::create {

enum class StorageFailure {
    InvalidLocation,
    PermissionDenied,
    AlreadyExists,
    NotFound,
    Unknown,
    NotValidURL,  // an IRI text that does not parse
    InvalidIRI,   // a scheme that no storage provider serves
};

// The storage library's error codes 1 to 4; anything else is an unknown error.
constexpr StorageFailure failureForErrorCode(int code) noexcept {
    switch (code) {
        case 1:
            return StorageFailure::InvalidLocation;
        case 2:
            return StorageFailure::PermissionDenied;
        case 3:
            return StorageFailure::AlreadyExists;
        case 4:
            return StorageFailure::NotFound;
        default:
            return StorageFailure::Unknown;
    }
}

// Calls f(std::type_identity<ID>{}) with the identifier class of the failure.
template <class F>
decltype(auto) withIdentifierOf(StorageFailure failure, F&& f) {
    switch (failure) {
        case StorageFailure::InvalidLocation:
            return f(std::type_identity<QUORIN::virtualfilesystem::invalidLocation>{});
        case StorageFailure::PermissionDenied:
            return f(std::type_identity<QUORIN::virtualfilesystem::permissionDenied>{});
        case StorageFailure::AlreadyExists:
            return f(std::type_identity<QUORIN::virtualfilesystem::resourceAlreadyExists>{});
        case StorageFailure::NotFound:
            return f(std::type_identity<QUORIN::virtualfilesystem::resourceNotFound>{});
        case StorageFailure::Unknown:
            break;
        case StorageFailure::NotValidURL:
            return f(std::type_identity<QUORIN::virtualfileio::localtoremote::notValidURL>{});
        case StorageFailure::InvalidIRI:
            return f(std::type_identity<QUORIN::virtualfileio::path::invalidIRI>{});
    }
    return f(std::type_identity<QUORIN::virtualfilesystem::unknownError>{});
}

// Every translated failure carries one UTF-16 argument.
template <class Text>
[[noreturn]] void throwFailure(StorageFailure failure, const Text& argument) {
    withIdentifierOf(failure, [&](auto tag) {
        using ID = typename decltype(tag)::type;
        foundation::core::except::throwMsgID(ID(argument));
    });
    std::terminate();  // withIdentifierOf always throws through the lambda
}

// The same error built but not thrown, for callers that report failures as data.
template <class Text>
std::exception_ptr captureFailure(StorageFailure failure, const Text& argument) {
    return withIdentifierOf(failure, [&](auto tag) {
        using ID = typename decltype(tag)::type;
        return std::make_exception_ptr(foundation::core::except::Exception<ID>(ID(argument)));
    });
}

}  // namespace quorin::io::filesystem::quorin::create
