// The pool: as many processes at once as --jobs says, the next job when one ends.
#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <deque>
#include <map>
#include <thread>
#include <utility>

#include "batch_engines.h"
#include "interrupts.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

using Clock = BatchState::Clock;

/// Time that jobs have to tidy up after SIGTERM.
constexpr auto kGrace = std::chrono::milliseconds(1000);

class Pool
{
  public:
    explicit Pool(BatchState& batch) : batch_(batch)
    {
        sigset_t child;
        sigemptyset(&child);
        sigaddset(&child, SIGCHLD);
        ::sigprocmask(SIG_BLOCK, &child, nullptr);
        ended_ = ::signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK);
        const auto waiting = batch.waiting();
        ready_.assign(waiting.begin(), waiting.end());
    }
    ~Pool() { ::close(ended_); }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    void run()
    {
        while (!ready_.empty() || !delayed_.empty() || !running_.empty()) {
            if (interrupted()) return stop();
            wakeDelayed();
            while (!ready_.empty() && running_.size() < limit()) start();
            batch_.show();
            wait(std::chrono::milliseconds(delayed_.empty() ? 1000 : 50));
            reap();
        }
    }

  private:
    std::size_t limit() const
    {
        const int given = batch_.options().jobs;
        return given > 0 ? std::size_t(given) : std::max(1U, std::thread::hardware_concurrency());
    }
    void start();
    void wait(std::chrono::milliseconds patience) const;
    void reap();
    void finish(std::size_t n, const JobOutcome& outcome);
    void wakeDelayed();
    void stop();

    BatchState& batch_;
    int ended_ = -1;  // readable when a process has ended
    std::deque<std::size_t> ready_;
    std::multimap<Clock::time_point, std::size_t> delayed_;
    std::map<pid_t, std::pair<std::size_t, JobProcess>> running_;
};

void Pool::start()
{
    const std::size_t n = ready_.front();
    ready_.pop_front();
    const JobList& jobs = batch_.jobs();
    const bool isRetry = batch_.status(n).attempts > 0;
    const auto definition = jobs.definition(n);
    auto arguments = commonArguments(batch_.options());
    arguments.insert(arguments.end(), definition.arguments.begin(), definition.arguments.end());
    batch_.started(n, {{"inputs", jobs.inputState(n)}});
    try {
        prepareOutputs(jobs.outputs(n), batch_.status(n).wasKilled);
        const JobProcess process(arguments, definition.pipeline, batch_.files(n), isRetry);
        running_.emplace(process.pid(), std::pair(n, process));
    } catch (const FileError& error) {
        finish(n, {kFileFailed, error.what()});
    }
}

void Pool::finish(std::size_t n, const JobOutcome& outcome)
{
    if (batch_.finished(n, outcome))
        delayed_.emplace(Clock::now() + batch_.pauseBefore(batch_.status(n).attempts), n);
}

void Pool::wait(std::chrono::milliseconds patience) const
{
    pollfd events[2] = {{ended_, POLLIN, 0}, {int(interruptWake()), POLLIN, 0}};
    ::poll(events, 2, int(patience.count()));
    signalfd_siginfo ignored;
    while (::read(ended_, &ignored, sizeof ignored) > 0) {
    }
}

void Pool::reap()
{
    int status = 0;
    for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
        const auto found = running_.find(pid);
        if (found == running_.end()) continue;
        const auto [n, process] = found->second;
        running_.erase(found);
        finish(n, process.outcome(status));
    }
}

void Pool::wakeDelayed()
{
    while (!delayed_.empty() && delayed_.begin()->first <= Clock::now()) {
        ready_.push_front(delayed_.begin()->second);
        delayed_.erase(delayed_.begin());
    }
}

// Jobs that end well meanwhile are done.
void Pool::stop()
{
    for (const auto& [pid, job] : running_) job.second.signal(SIGTERM);
    const auto giveUp = Clock::now() + kGrace;
    bool killed = false;
    while (!running_.empty()) {
        if (!killed && Clock::now() > giveUp) {
            for (const auto& [pid, job] : running_) job.second.signal(SIGKILL);
            killed = true;
        }
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, WNOHANG);
        const auto found = running_.find(pid);
        if (found == running_.end()) {
            ::usleep(5000);
            continue;
        }
        const auto [n, process] = found->second;
        running_.erase(found);
        if (WIFEXITED(status) && WEXITSTATUS(status) == kEnded)
            batch_.finished(n, process.outcome(status));
        else
            batch_.interrupted(n);
    }
    for (const std::size_t n : batch_.waiting()) batch_.interrupted(n);
}

}  // namespace

void runLocally(BatchState& batch)
{
    Pool(batch).run();
}

}  // namespace scansteps::host
