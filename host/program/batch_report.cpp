// Sums up a batch.
#include "batch_report.h"

#include <fmt/format.h>

#include "interrupts.h"
#include "output.h"

namespace scansteps::host {

namespace {

/// Lines of the table; the journal has them all.
constexpr std::size_t kMaxLines = 20;

struct Sums
{
    std::size_t done = 0, old = 0, failed = 0, interrupted = 0, warned = 0;
    std::int64_t frames = 0;  // of this batch
};

Sums sumsOf(const BatchState& batch)
{
    Sums sums;
    for (std::size_t n = 0; n < batch.jobs().size(); ++n) {
        const auto& status = batch.status(n);
        if (status.phase == JobPhase::Done) {
            ++sums.done;
            if (status.isOld) ++sums.old;
            if (!status.isOld) sums.frames += status.outcome.frames;
            if (status.outcome.warnings > 0) ++sums.warned;
        } else {
            ++(status.phase == JobPhase::Failed ? sums.failed : sums.interrupted);
        }
    }
    return sums;
}

const char* nameOf(JobPhase phase)
{
    return phase == JobPhase::Done ? "done" : phase == JobPhase::Failed ? "failed" : "interrupted";
}

}  // namespace

void printClosingTable(const BatchState& batch)
{
    const Sums sums = sumsOf(batch);
    const double seconds = batch.seconds();
    std::string line = fmt::format("{} jobs in {:.1f} s: {} done", batch.jobs().size(), seconds, sums.done);
    if (sums.old > 0) line += fmt::format(" ({} before)", sums.old);
    line += fmt::format(", {} failed", sums.failed);
    if (sums.interrupted > 0) line += fmt::format(", {} interrupted or not begun", sums.interrupted);
    line += fmt::format("; {} frames ({:.1f} frames/s)", sums.frames,
                        seconds > 0 ? double(sums.frames) / seconds : 0.0);
    if (!batch.options().quiet) say("{}", line);
    if (sums.warned > 0) warn("{} of them with warnings, in {}/logs", sums.warned, batch.options().folder);
    std::size_t lines = 0;
    for (std::size_t n = 0; n < batch.jobs().size() && sums.failed > 0; ++n) {
        const auto& status = batch.status(n);
        if (status.phase != JobPhase::Failed) continue;
        if (lines == 0) sayBare("{:>6} {:>5}  {:<32}  {}", "job", "exit", "input", "error");
        if (lines++ == kMaxLines) {
            sayBare("{:>6} {:>5}  and {} more, in {}/journal.jsonl", "", "", sums.failed - kMaxLines,
                    batch.options().folder);
            break;
        }
        sayBare("{:>6} {:>5}  {:<32}  {}", n, status.outcome.exit, batch.jobs().label(n),
                status.outcome.error);
    }
}

std::string batchReportText(const BatchState& batch)
{
    Json jobs = Json::array();
    for (std::size_t n = 0; n < batch.jobs().size(); ++n) {
        const auto& status = batch.status(n);
        Json outputs = Json::array();
        for (const Series& output : batch.jobs().outputs(n)) outputs.push_back(output.first);
        Json job = {{"n", n},
                    {"input", batch.jobs().label(n)},
                    {"outputs", std::move(outputs)},
                    {"state", nameOf(status.phase)},
                    {"exit", status.outcome.exit},
                    {"seconds", status.outcome.seconds},
                    {"frames", status.outcome.frames},
                    {"error", status.outcome.error},
                    {"warnings", status.outcome.warnings},
                    {"before", status.isOld},
                    {"log", batch.files(n).log},
                    {"report", batch.files(n).report}};
        jobs.push_back(std::move(job));
    }
    const Sums sums = sumsOf(batch);
    const Json report = {{"jobs", std::move(jobs)}, {"done", sums.done},
                         {"failed", sums.failed},   {"interrupted", sums.interrupted},
                         {"frames", sums.frames},   {"seconds", batch.seconds()}};
    return report.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

int exitCodeOf(const BatchState& batch)
{
    for (std::size_t n = 0; n < batch.jobs().size(); ++n) {
        const auto& status = batch.status(n);
        if (interrupted() && status.phase != JobPhase::Done) return kInterrupted;
    }
    for (std::size_t n = 0; n < batch.jobs().size(); ++n)
        if (batch.status(n).phase != JobPhase::Done) return batch.status(n).outcome.exit;
    return kEnded;
}

}  // namespace scansteps::host
