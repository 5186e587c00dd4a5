#pragma once
// The exported gateways, one per built-in; the host resolves each by its symbol.
// Argument counts (max out / min in / max in) are checked first in every gateway but
// createWindowsShortcutFcn, which refuses at once.
#include "quorin/gateway/Gateway.hpp"

namespace quorin::io::filesystem::quorin {
QUORIN_GATEWAY_EXPORT void createFileURL(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void getContentTypeFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void resolvePathFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void resolvePathFcnWithAttributes(int, unique_vqarray_ptr*, int,
                                                        const vqArray* const*);
QUORIN_GATEWAY_EXPORT void pathFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
}  // namespace quorin::io::filesystem::quorin

QUORIN_GATEWAY_EXPORT void createURLFromPartsFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void isAbsolutePathNoIOFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void getPerms_impl(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void modifyPerms_impl(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void mkFileFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void mkSymlinkFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void createWindowsShortcutFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
QUORIN_GATEWAY_EXPORT void isSymlinkFcn(int, unique_vqarray_ptr*, int, const vqArray* const*);
// Declared with a non-const outer pointer, as the host has always called it.
QUORIN_GATEWAY_EXPORT void relativepath(int, unique_vqarray_ptr*, int, const vqArray** args);
QUORIN_GATEWAY_EXPORT void pathNameLengthValidation(int, unique_vqarray_ptr*, int, const vqArray* const*);

extern "C" {
QUORIN_GATEWAY_EXPORT void QNInitialize_libzkfilesystemquorin();
QUORIN_GATEWAY_EXPORT void QNTerminate_libzkfilesystemquorin();
}
