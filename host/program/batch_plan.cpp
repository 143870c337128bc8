// Writes and reads plans and status files.
#include "batch_plan.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>

#include "library/descriptors.h"
#include "library/json_values.h"
#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

/// A line of the index: where a line of the plan begins, so that a task reads two blocks, not the plan.
constexpr std::size_t kIndexLine = 21;

void writeFile(const std::string& name, const std::string& text)
{
    createFolderOf(name);
    const int file = ::open(name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool written = file >= 0 && descriptor::writeAll(file, text) && ::fsync(file) == 0;
    if (file >= 0) ::close(file);
    if (!written) throw FileError{cannot("write", name)};
}

std::string readAt(const std::string& name, off_t at, std::size_t size)
{
    std::string text(size, '\0');
    const int file = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t done = file >= 0 ? ::pread(file, text.data(), size, at) : -1;
    if (file >= 0) ::close(file);
    if (done < ssize_t(size)) throw FileError{cannot("read", name)};
    return text;
}

std::string indexOf(const std::string& plan)
{
    return plan + ".index";
}

Json jsonOfSeries(const std::vector<Series>& list)
{
    Json json = Json::array();
    for (const Series& series : list)
        json.push_back({{"first", series.first}, {"count", series.count}, {"counted", series.counted}});
    return json;
}

}  // namespace

std::string writePlan(const BatchState& batch, const std::string& name, const std::vector<std::size_t>& jobs)
{
    const std::string plan = fmt::format("{}/plans/{}.jsonl", batch.options().folder, name);
    std::string lines, index;
    for (const std::size_t n : jobs) {
        const auto definition = batch.jobs().definition(n);
        auto arguments = commonArguments(batch.options());
        arguments.insert(arguments.end(), definition.arguments.begin(), definition.arguments.end());
        const Json line = {{"key", batch.jobs().key(n)},
                           {"file", batch.status(n).file},
                           {"wasKilled", batch.status(n).wasKilled},
                           {"arguments", arguments},
                           {"pipeline", definition.pipeline},
                           {"inputs", batch.jobs().inputState(n)},
                           {"outputs", jsonOfSeries(batch.jobs().outputs(n))}};
        index += fmt::format("{:0{}}\n", lines.size(), kIndexLine - 1);
        lines += line.dump() + "\n";
    }
    index += fmt::format("{:0{}}\n", lines.size(), kIndexLine - 1);
    writeFile(plan, lines);
    writeFile(indexOf(plan), index);
    return plan;
}

PlannedJob readPlan(const std::string& plan, std::size_t task)
try {
    const std::string places = readAt(indexOf(plan), off_t(task * kIndexLine), 2 * kIndexLine);
    const auto begin = std::strtoull(places.c_str(), nullptr, 10),
               end = std::strtoull(places.c_str() + kIndexLine, nullptr, 10);
    const Json line = Json::parse(readAt(plan, off_t(begin), end - begin));
    PlannedJob job;
    job.key = line.at("key").get<std::string>();
    job.file = line.at("file").get<std::size_t>();
    job.wasKilled = line.at("wasKilled").get<bool>();
    job.arguments = line.at("arguments").get<std::vector<std::string>>();
    job.pipeline = line.at("pipeline").get<std::string>();
    job.inputs = line.at("inputs").get<std::string>();
    for (const Json& output : line.at("outputs"))
        job.outputs.push_back({output.at("first").get<std::string>(), output.at("count").get<std::int64_t>(),
                               1, output.at("counted").get<bool>()});
    return job;
} catch (const Json::exception& error) {
    throw FileError{fmt::format("{} is damaged: {}", plan, error.what())};
}

std::vector<std::string> keysOfPlan(const std::string& plan)
{
    std::vector<std::string> keys;
    const std::string text = descriptor::readFile(plan).value_or("");
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != text.npos; at = end + 1) {
        const Json line = Json::parse(text.substr(at, end - at), nullptr, false);
        keys.push_back(line.is_object() ? line.value("key", "") : "");
    }
    return keys;
}

std::string statusFile(const std::string& folder, std::size_t file)
{
    return fmt::format("{}/status/{}.jsonl", folder, file);
}

TaskStatus readStatus(const std::string& file, const std::string& array)
{
    TaskStatus status;
    const std::string text = descriptor::readFile(file).value_or("");
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != text.npos; at = end + 1) {
        const Json line = Json::parse(text.substr(at, end - at), nullptr, false);
        if (!line.is_object() || line.value("array", "") != array) continue;
        status.state = line.value("state", "");
        status.node = line.value("node", status.node);
        status.inputs = line.value("inputs", status.inputs);
        status.outcome = {line.value("exit", 0), line.value("error", ""),
                          line.value("frames", std::int64_t{0}), line.value("warnings", std::int64_t{0}),
                          line.value("seconds", 0.0)};
    }
    return status;
}

}  // namespace scansteps::host
