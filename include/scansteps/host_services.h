// What a host may offer the steps beside the handle table: a way to end their waits when the run is
// interrupted, and a place for troubles that a step survives. Offered through the table's shared values, so
// that the library exports nothing for it; a host that offers nothing loses nothing but these.
#pragma once

#include <cstdint>

#include "scansteps/handles.h"

namespace scansteps {

/// A trouble that a step does not raise, or details of one that it does.
enum class Trouble : std::uint32_t
{
    SourceStopped = 1,      ///< a source ended at a file that it could not read
    PictureNotWritten = 2,  ///< a picture could not be written; the step goes on with the next one
    FrameIncomplete = 3,    ///< a frame was decoded only in part
    RecordNotSent = 4,      ///< a record was not sent, for lack of a connection
    NoModel = 5,            ///< a run of a model step brought no mesh and no point cloud
    FileFailed = 6,         ///< file, if any, and reason of the error that the step is about to raise
    ModelNotWritten = 7,    ///< the file of a model could not be opened; the step goes on with the next event
};

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

/// Key of the services among the table's shared values.
inline constexpr int kHostServicesKey = 0x73637376;

/// Host's side: offers `services`, or with null takes the offer back.
void installHostServices(HandleTable& table, const HostServices* services);

/// Step's side: the services of the installed table, or null.
const HostServices* hostServices();
/// Tells the host, if it wants to know. Null texts count as empty.
void notifyHost(Trouble trouble, const char* step, const char* file, const char* reason);
/// Whether the host wants the run to end: waits give up, the flush goes on.
bool hostInterrupted();
/// HostServices::wake, or -1.
std::intptr_t hostWake();

}  // namespace scansteps
