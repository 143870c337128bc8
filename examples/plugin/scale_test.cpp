// Runs the step as a host does. usage: scale_test STEP_LIBRARY PLUGIN
#include <scansteps/host.h>

#include <cstdio>
#include <exception>
#include <vector>

using namespace scansteps;
using namespace scansteps::host;

int main(int argc, char** argv)
try {
    if (argc != 3) return kUsage;
    const StepLibrary library(argv[1], {argv[2]});
    Pipeline pipeline = pipelineFromLine("scale factor=3");
    for (const char* frame : {"dataX=4", "dataY=1", "dataFormat=CPU::u_1x16"}) applySet(pipeline, frame);
    checkSettings(pipeline);
    Chain chain(pipeline, library);
    chain.initialise();

    const std::vector<std::uint16_t> samples = {32768, 32778, 32758, 65000};
    const std::vector<std::uint16_t> expected = {32768, 32798, 32738, 65535};
    const auto input = chain.input().writable().elements<std::uint16_t>();
    for (std::size_t i = 0; i < samples.size(); ++i) input[i] = samples[i];
    varitype record{Struct()};
    const auto result = chain.transform(record);
    const auto output = pixelsOf((*result)["handle"].as<int>()).elements<std::uint16_t>();
    const bool passed = std::vector(output.begin(), output.end()) == expected;
    std::puts(passed ? "passed" : "FAILED: other samples than expected");
    return passed ? 0 : 1;
} catch (const std::exception& error) {
    std::printf("FAILED: %s\n", error.what());
    return 1;
}
