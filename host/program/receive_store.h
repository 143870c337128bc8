// Where a receiver puts the runs that arrive: the names of the recordings and the limits on what is stored.
// Called by the threads of all clients.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "commands.h"
#include "scansteps/stream.h"

namespace scansteps::host {

class ReceiveStore
{
  public:
    /// Throws UsageError when the first name exists and must not be overwritten, and FileError when its
    /// folder does not.
    explicit ReceiveStore(const ReceiveOptions& options);

    /// The smallest free number of a recording: a client that connects takes one, so that recordings are
    /// numbered in order of connection.
    std::uint64_t reserve();
    /// Gives a number back that no recording was made of.
    void release(std::uint64_t number);

    /// A new recording and, in `number`, the one it has got: another one when the name was taken meanwhile.
    /// Null when nothing is recorded. Throws a text for a limit that is reached and FileError. A file that is
    /// to be replaced stays as it is until commit().
    std::unique_ptr<BIOfs> create(std::uint64_t& number);
    /// After the first write has failed: an empty file is no recording.
    static void removeEmpty(const BIOfs& file);
    /// Throws a text when that many bytes more than before are not to be stored.
    void charge(std::uint64_t bytes);

  private:
    std::uint64_t reserveLocked();
    std::string nameOf(std::uint64_t number) const;

    const ReceiveOptions& options_;
    std::mutex mutex_;
    std::set<std::uint64_t> taken_;  // of clients that are connected and of recordings
    std::uint64_t total_ = 0, files_ = 0;
};

}  // namespace scansteps::host
