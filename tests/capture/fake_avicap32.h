// The stand-in for the capture service: avicap32.dll as the tests build it. Its functions are found with
// GetProcAddress. It is steered with environment variables, read when a capture window is made:
//
//   CAPTURE_DOUBLE_RATE     frames a second (1000); 0: as fast as it can
//   CAPTURE_DOUBLE_SIZE     "WxH": the only size it has
//   CAPTURE_DOUBLE_JPEG     a file whose bytes are the frames once MJPG was asked for
//   CAPTURE_DOUBLE_ONLY     "YUY2" or "MJPG": the only format it has
//   CAPTURE_DOUBLE_REFUSE   names of messages that it refuses, with blanks between
//   CAPTURE_DOUBLE_CUT      every so many frames are one byte too short
//   CAPTURE_DOUBLE_LATE     not empty: calls back until the window is gone, whatever it was told
#pragma once

namespace scansteps::test {

/// captureDoubleLog(): the messages since the last call, one a line, with what matters of their arguments.
using CaptureDoubleLog = const char* (*)();
/// captureDoubleFrames(): frames delivered by all windows so far.
using CaptureDoubleFrames = long (*)();

}  // namespace scansteps::test
