// The Slurm engine: submits job arrays, follows them with squeue and the status files of their tasks, and
// submits again what got lost or may be retried. Everything needed to go on after this process was killed is
// in the folder of the batch.
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <utility>

#include "batch_engines.h"
#include "batch_plan.h"
#include "batch_queue.h"
#include "interrupts.h"
#include "library/platform.h"
#include "output.h"

namespace scansteps::host {

namespace {

using Clock = BatchState::Clock;

/// Times that a task may end without a result before its job counts as failed.
constexpr int kMaxLosses = 3;
/// A status file written on another node may be seen that much later.
constexpr auto kVisible = std::chrono::seconds(5);
constexpr auto kCancelPatience = std::chrono::seconds(60);

class Follower
{
  public:
    explicit Follower(BatchState& batch) : batch_(batch) {}

    /// Takes over the arrays that the journal has. Returns whether tasks of them may still run.
    bool attach();
    void run();

  private:
    struct Task
    {
        std::size_t n = 0;
        bool known = false;  // its job is one of this batch
        bool ended = false;
        std::optional<Clock::time_point> missing;  // since when Slurm does not have it
    };
    struct Array
    {
        std::string id, name;
        std::vector<Task> tasks;
        std::size_t open = 0;  // tasks that have not ended
    };
    void attach(const std::string& name, const Json& line);
    void submitWaiting();
    void submit(const std::vector<std::size_t>& jobs);
    std::string sbatch(const std::string& name, const std::string& plan, std::size_t tasks) const;
    void poll();
    void lookAt(Array& array, std::size_t index, QueuedAs queued);
    bool collect(Array& array, Task& task);
    void miss(Array& array, std::size_t index);
    void end(Array& array, Task& task);
    void cancel();
    void sleep() const;

    BatchState& batch_;
    std::vector<Array> arrays_;
    std::map<std::size_t, int> losses_;
    std::optional<Clock::time_point> notBefore_;  // of the next array, for retries
    std::size_t maxTasks_ = 0;
};

void Follower::attach(const std::string& name, const Json& line)
{
    Array array{line.value("id", ""), name, {}, 0};
    if (array.id.empty()) array.id = arrayNamed(name);  // killed before it could note the number
    std::map<std::string, std::size_t> jobs;
    for (std::size_t n = 0; n < batch_.jobs().size(); ++n) jobs[batch_.jobs().key(n)] = n;
    for (const std::string& key : keysOfPlan(line.value("plan", ""))) {
        const auto found = jobs.find(key);
        Task task;
        task.known = found != jobs.end();
        if (task.known) task.n = found->second;
        task.ended = task.known && batch_.status(task.n).phase == JobPhase::Done;
        array.tasks.push_back(task);
        if (!task.ended) ++array.open;
    }
    const auto queue = array.id.empty() ? Queue() : queueOf({array.id});
    for (std::size_t i = 0; i < array.tasks.size(); ++i) {
        Task& task = array.tasks[i];
        const bool isActive = queue.find(array.id, i) != QueuedAs::Nothing;
        if (!task.known && isActive)
            throw FileError{
                fmt::format("array {} still runs jobs of another pipeline or other inputs: scancel {}",
                            array.id, array.id)};
        if (task.ended || isActive) continue;
        if (task.known && !array.id.empty()) collect(array, task);
        if (!task.ended) end(array, task);
    }
    if (array.open > 0)
        arrays_.push_back(std::move(array));
    else
        batch_.journal().append({{"array", name}, {"id", array.id}, {"state", "ended"}});
}

bool Follower::attach()
{
    const auto arrays = batch_.journal().arrays();
    for (const auto& [name, line] : arrays) attach(name, line);
    for (const Array& array : arrays_) say("array {} is still running: {} tasks", array.id, array.open);
    return !arrays_.empty();
}

void Follower::run()
{
    while (!interrupted()) {
        submitWaiting();
        if (arrays_.empty() && batch_.waiting().empty()) return;
        batch_.show();
        sleep();
        if (!interrupted()) poll();
    }
    cancel();
}

// Jobs that wait and are in no array. With --jobs one array after the other, as its limit is for one.
void Follower::submitWaiting()
{
    if (notBefore_ && Clock::now() < *notBefore_) return;
    if (!arrays_.empty() && batch_.options().jobs > 0) return;
    std::set<std::size_t> submitted;
    for (const Array& array : arrays_)
        for (const Task& task : array.tasks)
            if (!task.ended) submitted.insert(task.n);
    std::vector<std::size_t> jobs;
    for (const std::size_t n : batch_.waiting())
        if (!submitted.contains(n)) jobs.push_back(n);
    if (jobs.empty()) return;
    notBefore_.reset();
    if (maxTasks_ == 0) maxTasks_ = maxArrayTasks();
    if (batch_.options().jobs > 0) jobs.resize(std::min(jobs.size(), maxTasks_));
    for (std::size_t at = 0; at < jobs.size(); at += maxTasks_) {
        const auto begin = jobs.begin() + std::ptrdiff_t(at);
        submit({begin, begin + std::ptrdiff_t(std::min(maxTasks_, jobs.size() - at))});
    }
}

void Follower::submit(const std::vector<std::size_t>& jobs)
{
    const std::string name = fmt::format("scansteps-{:08x}", std::random_device()());
    const std::string plan = writePlan(batch_, name, jobs);
    batch_.journal().append(
        {{"array", name}, {"plan", plan}, {"tasks", jobs.size()}, {"state", "submitting"}});
    Array array{sbatch(name, plan, jobs.size()), name, {}, jobs.size()};
    for (const std::size_t n : jobs) array.tasks.push_back({n, true, false, {}});
    batch_.journal().append({{"array", name}, {"plan", plan}, {"id", array.id}, {"state", "submitted"}});
    say("array {}: {} tasks", array.id, jobs.size());
    arrays_.push_back(std::move(array));
}

std::string Follower::sbatch(const std::string& name, const std::string& plan, std::size_t tasks) const
{
    const BatchOptions& options = batch_.options();
    const std::string throttle = options.jobs > 0 ? fmt::format("%{}", options.jobs) : "";
    std::vector<std::string> words = {"--array=0-" + fmt::format("{}{}", tasks - 1, throttle),
                                      "--job-name=" + name,
                                      "--output=" + options.folder + "/slurm.log",
                                      "--open-mode=append",
                                      "--ntasks=1",
                                      "--cpus-per-task=1",
                                      "--requeue"};
    const auto add = [&](const char* option, const std::string& value) {
        if (!value.empty()) words.push_back(option + value);
    };
    add("--partition=", options.partition);
    add("--time=", options.timeLimit);
    add("--mem=", options.memory);
    words.insert(words.end(), options.sbatch.begin(), options.sbatch.end());
    return submitArray(words, options.folder + "/plans/task.sh", plan);
}

void Follower::poll()
{
    std::vector<std::string> ids;
    for (const Array& array : arrays_) ids.push_back(array.id);
    if (ids.empty()) return;
    const auto queue = tryQueueOf(ids);
    if (!queue) return;  // the controller does not answer: later
    for (Array& array : arrays_)
        for (std::size_t i = 0; i < array.tasks.size(); ++i)
            if (!array.tasks[i].ended) lookAt(array, i, queue->find(array.id, i));
    std::erase_if(arrays_, [&](const Array& array) {
        if (array.open == 0)
            batch_.journal().append({{"array", array.name}, {"id", array.id}, {"state", "ended"}});
        return array.open == 0;
    });
}

// A status file is read when the task has begun and when it has left the queue, not in between.
void Follower::lookAt(Array& array, std::size_t index, QueuedAs queued)
{
    Task& task = array.tasks[index];
    if (queued != QueuedAs::Nothing) task.missing.reset();
    const bool isKnown = batch_.status(task.n).phase == JobPhase::Running;
    if (queued == QueuedAs::Pending || (queued == QueuedAs::Active && isKnown) || collect(array, task) ||
        queued == QueuedAs::Active)
        return;
    if (!task.missing) task.missing = Clock::now();
    if (Clock::now() - *task.missing > kVisible) miss(array, index);
}

// Notes what the task says of itself; true when it has ended.
bool Follower::collect(Array& array, Task& task)
{
    const auto status = readStatus(statusFile(batch_.options().folder, batch_.status(task.n).file), array.id);
    if (status.state.empty()) return false;
    if (batch_.status(task.n).phase == JobPhase::Waiting)
        batch_.started(task.n, {{"inputs", status.inputs}, {"node", status.node}, {"slurm", array.id}});
    if (status.state == "started") return false;
    end(array, task);
    if (batch_.finished(task.n, status.outcome)) {
        const auto pause = Clock::now() + batch_.pauseBefore(batch_.status(task.n).attempts);
        notBefore_ = std::max(notBefore_.value_or(pause), pause);
    }
    return true;
}

void Follower::end(Array& array, Task& task)
{
    task.ended = true;
    --array.open;
}

// The task is gone without a result.
void Follower::miss(Array& array, std::size_t index)
{
    Task& task = array.tasks[index];
    end(array, task);
    const std::string state = endStateOf(array.id, index);
    const std::string reason = fmt::format("Slurm ended the task without a result ({})", state);
    const bool isOwnFault = state == "TIMEOUT" || state == "OUT_OF_MEMORY" || state == "CANCELLED";
    if (!isOwnFault && ++losses_[task.n] < kMaxLosses) {
        warn("job {}: {}; it is submitted again", task.n, reason);
        return batch_.lost(task.n, reason);
    }
    if (batch_.status(task.n).phase == JobPhase::Waiting) batch_.started(task.n, {{"slurm", array.id}});
    JobOutcome outcome;
    outcome.exit = 128 + 9;  // what ended it was SIGKILL
    outcome.error = reason;
    batch_.finished(task.n, outcome);
}

void Follower::cancel()
{
    std::vector<std::string> ids;
    for (const Array& array : arrays_) ids.push_back(array.id);
    if (!ids.empty()) {
        say("cancelling {}", fmt::join(ids, ", "));
        cancelArrays(ids);
        const auto giveUp = Clock::now() + kCancelPatience;
        while (Clock::now() < giveUp && !tryQueueOf(ids).value_or(Queue()).empty()) ::usleep(500000);
    }
    for (Array& array : arrays_) {
        for (Task& task : array.tasks) {
            if (task.ended) continue;
            const auto status =
                readStatus(statusFile(batch_.options().folder, batch_.status(task.n).file), array.id);
            if (status.state == "done") collect(array, task);
        }
        batch_.journal().append({{"array", array.name}, {"id", array.id}, {"state", "ended"}});
    }
    for (std::size_t n = 0; n < batch_.jobs().size(); ++n)
        if (batch_.status(n).phase == JobPhase::Waiting || batch_.status(n).phase == JobPhase::Running)
            batch_.interrupted(n);
}

// Longer with more tasks, as every look costs the controller as much.
void Follower::sleep() const
{
    std::size_t open = 0;
    for (const Array& array : arrays_) open += array.open;
    pollfd wake = {int(interruptWake()), POLLIN, 0};
    ::poll(&wake, 1, int(std::clamp<std::size_t>(open * 2, 1000, 15000)));
}

}  // namespace

void runOnSlurm(BatchState& batch)
{
    Follower follower(batch);
    follower.attach();
    follower.run();
}

void refuseRunningArray(BatchState& batch)
{
    if (batch.journal().arrays().empty()) return;
    if (Follower(batch).attach())
        throw FileError{"an array of this batch is still running: resume with --engine slurm, or scancel it"};
}

}  // namespace scansteps::host
