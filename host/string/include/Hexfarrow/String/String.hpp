#pragma once
// String arrays: per element, a UTF-16 text or missing.
//
// A String object holds the elements of one string array in column-major order; arrays
// of the host's string class carry one as their payload.
#include "fl/ustring.hpp"
#include "foundation/core/except/Exception.hpp"
#include "vq/vqArray.hpp"

#include <boost/intrusive_ptr.hpp>

#include <cstddef>
#include <exception>
#include <optional>
#include <vector>

#define HEXFARROW_STRING_API __attribute__((visibility("default")))

namespace Hexfarrow::String {

// The text record of one element: a pointer to code units and their count.
struct StringRecord {
    const char16_t* text;
    std::size_t length;
};

class HEXFARROW_STRING_API String final : public vqPayload {
public:
    explicit String(std::vector<vqSize> dims);
    ~String() override;
    // A 1x1 string object holding `text`, the text in the same allocation as the object.
    static boost::intrusive_ptr<String> makeScalar(fl::ustring_view text);
    // Objects made by makeScalar are larger than the class; the pair allocates and frees
    // either kind whole.
    static void* operator new(std::size_t bytes);
    static void operator delete(void* p) noexcept;

    [[nodiscard]] const std::vector<vqSize>& dims() const noexcept { return *dims_; }
    [[nodiscard]] std::size_t numel() const noexcept { return numel_; }
    // Null for a missing element; otherwise valid until the element is changed.
    [[nodiscard]] const StringRecord* get(std::size_t i) const;
    [[nodiscard]] bool isMissing(std::size_t i) const { return record(i).text == nullptr; }
    void set(std::size_t i, fl::ustring text);
    void setMissing(std::size_t i);

    [[nodiscard]] boost::intrusive_ptr<vqPayload> clonePayload() const override;
    void reshapePayload(const std::vector<vqSize>& dims) override;

private:
    struct ScalarTag {};
    explicit String(ScalarTag);
    [[nodiscard]] const StringRecord& record(std::size_t i) const;
    [[nodiscard]] StringRecord& record(std::size_t i);
    [[nodiscard]] char16_t* inlineText() noexcept;
    void releaseScalarText() noexcept;

    // Shared for 1x1 (one of two shapes: the other marks an object made by makeScalar, with
    // room for its first text after it), else owned.
    const std::vector<vqSize>* dims_;
    std::size_t numel_;
    // A missing element's record has a null text. A scalar keeps its record here and its
    // text after the object (makeScalar's) or in a buffer of its own (any later one); other
    // arrays keep records and texts in two arrays of fixed size, so a record stays valid
    // until its element is changed.
    union {
        StringRecord one_;
        struct {
            StringRecord* records;
            fl::ustring* texts;
        } many_;
    };
};

using StringPtr = boost::intrusive_ptr<String>;

// A new string object of the given dimensions; every element is "" (not missing).
HEXFARROW_STRING_API StringPtr make_String(std::size_t ndims, const vqSize* dims);

HEXFARROW_STRING_API bool isString(const vqArray* a) noexcept;
// The string object behind a string array (std::invalid_argument for other classes).
HEXFARROW_STRING_API const String& getString(const vqArray* a);
HEXFARROW_STRING_API const String& getString(const unique_vqarray_ptr& a);
HEXFARROW_STRING_API String& getMutableString(vqArray* a);

// True for a char row vector or 0x0 char, any char array when allowCharOfAnyShape, a 1x1
// string array (missing or not), and, when allowScalarCell, a 1x1 cell holding a char
// row vector or 0x0 char.
HEXFARROW_STRING_API bool isScalarText(const vqArray* a, bool allowCharOfAnyShape,
                                       bool allowScalarCell) noexcept;
HEXFARROW_STRING_API bool isMissingScalarString(const vqArray* a) noexcept;

HEXFARROW_STRING_API unique_vqarray_ptr createStringArray(const fl::ustring& text);
HEXFARROW_STRING_API unique_vqarray_ptr createStringArray(std::size_t ndims, const vqSize* dims);
HEXFARROW_STRING_API unique_vqarray_ptr createStringArray(vqSize rows, vqSize cols);
HEXFARROW_STRING_API unique_vqarray_ptr createStringArray(StringPtr str);
// A 1x1 string array holding a missing element.
HEXFARROW_STRING_API unique_vqarray_ptr createMissingString();

// True for a char row vector (1xN, two dimensions) or the 0x0 char.
HEXFARROW_STRING_API bool isCharRowOrEmpty(const vqArray* a) noexcept;

// Walks a many-text value: a string array (any shape), a char row vector or 0x0 char
// (one text), or a cell array (each element handed over as it is). Any other value
// throws NotText.
class HEXFARROW_STRING_API TextDispatch {
public:
    class HEXFARROW_STRING_API NotText : public foundation::core::except::IMsgIDException,
                                         public std::exception {
    public:
        NotText();
        ~NotText() override;
        [[nodiscard]] NotText* clone() const override;
        [[noreturn]] void rethrow() const override;
        [[nodiscard]] const char* what() const noexcept override;
        [[nodiscard]] std::string GetID() const override;
        [[nodiscard]] const resource_core::BaseMsgID& GetBaseMsgIDObj() const override;

    private:
        resource_core::BaseMsgID id_;
    };

    enum class Kind { String, Char, Cell };
    // The kind of a many-text value; throws NotText for anything else (null included).
    static Kind classify(const vqArray* a);
};

}  // namespace Hexfarrow::String
