// One job as a process of its own: `scansteps run -`.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "commands.h"

namespace scansteps::host {

struct JobFiles
{
    std::string log, report;
};
JobFiles filesOfJob(const std::string& folder, std::size_t number);

/// How a job ended.
struct JobOutcome
{
    int exit = 0;  ///< 128 + number of the signal that killed it
    std::string error = {};
    std::int64_t frames = 0, warnings = 0;
    double seconds = 0;
};

/// Options of `scansteps run` that are the same for every job.
std::vector<std::string> commonArguments(const BatchOptions& options);

class JobProcess
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Starts a job in a process group of its own. It is killed when this process ends, and prints to its
    /// log. Call on the main thread. Throws FileError.
    JobProcess(const std::vector<std::string>& arguments, const std::string& pipeline, const JobFiles& files,
               bool isRetry);

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    /// After waitpid().
    JobOutcome outcome(int waitStatus) const;

  private:
    pid_t pid_ = -1;
    JobFiles files_;
    Clock::time_point start_ = Clock::now();
};

/// Of a job that ended unseen, from its report; false where it wrote none or failed.
bool hasSucceeded(const JobFiles& files, JobOutcome& outcome);

}  // namespace scansteps::host
