// The exported functions: create_<kind>, getTypeIn<kind> and getTypeOut<kind> for every step in the table,
// and set_handles. The library exports nothing else.
#include "plugin/factories.h"

#include "scansteps/handles.h"
#include "scansteps/steps.h"

#if defined(_WIN32)
#define SCANSTEPS_EXPORT extern "C" __declspec(dllexport)
#else
#define SCANSTEPS_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Defined in the step files with SCANSTEPS_FACTORY.
#define SCANSTEPS_STEP(kind, ...) extern "C" scansteps::cChain* scansteps_make_##kind();
#include "core/steps.def"

namespace {

scansteps::cChain* withTypes(scansteps::cChain* made, const char* typeIn, const char* typeOut)
{
    std::unique_ptr<scansteps::cChain> step(made);
    step->typeIn = typeIn;
    step->typeOut = typeOut;
    return step.release();
}

}  // namespace

SCANSTEPS_EXPORT void set_handles(scansteps::HandleTable* table)
{
    scansteps::installHandles(table);
}

#define SCANSTEPS_STEP(kind, className, role, in, out, flow, summary, ...) \
    SCANSTEPS_EXPORT scansteps::cChain* create_##kind()                    \
    {                                                                      \
        return withTypes(scansteps_make_##kind(), in, out);                \
    }                                                                      \
    SCANSTEPS_EXPORT const char* getTypeIn##kind()                         \
    {                                                                      \
        return in;                                                         \
    }                                                                      \
    SCANSTEPS_EXPORT const char* getTypeOut##kind()                        \
    {                                                                      \
        return out;                                                        \
    }
#include "core/steps.def"

namespace scansteps::plugin {

std::unique_ptr<cChain> createStep(std::string_view kind)
{
#define SCANSTEPS_STEP(name, ...) \
    if (kind == #name) return std::unique_ptr<cChain>(create_##name());
#include "core/steps.def"
    return nullptr;
}

}  // namespace scansteps::plugin
