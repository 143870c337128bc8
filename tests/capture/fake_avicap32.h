// Controls of the fake capture service, an avicap32.dll that the tests build. Its functions are found with
// GetProcAddress. It is controlled by environment variables, read when a capture window is created:
//
//   FAKE_CAPTURE_RATE     frames a second (1000); 0: as fast as possible
//   FAKE_CAPTURE_SIZE     "WxH": the only supported size
//   FAKE_CAPTURE_JPEG     a file whose bytes are the frames when MJPG is requested
//   FAKE_CAPTURE_REFUSE   names of messages to refuse, separated by blanks
//   FAKE_CAPTURE_CUT      every n-th frame is one byte too short
//   FAKE_CAPTURE_LATE     not empty: keeps calling back until the window is destroyed
#pragma once

namespace scansteps::test {

/// fakeCaptureLog(): the messages since the last call, one per line, with the relevant arguments.
using FakeCaptureLog = const char* (*)();
/// fakeCaptureFrames(): frames delivered by all windows so far.
using FakeCaptureFrames = long (*)();

}  // namespace scansteps::test
