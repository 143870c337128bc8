// A host of one's own: loads the step library, puts a step of its own between two of the library's, and
// drives the chain. usage: own_host PHOTO.jpg RESULT.ppm
#include <dlfcn.h>
#include <scansteps/chain.h>
#include <scansteps/handles.h>

#include <cstdio>
#include <memory>
#include <string>

#include "invert_step.h"

using namespace scansteps;

namespace {

template <class Function>
Function* symbol(void* library, const char* name)
{
    void* const address = dlsym(library, name);
    if (address == nullptr) throw "the step library lacks a function";
    return reinterpret_cast<Function*>(address);
}

// Keeps the first sample of the last frame.
class LastSample final : public CPUBase
{
  public:
    void process(varitype& params) override
    {
        sample = pixelsOf(params["handle"].as<int>()).elements<std::uint8_t>()[0];
        ++count;
    }
    void flush(varitype&) override {}
    int sample = -1, count = 0;
};

int drive(void* library, const std::string& photo, const std::string& result)
{
    // One handle table, known to both modules: the library's and ours.
    HandleTable table;
    fillFreeHandles(table);
    installHandles(&table);
    symbol<void(HandleTable*)>(library, "set_handles")(&table);

    const auto create = [&](const char* name) {
        return std::unique_ptr<cChain>(symbol<cChain*()>(library, name)());
    };
    const auto reader = create("create_cjread");
    InvertStep invert;
    const auto writer = create("create_cjwrite");
    LastSample last;
    reader->setNext(&invert);
    invert.setNext(writer.get());
    writer->setNext(&last);

    varitype record(Struct{{"eventType", event::kInit},
                           {"load", Struct{{"name", photo}, {"one", 1}}},
                           {"cjwrite", Struct{{"name", result}}}});
    reader->dispatch(record);
    for (;;) {
        varitype frame(Struct{{"eventType", event::kProcess}});
        reader->dispatch(frame);
        if (eventType(frame) == event::kFlush) break;
    }
    varitype end(Struct{{"eventType", event::kFlush}});
    reader->dispatch(end);
    std::printf("%d frame, first sample %d\n", last.count, last.sample);
    return last.count == 1 && last.sample >= 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) return 2;
    void* const library = dlopen(STEP_LIBRARY, RTLD_NOW);
    if (library == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        return 1;
    }
    try {
        return drive(library, argv[1], argv[2]);
    } catch (const char* text) {
        std::fprintf(stderr, "error: %s\n", text);
        return 1;
    }
}
