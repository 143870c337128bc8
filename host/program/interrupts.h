// Interrupts, and ending the program where nothing can be cleaned up.
#pragma once

#include <cstdint>
#include <filesystem>

namespace scansteps::host {

/// A file for endAtOnce() to remove, or null. The caller keeps ownership of the path.
void setUnfinishedFile(const std::filesystem::path::value_type* path);
/// Ends the program with no cleanup except removing that file. Safe in signal handlers.
[[noreturn]] void endAtOnce(int code) noexcept;

/// From now on an interrupt (Ctrl-C, SIGTERM, SIGHUP, closing the console) is recorded instead of ending the
/// program. After a second one the program has 1.5 seconds left. Signals that were ignored stay ignored.
void catchInterrupts();
/// From now on every interrupt ends the program at once, with the same exit code.
void releaseInterrupts();
bool interrupted();
/// HostServices::wake for interrupts.
std::intptr_t interruptWake();

}  // namespace scansteps::host
