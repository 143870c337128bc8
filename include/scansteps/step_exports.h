// Defines create_<kind>, getTypeIn<kind> and getTypeOut<kind> for every step of the file
// SCANSTEPS_STEPS_FILE, which has the format of steps.def, and set_handles. To be included once in a library
// of steps.
#include <memory>

#include "scansteps/chain.h"
#include "scansteps/handles.h"
#include "scansteps/plugin.h"

#if defined(_WIN32)
#define SCANSTEPS_EXPORT extern "C" __declspec(dllexport)
#else
#define SCANSTEPS_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Only the entries of steps matter here.
#define SCANSTEPS_SETTINGS(name, ...)

// Defined in the step files with SCANSTEPS_FACTORY.
#define SCANSTEPS_STEP(kind, ...) extern "C" scansteps::cChain* scansteps_make_##kind();
#include SCANSTEPS_STEPS_FILE
#undef SCANSTEPS_STEP
#undef SCANSTEPS_SETTINGS

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

#define SCANSTEPS_SETTINGS(name, ...)
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
#include SCANSTEPS_STEPS_FILE
#undef SCANSTEPS_STEP
#undef SCANSTEPS_SETTINGS
