// Redirects standard output and writes the report through a temporary file.
#include "report_file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <initializer_list>
#include <system_error>
#include <utility>

#include "console.h"
#include "interrupts.h"
#include "library/descriptors.h"
#include "library/platform.h"
#include "scansteps/host.h"
#include "standard_streams.h"

namespace scansteps::host {

namespace {

// A file that the program writes already through one of `others` is shared with it: one position in the file.
// Returns a duplicate then, or -1.
int sharedWith(int file, std::initializer_list<int> others)
{
    for (const int other : others)
        if (descriptor::isSameFile(file, other)) return descriptor::duplicate(other);
    return -1;
}

}  // namespace

StepOutput::StepOutput(const std::string& target) : target_(target), original_(descriptor::kOutput)
{
    if (target.empty() || target == "-") return;
    int file = descriptor::open(target == "none" ? kNullDevice : target, false);
    if (file < 0) throw FileError{cannot("write", target)};
    const int shared = sharedWith(file, {descriptor::kOutput, descriptor::kErrors});
    if (shared >= 0) {
        descriptor::close(file);
        file = shared;
    }
    std::fflush(stdout);
    const int original = descriptor::duplicate(descriptor::kOutput);
    const bool redirected = original >= 0 && (shared >= 0 || descriptor::clear(file)) &&
                            descriptor::replace(descriptor::kOutput, file);
    const std::string problem = redirected ? "" : cannot("write", target);
    descriptor::close(file);
    if (redirected)
        original_ = original;
    else if (original >= 0)
        descriptor::close(original);
    if (!redirected) throw FileError{problem};
}

StepOutput::~StepOutput()
{
    restore();
}

std::string StepOutput::restore()
{
    if (original_ == descriptor::kOutput) return "";
    const std::string trouble = flushStandardOutput();
    std::clearerr(stdout);
    descriptor::replace(descriptor::kOutput, original_);
    descriptor::close(original_);
    original_ = descriptor::kOutput;
    return trouble;
}

void StepOutput::end()
{
    const std::string trouble = restore();
    if (!trouble.empty()) throw FileError{fmt::format("cannot write {}: {}", target_, trouble)};
}

ReportFile::ReportFile(const std::string& name, int output) : name_(name)
{
    if (name.empty()) return;
    if (name == "-") {
        name_ = "standard output";
        shared_ = true;
        file_ = descriptor::duplicate(output);
        if (file_ < 0) throw FileError{cannot("write", name_)};
        return;
    }
    std::error_code error;
    target_ = pathFromUtf8(name);
    const bool exists = std::filesystem::exists(target_, error);
    if (exists) {
        file_ = descriptor::open(name, false);
        if (file_ < 0) throw FileError{cannot("write", name)};
        const int shared = sharedWith(file_, {output, descriptor::kOutput, descriptor::kErrors});
        shared_ = shared >= 0;
        if (!shared_ && !descriptor::isRegular(file_)) return;
        descriptor::close(file_);
        file_ = shared;
        if (shared_) return;
        // The target of a symbolic link is replaced, not the link.
        if (auto resolved = std::filesystem::canonical(target_, error); !error) target_ = std::move(resolved);
    }
    openTemporary(exists);
}

void ReportFile::openTemporary(bool exists)
{
    for (int number = 0; file_ < 0 && number < 1000; ++number) {
        temporary_ = target_;
        temporary_ += number == 0 ? ".part" : fmt::format(".part{}", number);
        file_ = descriptor::open(utf8FromPath(temporary_), true);
        if (file_ < 0 && errno != EEXIST) break;
    }
    if (file_ >= 0) return setUnfinishedFile(temporary_.c_str());
    temporary_.clear();
    if (exists) file_ = descriptor::open(name_, false);  // in a folder that takes no new files
    if (file_ < 0) throw FileError{cannot("write", name_)};
}

ReportFile::~ReportFile()
{
    setUnfinishedFile(nullptr);
    if (file_ < 0) return;
    descriptor::close(file_);
    std::error_code error;
    if (!temporary_.empty()) std::filesystem::remove(temporary_, error);
}

void ReportFile::write(std::string_view text)
{
    if (file_ < 0) return;
    bool written = (shared_ || descriptor::clear(file_)) && descriptor::writeAll(file_, text);
    int reason = errno;
    if (!descriptor::close(std::exchange(file_, -1)) && written) {
        written = false;
        reason = errno;
    }
    std::error_code error;
    if (!temporary_.empty()) {
        if (written) {
            std::filesystem::rename(temporary_, target_, error);
            written = !error;
            reason = error.value();
        }
        if (!written) std::filesystem::remove(temporary_, error);
    }
    errno = reason;
    if (!written) throw FileError{cannot("write", name_)};
}

}  // namespace scansteps::host
