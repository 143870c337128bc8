// Fuzzes the readers of model files.
#include "viewer/model_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readModels(data, size);
    return 0;
}
