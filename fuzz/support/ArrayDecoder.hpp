#pragma once
// Host arrays decoded from fuzz input, so that a fuzzer explores argument handling with
// values of every class and shape rather than with raw bytes.
//
// The byte format (every read past the end gives 0, so any input decodes):
//   call   := outCount(byte % 4) inCount(byte % 8) value*inCount
//   value  := kind(byte % 8) ...
//     0 char    dims text-units         4 logical  dims bit per element
//     1 string  dims (missing? text)*   5 double   dims number per element
//     2 cell    dims value-or-empty*    6 numeric  class(byte) dims, zero filled
//     3 struct  dims fieldCount names (value-or-empty)*   7 0x0 char
//   dims   := shape(byte % 6): 1x1, 1xN, Nx1, MxN, MxNxP, 0xN; sizes from the next bytes
//   text   := length(byte % 48) unit*: byte < 0x80 is that ASCII character, 0x80..0xBF a
//             dictionary word (paths, schemes, option and field names), 0xC0.. the next
//             two bytes as one raw UTF-16 code unit (lone surrogates included)
// Nesting stops at depth 3 and every array stays small, so one input runs fast.
// encode-side helpers live in fuzz/seeds.py, which must follow the same format.
#include "vq/vqArray.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zkfs::fuzz {

class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    std::uint8_t byte() noexcept { return pos_ < bytes_.size() ? bytes_[pos_++] : 0; }
    std::uint16_t word() noexcept {
        const auto hi = byte();
        return static_cast<std::uint16_t>((hi << 8) | byte());
    }
    [[nodiscard]] bool empty() const noexcept { return pos_ >= bytes_.size(); }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t pos_ = 0;
};

struct DecodedCall {
    int outCount = 0;
    std::vector<unique_vqarray_ptr> args;
};

DecodedCall decodeCall(ByteReader& in);

}  // namespace zkfs::fuzz
