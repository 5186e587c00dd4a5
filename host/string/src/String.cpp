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

// Never destroyed, as the array layer's own shared shapes. Both are 1x1; the second marks a
// string object with its text's room after it.
const std::vector<vqSize>* const kScalarShape = new std::vector<vqSize>{1, 1};
const std::vector<vqSize>* const kScalarShapeWithRoom = new std::vector<vqSize>{1, 1};

const std::vector<vqSize>* internShape(std::vector<vqSize> dims) {
    if (dims == *kScalarShape) return kScalarShape;
    return new std::vector<vqSize>(std::move(dims));
}

bool sharedShape(const std::vector<vqSize>* dims) noexcept {
    return dims == kScalarShape || dims == kScalarShapeWithRoom;
}

}  // namespace

String::String(std::vector<vqSize> dims)
    : dims_(internShape(arrayShape(std::move(dims)))),
      numel_(std::accumulate(dims_->begin(), dims_->end(), vqSize{1}, std::multiplies<>())) {
    if (numel_ == 1) {
        one_ = {kEmptyText, 0};
        return;
    }
    many_ = {nullptr, nullptr};
    if (numel_ == 0) return;
    try {
        many_.texts = new fl::ustring[numel_];
        many_.records = new StringRecord[numel_];
    } catch (...) {
        delete[] many_.texts;
        if (!sharedShape(dims_)) delete dims_;
        throw;
    }
    for (std::size_t i = 0; i < numel_; ++i) many_.records[i] = {many_.texts[i].data(), 0};
}

String::String(ScalarTag) : dims_(kScalarShapeWithRoom), numel_(1), one_{kEmptyText, 0} {}

String::~String() {
    if (numel_ == 1) {
        releaseScalarText();
    } else {
        delete[] many_.records;
        delete[] many_.texts;
    }
    if (!sharedShape(dims_)) delete dims_;
}

boost::intrusive_ptr<String> String::makeScalar(fl::ustring_view text) {
    void* memory = String::operator new(sizeof(String) + text.size() * sizeof(char16_t));
    boost::intrusive_ptr<String> made(::new (memory) String(ScalarTag{}));
    if (!text.empty()) {
        std::copy(text.begin(), text.end(), made->inlineText());
        made->one_ = {made->inlineText(), text.size()};
    }
    return made;
}

void* String::operator new(std::size_t bytes) { return ::operator new(bytes); }
void String::operator delete(void* p) noexcept { ::operator delete(p); }

char16_t* String::inlineText() noexcept {
    return reinterpret_cast<char16_t*>(reinterpret_cast<unsigned char*>(this) + sizeof(String));
}

void String::releaseScalarText() noexcept {
    const bool inRoom = dims_ == kScalarShapeWithRoom && one_.text == inlineText();
    if (one_.text != nullptr && one_.text != kEmptyText && !inRoom) delete[] one_.text;
}

const StringRecord& String::record(std::size_t i) const {
    if (i >= numel_) throw std::out_of_range("String: element index out of range");
    return numel_ == 1 ? one_ : many_.records[i];
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
    if (numel_ != 1) {
        fl::ustring& owned = many_.texts[i];
        owned = std::move(text);
        r = {owned.data(), owned.size()};
        return;
    }
    char16_t* buffer = nullptr;
    if (!text.empty()) {
        buffer = new char16_t[text.size()];
        std::copy(text.begin(), text.end(), buffer);
    }
    releaseScalarText();
    r = {buffer == nullptr ? kEmptyText : buffer, text.size()};
}

void String::setMissing(std::size_t i) {
    StringRecord& r = record(i);
    if (numel_ == 1) {
        releaseScalarText();
    } else {
        fl::ustring().swap(many_.texts[i]);
    }
    r.text = nullptr;
    r.length = 0;
}

void String::reshapePayload(const std::vector<vqSize>& dims) {
    if (numel_ == 1) return;  // 1x1 is the only shape of one element
    const std::vector<vqSize>* shape = internShape(arrayShape(dims));
    if (!sharedShape(dims_)) delete dims_;
    dims_ = shape;
}

boost::intrusive_ptr<vqPayload> String::clonePayload() const {
    if (numel_ == 1 && one_.text != nullptr) {
        return makeScalar(fl::ustring_view(one_.text, one_.length));
    }
    StringPtr copy(new String(*dims_));
    for (std::size_t i = 0; i < numel_; ++i) {
        const StringRecord& r = record(i);
        if (r.text != nullptr)
            copy->set(i, fl::ustring(r.text, r.length));
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
