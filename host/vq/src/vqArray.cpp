#include "vq/vqArray.hpp"

#include "foundation/core/except/Exception.hpp"
#include "matrix/matrix.hpp"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <numeric>
#include <stdexcept>
#include <string_view>

namespace QUORIN {

// The host's own count errors.
struct TooManyOutputs : resource_core::FixedMsgID<0> {
    TooManyOutputs() : FixedMsgID("QUORIN", "TooManyOutputs") {}
};
struct TooManyInputs : resource_core::FixedMsgID<0> {
    TooManyInputs() : FixedMsgID("QUORIN", "TooManyInputs") {}
};
struct NotEnoughInputs : resource_core::FixedMsgID<0> {
    NotEnoughInputs() : FixedMsgID("QUORIN", "NotEnoughInputs") {}
};
// A field name is what a user can write after a dot: a letter, then letters, digits or
// underscores, at most 63 in all; and no struct has the same name twice. Built-ins that
// turn user text into field names meet this with bad input, so it is a user's error.
struct InvalidFieldName : resource_core::FixedMsgID<1> {
    explicit InvalidFieldName(const std::string& name)
        : FixedMsgID("QUORIN", "InvalidFieldName", name) {}
};

// Memory ran out: with the request in bytes where the host made it, without where a
// library's own container did.
struct OutOfMemory : resource_core::FixedMsgID<0> {
    OutOfMemory() : FixedMsgID("QUORIN", "OutOfMemory") {}
};
struct OutOfMemoryFor : resource_core::FixedMsgID<1> {
    explicit OutOfMemoryFor(std::size_t bytes)
        : FixedMsgID("QUORIN", "OutOfMemoryFor",
                     static_cast<std::int64_t>(std::min<std::size_t>(bytes, INT64_MAX))) {}
};

}  // namespace QUORIN

namespace {

constexpr std::size_t kMaxFieldNameLength = 63;

bool isAsciiLetter(char c) noexcept { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool isValidFieldName(std::string_view name) noexcept {
    if (name.empty() || name.size() > kMaxFieldNameLength || !isAsciiLetter(name.front())) {
        return false;
    }
    return std::all_of(name.begin(), name.end(), [](char c) {
        return isAsciiLetter(c) || (c >= '0' && c <= '9') || c == '_';
    });
}

std::atomic<long> gLiveArrays{0};

std::size_t elementSize(vqClassID cls) {
    switch (cls) {
        case vqLOGICAL_CLASS:
        case vqINT8_CLASS:
        case vqUINT8_CLASS:
            return 1;
        case vqCHAR_CLASS:
        case vqINT16_CLASS:
        case vqUINT16_CLASS:
            return 2;
        case vqSINGLE_CLASS:
        case vqINT32_CLASS:
        case vqUINT32_CLASS:
            return 4;
        case vqDOUBLE_CLASS:
        case vqINT64_CLASS:
        case vqUINT64_CLASS:
            return 8;
        default:
            return 0;
    }
}

// The slot already owns `value`; a second reference handed over with it is released,
// while the only one never is.
void dropSurplusReference(vqArray* value) noexcept {
    if (value != nullptr && value->refCount_ > 1) --value->refCount_;
}

bool hasData(vqClassID cls) { return elementSize(cls) != 0; }

// Two dimensions at least; trailing singletons beyond the second are dropped.
std::vector<vqSize> normaliseDims(std::vector<vqSize> dims) {
    while (dims.size() < 2) dims.push_back(dims.empty() ? 0 : 1);
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
    return dims;
}

std::atomic<std::size_t> gAllocationLimit{SIZE_MAX};

// The bytes of `count` elements of `size` bytes, refused beyond the host's limit.
std::size_t checkedBytes(std::size_t count, std::size_t size) {
    const std::size_t bytes = size != 0 && count > SIZE_MAX / size ? SIZE_MAX : count * size;
    if (bytes > gAllocationLimit.load(std::memory_order_relaxed)) vqThrowOutOfMemory(bytes);
    return bytes;
}

// Element storage of `count` elements of `size` bytes, within the host's limit.
void* allocateElements(std::size_t count, std::size_t size) {
    const std::size_t bytes = checkedBytes(count, size);
    void* p = std::calloc(count, size);
    if (p == nullptr) vqThrowOutOfMemory(bytes);
    return p;
}

// `count` empty slots, within the host's limit.
void assignSlots(std::vector<vqArray*>& slots, std::size_t count) {
    const std::size_t bytes =
        count > SIZE_MAX / sizeof(vqArray*) ? SIZE_MAX : count * sizeof(vqArray*);
    if (bytes > gAllocationLimit.load(std::memory_order_relaxed)) vqThrowOutOfMemory(bytes);
    try {
        slots.assign(count, nullptr);
    } catch (const std::bad_alloc&) {
        vqThrowOutOfMemory(bytes);
    } catch (const std::length_error&) {
        vqThrowOutOfMemory(bytes);
    }
}

// Elements that fit in the array's own 8 bytes (every scalar) are stored there.
bool storedInline(vqClassID cls, vqSize numel) {
    return hasData(cls) && numel > 0 && numel <= 8 / elementSize(cls);
}

// The shapes of nearly every small array, shared rather than allocated per array. Never
// destroyed: an array freed while another library exits still compares against them.
const std::vector<vqSize>* const kScalarDims = new std::vector<vqSize>{1, 1};
const std::vector<vqSize>* const kEmptyDims = new std::vector<vqSize>{0, 0};

bool sharedDims(const std::vector<vqSize>* dims) noexcept {
    return dims == kScalarDims || dims == kEmptyDims;
}

const std::vector<vqSize>* internDims(std::vector<vqSize> dims) {
    if (dims == *kScalarDims) return kScalarDims;
    if (dims == *kEmptyDims) return kEmptyDims;
    return new std::vector<vqSize>(std::move(dims));
}

const std::vector<std::string> kNoFields;

vqSize countOf(const std::vector<vqSize>& dims) {
    vqSize n = 1;
    for (const vqSize d : dims) {
        if (d != 0 && n > SIZE_MAX / d) throw std::length_error("host array is too large");
        n *= d;
    }
    return n;
}

}  // namespace

vqPayload::~vqPayload() = default;

struct vqArrayAccess {
    static unique_vqarray_ptr make(vqClassID cls, std::vector<vqSize> dims) {
        return unique_vqarray_ptr(new vqArray(cls, normaliseDims(std::move(dims))));
    }
    static void destroy(vqArray* a) noexcept { delete a; }
    // Both of one class and element count, so their elements are stored alike.
    static void swapContents(vqArray& x, vqArray& y) noexcept {
        std::swap(x.data_, y.data_);
        x.parts_.swap(y.parts_);
        x.payload_.swap(y.payload_);
        std::swap(x.sparse_, y.sparse_);
    }
    static vqArray& mut(const vqArray* a) noexcept { return *const_cast<vqArray*>(a); }
    // Cells and structs only.
    static std::vector<vqArray*>& slots(const vqArray* a) noexcept { return mut(a).parts_->slots; }
    static std::vector<std::string>& fields(vqArray* a) noexcept { return a->parts_->fields; }
    static const std::vector<std::string>& fieldsOf(const vqArray* a) noexcept {
        return a->parts_ ? a->parts_->fields : kNoFields;
    }
    static bool hasParts(const vqArray* a) noexcept { return a->parts_ != nullptr; }
    static void* data(const vqArray* a) noexcept {
        return storedInline(a->class_, a->numel_) ? mut(a).data_.bytes : a->data_.heap;
    }
    static bool& sparse(const vqArray* a) noexcept { return mut(a).sparse_; }
    static boost::intrusive_ptr<vqPayload>& payload(const vqArray* a) noexcept {
        return mut(a).payload_;
    }
};

vqArray::vqArray(vqClassID cls, std::vector<vqSize> dims)
    : class_(cls), dims_(nullptr), numel_(countOf(dims)) {
    dims_ = internDims(std::move(dims));
    try {
        if (storedInline(cls, numel_)) {
            checkedBytes(numel_, elementSize(cls));  // the union starts zeroed
        } else if (hasData(cls) && numel_ > 0) {
            data_.heap = allocateElements(numel_, elementSize(cls));
        }
        if (cls == vqCELL_CLASS || cls == vqSTRUCT_CLASS) parts_ = std::make_unique<Parts>();
        if (cls == vqCELL_CLASS) assignSlots(parts_->slots, numel_);
    } catch (...) {
        if (!sharedDims(dims_)) delete dims_;
        throw;
    }
    ++gLiveArrays;
}

vqArray::~vqArray() {
    if (!storedInline(class_, numel_)) std::free(data_.heap);
    if (parts_) {
        vqDestroy_deleter release;
        for (vqArray* child : parts_->slots) release(child);
    }
    if (!sharedDims(dims_)) delete dims_;
    --gLiveArrays;
}

std::vector<std::string> vqArray::get_struct_field_names() const {
    return vqArrayAccess::fieldsOf(this);
}

void vqDestroy_deleter::operator()(vqArray* a) const noexcept {
    if (a == nullptr) return;
    if (a->refCount_ < 2 && a->marker_ == 0) {
        matrix::destroyArray(a);
    } else {
        --a->refCount_;
    }
}

void matrix::destroyArray(vqArray* a) noexcept { vqArrayAccess::destroy(a); }

void matrix::detail::error_maxlhs() {
    foundation::core::except::throwMsgID(QUORIN::TooManyOutputs());
}
void matrix::detail::error_maxrhs() {
    foundation::core::except::throwMsgID(QUORIN::TooManyInputs());
}
void matrix::detail::error_minrhs() {
    foundation::core::except::throwMsgID(QUORIN::NotEnoughInputs());
}

unique_vqarray_ptr matrix::detail::do_create_numeric(const std::vector<vqSize>& dims, vqClassID cls,
                                                     vqComplexity complexity) {
    if (!hasData(cls) || cls == vqCHAR_CLASS || complexity != vqREAL) {
        throw std::invalid_argument("do_create_numeric: not a real numeric or logical class");
    }
    return vqArrayAccess::make(cls, dims);
}

unique_vqarray_ptr matrix::detail::do_create_uninitnumeric(const std::vector<vqSize>& dims,
                                                           vqClassID cls, vqComplexity complexity) {
    return do_create_numeric(dims, cls, complexity);
}

unique_vqarray_ptr matrix::detail::do_create_struct(const std::vector<vqSize>& dims,
                                                    const std::vector<std::string>& fields) {
    return vqCreateStructArray(dims, fields);
}

// --- queries -----------------------------------------------------------------------

vqClassID vqGetClassID(const vqArray* a) noexcept { return a->classID(); }

const char* vqGetClassName(const vqArray* a) noexcept {
    switch (a->classID()) {
        case vqCELL_CLASS:
            return "cell";
        case vqSTRUCT_CLASS:
            return "struct";
        case vqLOGICAL_CLASS:
            return "logical";
        case vqCHAR_CLASS:
            return "char";
        case vqDOUBLE_CLASS:
            return "double";
        case vqSINGLE_CLASS:
            return "single";
        case vqINT8_CLASS:
            return "int8";
        case vqUINT8_CLASS:
            return "uint8";
        case vqINT16_CLASS:
            return "int16";
        case vqUINT16_CLASS:
            return "uint16";
        case vqINT32_CLASS:
            return "int32";
        case vqUINT32_CLASS:
            return "uint32";
        case vqINT64_CLASS:
            return "int64";
        case vqUINT64_CLASS:
            return "uint64";
        case vqSTRING_CLASS:
            return "string";
        default:
            return "unknown";
    }
}

std::size_t vqGetNumberOfDimensions(const vqArray* a) noexcept { return a->dims().size(); }
const vqSize* vqGetDimensions(const vqArray* a) noexcept { return a->dims().data(); }
vqSize vqGetM(const vqArray* a) noexcept { return a->dims()[0]; }
vqSize vqGetN(const vqArray* a) noexcept {
    return std::accumulate(a->dims().begin() + 1, a->dims().end(), vqSize{1}, std::multiplies<>());
}
vqSize vqGetNumberOfElements(const vqArray* a) noexcept { return a->numel(); }
bool vqIsScalar(const vqArray* a) noexcept { return a->numel() == 1; }
bool vqIsEmpty(const vqArray* a) noexcept { return a->numel() == 0; }
bool vqIsSparse(const vqArray* a) noexcept { return vqArrayAccess::sparse(a); }

void vqSetSparse(vqArray* a, bool sparse) {
    if (sparse && a->classID() != vqLOGICAL_CLASS && a->classID() != vqDOUBLE_CLASS) {
        throw std::invalid_argument("only logical and double arrays can be sparse");
    }
    vqArrayAccess::sparse(a) = sparse;
}

bool vqIsNumeric(const vqArray* a) noexcept {
    return a->classID() >= vqDOUBLE_CLASS && a->classID() <= vqUINT64_CLASS;
}
bool vqIsChar(const vqArray* a) noexcept { return a->classID() == vqCHAR_CLASS; }
bool vqIsLogical(const vqArray* a) noexcept { return a->classID() == vqLOGICAL_CLASS; }
bool vqIsCell(const vqArray* a) noexcept { return a->classID() == vqCELL_CLASS; }
bool vqIsStruct(const vqArray* a) noexcept { return a->classID() == vqSTRUCT_CLASS; }
bool vqIsDouble(const vqArray* a) noexcept { return a->classID() == vqDOUBLE_CLASS; }
std::size_t vqGetElementSize(const vqArray* a) noexcept { return elementSize(a->classID()); }

void* vqGetData(const vqArray* a) noexcept { return vqArrayAccess::data(a); }
vqChar* vqGetChars(const vqArray* a) noexcept {
    return vqIsChar(a) ? static_cast<vqChar*>(vqArrayAccess::data(a)) : nullptr;
}
vqLogical* vqGetLogicals(const vqArray* a) noexcept {
    return vqIsLogical(a) ? static_cast<vqLogical*>(vqArrayAccess::data(a)) : nullptr;
}
double* vqGetPr(const vqArray* a) noexcept {
    return vqIsDouble(a) ? static_cast<double*>(vqArrayAccess::data(a)) : nullptr;
}

vqArray* vqGetCell(const vqArray* cell, vqIndex i) noexcept {
    if (!vqIsCell(cell) || i >= cell->numel()) return nullptr;
    return vqArrayAccess::slots(cell)[i];
}

void vqSetCell(vqArray* cell, vqIndex i, vqArray* value) {
    if (!vqIsCell(cell) || i >= cell->numel()) {
        vqDestroy_deleter{}(value);
        throw std::out_of_range("vqSetCell: index outside the cell array");
    }
    vqArray*& slot = vqArrayAccess::slots(cell)[i];
    if (slot == value) {  // storing what is already there must not free it
        dropSurplusReference(value);
        return;
    }
    vqDestroy_deleter{}(slot);  // a slot that already held a value must not leak it
    slot = value;
}

void vqReplaceCell(vqArray* cell, vqIndex i, vqArray* value) { vqSetCell(cell, i, value); }

int vqGetNumberOfFields(const vqArray* s) noexcept {
    return static_cast<int>(vqArrayAccess::fieldsOf(s).size());
}

int vqGetFieldNumber(const vqArray* s, const char* name) noexcept {
    if (!vqIsStruct(s) || name == nullptr) return -1;
    const auto& f = vqArrayAccess::fieldsOf(s);
    const auto it = std::find(f.begin(), f.end(), name);
    return it == f.end() ? -1 : static_cast<int>(it - f.begin());
}

const char* vqGetFieldNameByNumber(const vqArray* s, int field) noexcept {
    const auto& f = vqArrayAccess::fieldsOf(s);
    if (!vqIsStruct(s) || field < 0 || static_cast<std::size_t>(field) >= f.size()) return nullptr;
    return f[static_cast<std::size_t>(field)].c_str();
}

vqArray* vqGetFieldByNumber(const vqArray* s, vqIndex i, int field) noexcept {
    const std::size_t nf = vqArrayAccess::fieldsOf(s).size();
    if (!vqIsStruct(s) || field < 0 || static_cast<std::size_t>(field) >= nf || i >= s->numel()) {
        return nullptr;
    }
    return vqArrayAccess::slots(s)[i * nf + static_cast<std::size_t>(field)];
}

vqArray* vqGetField(const vqArray* s, vqIndex i, const char* name) noexcept {
    return vqGetFieldByNumber(s, i, vqGetFieldNumber(s, name));
}

void vqSetFieldByNumber(vqArray* s, vqIndex i, int field, vqArray* value) {
    const std::size_t nf = vqArrayAccess::fieldsOf(s).size();
    if (!vqIsStruct(s) || field < 0 || static_cast<std::size_t>(field) >= nf || i >= s->numel()) {
        vqDestroy_deleter{}(value);
        throw std::out_of_range("vqSetFieldByNumber: no such field or element");
    }
    vqArray*& slot = vqArrayAccess::slots(s)[i * nf + static_cast<std::size_t>(field)];
    if (slot == value) {
        dropSurplusReference(value);
        return;
    }
    vqDestroy_deleter{}(slot);
    slot = value;
}

void vqSetField(vqArray* s, vqIndex i, const char* name, vqArray* value) {
    vqSetFieldByNumber(s, i, vqGetFieldNumber(s, name), value);
}

int vqAddField(vqArray* s, const char* name) {
    if (!vqIsStruct(s)) throw std::invalid_argument("vqAddField: not a struct array");
    if (name == nullptr || !isValidFieldName(name))
        foundation::core::except::throwMsgID(QUORIN::InvalidFieldName(name == nullptr ? "" : name));
    const int existing = vqGetFieldNumber(s, name);
    if (existing >= 0) return existing;
    auto& fields = vqArrayAccess::fields(s);
    auto& slots = vqArrayAccess::slots(s);
    const std::size_t nf = fields.size();
    std::vector<vqArray*> widened(s->numel() * (nf + 1), nullptr);
    for (std::size_t i = 0; i < s->numel(); ++i) {
        std::copy_n(slots.begin() + static_cast<std::ptrdiff_t>(i * nf), nf,
                    widened.begin() + static_cast<std::ptrdiff_t>(i * (nf + 1)));
    }
    fields.emplace_back(name);
    slots.swap(widened);
    return static_cast<int>(nf);
}

vqPayload* vqGetPayload(const vqArray* a) noexcept { return vqArrayAccess::payload(a).get(); }

// --- creation ------------------------------------------------------------------------

unique_vqarray_ptr vqCreateNumericArray(const std::vector<vqSize>& dims, vqClassID cls) {
    return matrix::detail::do_create_numeric(dims, cls, vqREAL);
}
unique_vqarray_ptr vqCreateDoubleMatrix(vqSize m, vqSize n) {
    return vqCreateNumericArray({m, n}, vqDOUBLE_CLASS);
}
unique_vqarray_ptr vqCreateDoubleScalar(double value) {
    auto a = vqCreateDoubleMatrix(1, 1);
    *vqGetPr(a.get()) = value;
    return a;
}
unique_vqarray_ptr vqCreateLogicalMatrix(vqSize m, vqSize n) {
    return vqCreateNumericArray({m, n}, vqLOGICAL_CLASS);
}
unique_vqarray_ptr vqCreateLogicalScalar(bool value) {
    auto a = vqCreateLogicalMatrix(1, 1);
    *vqGetLogicals(a.get()) = value;
    return a;
}
unique_vqarray_ptr vqCreateCharArray(const std::vector<vqSize>& dims) {
    return vqArrayAccess::make(vqCHAR_CLASS, dims);
}
unique_vqarray_ptr vqCreateString(std::u16string_view text) {
    auto a = vqCreateCharArray({text.empty() ? 0U : 1U, text.size()});
    if (!text.empty())
        std::memcpy(vqGetChars(a.get()), text.data(), text.size() * sizeof(char16_t));
    return a;
}
unique_vqarray_ptr vqCreateCellArray(const std::vector<vqSize>& dims) {
    return vqArrayAccess::make(vqCELL_CLASS, dims);
}
unique_vqarray_ptr vqCreateStructArray(const std::vector<vqSize>& dims,
                                       const std::vector<std::string>& fields) {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!isValidFieldName(fields[i]) ||
            std::find(fields.begin(), fields.begin() + static_cast<std::ptrdiff_t>(i), fields[i]) !=
                fields.begin() + static_cast<std::ptrdiff_t>(i)) {
            foundation::core::except::throwMsgID(QUORIN::InvalidFieldName(fields[i]));
        }
    }
    auto a = vqArrayAccess::make(vqSTRUCT_CLASS, dims);
    vqArrayAccess::fields(a.get()) = fields;
    assignSlots(vqArrayAccess::slots(a.get()),
                fields.empty() || a->numel() <= SIZE_MAX / fields.size()
                    ? a->numel() * fields.size()
                    : SIZE_MAX);
    return a;
}
unique_vqarray_ptr vqCreatePayloadArray(const std::vector<vqSize>& dims, vqClassID cls,
                                        boost::intrusive_ptr<vqPayload> payload) {
    auto a = vqArrayAccess::make(cls, dims);
    vqArrayAccess::payload(a.get()) = std::move(payload);
    return a;
}

unique_vqarray_ptr vqDuplicateArray(const vqArray* a) {
    auto copy = vqArrayAccess::make(a->classID(), a->dims());
    if (void* src = vqGetData(a); src != nullptr) {
        std::memcpy(vqGetData(copy.get()), src, a->numel() * vqGetElementSize(a));
    }
    vqArrayAccess::sparse(copy.get()) = vqIsSparse(a);
    if (vqArrayAccess::hasParts(a) && vqArrayAccess::hasParts(copy.get())) {
        vqArrayAccess::fields(copy.get()) = vqArrayAccess::fieldsOf(a);
        const auto& from = vqArrayAccess::slots(a);
        auto& to = vqArrayAccess::slots(copy.get());
        to.assign(from.size(), nullptr);
        for (std::size_t i = 0; i < from.size(); ++i) {
            if (from[i] != nullptr) to[i] = vqDuplicateArray(from[i]).release();
        }
    }
    if (const auto& p = vqArrayAccess::payload(a))
        vqArrayAccess::payload(copy.get()) = p->clonePayload();
    return copy;
}

unique_vqarray_ptr vqReshape(const vqArray* a, const std::vector<vqSize>& dims) {
    if (countOf(dims) != a->numel()) {
        throw std::invalid_argument("reshape: the element count must not change");
    }
    auto copy = vqDuplicateArray(a);
    auto reshaped = vqArrayAccess::make(a->classID(), dims);
    vqArrayAccess::swapContents(*copy, *reshaped);  // same element order, new dimensions
    if (vqPayload* p = vqGetPayload(reshaped.get())) p->reshapePayload(reshaped->dims());
    return reshaped;
}

long vqLiveArrayCount() noexcept { return gLiveArrays.load(); }

void vqThrowOutOfMemory(std::size_t bytes) {
    if (bytes == 0) foundation::core::except::throwMsgID(QUORIN::OutOfMemory());
    foundation::core::except::throwMsgID(QUORIN::OutOfMemoryFor(bytes));
}

std::size_t vqSetAllocationLimit(std::size_t bytes) noexcept {
    return gAllocationLimit.exchange(bytes == 0 ? SIZE_MAX : bytes);
}
