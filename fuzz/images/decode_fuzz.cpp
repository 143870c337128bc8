// Fuzzes the decoders of the image plug-in.
#include "images/decode_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::decodePictures(data, size);
    return 0;
}
