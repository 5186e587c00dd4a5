#pragma once
// Raising identified errors.
//
// throwError<ID>(args...) builds the identifier object, wraps it in the host's
// Exception<ID> (which computes the identifier text once) and throws it by value.
#include "quorin/gateway/Identifiers.hpp"

#include "foundation/core/except/Exception.hpp"

#include <exception>

namespace quorin::gateway {

template <class ID, class... A>
[[noreturn]] void throwError(const A&... args) {
    foundation::core::except::throwMsgID(ID(args...));
}

// The localised name of the path argument ("QUORIN:FileUtils:inputPath" in the current
// global locale), used as the argument of the text-kind errors.
fl::ustring inputPathName();

// Throws "QUORIN:string:MustBeCharCellArrayOrString" in place of the host's NotText.
// Called outside the handler that caught NotText, so the caught exception is already
// released when the replacement is built.
[[noreturn]] void throwNotTextReplacement();

}  // namespace quorin::gateway
