// What the host has to say of a run: progress, the table of times, errors, and the same facts as JSON.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "runner.h"

namespace scansteps::host {

/// A line on the terminal that is written over: frames done, frames a second, time left where the number of
/// frames is known. Silent when standard error is no terminal.
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
    bool printed_ = false;
};

void printTimeTable(const RunFacts& facts);
/// Makes errors of the troubles that steps survived (--strict), or warnings.
void judgeTroubles(RunFacts& facts, const Pipeline& pipeline, bool strict);
/// Warnings and errors.
void printErrors(const RunFacts& facts);

/// The file of --report.
class ReportFile
{
  public:
    /// An empty name gives a report that goes nowhere. Throws FileError.
    static ReportFile open(const std::string& name);
    /// Throws FileError.
    void write(const RunFacts& facts);

  private:
    struct Closer
    {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::string name_;
    std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace scansteps::host
