// The image loader on hostile files: whatever the bytes are, it returns an image or nothing.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "io/image_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
        fmemopen(const_cast<std::uint8_t*>(data), size, "rb"), &std::fclose);
    if (!file) return 0;
    const auto image = scansteps::loadImage(file.get());
    if (!image) return 0;
    if (image->width < 1 || image->height < 1) std::abort();
    // Every byte must have been written: a checksum touches them all.
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : image->bytes()) sum += byte;
    return sum == 1 ? -1 : 0;  // keeps the sum from being optimised away
}
