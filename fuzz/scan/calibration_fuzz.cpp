// Fuzzes the reading of calibration.json and patterns.json.
#include "scan/calibration_input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    scansteps::fuzzing::readCalibrationFiles(data, size);
    return 0;
}
