// Starts jobs and reads what they left: exit status, report and log.
#include "batch_process.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "library/descriptors.h"
#include "library/json_values.h"
#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

constexpr std::string_view kErrorLine = "scansteps: error: ", kAttemptLine = "scansteps: next attempt\n";

// In the child, between fork and exec: only calls that are safe there.
[[noreturn]] void become(const char* const* arguments, const char* const* environment, pid_t parent,
                         int input, int log)
{
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);  // it ended before that call
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::dup2(input, 0) < 0 || ::dup2(log, 1) < 0 || ::dup2(log, 2) < 0) ::_exit(127);
    ::execve("/proc/self/exe", const_cast<char* const*>(arguments), const_cast<char* const*>(environment));
    ::_exit(127);
}

// Jobs are many, so each keeps to one thread, unless the user says otherwise.
std::vector<const char*> environmentOfJobs()
{
    std::vector<const char*> result;
    for (char** entry = environ; *entry != nullptr; ++entry) result.push_back(*entry);
    if (::getenv("OMP_NUM_THREADS") == nullptr) result.push_back("OMP_NUM_THREADS=1");
    result.push_back(nullptr);
    return result;
}

// A file without a name that holds the text.
int fileOf(const std::string& text)
{
    const int file = ::memfd_create("pipeline", MFD_CLOEXEC);
    if (file >= 0 && descriptor::writeAll(file, text) && ::lseek(file, 0, SEEK_SET) == 0) return file;
    throw FileError{cannot("write", "the pipeline of a job")};
}

std::string firstErrorOf(const std::string& log)
{
    const std::string text = descriptor::readFile(log).value_or("");
    // The first error of the last attempt.
    const std::size_t attempt = text.rfind(kAttemptLine);
    std::size_t at = text.find(kErrorLine, attempt == text.npos ? 0 : attempt);
    if (at == text.npos) return "";
    at += kErrorLine.size();
    return text.substr(at, std::min(text.find('\n', at), at + 1000) - at);
}

// Frames, warnings and the first error; false when there is no report.
bool readReport(const std::string& name, JobOutcome& outcome)
{
    const auto text = descriptor::readFile(name);
    if (!text) return false;
    const Json report = Json::parse(*text, nullptr, false);
    if (!report.is_object()) return false;
    try {
        outcome.exit = report.value("exitCode", 0);
        outcome.frames = report.value("frames", std::int64_t{0});
        outcome.seconds = report.value("seconds", 0.0);
        // Of steps, not of the checks before: that a repeated job overwrites its pictures is as it should be.
        for (const Json& warning : report.value("warnings", Json::array()))
            outcome.warnings += warning.contains("step") ? 1 : 0;
        if (outcome.frames == 0 && outcome.exit == kEnded)
            outcome.warnings = std::max<std::int64_t>(outcome.warnings, 1);
    } catch (const Json::exception&) {
        return false;
    }
    return true;
}

}  // namespace

JobFiles filesOfJob(const std::string& folder, std::size_t number)
{
    return {fmt::format("{}/logs/{}.log", folder, number), fmt::format("{}/reports/{}.json", folder, number)};
}

std::vector<std::string> commonArguments(const BatchOptions& options)
{
    std::vector<std::string> arguments = {"--stage", "--types", options.types};
    if (options.strict) arguments.emplace_back("--strict");
    if (options.force) arguments.emplace_back("--force");
    if (!options.library.empty()) arguments.insert(arguments.end(), {"--library", options.library});
    for (const std::string& plugin : options.plugins) arguments.insert(arguments.end(), {"--plugin", plugin});
    return arguments;
}

JobProcess::JobProcess(const std::vector<std::string>& arguments, const std::string& pipeline,
                       const JobFiles& files, bool isRetry)
    : files_(files)
{
    ::unlink(files.report.c_str());  // of an earlier attempt
    const int log =
        ::open(files.log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | (isRetry ? 0 : O_TRUNC), 0666);
    if (log < 0) throw FileError{cannot("write", files.log)};
    if (isRetry) descriptor::writeAll(log, kAttemptLine);
    const int input = fileOf(pipeline);
    std::vector<const char*> words = {"scansteps", "run", "-", "--report", files.report.c_str()};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    words.push_back(nullptr);
    const auto environment = environmentOfJobs();
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) become(words.data(), environment.data(), parent, input, log);
    const int error = errno;
    ::close(input);
    ::close(log);
    errno = error;
    if (pid_ < 0) throw FileError{cannot("start", "a job")};
    ::setpgid(pid_, pid_);
}

void JobProcess::signal(int number) const
{
    ::kill(-pid_, number);
}

JobOutcome JobProcess::outcome(int waitStatus) const
{
    JobOutcome outcome;
    readReport(files_.report, outcome);
    outcome.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    if (WIFSIGNALED(waitStatus)) {
        outcome.exit = 128 + WTERMSIG(waitStatus);
        outcome.error =
            fmt::format("killed by signal {} ({})", WTERMSIG(waitStatus), ::strsignal(WTERMSIG(waitStatus)));
        return outcome;
    }
    outcome.exit = WEXITSTATUS(waitStatus);
    if (outcome.exit != kEnded) outcome.error = firstErrorOf(files_.log);
    if (outcome.exit != kEnded && outcome.error.empty())
        outcome.error = fmt::format("exit code {}", outcome.exit);
    return outcome;
}

bool hasSucceeded(const JobFiles& files, JobOutcome& outcome)
{
    return readReport(files.report, outcome) && outcome.exit == kEnded;
}

}  // namespace scansteps::host
