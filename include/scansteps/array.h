// Typed arrays: three dimensions, an element kind and the elements. Frames, vertex lists and matrices are
// arrays, both in the handle table and in records.
#pragma once

#include "scansteps/cpp20.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <type_traits>

namespace scansteps {

/// Kind of a value. Codes 0 to 9 are also the element kinds of arrays.
enum class Kind : std::uint32_t
{
    Empty = 0,
    Char,    ///< signed 8 bit
    Uchar,   ///< unsigned 8 bit
    Short,   ///< signed 16 bit
    Ushort,  ///< unsigned 16 bit
    Int,     ///< signed 32 bit
    Uint,    ///< unsigned 32 bit
    Half,    ///< 16-bit float
    Float,
    Double,
    String,
    Struct,
    Array,
    StructArray,
};

inline constexpr std::uint32_t kKindCount = 14;

/// Name for messages, such as "unsigned short"; "?" for a code above 13.
const char* kindName(Kind kind);
/// Type name, such as "Ushort"; "?" for a code above 13.
const char* kindTypeName(Kind kind);
/// Bytes per array element; 0 for kinds that cannot be elements (empty, string, struct, ...).
std::size_t elementSize(Kind kind);

/// IEEE 754 binary16 value; the conversions round to nearest even.
struct Half
{
    std::uint16_t bits = 0;
    Half() = default;
    explicit Half(float value);
    explicit operator float() const;
    friend bool operator==(Half a, Half b) { return a.bits == b.bits; }
};

/// The kind whose payload or element is a `T`.
template <class T>
constexpr Kind kindOf()
{
    using U = std::remove_cv_t<T>;
    if constexpr (std::is_same_v<U, std::int8_t>)
        return Kind::Char;
    else if constexpr (std::is_same_v<U, std::uint8_t>)
        return Kind::Uchar;
    else if constexpr (std::is_same_v<U, std::int16_t>)
        return Kind::Short;
    else if constexpr (std::is_same_v<U, std::uint16_t>)
        return Kind::Ushort;
    else if constexpr (std::is_same_v<U, std::int32_t>)
        return Kind::Int;
    else if constexpr (std::is_same_v<U, std::uint32_t>)
        return Kind::Uint;
    else if constexpr (std::is_same_v<U, Half>)
        return Kind::Half;
    else if constexpr (std::is_same_v<U, float>)
        return Kind::Float;
    else if constexpr (std::is_same_v<U, double>)
        return Kind::Double;
    else
        return Kind::Empty;
}

struct FreeStorage
{
    void operator()(std::byte* storage) const { std::free(storage); }
};
/// Storage of an array, allocated with malloc, calloc or realloc of the C runtime that the library uses.
using ArrayStorage = std::unique_ptr<std::byte[], FreeStorage>;

/// Typed array. Its layout is part of the interface: three 32-bit dimensions (elements per row, rows,
/// planes), a 32-bit element kind, and a pointer to the storage. A default array is 1 x 1 x 1 of kind empty.
/// It has no storage (a null pointer), nor has any other array of 0 bytes. Copying copies the elements.
///
/// The storage is plain malloc memory, with nothing before or after the elements. Only the 16-byte alignment
/// of malloc is guaranteed, although most of the library's own arrays begin on a cache line. Swapping handles
/// moves arrays between host and library, so each side may free() or replace what the other has allocated.
class Array
{
  public:
    Array() = default;
    /// An array that takes over existing storage of at least its byteSize() bytes.
    static Array adopt(ArrayStorage storage, Kind kind, std::uint32_t rowLength, std::uint32_t rows,
                       std::uint32_t planes = 1);
    /// Gives the storage away and leaves a default array.
    ArrayStorage takeStorage();
    /// Zero-filled array. Throws "array too large" when the byte size overflows and std::bad_alloc when there
    /// is no memory.
    Array(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes = 1);
    Array(const Array& other);
    Array(Array&& other) noexcept;
    Array& operator=(const Array& other);
    Array& operator=(Array&& other) noexcept;
    ~Array();

    std::uint32_t dim(std::size_t axis) const { return dims_[axis]; }
    Kind kind() const { return static_cast<Kind>(kind_); }
    /// Product of the dimensions and the element size; 0 for element kinds without a size.
    std::size_t byteSize() const;
    /// Number of elements that have storage.
    std::size_t size() const;
    std::byte* data() { return data_; }
    const std::byte* data() const { return data_; }
    std::span<std::byte> bytes() { return {data_, byteSize()}; }
    std::span<const std::byte> bytes() const { return {data_, byteSize()}; }

    /// The elements as `T`; empty unless the element kind is exactly that of `T`.
    template <class T>
    std::span<T> elements()
    {
        return kind() == kindOf<T>() ? std::span<T>{reinterpret_cast<T*>(data_), size()} : std::span<T>{};
    }
    template <class T>
    std::span<const T> elements() const
    {
        return kind() == kindOf<T>() ? std::span<const T>{reinterpret_cast<const T*>(data_), size()}
                                     : std::span<const T>{};
    }

    bool hasShape(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes = 1) const;
    bool sameShape(const Array& other) const
    {
        return hasShape(other.kind(), other.dim(0), other.dim(1), other.dim(2));
    }
    /// Gives the array this shape. If the byte size does not change, the bytes are kept as they are;
    /// otherwise the array is zero-filled.
    void reshape(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes = 1);
    /// Sets all bytes of the storage to 0.
    void clear();

  private:
    void replace(ArrayStorage storage);

    std::uint32_t dims_[3] = {1, 1, 1};
    std::int32_t kind_ = 0;
    std::byte* data_ = nullptr;
};

}  // namespace scansteps
