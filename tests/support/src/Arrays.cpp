#include "zkfs/test/Arrays.hpp"

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>
#include <stdexcept>

#include "Hexfarrow/String/String.hpp"

namespace zkfs::test {
namespace {

vqSize product(const Dims& dims) {
    return std::accumulate(dims.begin(), dims.end(), vqSize{1}, std::multiplies<>());
}

void requireCount(const Dims& dims, std::size_t count, const char* what) {
    if (product(dims) != count) {
        throw std::invalid_argument(std::string(what) + ": data length does not match the dimensions");
    }
}

}  // namespace

unique_vqarray_ptr charRow(fl::ustring_view text) { return charArray({1, text.size()}, text); }

unique_vqarray_ptr charEmpty() { return vqCreateCharArray({0, 0}); }

unique_vqarray_ptr charArray(const Dims& dims, fl::ustring_view data) {
    requireCount(dims, data.size(), "charArray");
    auto a = vqCreateCharArray(dims);
    if (!data.empty()) std::memcpy(vqGetChars(a.get()), data.data(), data.size() * sizeof(char16_t));
    return a;
}

unique_vqarray_ptr charMatrix(std::initializer_list<fl::ustring_view> rows) {
    const std::size_t m = rows.size();
    const std::size_t n = m == 0 ? 0 : rows.begin()->size();
    fl::ustring data(m * n, u'\0');
    std::size_t r = 0;
    for (const auto row : rows) {
        if (row.size() != n) throw std::invalid_argument("charMatrix: rows of different lengths");
        for (std::size_t c = 0; c < n; ++c) data[c * m + r] = row[c];
        ++r;
    }
    return charArray({m, n}, data);
}

unique_vqarray_ptr doubleScalar(double value) { return vqCreateDoubleScalar(value); }

unique_vqarray_ptr numericArray(vqClassID cls, const Dims& dims) {
    return vqCreateNumericArray(dims, cls);
}

unique_vqarray_ptr logicalScalar(bool value) { return vqCreateLogicalScalar(value); }

unique_vqarray_ptr logicalArray(const Dims& dims, const std::vector<bool>& values) {
    requireCount(dims, values.size(), "logicalArray");
    auto a = vqCreateNumericArray(dims, vqLOGICAL_CLASS);
    std::copy(values.begin(), values.end(), vqGetLogicals(a.get()));
    return a;
}

unique_vqarray_ptr sparse(unique_vqarray_ptr array) {
    vqSetSparse(array.get(), true);
    return array;
}

unique_vqarray_ptr stringScalar(fl::ustring_view text) {
    return Hexfarrow::String::createStringArray(fl::ustring(text));
}

unique_vqarray_ptr missingString() { return Hexfarrow::String::createMissingString(); }

unique_vqarray_ptr stringArray(const Dims& dims, const std::vector<StringElement>& elements) {
    requireCount(dims, elements.size(), "stringArray");
    auto a = Hexfarrow::String::createStringArray(dims.size(), dims.data());
    auto& s = Hexfarrow::String::getMutableString(a.get());
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (elements[i]) s.set(i, *elements[i]); else s.setMissing(i);
    }
    return a;
}

unique_vqarray_ptr cellArray(const Dims& dims, std::vector<unique_vqarray_ptr> elements) {
    requireCount(dims, elements.size(), "cellArray");
    auto c = vqCreateCellArray(dims);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (elements[i]) vqSetCell(c.get(), i, elements[i].release());
    }
    return c;
}

unique_vqarray_ptr structScalarOf(FieldValues values) {
    std::vector<std::string> names;
    names.reserve(values.size());
    for (const auto& f : values) names.push_back(f.first);
    std::vector<FieldValues> elements;
    elements.push_back(std::move(values));
    return structArray({1, 1}, names, std::move(elements));
}

unique_vqarray_ptr structArray(const Dims& dims, const std::vector<std::string>& names,
                               std::vector<FieldValues> elements) {
    requireCount(dims, elements.size(), "structArray");
    auto s = vqCreateStructArray(dims, names);
    for (std::size_t i = 0; i < elements.size(); ++i) {
        if (elements[i].size() != names.size()) {
            throw std::invalid_argument("structArray: an element does not name every field");
        }
        for (auto& [name, value] : elements[i]) {
            const int f = vqGetFieldNumber(s.get(), name.c_str());
            if (f < 0) throw std::invalid_argument("structArray: unknown field " + name);
            if (value) vqSetFieldByNumber(s.get(), i, f, value.release());
        }
    }
    return s;
}

Dims dimsOf(const vqArray* a) {
    return Dims(vqGetDimensions(a), vqGetDimensions(a) + vqGetNumberOfDimensions(a));
}

fl::ustring charsOf(const vqArray* a) {
    if (a == nullptr || !vqIsChar(a)) throw std::invalid_argument("charsOf: not a char array");
    const vqSize n = vqGetNumberOfElements(a);
    return n == 0 ? fl::ustring() : fl::ustring(vqGetChars(a), n);
}

std::vector<StringElement> stringsOf(const vqArray* a) {
    const auto& s = Hexfarrow::String::getString(a);
    std::vector<StringElement> out;
    out.reserve(s.numel());
    for (std::size_t i = 0; i < s.numel(); ++i) {
        const auto* rec = s.get(i);
        if (rec == nullptr) {
            out.emplace_back(std::nullopt);
        } else {
            out.emplace_back(fl::ustring(rec->text, rec->length));
        }
    }
    return out;
}

std::vector<bool> logicalsOf(const vqArray* a) {
    if (a == nullptr || !vqIsLogical(a)) throw std::invalid_argument("logicalsOf: not a logical array");
    return std::vector<bool>(vqGetLogicals(a), vqGetLogicals(a) + vqGetNumberOfElements(a));
}

std::vector<double> doublesOf(const vqArray* a) {
    if (a == nullptr || !vqIsDouble(a)) throw std::invalid_argument("doublesOf: not a double array");
    return std::vector<double>(vqGetPr(a), vqGetPr(a) + vqGetNumberOfElements(a));
}

ArgList& ArgList::add(unique_vqarray_ptr array) {
    owned_.push_back(std::move(array));
    pointers_.push_back(owned_.back().get());
    return *this;
}

ArgList& ArgList::add(std::nullptr_t) {
    pointers_.push_back(nullptr);
    return *this;
}

OutputSlots::OutputSlots(std::size_t count) : slots_(std::max<std::size_t>(count, 1)) {}

}  // namespace zkfs::test
