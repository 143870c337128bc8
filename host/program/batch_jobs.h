// The jobs of a batch: a pipeline filled in for every input, and for every part of a split series.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "batch_inputs.h"
#include "batch_series.h"
#include "commands.h"
#include "scansteps/host.h"

namespace scansteps::host {

class JobList
{
  public:
    /// Reads pipeline and inputs and checks every job. Throws UsageError, which names the job.
    explicit JobList(const BatchOptions& options);

    std::size_t size() const { return jobs_.size(); }
    /// The same for a job that does the same, whatever its number.
    const std::string& key(std::size_t n) const { return jobs_[n].key; }
    /// For people: the path, or the first file of the part.
    const std::string& label(std::size_t n) const { return jobs_[n].label; }
    const std::vector<Series>& outputs(std::size_t n) const { return jobs_[n].outputs; }
    /// Of the files that the job reads, as they are now; see stateOf().
    std::string inputState(std::size_t n) const;

    /// What `scansteps run` gets.
    struct Definition
    {
        std::string pipeline;                ///< JSON, for its standard input
        std::vector<std::string> arguments;  ///< settings of --set and options
    };
    Definition definition(std::size_t n) const;

    const std::vector<std::string>& warnings() const { return warnings_; }

  private:
    struct Job
    {
        std::size_t row = 0;      // of the inputs
        std::int64_t first = 0;   // frames of the series before this part
        std::int64_t frames = 0;  // of this part; 0: not split
        std::string key, label;
        std::vector<Series> outputs;
    };
    void readInputs();
    void assignInput();
    void assignOutput();
    void addJobs(std::size_t row);
    void finish(std::size_t n, SeriesLengths& lengths);
    void refuseClashes();
    void refuseStateful() const;
    std::size_t sourceToSplit() const;

    Pipeline filled(std::size_t n, const Job& job) const;
    void takePart(Pipeline& pipeline, const Job& job) const;

    const BatchOptions& options_;
    Pipeline template_;
    BatchInputs inputs_;
    std::vector<Job> jobs_;
    std::vector<std::string> warnings_;
};

}  // namespace scansteps::host
