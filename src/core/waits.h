// Waits that end when the host is interrupted, for all operations of the library that would otherwise block.
#pragma once

#include <cstdint>

namespace scansteps::waits {

enum class Wait
{
    Ready,
    TimedOut,
    Interrupted
};

inline constexpr int kForever = -1;
/// How long a transfer that began before the interruption may stall before it is aborted.
inline constexpr int kToFinishMs = 1000;
/// Polling interval of hostInterrupted() in waits that no descriptor can end.
inline constexpr int kSliceMs = 100;

/// Waits until reading or accepting would not block, which includes errors and the end of the stream. `file`
/// is a descriptor; on Windows, a socket.
Wait readable(std::intptr_t file, int milliseconds = kForever);
/// Waits until writing would not block or a connection attempt has ended. After an interruption it waits for
/// up to `afterInterrupt` more, so that a record can be completed while the peer still receives.
Wait writable(std::intptr_t file, int milliseconds = kForever, int afterInterrupt = kToFinishMs);
/// Sleeps. Returns TimedOut, or Interrupted if that happens first.
Wait pause(int milliseconds);

}  // namespace scansteps::waits
