#include "ArrayDecoder.hpp"

#include "Hexfarrow/String/String.hpp"
#include "fl/ustring.hpp"

#include <array>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

namespace zkfs::fuzz {
namespace {

// Words the built-ins react to: the sandbox tree's names (see Jail.hpp), IRI schemes and
// shapes, option and field names. Index = unit byte - 0x80 (modulo the count).
constexpr std::array<std::u16string_view, 64> kWords{u"/mnt/",
                                                     u"/mnt/d",
                                                     u"/mnt/d/f",
                                                     u"/mnt/d/l",
                                                     u"/mnt/d/s/",
                                                     u"/mnt/loop",
                                                     u"/mnt/noperm/h",
                                                     u"/mnt/d/dangling",
                                                     u"file://",
                                                     u"file:///mnt/d/",
                                                     u"mem://root/",
                                                     u"http://h:8080/a?q=1#f",
                                                     u"https://",
                                                     u"..",
                                                     u"./",
                                                     u"~",
                                                     u"\\",
                                                     u"C:\\",
                                                     u"\\\\srv\\share\\",
                                                     u"Readable",
                                                     u"Writable",
                                                     u"UserExecute",
                                                     u"GroupRead",
                                                     u"GroupWrite",
                                                     u"GroupExecute",
                                                     u"OtherRead",
                                                     u"OtherWrite",
                                                     u"OtherExecute",
                                                     u"File",
                                                     u"Folder",
                                                     u"Other",
                                                     u"all",
                                                     u"files",
                                                     u"folders",
                                                     u"symboliclinks",
                                                     u"target",
                                                     u"overwrite",
                                                     u"preserve",
                                                     u"windows",
                                                     u"unix",
                                                     u"schema",
                                                     u"Name",
                                                     u"Cause",
                                                     u"ResolveSymbolicLinks",
                                                     u"LocalPathFromFileScheme",
                                                     u"CaseCorrectAndResolveOnWindows",
                                                     u"SymbolicLink",
                                                     u"None",
                                                     u".txt",
                                                     u".html",
                                                     u"%2F",
                                                     u"%",
                                                     u"?",
                                                     u"#",
                                                     u"//",
                                                     u"d/f",
                                                     u"dangling",
                                                     u"a.txt",
                                                     u"/",
                                                     u"localhost",
                                                     u"%00",
                                                     u"\u00e9",
                                                     u"\U0001F600",
                                                     u"new"};

constexpr int kMaxDepth = 3;
constexpr std::size_t kMaxElements = 12;
constexpr std::size_t kMaxTextUnits = 48;

std::vector<vqSize> decodeDims(ByteReader& in, std::size_t limit) {
    const auto size = [&] { return static_cast<vqSize>(in.byte() % (limit + 1)); };
    switch (in.byte() % 6) {
        case 0:
            return {1, 1};
        case 1:
            return {1, size()};
        case 2:
            return {size(), 1};
        case 3: {
            const vqSize m = size() % 4;
            return {m, size() % 4};
        }
        case 4: {
            const vqSize m = size() % 3;
            const vqSize n = size() % 3;
            return {m, n, size() % 3};
        }
        default:
            return {0, size() % 3};
    }
}

std::size_t numelOf(const std::vector<vqSize>& dims) {
    std::size_t n = 1;
    for (const auto d : dims) n *= d;
    return n;
}

fl::ustring decodeText(ByteReader& in) {
    fl::ustring text;
    const std::size_t units = in.byte() % kMaxTextUnits;
    for (std::size_t i = 0; i < units; ++i) {
        const std::uint8_t b = in.byte();
        if (b < 0x80) {
            text.push_back(static_cast<char16_t>(b));
        } else if (b < 0xC0) {
            text += kWords[static_cast<std::size_t>(b - 0x80) % kWords.size()];
        } else {
            text.push_back(static_cast<char16_t>(in.word()));
        }
    }
    return text;
}

double decodeNumber(ByteReader& in) {
    switch (in.byte() % 8) {
        case 0:
            return 0.0;
        case 1:
            return 1.0;
        case 2:
            return -1.0;
        case 3:
            return std::numeric_limits<double>::quiet_NaN();
        case 4:
            return std::numeric_limits<double>::infinity();
        case 5:
            return 0.5;
        case 6:
            return 1e300;
        default: {
            std::uint64_t bits = 0;
            for (int i = 0; i < 8; ++i) bits = (bits << 8) | in.byte();
            double d = 0;
            std::memcpy(&d, &bits, sizeof d);
            return d;
        }
    }
}

unique_vqarray_ptr decodeValue(ByteReader& in, int depth);

// A cell or struct slot: sometimes left empty (null), as the host allows.
vqArray* decodeSlot(ByteReader& in, int depth) {
    if (in.byte() % 5 == 0) return nullptr;
    return decodeValue(in, depth + 1).release();
}

unique_vqarray_ptr decodeValue(ByteReader& in, int depth) {
    const std::uint8_t kind = depth >= kMaxDepth ? 0 : in.byte() % 8;
    switch (kind) {
        case 0: {
            const fl::ustring text = decodeText(in);
            // Mostly a row; sometimes the same units as a column or a 2xN block.
            const std::uint8_t shape = in.byte() % 4;
            std::vector<vqSize> dims{1, text.size()};
            if (shape == 1) dims = {text.size(), 1};
            if (shape == 2 && text.size() % 2 == 0) dims = {2, text.size() / 2};
            if (text.empty() && shape != 3) dims = {0, 0};
            auto a = vqCreateCharArray(dims);
            if (!text.empty())
                std::memcpy(vqGetChars(a.get()), text.data(), text.size() * sizeof(char16_t));
            return a;
        }
        case 1: {
            const auto dims = decodeDims(in, 8);
            auto a = Hexfarrow::String::createStringArray(dims.size(), dims.data());
            auto& s = Hexfarrow::String::getMutableString(a.get());
            for (std::size_t i = 0; i < s.numel(); ++i) {
                if (in.byte() % 6 == 0) {
                    s.setMissing(i);
                } else {
                    s.set(i, decodeText(in));
                }
            }
            return a;
        }
        case 2: {
            const auto dims = decodeDims(in, 4);
            auto a = vqCreateCellArray(dims);
            for (std::size_t i = 0; i < numelOf(dims); ++i)
                vqSetCell(a.get(), i, decodeSlot(in, depth));
            return a;
        }
        case 3: {
            const auto dims = decodeDims(in, 2);
            std::vector<std::string> names;
            const std::size_t count = in.byte() % 5;
            for (std::size_t f = 0; f < count; ++f) {
                // Field names are host identifiers: words that are, or a short invented one.
                const std::uint8_t pick = in.byte();
                std::string name;
                if (pick < 0xC0) {
                    const std::u16string_view w = kWords[pick % kWords.size()];
                    for (const char16_t c : w) {
                        if ((c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z')) {
                            name.push_back(static_cast<char>(c));
                        } else {
                            name.clear();
                            break;
                        }
                    }
                }
                // Appended: "f" + std::string trips g++ 12's -Wrestrict at -O3.
                if (name.empty()) name = std::string("f").append(std::to_string(pick % 7));
                bool seen = false;
                for (const auto& n : names) seen = seen || n == name;
                if (!seen) names.push_back(name);
            }
            auto a = vqCreateStructArray(dims, names);
            for (std::size_t i = 0; i < numelOf(dims); ++i) {
                for (std::size_t f = 0; f < names.size(); ++f) {
                    vqSetFieldByNumber(a.get(), i, static_cast<int>(f), decodeSlot(in, depth));
                }
            }
            return a;
        }
        case 4: {
            const auto dims = decodeDims(in, kMaxElements);
            auto a = vqCreateNumericArray(dims, vqLOGICAL_CLASS);
            auto* data = vqGetLogicals(a.get());
            for (std::size_t i = 0; i < numelOf(dims); ++i) data[i] = (in.byte() & 1) != 0;
            if (dims.size() == 2 && in.byte() % 8 == 0) vqSetSparse(a.get(), true);
            return a;
        }
        case 5: {
            const auto dims = decodeDims(in, kMaxElements);
            auto a = vqCreateNumericArray(dims, vqDOUBLE_CLASS);
            auto* data = vqGetPr(a.get());
            for (std::size_t i = 0; i < numelOf(dims); ++i) data[i] = decodeNumber(in);
            if (dims.size() == 2 && in.byte() % 8 == 0) vqSetSparse(a.get(), true);
            return a;
        }
        case 6: {
            constexpr std::array<vqClassID, 9> kNumeric{
                vqSINGLE_CLASS, vqINT8_CLASS,   vqUINT8_CLASS, vqINT16_CLASS, vqUINT16_CLASS,
                vqINT32_CLASS,  vqUINT32_CLASS, vqINT64_CLASS, vqUINT64_CLASS};
            const vqClassID cls = kNumeric[in.byte() % kNumeric.size()];
            return vqCreateNumericArray(decodeDims(in, kMaxElements), cls);
        }
        default:
            return vqCreateCharArray({0, 0});
    }
}

}  // namespace

DecodedCall decodeCall(ByteReader& in) {
    DecodedCall call;
    call.outCount = in.byte() % 4;
    const int inCount = in.byte() % 8;
    for (int i = 0; i < inCount; ++i) call.args.push_back(decodeValue(in, 0));
    return call;
}

}  // namespace zkfs::fuzz
