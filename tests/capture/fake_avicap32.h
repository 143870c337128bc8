// Controls of the fake capture service, an avicap32.dll that the tests build. Its functions are found with
// GetProcAddress. It is steered with environment variables, read when a capture window is made:
//
//   FAKE_CAPTURE_RATE     frames a second (1000); 0: as fast as it can
//   FAKE_CAPTURE_SIZE     "WxH": the only size it has
//   FAKE_CAPTURE_JPEG     a file whose bytes are the frames once MJPG was asked for
//   FAKE_CAPTURE_REFUSE   names of messages that it refuses, with blanks between
//   FAKE_CAPTURE_CUT      every so many frames are one byte too short
//   FAKE_CAPTURE_LATE     not empty: calls back until the window is gone, whatever it was told
#pragma once

namespace scansteps::test {

/// fakeCaptureLog(): the messages since the last call, one a line, with what matters of their arguments.
using FakeCaptureLog = const char* (*)();
/// fakeCaptureFrames(): frames delivered by all windows so far.
using FakeCaptureFrames = long (*)();

}  // namespace scansteps::test
