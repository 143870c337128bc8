// What the program reports of a run: progress, the table of times, errors, and the same facts as JSON.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "scansteps/host.h"

namespace scansteps::host {

/// One line on the terminal that is overwritten, truncated to its width.
class StatusLine
{
  public:
    explicit StatusLine(bool wanted);
    ~StatusLine() { end(); }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;
    /// At most ten times a second, unless `always`. Never true when standard error is not a terminal.
    bool isDue(bool always);
    void draw(std::string line);
    /// Leaves the line as it is and begins a new one.
    void end();

  private:
    using Clock = std::chrono::steady_clock;
    bool shown_;
    Clock::time_point last_ = Clock::now();
    std::size_t width_ = 0;  // of the current line
};

/// Frames done, frames per second, and time left where the number of frames is known.
class Progress
{
  public:
    Progress(std::int64_t frames, bool wanted) : frames_(frames), line_(wanted) {}
    void update(std::int64_t done);

  private:
    using Clock = std::chrono::steady_clock;
    std::int64_t frames_;
    Clock::time_point start_ = Clock::now();
    StatusLine line_;
};

struct RunReport : RunFacts
{
    std::vector<Message> warnings;          ///< at the end of the run; they have no phase
    std::vector<std::string> warnedBefore;  ///< printed before or during the run
};

void printTimeTable(const RunFacts& facts);
/// Turns the problems that steps survived into warnings, or into errors with --strict.
void judgeTroubles(RunReport& facts, const Pipeline& pipeline, bool strict);
/// Warnings and errors.
void printErrors(const RunReport& facts);

/// The same facts as JSON.
std::string reportText(const RunReport& facts);

}  // namespace scansteps::host
