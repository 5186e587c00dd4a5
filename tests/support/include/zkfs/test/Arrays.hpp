#pragma once
// Host arrays only C++ can build (qfs's syntax builds every other value: parseValue), for
// calls with arguments no statement can write: text holding NUL or lone surrogates,
// field names that are no identifiers, integer classes, sparse arrays.
#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace zkfs::test {

unique_vqarray_ptr charRow(fl::ustring_view text);
unique_vqarray_ptr stringScalar(fl::ustring_view text);
unique_vqarray_ptr logicalScalar(bool value);
// A zero-filled real array of any numeric class.
unique_vqarray_ptr numericArray(vqClassID cls, const std::vector<vqSize>& dims);
// Marks a logical or double array sparse and hands it back.
unique_vqarray_ptr sparse(unique_vqarray_ptr array);
// A 1x1 struct with one field.
unique_vqarray_ptr structScalar(const std::string& name, unique_vqarray_ptr value);
// All characters of a char array, in storage order.
fl::ustring charsOf(const vqArray* a);

// An argument list as a gateway receives it (owned arrays), and its result slots (at
// least one, as the host provides).
class ArgList {
public:
    template <class... A>
    explicit ArgList(A&&... arrays) {
        (add(std::forward<A>(arrays)), ...);
    }
    void add(unique_vqarray_ptr array) {
        pointers_.push_back(array.get());
        owned_.push_back(std::move(array));
    }
    [[nodiscard]] int count() const noexcept { return static_cast<int>(pointers_.size()); }
    [[nodiscard]] const vqArray* const* data() const noexcept { return pointers_.data(); }

private:
    std::vector<unique_vqarray_ptr> owned_;
    std::vector<const vqArray*> pointers_;
};
using OutputSlots = std::vector<unique_vqarray_ptr>;

}  // namespace zkfs::test
