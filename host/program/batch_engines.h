// The two ways to run the jobs of a batch. Both return when all have ended, or after an interrupt, with the
// jobs killed.
#pragma once

#include "batch_state.h"

namespace scansteps::host {

/// A pool of processes on this machine.
void runLocally(BatchState& batch);
/// One job array of Slurm after another, until no job is left to repeat. Attaches to one that is running.
void runOnSlurm(BatchState& batch);
/// Throws FileError if an array of an earlier batch in the same folder is still running.
void refuseRunningArray(BatchState& batch);

}  // namespace scansteps::host
