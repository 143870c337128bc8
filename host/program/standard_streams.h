// Standard output and standard error in whatever state the program was started with: closed, full, or read by
// nobody any more.
#pragma once

namespace scansteps::host {

/// To be called before anything is opened or printed. Gives descriptors 0 to 2 that are closed the null
/// device, so that no file gets their numbers; makes writing to a pipe that nobody reads, or beyond the limit
/// of file sizes, an error instead of the end of the program; lets the streams carry bytes as they are and
/// survive interrupted calls.
void prepareStandardStreams();

bool standardErrorIsTerminal();
/// Whether it was closed at the start: what is written to it goes nowhere.
bool standardOutputWasClosed();
/// Whether the reader of standard output has gone away.
bool standardOutputIsDeserted();
/// Writes out what standard output has gathered. Says why it could not take everything so far, else "".
const char* flushStandardOutput();

}  // namespace scansteps::host
