// What a batch reports at its end: a table on standard error, and JSON.
#pragma once

#include <string>

#include "batch_state.h"

namespace scansteps::host {

void printClosingTable(const BatchState& batch);
std::string batchReportText(const BatchState& batch);
/// 0 when every job succeeded, 130 after an interrupt, else that of the first job that failed.
int exitCodeOf(const BatchState& batch);

}  // namespace scansteps::host
