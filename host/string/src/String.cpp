#include "Hexfarrow/String/String.hpp"

#include <algorithm>
#include <functional>
#include <new>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace Hexfarrow::String {
namespace {

struct NotTextID : resource_core::FixedMsgID<0> {
    NotTextID() : FixedMsgID("QUORIN:string", "NotText") {}
};

// The array layer's shape rule (at least two dimensions, trailing singletons beyond the
// second dropped), so that a payload never disagrees with the array that carries it.
std::vector<vqSize> arrayShape(std::vector<vqSize> dims) {
    while (dims.size() < 2) dims.push_back(dims.empty() ? 0 : 1);
    while (dims.size() > 2 && dims.back() == 1) dims.pop_back();
    return dims;
}

}  // namespace

namespace {

const char16_t kEmptyText[1] = {u'\0'};

// Never destroyed, as the array layer's own shared shapes.
const std::vector<vqSize>* const kScalarShape = new std::vector<vqSize>{1, 1};

const std::vector<vqSize>* internShape(std::vector<vqSize> dims) {
    if (dims == *kScalarShape) return kScalarShape;
    return new std::vector<vqSize>(std::move(dims));
}

}  // namespace

String::String(std::vector<vqSize> dims) : dims_(internShape(arrayShape(std::move(dims)))) {
    const vqSize n = std::accumulate(dims_->begin(), dims_->end(), vqSize{1}, std::multiplies<>());
    scalar_ = n == 1;
    if (scalar_) {
        one_ = {kEmptyText, 0};
        return;
    }
    many_ = {nullptr, nullptr, n};
    if (n == 0) return;
    try {
        many_.texts = new fl::ustring[n];
        many_.records = new StringRecord[n];
    } catch (...) {
        delete[] many_.texts;
        if (dims_ != kScalarShape) delete dims_;
        throw;
    }
    for (std::size_t i = 0; i < n; ++i) many_.records[i] = {many_.texts[i].data(), 0};
}

String::String(ScalarTag, std::uint32_t capacity)
    : dims_(kScalarShape), capacity_(capacity), scalar_(true), one_{kEmptyText, 0} {}

String::~String() {
    if (scalar_) {
        releaseScalarText();
    } else {
        delete[] many_.records;
        delete[] many_.texts;
    }
    if (dims_ != kScalarShape) delete dims_;
}

boost::intrusive_ptr<String> String::makeScalar(fl::ustring_view text) {
    // Longer texts than a capacity can count go to a buffer of their own.
    const auto capacity = static_cast<std::uint32_t>(text.size() <= UINT32_MAX ? text.size() : 0);
    void* memory = String::operator new(sizeof(String) + capacity * sizeof(char16_t));
    boost::intrusive_ptr<String> made(::new (memory) String(ScalarTag{}, capacity));
    made->assignScalar(text);
    return made;
}

void* String::operator new(std::size_t bytes) { return ::operator new(bytes); }
void String::operator delete(void* p) noexcept { ::operator delete(p); }

char16_t* String::inlineText() noexcept {
    return reinterpret_cast<char16_t*>(reinterpret_cast<unsigned char*>(this) + sizeof(String));
}

void String::releaseScalarText() noexcept {
    if (one_.text != nullptr && one_.text != kEmptyText && one_.text != inlineText()) {
        delete[] one_.text;
    }
}

const StringRecord& String::record(std::size_t i) const {
    if (i >= numel()) throw std::out_of_range("String: element index out of range");
    return scalar_ ? one_ : many_.records[i];
}

StringRecord& String::record(std::size_t i) {
    return const_cast<StringRecord&>(std::as_const(*this).record(i));
}

const StringRecord* String::get(std::size_t i) const {
    const StringRecord& r = record(i);
    return r.text == nullptr ? nullptr : &r;
}

void String::set(std::size_t i, fl::ustring text) {
    StringRecord& r = record(i);
    if (scalar_) {
        assignScalar(text);
        return;
    }
    fl::ustring& owned = many_.texts[i];
    owned = std::move(text);
    r = {owned.data(), owned.size()};
}

void String::assignScalar(fl::ustring_view text) {
    if (text.empty()) {
        releaseScalarText();
        one_ = {kEmptyText, 0};
    } else if (text.size() <= capacity_) {
        releaseScalarText();
        std::copy(text.begin(), text.end(), inlineText());
        one_ = {inlineText(), text.size()};
    } else {
        auto* buffer = new char16_t[text.size()];
        std::copy(text.begin(), text.end(), buffer);
        releaseScalarText();
        one_ = {buffer, text.size()};
    }
}

void String::setMissing(std::size_t i) {
    StringRecord& r = record(i);
    if (scalar_) {
        releaseScalarText();
    } else {
        fl::ustring().swap(many_.texts[i]);
    }
    r.text = nullptr;
    r.length = 0;
}

void String::reshapePayload(const std::vector<vqSize>& dims) {
    const std::vector<vqSize>* shape = internShape(arrayShape(dims));
    if (dims_ != kScalarShape) delete dims_;
    dims_ = shape;
}

boost::intrusive_ptr<vqPayload> String::clonePayload() const {
    if (scalar_) {
        if (one_.text == nullptr) {
            StringPtr copy(new String(*dims_));
            copy->setMissing(0);
            return copy;
        }
        return makeScalar(fl::ustring_view(one_.text, one_.length));
    }
    StringPtr copy(new String(*dims_));
    for (std::size_t i = 0; i < many_.numel; ++i) {
        if (many_.records[i].text != nullptr)
            copy->set(i, many_.texts[i]);
        else
            copy->setMissing(i);
    }
    return copy;
}

StringPtr make_String(std::size_t ndims, const vqSize* dims) {
    return StringPtr(new String(std::vector<vqSize>(dims, dims + ndims)));
}

bool isString(const vqArray* a) noexcept {
    return a != nullptr && vqGetClassID(a) == vqSTRING_CLASS;
}

String& getMutableString(vqArray* a) {
    if (!isString(a)) throw std::invalid_argument("not a string array");
    return static_cast<String&>(*vqGetPayload(a));
}

const String& getString(const vqArray* a) {
    if (!isString(a)) throw std::invalid_argument("not a string array");
    return static_cast<const String&>(*vqGetPayload(a));
}

const String& getString(const unique_vqarray_ptr& a) { return getString(a.get()); }

bool isCharRowOrEmpty(const vqArray* a) noexcept {
    if (a == nullptr || !vqIsChar(a) || vqGetNumberOfDimensions(a) != 2) return false;
    const vqSize* d = vqGetDimensions(a);
    return d[0] == 1 || (d[0] == 0 && d[1] == 0);
}

bool isScalarText(const vqArray* a, bool allowCharOfAnyShape, bool allowScalarCell) noexcept {
    if (a == nullptr) return false;
    if (vqIsChar(a)) return allowCharOfAnyShape || isCharRowOrEmpty(a);
    if (isString(a)) return vqIsScalar(a);
    if (allowScalarCell && vqIsCell(a) && vqIsScalar(a)) return isCharRowOrEmpty(vqGetCell(a, 0));
    return false;
}

bool isMissingScalarString(const vqArray* a) noexcept {
    return isString(a) && vqIsScalar(a) && getString(a).isMissing(0);
}

unique_vqarray_ptr createStringArray(StringPtr str) {
    const std::vector<vqSize> dims = str->dims();
    return vqCreatePayloadArray(dims, vqSTRING_CLASS, std::move(str));
}

unique_vqarray_ptr createStringArray(std::size_t ndims, const vqSize* dims) {
    return createStringArray(make_String(ndims, dims));
}

unique_vqarray_ptr createStringArray(vqSize rows, vqSize cols) {
    const vqSize dims[] = {rows, cols};
    return createStringArray(2, dims);
}

unique_vqarray_ptr createStringArray(const fl::ustring& text) {
    return createStringArray(String::makeScalar(text));
}

unique_vqarray_ptr createMissingString() {
    auto a = createStringArray(1, 1);
    getMutableString(a.get()).setMissing(0);
    return a;
}

TextDispatch::NotText::NotText() : id_(NotTextID()) {}
TextDispatch::NotText::~NotText() = default;
TextDispatch::NotText* TextDispatch::NotText::clone() const { return new NotText(*this); }
void TextDispatch::NotText::rethrow() const { throw NotText(*this); }
const char* TextDispatch::NotText::what() const noexcept { return IException::what(); }
std::string TextDispatch::NotText::GetID() const { return get_error_id(id_); }
const resource_core::BaseMsgID& TextDispatch::NotText::GetBaseMsgIDObj() const { return id_; }

TextDispatch::Kind TextDispatch::classify(const vqArray* a) {
    if (isString(a)) return Kind::String;
    if (isCharRowOrEmpty(a)) return Kind::Char;
    if (a != nullptr && vqIsCell(a)) return Kind::Cell;
    throw NotText();
}

}  // namespace Hexfarrow::String
