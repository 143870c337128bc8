// Fuzzes what the host reads from the scansteps_describe() of a plug-in.
#include "host/plugin_description_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readPluginDescription(data, size);
    return 0;
}
