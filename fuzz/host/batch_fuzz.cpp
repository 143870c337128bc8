// Fuzzes what a batch reads: lists of inputs, texts with placeholders, and its journal.
#include "host/batch_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readBatch(data, size);
    return 0;
}
