// Frames inside records: the same frame travels as "handle" between steps and as the array "data" in
// recordings and on connections.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/stream.h"
#include "scansteps/texture.h"

namespace scansteps {

/// Writes the record of an event. If it has an entry "handle", the frame is written as "data" instead of the
/// handle. Throws "[data] already found" if it has both, and the errors of handles and streams.
void writeEvent(BIO& sink, const varitype& record);

/// Throws if the array, read from a recording, cannot be a frame because its elements have no size. The
/// dimensions are checked by the steps after this one.
void checkEmbeddedFrame(StepBase& step, const Array& array);

/// Creates a step's buffer for embedded frames from "dataX", "dataY" and "dataFormat". A missing or unknown
/// format is reported as a mismatch and taken as "f_1x32".
void createFrameBuffer(StepBase& step, varitype& params, TextureSet& buffer);

/// Calls `work`, then `flush`, even if `work` throws: the steps after this one must still finish their files.
/// An error of `work` is rethrown afterwards.
template <class Work, class Flush>
void finishThen(Work work, Flush flush)
{
    try {
        work();
    } catch (...) {
        flush();
        throw;
    }
    flush();
}

}  // namespace scansteps
