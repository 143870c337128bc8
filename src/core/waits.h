// Waits that end when the host is interrupted, for everything in the library that would otherwise block.
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
/// How long a transfer that was begun before the interrupt may stand still before it is given up.
inline constexpr int kToFinishMs = 1000;
/// How often a wait that no descriptor can end looks at hostInterrupted().
inline constexpr int kSliceMs = 100;

/// Waits until reading or accepting would not block, also because of an error or the end. `file` is a
/// descriptor; on Windows a socket.
Wait readable(std::intptr_t file, int milliseconds = kForever);
/// Waits until writing would not block or connecting has ended. After an interrupt it goes on waiting for
/// that long: records are finished while the other end takes them.
Wait writable(std::intptr_t file, int milliseconds = kForever, int afterInterrupt = kToFinishMs);
/// TimedOut, or Interrupted before that.
Wait pause(int milliseconds);

}  // namespace scansteps::waits
