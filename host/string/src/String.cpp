#include "Hexfarrow/String/String.hpp"

#include <functional>
#include <numeric>
#include <stdexcept>

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

String::String(std::vector<vqSize> dims)
    : dims_(arrayShape(std::move(dims))),
      elems_(std::accumulate(dims_.begin(), dims_.end(), vqSize{1}, std::multiplies<>()),
             fl::ustring()),
      records_(elems_.size()) {
    for (std::size_t i = 0; i < elems_.size(); ++i) records_[i] = {elems_[i]->data(), 0};
}

const StringRecord* String::get(std::size_t i) const {
    return elems_.at(i) ? &records_[i] : nullptr;
}

void String::set(std::size_t i, fl::ustring text) {
    auto& e = elems_.at(i);
    e = std::move(text);
    records_[i] = {e->data(), e->size()};
}

void String::setMissing(std::size_t i) { elems_.at(i).reset(); }

void String::reshapePayload(const std::vector<vqSize>& dims) { dims_ = arrayShape(dims); }

boost::intrusive_ptr<vqPayload> String::clonePayload() const {
    StringPtr copy(new String(dims_));
    for (std::size_t i = 0; i < elems_.size(); ++i) {
        if (elems_[i])
            copy->set(i, *elems_[i]);
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
    auto a = createStringArray(1, 1);
    getMutableString(a.get()).set(0, text);
    return a;
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
