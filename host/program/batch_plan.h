// The files through which a batch and the tasks of its job array on a cluster speak: a plan with a line for
// every task, and a status file for every job. All lie in the folder of the batch, which the nodes share.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch_series.h"
#include "batch_state.h"

namespace scansteps::host {

/// What a task is to do.
struct PlannedJob
{
    std::string key, pipeline, inputs;
    std::size_t file = 0;
    bool wasKilled = false;
    std::vector<std::string> arguments;
    std::vector<Series> outputs;
};

/// Writes FOLDER/plans/NAME.jsonl, and beside it the place of every line. Throws FileError.
std::string writePlan(const BatchState& batch, const std::string& name, const std::vector<std::size_t>& jobs);
/// Reads nothing but that line. Throws FileError.
PlannedJob readPlan(const std::string& plan, std::size_t task);
/// The keys of all tasks, in order; empty when there is no such plan.
std::vector<std::string> keysOfPlan(const std::string& plan);

std::string statusFile(const std::string& folder, std::size_t file);

/// What the status file of a job says of its task in one array.
struct TaskStatus
{
    std::string state;  ///< "", "started", "done", "failed" or "interrupted"
    std::string node, inputs;
    JobOutcome outcome;
};
TaskStatus readStatus(const std::string& file, const std::string& array);

}  // namespace scansteps::host
