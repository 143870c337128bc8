// Data formats, frame shapes and buffers.
#include "scansteps/texture.h"

#include <utility>

#include "scansteps/error.h"
#include "scansteps/handles.h"

namespace scansteps {

namespace {

struct FormatName
{
    const char* name;
    std::uint32_t code;
};

// In search order: names with a trailing "n" come before the names they contain.
constexpr FormatName kFormats[] = {
    {"f_2x32", format::kF2x32},   {"u_2x16", format::kU2x16},   {"f_1x32n", format::kF1x32n},
    {"f_4x16n", format::kF4x16n}, {"f_4x32n", format::kF4x32n}, {"u_1x16n", format::kU1x16n},
    {"f_1x16", format::kF1x16},   {"f_1x32", format::kF1x32},   {"f_4x16", format::kF4x16},
    {"f_4x32", format::kF4x32},   {"u_1x16", format::kU1x16},   {"u_1x8", format::kU1x8},
    {"u_4x8", format::kU4x8},     {"f_2x16", format::kF2x16},
};

struct BufferLayout
{
    Kind kind;
    std::uint32_t channels;
};

// Indexed by format code.
constexpr BufferLayout kLayouts[] = {
    {Kind::Empty, 0},  {Kind::Half, 1},   {Kind::Float, 1}, {Kind::Float, 1},
    {Kind::Half, 4},   {Kind::Half, 4},   {Kind::Float, 4}, {Kind::Float, 4},
    {Kind::Ushort, 1}, {Kind::Ushort, 1}, {Kind::Uchar, 1},
};

template <std::uint32_t code>
std::unique_ptr<CTexture> make(std::uint32_t format, std::uint32_t width, std::uint32_t height)
{
    if constexpr (code == 0)
        return nullptr;
    else {
        if (format == code) return std::make_unique<TextureOf<code>>(width, height);
        return make<code - 1>(format, width, height);
    }
}

}  // namespace

std::uint32_t formatCode(std::string_view text)
{
    for (const auto& [name, code] : kFormats)
        if (text.find(name) != std::string_view::npos) return code;
    return format::kNone;
}

std::uint32_t placeCode(std::string_view text)
{
    if (text.find("CPU") != std::string_view::npos) return 1;
    return text.find("GPU") != std::string_view::npos ? 2 : 0;
}

FrameShape frameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height)
{
    if (format >= std::size(kLayouts)) return {};
    return {kLayouts[format].kind, kLayouts[format].channels * width, height, 1};
}

FrameShape chainFrameShape(std::uint32_t format, std::uint32_t width, std::uint32_t height)
{
    return frameShape(format, format == format::kU1x8 ? 3 * width : width, height);
}

FrameShape shapeOf(const Array& array)
{
    return {array.kind(), array.dim(0), array.dim(1), array.dim(2)};
}

namespace {

void checkSize(std::int64_t width, std::int64_t height, int channels)
{
    constexpr std::int64_t kMaxSide = 65535;
    constexpr std::int64_t kMaxPixels = std::int64_t{1} << 28;
    if (width < 0 || height < 0 || width > channels * kMaxSide || height > kMaxSide ||
        width * height > channels * kMaxPixels)
        failf("frame size %lld x %lld is out of range", static_cast<long long>(width),
              static_cast<long long>(height));
}

}  // namespace

void checkFrameSize(std::int64_t width, std::int64_t height)
{
    checkSize(width, height, 1);
}

CTexture::CTexture(std::uint32_t formatCode, std::uint32_t w, std::uint32_t h)
    : handle(0), format(formatCode), width(w), height(h)
{
    const FrameShape shape = frameShape(formatCode, w, h);
    auto array = std::make_unique<Array>(shape.kind, shape.rowLength, shape.rows, shape.planes);
    handle = static_cast<std::uint32_t>(handles::allocate());
    handles::setPayload(static_cast<int>(handle), array.release());
}

CTexture::~CTexture()
{
    // If the handle was released elsewhere, there is nothing left to free.
    try {
        delete static_cast<Array*>(handles::payload(static_cast<int>(handle)));
        handles::release(static_cast<int>(handle));
    } catch (const char*) {
    }
}

std::unique_ptr<CTexture> createTexture(std::uint32_t format, std::uint32_t width, std::uint32_t height)
{
    checkSize(width, height, 3);
    return make<format::kU1x8>(format, width, height);
}

Array& pixelsOf(int handle)
{
    auto* array = static_cast<Array*>(handles::payload(handle));
    if (array == nullptr) failf("handle %d names no frame", handle);
    return *array;
}

void TextureSet::create(std::int64_t width, std::int64_t height, std::uint32_t count, std::uint32_t format)
{
    reset();
    checkSize(width, height, 3);
    format_ = format;
    width_ = static_cast<std::uint32_t>(width);
    height_ = static_cast<std::uint32_t>(height);
    shape_ = frameShape(format, width_, height_);
    if (shape_.kind == Kind::Empty) return;
    for (std::uint32_t i = 0; i < count; ++i) textures_.push_back(createTexture(format, width_, height_));
}

void TextureSet::create(std::int64_t width, std::int64_t height, std::uint32_t format,
                        const FrameShape& shape)
{
    create(width, height, 1, format);
    if (textures_.empty()) return;
    shape_ = shape;
    writable();
}

int TextureSet::handle(std::size_t index) const
{
    if (index >= textures_.size()) fail("Handle::zero handle!!!");  // a format without a buffer class
    return static_cast<int>(textures_[index]->handle);
}

Array& TextureSet::writable(std::size_t index) const
{
    Array& array = pixels(index);
    if (!shape_.fits(array)) array.reshape(shape_.kind, shape_.rowLength, shape_.rows, shape_.planes);
    return array;
}

}  // namespace scansteps
