// What is known of every job of a batch while it runs, kept in the journal.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "batch_jobs.h"
#include "batch_journal.h"
#include "batch_process.h"
#include "report.h"

namespace scansteps::host {

enum class JobPhase
{
    Waiting,
    Running,
    Done,
    Failed,
    Interrupted,
};

class BatchState
{
  public:
    using Clock = std::chrono::steady_clock;
    struct Status
    {
        JobPhase phase = JobPhase::Waiting;
        bool isOld = false;      ///< done by an earlier batch
        bool wasKilled = false;  ///< the last time; may have left temporary files
        int attempts = 0;        ///< of this batch
        std::size_t file = 0;
        JobOutcome outcome;
    };

    /// Takes over what the journal says is complete and unchanged.
    BatchState(const BatchOptions& options, const JobList& jobs, Journal& journal);

    const BatchOptions& options() const { return options_; }
    const JobList& jobs() const { return jobs_; }
    Journal& journal() { return journal_; }
    const Status& status(std::size_t n) const { return statuses_[n]; }
    JobFiles files(std::size_t n) const { return filesOfJob(options_.folder, statuses_[n].file); }
    std::vector<std::size_t> waiting() const;

    /// `place` goes into the journal: where the job runs.
    void started(std::size_t n, const Json& place);
    /// Whether the job is to run again: it failed, but not for a reason that stays.
    bool finished(std::size_t n, const JobOutcome& outcome);
    void interrupted(std::size_t n);
    /// The job ended without a result, for a reason that is not its own: it waits again.
    void lost(std::size_t n, const std::string& reason);
    /// Pause before the next attempt: doubled each time.
    Clock::duration pauseBefore(int attempt) const;

    /// Draws the progress.
    void show(bool last = false);
    double seconds() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

  private:
    void adopt(std::size_t n);
    void numberFiles();
    bool isComplete(std::size_t n, const JobRecord& record) const;
    void writeFinished(std::size_t n, const char* state);

    const BatchOptions& options_;
    const JobList& jobs_;
    Journal& journal_;
    std::vector<Status> statuses_;
    Clock::time_point start_ = Clock::now();
    std::size_t ended_ = 0, failed_ = 0, old_ = 0;
    std::int64_t frames_ = 0;
    StatusLine line_;
};

}  // namespace scansteps::host
