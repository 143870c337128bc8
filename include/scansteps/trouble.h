// Troubles that do not end a run, and how steps report them to the host. Separate from host_services.h so
// that kernels, which cannot see handles, can report as well.
#pragma once

#include "scansteps/cpp20.h"

#include <cstdint>

namespace scansteps {

/// A trouble that is not thrown as an error, or details of an error about to be thrown.
enum class Trouble : std::uint32_t
{
    SourceStopped = 1,      ///< a source ended at a file that it could not read
    PictureNotWritten = 2,  ///< a picture could not be written; the step continues with the next one
    FrameIncomplete = 3,    ///< a frame could be decoded only partially
    RecordNotSent = 4,      ///< a record was not sent because there is no connection
    NoModel = 5,            ///< a model step received neither a mesh nor a point cloud during a run
    FileFailed = 6,         ///< file, if any, and reason of the error about to be thrown
    ModelNotWritten = 7,    ///< a model file could not be opened; the step continues with the next event
    DepthReduced = 8,       ///< samples of a file were rounded to fewer bits; reported once per run
    AlphaDropped = 9,       ///< the transparency of a file was ignored; reported once per run
    RecordSkipped = 10,     ///< a player left a record out, which is no failure
};

/// Notifies the host if it has installed services. Null texts count as empty.
void notifyHost(Trouble trouble, const char* step, const char* file, const char* reason);

}  // namespace scansteps
