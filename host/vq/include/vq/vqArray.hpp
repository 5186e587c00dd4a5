#pragma once
// Host arrays: reference-counted, column-major values of one class.
//
// Ownership follows the host's reference rule: an array created by vqCreate* or
// matrix::detail::do_create_* has one owner; vqDestroy_deleter drops that ownership
// (freeing the array when it was the last holder). Cells and struct fields own what is
// stored into them. vqLiveArrayCount() counts arrays created minus arrays freed, so tests
// can prove that every call released all it built.
#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#define VQ_API __attribute__((visibility("default")))

enum vqClassID : std::uint8_t {
    vqUNKNOWN_CLASS = 0,
    vqCELL_CLASS,
    vqSTRUCT_CLASS,
    vqLOGICAL_CLASS,
    vqCHAR_CLASS,
    vqVOID_CLASS,
    vqDOUBLE_CLASS,
    vqSINGLE_CLASS,
    vqINT8_CLASS,
    vqUINT8_CLASS,
    vqINT16_CLASS,
    vqUINT16_CLASS,
    vqINT32_CLASS,
    vqUINT32_CLASS,
    vqINT64_CLASS,
    vqUINT64_CLASS,
    vqSTRING_CLASS,
};

enum vqComplexity : std::uint8_t { vqREAL = 0, vqCOMPLEX = 1 };

using vqSize = std::size_t;
using vqIndex = std::size_t;
using vqChar = char16_t;
using vqLogical = bool;

// Base of payloads that the array layer stores but does not interpret (the string
// library's String objects). Reference counted so a payload can be shared.
class VQ_API vqPayload {
public:
    vqPayload() = default;
    vqPayload(const vqPayload&) = delete;
    vqPayload& operator=(const vqPayload&) = delete;
    virtual ~vqPayload();
    [[nodiscard]] virtual boost::intrusive_ptr<vqPayload> clonePayload() const = 0;
    // Called when the carrying array takes new dimensions of the same element count.
    virtual void reshapePayload(const std::vector<vqSize>& dims) = 0;

    friend void intrusive_ptr_add_ref(const vqPayload* p) noexcept { ++p->refs_; }
    friend void intrusive_ptr_release(const vqPayload* p) noexcept {
        if (--p->refs_ == 0) delete p;
    }

private:
    mutable std::size_t refs_ = 0;
};

class VQ_API vqArray {
public:
    vqArray(const vqArray&) = delete;
    vqArray& operator=(const vqArray&) = delete;

    [[nodiscard]] vqClassID classID() const noexcept { return class_; }
    [[nodiscard]] const std::vector<vqSize>& dims() const noexcept { return *dims_; }
    [[nodiscard]] vqSize numel() const noexcept { return numel_; }

    [[nodiscard]] std::vector<std::string> get_struct_field_names() const;
    [[nodiscard]] std::size_t get_number_of_struct_fields() const noexcept {
        return parts_ ? parts_->fields.size() : 0;
    }

    // The out-of-line halves of the inline queries (class id, dimensions, sharing).
    [[nodiscard]] vqClassID _get_class_id_non_trivial() const noexcept { return class_; }
    [[nodiscard]] const std::vector<vqSize>& _complete_opaque_dimensions() const noexcept {
        return *dims_;
    }
    [[nodiscard]] bool is_data_shared_impl() const noexcept {
        return refCount_ > 1 || marker_ != 0;
    }

    // Reference rule state: a count and a marker word that is non-zero while the array
    // is held elsewhere (by a variable of the host, say).
    std::uint32_t refCount_ = 1;
    std::uint32_t marker_ = 0;

private:
    friend struct vqArrayAccess;
    vqArray(vqClassID cls, std::vector<vqSize> dims);
    ~vqArray();

    // What only cells and structs have, apart, so that the many small arrays a result holds
    // (one per struct field) carry a pointer for it, not two vectors.
    struct Parts {
        std::vector<vqArray*> slots;      // cell elements, or struct fields
        std::vector<std::string> fields;  // struct field names, in order
    };

    vqClassID class_;
    bool sparse_ = false;
    const std::vector<vqSize>* dims_;  // shared for 1x1 and 0x0, else owned
    vqSize numel_ = 0;
    // Numeric, logical and char elements: in the array itself when they fit in 8 bytes (a
    // scalar), else on the heap.
    union {
        void* heap = nullptr;
        alignas(8) unsigned char bytes[8];
    } data_;
    std::unique_ptr<Parts> parts_;
    boost::intrusive_ptr<vqPayload> payload_;  // string arrays
};

// Releases one ownership of an array by the reference rule: the array is freed when its
// count is below 2 and its marker is zero, else its count drops by one.
struct VQ_API vqDestroy_deleter {
    void operator()(vqArray* a) const noexcept;
};

using unique_vqarray_ptr = std::unique_ptr<vqArray, vqDestroy_deleter>;

// --- queries -----------------------------------------------------------------------
VQ_API vqClassID vqGetClassID(const vqArray* a) noexcept;
VQ_API const char* vqGetClassName(const vqArray* a) noexcept;
VQ_API std::size_t vqGetNumberOfDimensions(const vqArray* a) noexcept;
VQ_API const vqSize* vqGetDimensions(const vqArray* a) noexcept;
VQ_API vqSize vqGetM(const vqArray* a) noexcept;
VQ_API vqSize vqGetN(const vqArray* a) noexcept;  // product of all but the first dimension
VQ_API vqSize vqGetNumberOfElements(const vqArray* a) noexcept;
VQ_API bool vqIsScalar(const vqArray* a) noexcept;
VQ_API bool vqIsEmpty(const vqArray* a) noexcept;
VQ_API bool vqIsSparse(const vqArray* a) noexcept;
VQ_API void vqSetSparse(vqArray* a, bool sparse);  // logical and double only
VQ_API bool vqIsNumeric(const vqArray* a) noexcept;
VQ_API bool vqIsChar(const vqArray* a) noexcept;
VQ_API bool vqIsLogical(const vqArray* a) noexcept;
VQ_API bool vqIsCell(const vqArray* a) noexcept;
VQ_API bool vqIsStruct(const vqArray* a) noexcept;
VQ_API bool vqIsDouble(const vqArray* a) noexcept;
VQ_API std::size_t vqGetElementSize(const vqArray* a) noexcept;

VQ_API void* vqGetData(const vqArray* a) noexcept;
VQ_API vqChar* vqGetChars(const vqArray* a) noexcept;
VQ_API vqLogical* vqGetLogicals(const vqArray* a) noexcept;
VQ_API double* vqGetPr(const vqArray* a) noexcept;

// Cells: an element may be an empty slot (null).
VQ_API vqArray* vqGetCell(const vqArray* cell, vqIndex i) noexcept;
VQ_API void vqSetCell(vqArray* cell, vqIndex i, vqArray* value);      // takes ownership
VQ_API void vqReplaceCell(vqArray* cell, vqIndex i, vqArray* value);  // releases the old one

// Structs: fields in creation order; a field may be empty (null).
VQ_API int vqGetNumberOfFields(const vqArray* s) noexcept;
VQ_API int vqGetFieldNumber(const vqArray* s, const char* name) noexcept;
VQ_API const char* vqGetFieldNameByNumber(const vqArray* s, int field) noexcept;
VQ_API vqArray* vqGetFieldByNumber(const vqArray* s, vqIndex i, int field) noexcept;
VQ_API vqArray* vqGetField(const vqArray* s, vqIndex i, const char* name) noexcept;
VQ_API void vqSetFieldByNumber(vqArray* s, vqIndex i, int field,
                               vqArray* value);  // takes ownership
VQ_API void vqSetField(vqArray* s, vqIndex i, const char* name, vqArray* value);
VQ_API int vqAddField(vqArray* s, const char* name);  // names checked as for creation

// String arrays keep their elements in a payload owned by the string library.
VQ_API vqPayload* vqGetPayload(const vqArray* a) noexcept;

// --- creation (each returns an owned array) -------------------------------------------
VQ_API unique_vqarray_ptr vqCreateNumericArray(const std::vector<vqSize>& dims, vqClassID cls);
VQ_API unique_vqarray_ptr vqCreateDoubleMatrix(vqSize m, vqSize n);
VQ_API unique_vqarray_ptr vqCreateDoubleScalar(double value);
VQ_API unique_vqarray_ptr vqCreateLogicalMatrix(vqSize m, vqSize n);
VQ_API unique_vqarray_ptr vqCreateLogicalScalar(bool value);
VQ_API unique_vqarray_ptr vqCreateCharArray(const std::vector<vqSize>& dims);
VQ_API unique_vqarray_ptr vqCreateString(std::u16string_view text);  // 1xN char (0x0 when empty)
VQ_API unique_vqarray_ptr vqCreateCellArray(const std::vector<vqSize>& dims);
// A field name that is not a letter followed by letters, digits or underscores (at most
// 63 characters), or a repeated one, throws the identified error "QUORIN:InvalidFieldName".
VQ_API unique_vqarray_ptr vqCreateStructArray(const std::vector<vqSize>& dims,
                                              const std::vector<std::string>& fields);
VQ_API unique_vqarray_ptr vqCreatePayloadArray(const std::vector<vqSize>& dims, vqClassID cls,
                                               boost::intrusive_ptr<vqPayload> payload);
VQ_API unique_vqarray_ptr vqDuplicateArray(const vqArray* a);  // deep copy
// A new array sharing nothing with `a`, with the same elements and new dimensions of the
// same element count (std::invalid_argument otherwise).
VQ_API unique_vqarray_ptr vqReshape(const vqArray* a, const std::vector<vqSize>& dims);

// Arrays created minus arrays freed, since the process started.
VQ_API long vqLiveArrayCount() noexcept;

// Memory that ran out is the host's identified error: "QUORIN:OutOfMemoryFor" with the
// bytes asked for, or "QUORIN:OutOfMemory" when that is not known (bytes 0). Every
// creation above throws it, having released what it built, instead of std::bad_alloc.
[[noreturn]] VQ_API void vqThrowOutOfMemory(std::size_t bytes);
// The most one array's elements or slots may take, as the host's array-size preference
// does (0: no limit beyond the system's); answers the previous limit.
VQ_API std::size_t vqSetAllocationLimit(std::size_t bytes) noexcept;
