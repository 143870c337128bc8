// What the host has to say of a run: progress, the table of times, errors, and the same facts as JSON.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// A line on the terminal that is written over: frames done, frames a second, time left where the number of
/// frames is known; cut where the terminal is narrower. Silent when standard error is no terminal.
class Progress
{
  public:
    Progress(std::int64_t frames, bool wanted);
    ~Progress();
    void update(std::int64_t done);

  private:
    using Clock = std::chrono::steady_clock;
    std::int64_t frames_;
    bool shown_;
    Clock::time_point start_, last_;
    std::size_t width_ = 0;  // of the line that stands there
};

struct RunReport : RunFacts
{
    std::vector<Message> warnings;          ///< at the end of the run; they have no phase
    std::vector<std::string> warnedBefore;  ///< printed before or during the run
};

void printTimeTable(const RunFacts& facts);
/// Makes errors of the troubles that steps survived (--strict), or warnings.
void judgeTroubles(RunReport& facts, const Pipeline& pipeline, bool strict);
/// Warnings and errors.
void printErrors(const RunReport& facts);

/// The same facts as JSON.
std::string reportText(const RunReport& facts);

}  // namespace scansteps::host
