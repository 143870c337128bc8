// A plug-in that describes itself as the variable SCANSTEPS_TOLD says; it has the functions of one kind,
// "told".
#include <scansteps/chain.h>
#include <scansteps/handles.h>

#include <cstdlib>

#ifdef _WIN32
#define EXPORT extern "C" __declspec(dllexport)
#else
#define EXPORT extern "C" __attribute__((visibility("default")))
#endif

EXPORT const char* scansteps_describe()
{
    return std::getenv("SCANSTEPS_TOLD");
}
EXPORT void set_handles(scansteps::HandleTable* table)
{
    scansteps::installHandles(table);
}
EXPORT scansteps::cChain* create_told()
{
    return new scansteps::cChain;
}
EXPORT const char* getTypeIntold()
{
    return "CPU::ANY";
}
EXPORT const char* getTypeOuttold()
{
    return "CPU::ANY";
}
