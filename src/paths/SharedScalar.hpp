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
#include <functional>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

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

// Arrays of values that recur from one element to the next, shared: each value has one of
// a fixed number of places, chosen by its hash, and a value that finds another in its place
// takes it over. Recent values stay shared however many went before, and a column of
// all-different values holds no more arrays than there are places.
template <typename Key>
class RecentArrays {
public:
    static constexpr int kBits = 9;

    template <typename Make>
    [[nodiscard]] vqArray* reference(const Key& key, std::uint64_t hash, Make make) {
        // Fibonacci hashing: the top bits of the product depend on every bit of the hash.
        Place& place = places_[(hash * 0x9E3779B97F4A7C15U) >> (64 - kBits)];
        if (!place.value || place.key != key) {
            place.value.emplace(make());
            place.key = key;
        }
        return place.value->reference();
    }

private:
    struct Place {
        Key key{};
        std::optional<SharedScalar> value;
    };
    std::vector<Place> places_ = std::vector<Place>(std::size_t{1} << kBits);
};

// String scalars of texts that recur: the parent folder of a listing, an extension, a host.
class SharedTexts {
public:
    [[nodiscard]] vqArray* reference(const fl::ustring& text) {
        return recent_.reference(text, std::hash<fl::ustring>{}(text),
                                 [&] { return Hexfarrow::String::createStringArray(text); });
    }

private:
    RecentArrays<fl::ustring> recent_;
};

// Double scalars that recur: NaN for a time not known, the sizes 0 and 4096, the times of a
// folder's files, made one after the other. Keyed by their bits, so NaN finds NaN.
class SharedNumbers {
public:
    [[nodiscard]] vqArray* reference(double value) {
        const auto bits = std::bit_cast<std::uint64_t>(value);
        return recent_.reference(bits, bits, [&] { return vqCreateDoubleScalar(value); });
    }

private:
    RecentArrays<std::uint64_t> recent_;
};

}  // namespace quorin::io::filesystem::quorin
