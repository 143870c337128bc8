// Reads, locks and appends to the journal.
#include "batch_journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <thread>

#include "interrupts.h"
#include "library/descriptors.h"
#include "library/platform.h"
#include "scansteps/host.h"

namespace scansteps::host {

namespace {

// The jobs of a killed batch are killed with it, but take a moment to end.
constexpr auto kLockPatience = std::chrono::seconds(5);

double now()
{
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

Journal::Journal(const std::string& folder, bool resume) : path_(folder + "/journal.jsonl")
{
    std::error_code error;
    std::filesystem::create_directories(pathFromUtf8(folder), error);
    struct stat status = {};
    if (!resume && ::stat(path_.c_str(), &status) == 0 && status.st_size > 0)
        throw UsageError{
            fmt::format("{} is there already: --resume continues that batch, --dir begins another", path_)};
    file_ = ::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    if (file_ < 0) throw FileError{cannot("write", path_)};
    lock();
    read();
}

Journal::~Journal()
{
    ::close(file_);
    ::close(lock_);
}

void Journal::lock()
{
    lock_ = ::open(path_.c_str(), O_RDONLY);  // without O_CLOEXEC
    const auto giveUp = std::chrono::steady_clock::now() + kLockPatience;
    while (::flock(lock_, LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) throw FileError{cannot("lock", path_)};
        if (std::chrono::steady_clock::now() > giveUp || interrupted())
            throw FileError{fmt::format("{} is in use by another batch", path_)};
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void Journal::read()
{
    const auto text = descriptor::readFile(path_);
    if (!text) throw FileError{cannot("read", path_)};
    for (std::size_t at = 0; at < text->size();) {
        const std::size_t end = text->find('\n', at);
        if (end == text->npos) {
            // Its batch was killed while it wrote the line.
            if (::ftruncate(file_, off_t(at)) != 0) throw FileError{cannot("write", path_)};
            break;
        }
        const Json line = Json::parse(text->begin() + std::ptrdiff_t(at), text->begin() + std::ptrdiff_t(end),
                                      nullptr, false);
        try {
            take(line);
        } catch (const Json::exception&) {
            ++spoilt_;
        }
        at = end + 1;
    }
}

void Journal::takeArray(const Json& line)
{
    if (!line.contains("array")) return;
    const auto name = line.at("array").get<std::string>();
    if (line.at("state") == "ended")
        arrays_.erase(name);
    else
        arrays_[name] = line;
}

void Journal::take(const Json& line)
{
    if (line.is_discarded()) {
        ++spoilt_;
        return;
    }
    takeArray(line);
    if (!line.contains("key")) return;
    JobRecord& record = records_[line.at("key").get<std::string>()];
    record.state = line.at("state").get<std::string>();
    record.file = line.value("job", record.file);
    if (record.state == "started") {
        record.inputs = line.value("inputs", "");
        return;
    }
    record.files = line.value("files", std::int64_t{0});
    record.frames = line.value("frames", std::int64_t{0});
    record.warnings = line.value("warnings", std::int64_t{0});
    record.seconds = line.value("seconds", 0.0);
    record.exit = line.value("exit", 0);
    record.error = line.value("error", "");
}

void Journal::append(Json line)
{
    line["time"] = now();
    const std::string text = dumpLine(line) + "\n";
    takeArray(line);
    const ssize_t written = ::write(file_, text.data(), text.size());
    if (written >= 0 && std::size_t(written) != text.size()) errno = ENOSPC;
    if (written != ssize_t(text.size()) || ::fdatasync(file_) != 0) throw FileError{cannot("write", path_)};
}

}  // namespace scansteps::host
