// What is checked before anything is sent, by `check` as by `run`.
#pragma once

#include <string>
#include <vector>

#include "exit_codes.h"
#include "pipeline.h"

namespace scansteps::host {

struct Finding
{
    int code = kEnded;  ///< exit code; kEnded for a warning
    std::string text;
};

struct CheckMode
{
    std::string types = "error";  ///< "error", "warn" or "off"
    bool force = false;           ///< a chain may write what it reads
    bool strict = false;          ///< a missing input is an error
};

/// Everything that can be found, including the warnings of reading the pipeline.
std::vector<Finding> checkPipeline(const Pipeline& pipeline, const CheckMode& mode);
/// Exit code of the findings: types first, then settings and files; kEnded when all are warnings.
int codeOf(const std::vector<Finding>& findings);

/// Neighbours of which one takes other frames than the other gives.
void checkFrames(const Pipeline& pipeline, std::vector<Finding>& findings);
/// Inputs and folders that are missing, files that would be overwritten or read and written in one run.
void checkFiles(const Pipeline& pipeline, const CheckMode& mode, std::vector<Finding>& findings);

}  // namespace scansteps::host
