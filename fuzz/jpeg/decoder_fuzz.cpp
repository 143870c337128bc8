// Fuzzes the baseline JPEG decoder.
#include "jpeg/decoder_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::decodeJpeg(data, size);
    return 0;
}
