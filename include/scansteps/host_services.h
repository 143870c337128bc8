// What a host may offer the steps beside the handle table: a way to end their waits when the run is
// interrupted, and a place for troubles that a step survives. Offered through the table's shared values, so
// that the library exports nothing for it; a host that offers nothing loses nothing but these.
#pragma once

#include <cstdint>

#include "scansteps/handles.h"
#include "scansteps/trouble.h"

namespace scansteps {

/// The texts are read during the call only; none is null, each may be empty.
struct Notice
{
    Trouble trouble = Trouble::FileFailed;
    const char* step = "";    ///< getName() of the step
    const char* file = "";    ///< file or address concerned, UTF-8
    const char* reason = "";  ///< what the system or the decoder said
};

/// One instance, owned by the host, valid from installHostServices() until it is removed. The functions are
/// called on any thread of the library, must not throw, and may be null.
struct HostServices
{
    std::uint32_t size = sizeof(HostServices);  ///< of the host's structure: later members may be missing
    void* context = nullptr;                    ///< handed to the functions
    void (*notify)(void* context, const Notice& notice) = nullptr;
    bool (*interrupted)(void* context) = nullptr;
    /// Linux: a descriptor that becomes readable, and stays so, when the run is interrupted. Windows: the
    /// handle of a manual-reset event. -1: none.
    std::intptr_t wake = -1;
};

/// Key of the services among the table's shared values. installHandles() inserts it with 0; it must not be
/// erased while the table is installed.
inline constexpr int kHostServicesKey = 0x73637376;

/// Host's side: offers `services`, or with null takes the offer back.
void installHostServices(HandleTable& table, const HostServices* services);

/// Step's side: the services of the installed table, or null. May be called on any thread.
const HostServices* hostServices();
/// Whether the host wants the run to end: waits give up, the flush goes on.
bool hostInterrupted();
/// HostServices::wake, or -1.
std::intptr_t hostWake();

}  // namespace scansteps
