// The queue of writes, and what becomes of their errors.
#include "core/write_behind.h"

#include <exception>
#include <filesystem>
#include <new>
#include <system_error>
#include <utility>

#include "core/temporary_name.h"
#include "scansteps/error.h"
#include "scansteps/host_services.h"

namespace scansteps {

void WriteBehind::Job::run() noexcept
{
    if (*hasFailed) return;
    const std::int64_t start = microseconds();
    const CapturedOutput::Scope captured(output);
    try {
        try {
            write(buffer);
        } catch (const char* text) {
            isFailure = *hasFailed = true;
            error = text;
        }
    } catch (const std::exception&) {  // only memory can be missing; the text is empty then
        isFailure = *hasFailed = true;
    }
    time = microseconds() - start;
}

WriteBehind::~WriteBehind()
{
    while (!workers_.empty()) workers_.pop();
}

void WriteBehind::begin(const Settings& settings, bool isFile, std::size_t threads)
{
    const int most = settings.integer("write.behind");
    most_ = isFile && !hostReadsOwnOutput() && !hostStages() ? std::size_t(most) : 0;
    workers_.setThreads(threads);
    isFirst_ = true;
    time_ = 0;
}

bool WriteBehind::isDirect()
{
    while (!workers_.empty() && workers_.isFrontDone()) takeFront();
    return std::exchange(isFirst_, false) || most_ == 0;
}

WriteBehind::Buffer WriteBehind::takeBuffer()
{
    if (spare_.empty()) return {};
    Buffer buffer = std::move(spare_.back());
    spare_.pop_back();
    return buffer;
}

void WriteBehind::push(Buffer&& buffer, std::function<void(Bytes)> write)
{
    while (workers_.size() >= most_) takeFront();
    workers_.push({std::move(buffer), std::move(write), &hasFailed_});
}

void WriteBehind::takeFront()
{
    Job job = workers_.pop();
    time_ += job.time;
    job.output.replay();
    if (!job.isFailure) return spare_.push_back(std::move(job.buffer));
    while (!workers_.empty()) workers_.pop();
    hasFailed_ = false;
    if (job.error.empty()) throw std::bad_alloc();
    failf("%s", job.error.c_str());
}

void WriteBehind::finish()
{
    while (!workers_.empty()) takeFront();
}

void WriteBehind::finishRun(const char* step)
{
    finish();
    spare_.clear();
    if (time_ != 0) tellWorkerTime(step, time_);
}

bool isFileOrNew(const std::string& path)
{
    std::error_code error;
    const auto status = std::filesystem::status(fromUtf8(path), error);
    return std::filesystem::is_regular_file(status) || !std::filesystem::exists(status);
}

}  // namespace scansteps
