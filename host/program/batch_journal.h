// The journal of a batch: one line of JSON for everything that happens to a job, and the lock that keeps two
// batches, and a batch and what is left of a killed one, from running the same jobs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "library/json_values.h"

namespace scansteps::host {

/// What the journal says last of a job.
struct JobRecord
{
    std::string state;       ///< "started", "done", "failed" or "interrupted"
    std::size_t file = 0;    ///< number of its log and report
    std::string inputs;      ///< stateOf() its inputs when it started
    std::int64_t files = 0;  ///< that it wrote
    std::int64_t frames = 0, warnings = 0;
    double seconds = 0;
    int exit = 0;
    std::string error;
};

class Journal
{
  public:
    /// Creates the folder. Throws UsageError when there is a journal and `resume` is false, and FileError.
    Journal(const std::string& folder, bool resume);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// By the key of the job.
    const std::map<std::string, JobRecord>& records() const { return records_; }
    /// The last line about every array of Slurm that has not ended, by its name.
    const std::map<std::string, Json>& arrays() const { return arrays_; }
    /// Lines that could not be read.
    std::size_t spoilt() const { return spoilt_; }

    /// Appends a line with one call and waits until it is on disk. Throws FileError.
    void append(Json line);

  private:
    void lock();
    void read();
    void take(const Json& line);
    void takeArray(const Json& line);

    std::string path_;
    int file_ = -1;
    int lock_ = -1;  // inherited by the jobs, so that the lock outlives a killed batch until they are gone
    std::map<std::string, JobRecord> records_;
    std::map<std::string, Json> arrays_;
    std::size_t spoilt_ = 0;
};

}  // namespace scansteps::host
