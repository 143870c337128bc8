#include "scansteps/array.h"

#include <Imath/half.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "framework/large_pages.h"
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

// Storage is aligned to a cache line, for vector loads, yet comes from malloc, so that it can grow in place.
// The word before the storage holds the block's start.
constexpr std::size_t kAlignment = 64;

std::byte* alignInside(void* block)
{
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    auto* storage = static_cast<std::byte*>(block) + (kAlignment - address % kAlignment);
    std::memcpy(storage - sizeof(void*), &block, sizeof(void*));
    return storage;
}

void* blockOf(std::byte* storage)
{
    void* block = nullptr;
    std::memcpy(&block, storage - sizeof(void*), sizeof(void*));
    return block;
}

enum class Fill
{
    Zeros,
    Nothing,
    Growing,  // nothing, and in ordinary pages: the system moves only those without a copy when a block grows
};

std::byte* allocate(std::size_t bytes, Fill fill)
{
    if (bytes > std::numeric_limits<std::size_t>::max() - kAlignment) throw std::bad_alloc();
    void* block = fill == Fill::Zeros ? std::calloc(1, bytes + kAlignment) : std::malloc(bytes + kAlignment);
    if (block == nullptr) throw std::bad_alloc();
    if (fill != Fill::Growing) preferLargePages(block, bytes + kAlignment);
    return alignInside(block);
}

// The byte size, or the largest number when it overflows.
std::size_t bytesOf(const std::uint32_t (&dims)[3], Kind kind)
{
    constexpr std::size_t kMost = std::numeric_limits<std::size_t>::max() / 2;
    std::size_t bytes = elementSize(kind);
    for (const std::uint32_t dim : dims) {
        if (dim != 0 && bytes > kMost / dim)
            bytes = kMost;  // stays at the top, unless a later dimension is 0
        else
            bytes *= dim;
    }
    return bytes;
}

// Checked once at load: a half library built for another processor or with flushed denormals would spoil
// every half frame without a word.
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
            std::fprintf(stderr, "scansteps: 16-bit floats are converted wrongly on this machine\n");
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
    if (bytes != byteSize() || data_ == nullptr) {
        std::byte* storage = bytes != 0 && other.data_ != nullptr ? allocate(bytes, Fill::Nothing) : nullptr;
        release();
        data_ = storage;
    }
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
    release();
}

void Array::release()
{
    if (data_ != nullptr) std::free(blockOf(data_));
    data_ = nullptr;
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
    if (bytes != byteSize() || data_ == nullptr) {
        std::byte* storage = bytes != 0 ? allocate(bytes, Fill::Zeros) : nullptr;
        release();
        data_ = storage;
    }
    std::memcpy(dims_, dims, sizeof dims);
    kind_ = static_cast<std::int32_t>(kind);
}

void Array::clear()
{
    if (data_ != nullptr) std::memset(data_, 0, byteSize());
}

void Array::beginGrowing(Kind kind, std::uint32_t rowLength, std::uint32_t rows, std::uint32_t planes)
{
    const std::uint32_t dims[3] = {rowLength, rows, planes};
    if (bytesOf(dims, kind) >= std::numeric_limits<std::size_t>::max() / 2) fail("array too large");
    release();
    std::memcpy(dims_, dims, sizeof dims);
    kind_ = static_cast<std::int32_t>(kind);
}

std::byte* Array::growTo(std::size_t bytes)
{
    if (data_ == nullptr) return data_ = allocate(bytes, Fill::Growing);
    void* oldBlock = blockOf(data_);
    const auto offset = data_ - static_cast<std::byte*>(oldBlock);
    void* block = std::realloc(oldBlock, bytes + kAlignment);
    if (block == nullptr) throw std::bad_alloc();
    // The new block may lie differently to the cache lines: move the bytes to the aligned place.
    auto* moved = static_cast<std::byte*>(block) + offset;
    auto* storage =
        static_cast<std::byte*>(block) + (kAlignment - reinterpret_cast<std::uintptr_t>(block) % kAlignment);
    if (storage != moved) std::memmove(storage, moved, bytes);
    std::memcpy(storage - sizeof(void*), &block, sizeof(void*));
    return data_ = storage;
}

}  // namespace scansteps
