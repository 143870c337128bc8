// Troubles that a step survives, and how it tells the host of them. Apart from host_services.h, so that code
// which knows nothing of handles can report, too.
#pragma once

#include <cstdint>

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

/// Tells the host, if it wants to know. Null texts count as empty.
void notifyHost(Trouble trouble, const char* step, const char* file, const char* reason);

}  // namespace scansteps
