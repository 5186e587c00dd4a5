#pragma once
// One host array stored into many struct fields.
//
// Results of the path built-ins repeat a handful of values over and over ("None", "File",
// true, NaN, the missing string). Each field gets one more reference to the same array,
// by the host's reference rule: the struct releases each field by that rule, so the array
// is freed with its last holder, whatever the order. Readers see ordinary arrays; the host
// copies an array whose data is shared before it changes it. This keeps a million-element
// result from costing a million identical allocations.
#include "Hexfarrow/String/String.hpp"
#include "fl/ustring.hpp"
#include "vq/vqArray.hpp"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <unordered_map>
#include <utility>

namespace quorin::io::filesystem::quorin {

class SharedScalar {
public:
    explicit SharedScalar(unique_vqarray_ptr value) : value_(std::move(value)) {}

    // A reference for a struct field to take over.
    [[nodiscard]] vqArray* reference() const {
        if (value_->refCount_ == std::numeric_limits<std::uint32_t>::max()) {
            return vqDuplicateArray(value_.get()).release();  // the count would wrap
        }
        ++value_->refCount_;
        return value_.get();
    }

private:
    unique_vqarray_ptr value_;
};

// String scalars of texts that recur from one element to the next (the parent folder of a
// listing, an extension, a host): the first occurrence of a text makes its array, later
// ones share it. Bounded, so a column of all-different texts costs a look-up, not memory.
class SharedTexts {
public:
    static constexpr std::size_t kCapacity = 512;

    [[nodiscard]] vqArray* reference(const fl::ustring& text) {
        const auto it = arrays_.find(text);
        if (it != arrays_.end()) return it->second.reference();
        if (arrays_.size() >= kCapacity)
            return Hexfarrow::String::createStringArray(text).release();
        return arrays_.try_emplace(text, Hexfarrow::String::createStringArray(text))
            .first->second.reference();
    }

private:
    std::unordered_map<fl::ustring, SharedScalar> arrays_;
};

// Double scalars that recur (NaN for a time not known, the sizes 0 and 4096, the times of
// files made together), shared the same way and bounded the same way; keyed by their bits,
// so NaN finds NaN.
class SharedNumbers {
public:
    static constexpr std::size_t kCapacity = 512;

    [[nodiscard]] vqArray* reference(double value) {
        const auto key = std::bit_cast<std::uint64_t>(value);
        const auto it = arrays_.find(key);
        if (it != arrays_.end()) return it->second.reference();
        if (arrays_.size() >= kCapacity) return vqCreateDoubleScalar(value).release();
        return arrays_.try_emplace(key, vqCreateDoubleScalar(value)).first->second.reference();
    }

private:
    std::unordered_map<std::uint64_t, SharedScalar> arrays_;
};

}  // namespace quorin::io::filesystem::quorin
