// A host made of the installed host library: runs the pipeline of its first argument.
#include <scansteps/host.h>

#include <cstdio>
#include <exception>

using namespace scansteps::host;

int main(int argc, char** argv)
try {
    if (argc != 2) return kUsage;
    const StepLibrary library(STEP_LIBRARY);
    Chain chain(readPipeline(argv[1]), library);
    const RunFacts facts = runPipeline(chain);
    for (const auto& error : facts.errors)
        std::fprintf(stderr, "%s: %s\n", error.where.c_str(), error.message.c_str());
    return facts.exitCode;
} catch (const std::exception& error) {
    std::fprintf(stderr, "error: %s\n", error.what());
    return kUsage;
}
