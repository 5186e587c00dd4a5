#include "zkfs/test/Arrays.hpp"

#include "Hexfarrow/String/String.hpp"

#include <cstring>
#include <stdexcept>

namespace zkfs::test {

unique_vqarray_ptr charRow(fl::ustring_view text) {
    auto a = vqCreateCharArray({1, text.size()});
    if (!text.empty())
        std::memcpy(vqGetChars(a.get()), text.data(), text.size() * sizeof(char16_t));
    return a;
}

unique_vqarray_ptr stringScalar(fl::ustring_view text) {
    return Hexfarrow::String::createStringArray(fl::ustring(text));
}

unique_vqarray_ptr logicalScalar(bool value) { return vqCreateLogicalScalar(value); }

unique_vqarray_ptr numericArray(vqClassID cls, const std::vector<vqSize>& dims) {
    return vqCreateNumericArray(dims, cls);
}

unique_vqarray_ptr sparse(unique_vqarray_ptr array) {
    vqSetSparse(array.get(), true);
    return array;
}

unique_vqarray_ptr structScalar(const std::string& name, unique_vqarray_ptr value) {
    auto s = vqCreateStructArray({1, 1}, {name});
    vqSetField(s.get(), 0, name.c_str(), value.release());
    return s;
}

fl::ustring charsOf(const vqArray* a) {
    if (a == nullptr || !vqIsChar(a)) throw std::invalid_argument("charsOf: not a char array");
    const vqSize n = vqGetNumberOfElements(a);
    return n == 0 ? fl::ustring() : fl::ustring(vqGetChars(a), n);
}

}  // namespace zkfs::test
