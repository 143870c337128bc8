// Calls squeue, sbatch, scontrol, sacct and scancel.
#include "batch_queue.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "batch_tool.h"
#include "interrupts.h"
#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

template <class Visit>
void forEachLine(const std::string& text, Visit visit)
{
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end > at) visit(text.substr(at, end - at));
        at = end + 1;
    }
}

[[noreturn]] void failTool(const char* tool, const ToolResult& result)
{
    throw FileError{result.exit == 127
                        ? fmt::format("there is no {}: is this a machine of the cluster?", tool)
                        : fmt::format("{} failed: {}", tool, result.err)};
}

// Without a limit on the length of lists of tasks.
ToolResult squeue(std::vector<std::string> words)
{
    ::setenv("SLURM_BITSTR_LEN", "0", 1);
    words.insert(words.begin(), {"squeue", "--noheader"});
    return runTool(words);
}

bool isForgotten(const ToolResult& result)
{
    return result.err.find("Invalid job id") != std::string::npos;
}

}  // namespace

void Queue::add(const std::string& line)
{
    const std::size_t first = line.find('|'), second = line.find('|', first + 1);
    if (first == line.npos || second == line.npos) return;
    const std::string array = line.substr(0, first);
    std::string tasks = line.substr(first + 1, second - first - 1);
    const QueuedAs as = line.substr(second + 1) == "PENDING" ? QueuedAs::Pending : QueuedAs::Active;
    tasks.resize(std::min(tasks.find_first_of("%]"), tasks.size()));
    if (tasks.starts_with('[')) tasks.erase(0, 1);
    for (std::size_t at = 0; at < tasks.size();) {
        const std::size_t end = std::min(tasks.find(',', at), tasks.size());
        Span span;
        const std::string text = tasks.substr(at, end - at);
        const int found = std::sscanf(text.c_str(), "%zu-%zu:%zu", &span.first, &span.last, &span.step);
        if (found == 1) span.last = span.first;
        span.step = std::max<std::size_t>(span.step, 1);
        span.as = as;
        if (found >= 1) spans_[array].push_back(span);
        at = end + 1;
    }
}

QueuedAs Queue::find(const std::string& array, std::size_t task) const
{
    const auto spans = spans_.find(array);
    if (spans == spans_.end()) return QueuedAs::Nothing;
    for (const Span& span : spans->second)
        if (task >= span.first && task <= span.last && (task - span.first) % span.step == 0) return span.as;
    return QueuedAs::Nothing;
}

std::optional<Queue> tryQueueOf(const std::vector<std::string>& arrays)
{
    const auto result = squeue({"--format=%F|%K|%T", "--jobs=" + fmt::format("{}", fmt::join(arrays, ","))});
    Queue queue;
    if (result.exit == 0)
        forEachLine(result.out, [&](const std::string& line) { queue.add(line); });
    else if (!isForgotten(result))
        return std::nullopt;
    return queue;
}

Queue queueOf(const std::vector<std::string>& arrays)
{
    for (int attempt = 0; attempt < 5 && !interrupted(); ++attempt, ::sleep(1))
        if (auto queue = tryQueueOf(arrays)) return *queue;
    failTool("squeue", squeue({"--jobs=" + fmt::format("{}", fmt::join(arrays, ","))}));
}

std::string arrayNamed(const std::string& name)
{
    const auto result = squeue({"--states=all", "--format=%F", "--name=" + name});
    if (result.exit != 0) failTool("squeue", result);
    return result.out.substr(0, result.out.find('\n'));
}

std::string endStateOf(const std::string& array, std::size_t task)
{
    const std::string id = fmt::format("{}_{}", array, task);
    auto result = squeue({"--states=all", "--format=%T", "--jobs=" + id});
    if (result.exit != 0 || result.out.empty()) {
        const auto config = runTool({"scontrol", "show", "config"});
        const bool accounted = config.out.find("accounting_storage/slurmdbd") != std::string::npos;
        if (!accounted) return "unknown";
        result = runTool(
            {"sacct", "--noheader", "--allocations", "--parsable2", "--format=State", "--jobs=" + id});
    }
    const std::string state = result.out.substr(0, result.out.find_first_of(" \n+"));
    return state.empty() ? "unknown" : state;
}

std::size_t maxArrayTasks()
{
    constexpr std::size_t kUsual = 1001;
    const auto config = runTool({"scontrol", "show", "config"});
    std::size_t limit = 0;
    forEachLine(config.out, [&](const std::string& line) {
        if (line.starts_with("MaxArraySize")) std::sscanf(line.c_str(), "MaxArraySize = %zu", &limit);
    });
    return limit > 0 ? limit : kUsual;
}

std::string submitArray(std::vector<std::string> options, const std::string& script, const std::string& plan)
{
    {
        std::ofstream file(pathFromUtf8(script), std::ios::binary);
        file << "#!/bin/sh\nexec \"$@\"\n";
        if (!file.flush()) throw FileError{cannot("write", script)};
    }
    std::error_code error;
    const std::string program = utf8FromPath(std::filesystem::read_symlink("/proc/self/exe", error));
    options.insert(options.begin(), {"sbatch", "--parsable"});
    options.insert(options.end(), {script, program, "__task", plan});
    ToolResult result;
    for (int attempt = 0; attempt < 10 && !interrupted(); ++attempt) {
        result = runTool(options);
        if (result.exit == 0) return result.out.substr(0, result.out.find_first_of(";\n"));
        const bool mayPass = result.err.find("Unable to contact") != std::string::npos ||
                             result.err.find("temporarily") != std::string::npos;
        if (!mayPass) break;
        ::sleep(1U << std::min(attempt, 5));
    }
    failTool("sbatch", result);
}

void cancelArrays(const std::vector<std::string>& arrays)
{
    std::vector<std::string> words = {"scancel"};
    words.insert(words.end(), arrays.begin(), arrays.end());
    runTool(words);
}

}  // namespace scansteps::host
