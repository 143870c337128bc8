// The exported functions: create_<kind>, getTypeIn<kind>, getTypeOut<kind> for every kind of the table, and
// set_handles. Nothing else leaves the library.
#include <memory>

#include "core/step_factory.h"
#include "scansteps/handles.h"
#include "scansteps/steps.h"

#if defined(_WIN32)
#define SCANSTEPS_EXPORT extern "C" __declspec(dllexport)
#else
#define SCANSTEPS_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace scansteps {

#define SCANSTEPS_KIND(kind, className, role, typeIn, typeOut, flow, summary, ...) \
    class className;                                                               \
    template <>                                                                    \
    std::unique_ptr<cChain> makeStep<className>();
#include "core/steps.def"
#undef SCANSTEPS_KIND

namespace {

template <class Step>
cChain* create(const char* typeIn, const char* typeOut)
{
    std::unique_ptr<cChain> step = makeStep<Step>();
    step->typeIn = typeIn;
    step->typeOut = typeOut;
    return step.release();
}

}  // namespace
}  // namespace scansteps

SCANSTEPS_EXPORT void set_handles(scansteps::HandleTable* table)
{
    scansteps::installHandles(table);
}

#define SCANSTEPS_KIND(kind, className, role, in, out, flow, summary, ...) \
    SCANSTEPS_EXPORT scansteps::cChain* create_##kind()                    \
    {                                                                      \
        return scansteps::create<scansteps::className>(in, out);           \
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
#undef SCANSTEPS_KIND
