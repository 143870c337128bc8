// Fuzzes the checks of the headers of requests to the viewer.
#include "viewer/access_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::checkHeaders(data, size);
    return 0;
}
