// Frames inside records: the same frame travels as "handle" between steps and as the array "data" in
// recordings and on connections.
#pragma once

#include "scansteps/chain.h"
#include "scansteps/stream.h"
#include "scansteps/texture.h"

namespace scansteps {

/// Writes the record of an event. When it holds "handle", the array behind the handle is written as "data" in
/// place of the handle. Throws "[data] already found" when it holds both, and what handles and streams throw.
void writeEvent(BIO& sink, const varitype& record);

/// Throws when the array, which came from a recording, can be no frame because its elements have no size. Its
/// dimensions are left to the steps behind, each of which holds them against its own.
void checkEmbeddedFrame(StepBase& step, const Array& array);

/// Reads "dataX", "dataY" and "dataFormat" and makes the one buffer into which a step puts embedded frames.
/// A format that is missing or unknown is reported as mismatch and taken for "f_1x32".
void createFrameBuffer(StepBase& step, varitype& params, TextureSet& buffer);

/// A step's last work at flush, then the flush itself, which also happens when the work failed: the steps
/// behind must finish their files whatever went wrong here. The error is thrown afterwards.
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
