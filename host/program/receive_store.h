// Where a receiver stores runs: the names of the recordings and the limits on what is stored. Thread-safe.
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
    /// Returns a number for which no recording was made.
    void release(std::uint64_t number);

    /// A new recording and, in `number`, its number, which is another one when the name was taken meanwhile.
    /// Null when nothing is recorded. Throws a text for a limit that is reached and FileError. A file that is
    /// to be replaced stays as it is until commit().
    std::unique_ptr<BIOfs> create(std::uint64_t& number);
    /// After the first write has failed: an empty file is no recording.
    static void removeEmpty(const BIOfs& file);
    /// Counts bytes to be stored; throws a text when they exceed a limit.
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
