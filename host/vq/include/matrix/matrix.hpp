#pragma once
// The host's array helpers in the form the built-ins call them.
#include "vq/vqArray.hpp"

#include <initializer_list>
#include <string>
#include <vector>

namespace matrix {

// Frees an array whose last reference is being dropped (the deleter's slow path).
VQ_API void destroyArray(vqArray* a) noexcept;

namespace detail {

// The host's argument-count errors; each throws an identified error and never returns.
[[noreturn]] VQ_API void error_maxlhs();
[[noreturn]] VQ_API void error_maxrhs();
[[noreturn]] VQ_API void error_minrhs();

// A zero-filled real numeric or logical array.
VQ_API unique_vqarray_ptr do_create_numeric(const std::vector<vqSize>& dims, vqClassID cls,
                                            vqComplexity complexity);
// As above, contents left for the caller to fill (still zeroed here: reading them is
// never undefined).
VQ_API unique_vqarray_ptr do_create_uninitnumeric(const std::vector<vqSize>& dims, vqClassID cls,
                                                  vqComplexity complexity);
// A struct array whose fields are all empty.
VQ_API unique_vqarray_ptr do_create_struct(const std::vector<vqSize>& dims,
                                           const std::vector<std::string>& fields);

}  // namespace detail
}  // namespace matrix
