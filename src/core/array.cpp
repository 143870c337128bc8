// Typed arrays, their storage, and the facts about kinds.
#include "scansteps/array.h"

#include <Imath/half.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "core/array_storage.h"
#include "core/large_pages.h"
#include "scansteps/error.h"

namespace scansteps {

namespace {

struct KindFacts
{
    const char* name;
    const char* typeName;
    std::size_t elementSize;
};

constexpr KindFacts kKinds[kKindCount] = {
    {"empty", "Empty", 0},           {"char", "Char", 1},
    {"unsigned char", "Uchar", 1},   {"short", "Short", 2},
    {"unsigned short", "Ushort", 2}, {"int", "Int", 4},
    {"unsigned int", "Uint", 4},     {"half", "Half", 2},
    {"float", "Float", 4},           {"double", "Double", 8},
    {"string", "String", 0},         {"struct", "Struct", 0},
    {"array", "Array", 0},           {"struct array", "StructArray", 0},
};

static_assert(std::is_standard_layout_v<Array> && sizeof(Array) == 16 + sizeof(void*));

// The byte size, or half the largest number when it overflows.
std::size_t bytesOf(const std::uint32_t (&dims)[3], Kind kind)
{
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max() / 2;
    std::size_t bytes = elementSize(kind);
    for (const std::uint32_t dim : dims) {
        if (dim != 0 && bytes > kMax / dim)
            bytes = kMax;  // saturates, unless a later dimension is 0
        else
            bytes *= dim;
    }
    return bytes;
}

// Checked once at load: a half library built for another processor, or denormals flushed to zero, would
// silently corrupt half frames.
[[maybe_unused]] const bool kHalfChecked = [] {
    struct Sample
    {
        std::uint16_t bits;
        float value;
    };
    constexpr Sample kSamples[] = {
        {0x0000, 0.0F},       {0x3C00, 1.0F},      {0xC000, -2.0F},
        {0x7BFF, 65504.0F},   {0x0400, 0x1p-14F},  {0x0001, 0x1p-24F},
        {0x03FF, 0x3FFp-24F}, {0x8001, -0x1p-24F}, {0x3555, 0x1.554p-2F},
    };
    for (const auto& [bits, value] : kSamples)
        if (Imath::half(value).bits() != bits || float(Imath::half(Imath::half::FromBits, bits)) != value) {
            std::fprintf(stderr, "scansteps: 16-bit floats are converted incorrectly on this machine\n");
            return false;
        }
    return true;
}();

}  // namespace

const char* kindName(Kind kind)
{
    return std::uint32_t(kind) < kKindCount ? kKinds[std::uint32_t(kind)].name : "?";
}

const char* kindTypeName(Kind kind)
{
    return std::uint32_t(kind) < kKindCount ? kKinds[std::uint32_t(kind)].typeName : "?";
}

std::size_t elementSize(Kind kind)
{
    return std::uint32_t(kind) < kKindCount ? kKinds[std::uint32_t(kind)].elementSize : 0;
}

Half::Half(float value) : bits(Imath::half(value).bits()) {}

Half::operator float() const
{
    return Imath::half(Imath::half::FromBits, bits);
}

ArrayStorage allocateStorage(std::size_t bytes, Fill fill)
{
    if (bytes == 0) return nullptr;
    ArrayStorage storage(static_cast<std::byte*>(mallocOnLine(bytes)));
    if (storage == nullptr) throw std::bad_alloc();
    if (fill != Fill::Growing) preferLargePages(storage.get(), bytes);
    if (fill == Fill::Zeros) clearPages(storage.get(), bytes);
    return storage;
}

void growStorage(ArrayStorage& storage, std::size_t bytes)
{
    void* block = std::realloc(storage.get(), bytes);
    if (block == nullptr) throw std::bad_alloc();
    static_cast<void>(storage.release());
    storage.reset(static_cast<std::byte*>(block));
}

Array Array::adopt(ArrayStorage storage, Kind kind, std::uint32_t rowLength, std::uint32_t rows,
                   std::uint32_t planes)
{
    Array array;
    const std::uint32_t dims[3] = {rowLength, rows, planes};
    std::memcpy(array.dims_, dims, sizeof dims);
    array.kind_ = static_cast<std::int32_t>(kind);
    array.data_ = storage.release();
    return array;
}

ArrayStorage Array::takeStorage()
{
    ArrayStorage storage(data_);
    data_ = nullptr;
    *this = Array();
    return storage;
}

Array::Array(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes)
{
    reshape(kind, rowLength, rows, planes);
}

Array::Array(const Array& other)
{
    *this = other;
}

Array::Array(Array&& other) noexcept
{
    *this = std::move(other);
}

Array& Array::operator=(const Array& other)
{
    if (this == &other) return *this;
    const std::size_t bytes = other.byteSize();
    if (bytes != byteSize() || data_ == nullptr)
        replace(allocateStorage(other.data_ != nullptr ? bytes : 0, Fill::Nothing));
    std::memcpy(dims_, other.dims_, sizeof dims_);
    kind_ = other.kind_;
    if (data_ != nullptr && other.data_ != nullptr) std::memcpy(data_, other.data_, bytes);
    return *this;
}

Array& Array::operator=(Array&& other) noexcept
{
    std::swap(dims_, other.dims_);
    std::swap(kind_, other.kind_);
    std::swap(data_, other.data_);
    return *this;
}

Array::~Array()
{
    std::free(data_);
}

void Array::replace(ArrayStorage storage)
{
    std::free(data_);
    data_ = storage.release();
}

std::size_t Array::byteSize() const
{
    return bytesOf(dims_, kind());
}

std::size_t Array::size() const
{
    const std::size_t each = elementSize(kind());
    return each == 0 ? 0 : byteSize() / each;
}

bool Array::hasShape(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes) const
{
    return this->kind() == kind && dims_[0] == rowLength && dims_[1] == rows && dims_[2] == planes;
}

void Array::reshape(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes)
{
    const std::uint32_t dims[3] = {rowLength, rows, planes};
    const std::size_t bytes = bytesOf(dims, kind);
    if (bytes >= std::numeric_limits<std::size_t>::max() / 2) fail("array too large");
    if (bytes != byteSize() || data_ == nullptr) replace(allocateStorage(bytes, Fill::Zeros));
    std::memcpy(dims_, dims, sizeof dims);
    kind_ = static_cast<std::int32_t>(kind);
}

void Array::clear()
{
    if (data_ != nullptr) std::memset(data_, 0, byteSize());
}

}  // namespace scansteps
