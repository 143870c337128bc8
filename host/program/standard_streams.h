// Makes standard output and standard error usable whatever state the program was started in: closed, full, or
// without a reader.
#pragma once

namespace scansteps::host {

/// To be called before anything is opened or printed. Gives descriptors 0 to 2 that are closed the null
/// device, so that no file gets their numbers; makes writing to a pipe that nobody reads, or beyond the limit
/// of file sizes, an error instead of the end of the program; lets the streams carry bytes as they are and
/// survive interrupted calls.
void prepareStandardStreams();

bool standardErrorIsTerminal();
/// Whether it was closed at the start, so that output is discarded.
bool standardOutputWasClosed();
/// Whether the reader of standard output has gone away.
bool standardOutputIsDeserted();
/// Flushes standard output. Returns why output was lost so far, else "".
const char* flushStandardOutput();

}  // namespace scansteps::host
