// A recording as the players read it: record by record, with their error texts, and ahead of the chain.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "core/ordered_workers.h"
#include "scansteps/settings.h"
#include "scansteps/stream.h"

namespace scansteps::recording {

/// All functions are called by the chain's thread. A record that cannot be read ahead is read again at its
/// turn, and only that counts: the file may still be growing.
class Recording
{
  public:
    Recording() { upcoming_.setThreads(1); }

    /// Opens the file, closing an earlier one, for a run with the setting "load.ahead". Failure is reported
    /// by next(). Only regular files are read ahead.
    void open(const std::string& path, const Settings& settings);
    bool isOpen() const { return file_ != nullptr && file_->isOpen(); }

    /// The next record. Throws "error file read" when no file is open, "read error" at the end of the file
    /// and "Read Error" when it is damaged. See readRecord() for `spare`, which is for a record that was not
    /// read ahead.
    varitype next(Array* spare = nullptr);
    /// Starts reading the records that follow, from the second call of a run on, so that a single frame costs
    /// no thread. The memory of `spare` can be reused.
    void readAhead(Array spare = {});
    /// Ends reading ahead and tells the host how long the thread has worked. next() continues with the record
    /// after the one that it returned last.
    void finishRun(const char* step);

    /// Notifies the host of file and reason if a file could not be opened, then throws `text`.
    [[noreturn]] void refuse(const char* text) const;

  private:
    struct Upcoming
    {
        BIOfs* file = nullptr;
        bool* hasFailed = nullptr;  // used on the reading thread only, until it has nothing to do
        Array spare = {};
        std::optional<varitype> record = {};
        std::uint64_t end = 0;  // position of the file after the record
        std::int64_t time = 0;  // microseconds

        void run() noexcept;
    };

    void rewind();
    void tell(const std::string& reason) const;

    std::unique_ptr<BIOfs> file_;
    std::uint64_t position_ = 0;  // after the record that next() returned last, or before one that failed
    std::size_t ahead_ = 0;
    bool isFirst_ = true;
    bool hasFailed_ = false;
    Array spare_;  // memory of an earlier frame
    std::int64_t workerTime_ = 0;
    OrderedWorkers<Upcoming> upcoming_;  // last, so that its thread ends first
};

}  // namespace scansteps::recording
