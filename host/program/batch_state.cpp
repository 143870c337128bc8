// Decides what is to be done, and notes what was.
#include "batch_state.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <set>

namespace scansteps::host {

namespace {

constexpr auto kLongestPause = std::chrono::minutes(5);

// A pipeline or types that do not fit do not do so the next time.
bool canBeRetried(int exit)
{
    return exit != kEnded && exit != kUsage && exit != kMisfit;
}

}  // namespace

BatchState::BatchState(const BatchOptions& options, const JobList& jobs, Journal& journal)
    : options_(options), jobs_(jobs), journal_(journal), statuses_(jobs.size()), line_(!options.quiet)
{
    numberFiles();
    for (std::size_t n = 0; n < jobs.size(); ++n)
        if (journal.records().contains(jobs.key(n))) adopt(n);
}

// Logs and reports of earlier runs stay with their jobs also when there are others before them now.
void BatchState::numberFiles()
{
    std::set<std::size_t> taken;
    const auto& records = journal_.records();
    for (std::size_t n = 0; n < jobs_.size(); ++n)
        if (const auto known = records.find(jobs_.key(n)); known != records.end())
            taken.insert(known->second.file);
    for (std::size_t n = 0; n < jobs_.size(); ++n) {
        const auto known = records.find(jobs_.key(n));
        std::size_t file = known != records.end() ? known->second.file : n;
        if (known == records.end() && !taken.insert(file).second) {
            file = std::max(*taken.rbegin(), jobs_.size() - 1) + 1;
            taken.insert(file);
        }
        statuses_[n].file = file;
    }
}

bool BatchState::isComplete(std::size_t n, const JobRecord& record) const
{
    return record.inputs == jobs_.inputState(n) &&
           countFiles(jobs_.outputs(n), record.frames) >= record.files;
}

void BatchState::adopt(std::size_t n)
{
    const JobRecord& record = journal_.records().at(jobs_.key(n));
    Status& status = statuses_[n];
    JobOutcome& outcome = status.outcome;
    status.wasKilled = record.state == "started" || record.state == "interrupted" || record.exit > 128;
    if (record.state == "done") {
        outcome = {0, "", record.frames, record.warnings, record.seconds};
        status.isOld = isComplete(n, record);
    } else if (record.state == "started" && hasSucceeded(files(n), outcome) &&
               record.inputs == jobs_.inputState(n)) {
        // It ended, but the batch was killed before it could say so.
        status.isOld = true;
        writeFinished(n, "done");
    }
    if (!status.isOld) {
        outcome = {};
        return;
    }
    status.phase = JobPhase::Done;
    ++old_;
    ++ended_;
}

std::vector<std::size_t> BatchState::waiting() const
{
    std::vector<std::size_t> result;
    for (std::size_t n = 0; n < statuses_.size(); ++n)
        if (statuses_[n].phase == JobPhase::Waiting) result.push_back(n);
    return result;
}

void BatchState::started(std::size_t n, const Json& place)
{
    Status& status = statuses_[n];
    status.phase = JobPhase::Running;
    ++status.attempts;
    Json line = {
        {"job", status.file}, {"key", jobs_.key(n)}, {"state", "started"}, {"input", jobs_.label(n)}};
    line.update(place);
    journal_.append(std::move(line));
}

void BatchState::writeFinished(std::size_t n, const char* state)
{
    const Status& status = statuses_[n];
    const JobOutcome& outcome = status.outcome;
    Json line = {{"job", status.file},          {"key", jobs_.key(n)},        {"state", state},
                 {"exit", outcome.exit},        {"seconds", outcome.seconds}, {"frames", outcome.frames},
                 {"warnings", outcome.warnings}};
    if (!outcome.error.empty()) line["error"] = outcome.error;
    if (outcome.exit == kEnded) line["files"] = countFiles(jobs_.outputs(n), outcome.frames);
    journal_.append(std::move(line));
}

bool BatchState::finished(std::size_t n, const JobOutcome& outcome)
{
    Status& status = statuses_[n];
    status.outcome = outcome;
    const bool again = canBeRetried(outcome.exit) && status.attempts <= options_.retries;
    status.phase = outcome.exit == kEnded ? JobPhase::Done : again ? JobPhase::Waiting : JobPhase::Failed;
    writeFinished(n, outcome.exit == kEnded ? "done" : "failed");
    status.wasKilled = outcome.exit > 128;
    if (outcome.exit == kEnded) frames_ += outcome.frames;
    if (!again) ++ended_;
    if (status.phase == JobPhase::Failed) ++failed_;
    return again;
}

void BatchState::interrupted(std::size_t n)
{
    Status& status = statuses_[n];
    const bool ran = status.phase == JobPhase::Running;
    status.phase = JobPhase::Interrupted;
    status.outcome.exit = kInterrupted;
    if (!ran) return;
    writeFinished(n, "interrupted");
}

void BatchState::lost(std::size_t n, const std::string& reason)
{
    Status& status = statuses_[n];
    if (status.phase == JobPhase::Running) --status.attempts;
    status.wasKilled = true;
    status.phase = JobPhase::Waiting;
    status.outcome = {kInterrupted, reason};
    writeFinished(n, "interrupted");
    status.outcome = {};
}

BatchState::Clock::duration BatchState::pauseBefore(int attempt) const
{
    const double seconds = options_.retryDelay * double(1U << std::min(attempt - 1, 20));
    const std::chrono::duration<double> pause(seconds);
    return pause > kLongestPause ? Clock::duration(kLongestPause)
                                 : std::chrono::duration_cast<Clock::duration>(pause);
}

void BatchState::show(bool last)
{
    if (!line_.isDue(last)) return;
    const double passed = seconds();
    std::string text = fmt::format("{} of {} jobs", ended_, jobs_.size());
    if (failed_ > 0) text += fmt::format(", {} failed", failed_);
    if (passed > 0) text += fmt::format(", {:.1f} frames/s", double(frames_) / passed);
    if (const std::size_t done = ended_ - old_; done > 0 && ended_ < jobs_.size())
        text += fmt::format(", {:.0f} s left", passed / double(done) * double(jobs_.size() - ended_));
    line_.draw(text);
    if (last) line_.end();
}

}  // namespace scansteps::host
