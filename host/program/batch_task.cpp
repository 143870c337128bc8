// scansteps __task: one task of a job array. Runs its job and writes what became of it into the status
// file of the job, whose lock keeps two tasks from running it at once.
#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "batch_plan.h"
#include "interrupts.h"
#include "library/platform.h"
#include "output.h"

namespace scansteps::host {

namespace {

/// A task that Slurm started elsewhere before may take this long to end, or to be given up by the file
/// server.
constexpr auto kLockPatience = std::chrono::seconds(100);

class StatusFile
{
  public:
    StatusFile(const std::string& name, std::string array) : name_(name), array_(std::move(array))
    {
        createFolderOf(name);
        // Inherited by the job, so that the lock holds until it has ended.
        file_ = ::open(name.c_str(), O_RDWR | O_APPEND | O_CREAT, 0666);
        if (file_ < 0) throw FileError{cannot("write", name)};
        const auto giveUp = std::chrono::steady_clock::now() + kLockPatience;
        while (::flock(file_, LOCK_EX | LOCK_NB) != 0) {
            if (std::chrono::steady_clock::now() > giveUp || interrupted())
                throw FileError{fmt::format("{} is in use by another task", name)};
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        isNew_ = ::lseek(file_, 0, SEEK_END) == 0;
        // A task that was killed while it wrote may have left half a line.
        if (!isNew_) write("\n");
    }
    /// Whether no task was here before.
    bool isNew() const { return isNew_; }
    TaskStatus read() const { return readStatus(name_, array_); }
    void append(Json line)
    {
        line["array"] = array_;
        line["node"] = environmentVariable("SLURMD_NODENAME");
        write(dumpLine(line) + "\n");
    }

  private:
    void write(const std::string& text)
    {
        if (::write(file_, text.data(), text.size()) != ssize_t(text.size()) || ::fsync(file_) != 0)
            throw FileError{cannot("write", name_)};
    }

    std::string name_, array_;
    int file_ = -1;
    bool isNew_ = false;
};

// SIGTERM, which Slurm sends first, is passed on.
int waitFor(const JobProcess& process)
{
    constexpr int kGraceMs = 2000, kTickMs = 50;
    int status = 0, passed = -1;
    while (::waitpid(process.pid(), &status, WNOHANG) == 0) {
        if (interrupted() && passed < 0) process.signal(SIGTERM);
        if (interrupted()) passed = passed < 0 ? 0 : passed + kTickMs;
        if (passed > kGraceMs) process.signal(SIGKILL);
        ::usleep(passed >= 0 ? kTickMs * 1000 : 10000);
    }
    return status;
}

}  // namespace

int batchTask(const BatchTaskOptions& options)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // the parent is the step daemon
    catchInterrupts();
    const std::string task = environmentVariable("SLURM_ARRAY_TASK_ID");
    if (task.empty()) throw UsageError{"__task is started by Slurm, for a task of a job array"};
    const PlannedJob job = readPlan(options.plan, std::strtoull(task.c_str(), nullptr, 10));
    const std::string folder = utf8FromPath(pathFromUtf8(options.plan).parent_path().parent_path());
    StatusFile status(statusFile(folder, job.file), environmentVariable("SLURM_ARRAY_JOB_ID"));
    const TaskStatus before = status.read();
    if (before.state == "done") return kEnded;  // started again although it had ended
    status.append({{"state", "started"}, {"key", job.key}, {"inputs", job.inputs}});
    JobOutcome outcome;
    try {
        prepareOutputs(job.outputs, job.wasKilled || !status.isNew());
        const JobProcess process(job.arguments, job.pipeline, filesOfJob(folder, job.file), !status.isNew());
        outcome = process.outcome(waitFor(process));
    } catch (const FileError& error) {
        outcome = {kFileFailed, error.what()};
    }
    const bool isDone = outcome.exit == kEnded;
    status.append({{"state", isDone          ? "done"
                             : interrupted() ? "interrupted"
                                             : "failed"},
                   {"exit", outcome.exit},
                   {"frames", outcome.frames},
                   {"warnings", outcome.warnings},
                   {"seconds", outcome.seconds},
                   {"error", outcome.error}});
    return outcome.exit;
}

}  // namespace scansteps::host
