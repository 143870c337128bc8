// Optional services of a host: it can interrupt the steps' waits and be notified of troubles that do not end
// the run. They are passed through the shared values of the handle table, so the library needs no further
// exported function for them.
#pragma once

#include <cstdint>

#include "scansteps/handles.h"
#include "scansteps/trouble.h"

namespace scansteps {

/// The texts are valid during the call only; they may be empty but are never null.
struct Notice
{
    Trouble trouble = Trouble::FileFailed;
    const char* step = "";    ///< getName() of the step
    const char* file = "";    ///< file or address concerned, UTF-8
    const char* reason = "";  ///< message of the system or the decoder
};

/// Owned by the host; must stay valid from installHostServices() until it is removed. The functions may be
/// null, must not throw, and are called from any thread of the library.
struct HostServices
{
    std::uint32_t size =
        sizeof(HostServices);  ///< of the host's version of this structure, which may lack later members
    void* context = nullptr;   ///< passed to the functions
    void (*notify)(void* context, const Notice& notice) = nullptr;
    bool (*interrupted)(void* context) = nullptr;
    /// Linux: a descriptor that becomes and stays readable when the run is interrupted. Windows: the handle
    /// of a manual-reset event. -1: none.
    std::intptr_t wake = -1;
    /// Null: a recording takes its name with its first event and keeps what was written before an error.
    /// Otherwise it stays under a temporary name until the flush, where it is removed if this returns false.
    bool (*keeps)(void* context) = nullptr;
    /// The run writes files that it reads later: steps then neither read ahead nor write behind.
    bool readsOwnOutput = false;
    /// During a flush event, on the chain's thread: the time that threads of this step have worked in the
    /// run.
    void (*workerTime)(void* context, const char* step, std::int64_t microseconds) = nullptr;
};

/// Key of the services among the table's shared values. installHandles() inserts it with 0; it must not be
/// erased while the table is installed.
inline constexpr int kHostServicesKey = 0x73637376;

/// For hosts: installs `services`; null removes them.
void installHostServices(HandleTable& table, const HostServices* services);

/// For steps: the services of the installed table, or null. May be called from any thread.
const HostServices* hostServices();
/// Whether the host wants the run to end. Steps then end their waits; the flush event is still to come.
bool hostInterrupted();
/// HostServices::readsOwnOutput.
bool hostReadsOwnOutput();
/// Calls HostServices::workerTime.
void tellWorkerTime(const char* step, std::int64_t microseconds);
/// HostServices::wake, or -1.
std::intptr_t hostWake();
/// Whether recordings wait for the flush (HostServices::keeps).
bool hostStages();
/// At the flush: whether they take their names.
bool hostKeeps();

}  // namespace scansteps
