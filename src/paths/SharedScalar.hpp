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

// String scalars of texts that recur from one element to the next (the parent folder of a
// listing, an extension, a host), shared the same way as the numbers below: each text has
// one of a fixed number of places, chosen by its hash, and a text that finds another in its
// place takes it over. Recent texts stay shared however many went before, and a column of
// all-different texts holds no more than the places.
class SharedTexts {
public:
    static constexpr std::size_t kPlaces = 512;

    [[nodiscard]] vqArray* reference(const fl::ustring& text) {
        Place& place = places_[std::hash<fl::ustring>{}(text) % kPlaces];
        if (!place.value || place.text != text) {
            place.value.emplace(Hexfarrow::String::createStringArray(text));
            place.text = text;
        }
        return place.value->reference();
    }

private:
    struct Place {
        fl::ustring text;
        std::optional<SharedScalar> value;
    };
    std::vector<Place> places_ = std::vector<Place>(kPlaces);
};

// Double scalars that recur (NaN for a time not known, the sizes 0 and 4096, the times of
// files made together), shared the same way: each value has one of a fixed number of
// places, chosen by its bits (so NaN finds NaN), and a value that finds another in its
// place takes it over. Recent values stay shared however many went before, as the times of
// a folder's files, made one after the other, recur in runs.
class SharedNumbers {
public:
    static constexpr int kBits = 9;
    static constexpr std::size_t kPlaces = std::size_t{1} << kBits;

    [[nodiscard]] vqArray* reference(double value) {
        const auto key = std::bit_cast<std::uint64_t>(value);
        // Fibonacci hashing: the top bits of the product depend on every bit of the key.
        Place& place = places_[(key * 0x9E3779B97F4A7C15U) >> (64 - kBits)];
        if (!place.value || place.key != key) {
            place.value.emplace(vqCreateDoubleScalar(value));
            place.key = key;
        }
        return place.value->reference();
    }

private:
    struct Place {
        std::uint64_t key = 0;
        std::optional<SharedScalar> value;
    };
    std::vector<Place> places_ = std::vector<Place>(kPlaces);
};

}  // namespace quorin::io::filesystem::quorin
