// The image loader on hostile files: whatever the bytes are, it returns an image or nothing.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "images/image_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const int file = memfd_create("image", 0);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    const auto image = scansteps::images::loadImage("/proc/self/fd/" + std::to_string(file));
    if (!image) return 0;
    if (image->width < 1 || image->height < 1) std::abort();
    // Every byte must have been written: a checksum touches them all.
    std::uint32_t sum = 0;
    for (const std::uint8_t byte : image->bytes()) sum += byte;
    return sum == 1 ? -1 : 0;  // keeps the sum from being optimised away
}
