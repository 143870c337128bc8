// The two texts of a run that the user can direct to files: the report, and what the steps print.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace scansteps::host {

/// While an object exists, standard output, and so what the steps print, goes where --step-output says.
class StepOutput
{
  public:
    /// Empty or "-": standard output as it is; "none": nowhere. Throws FileError.
    explicit StepOutput(const std::string& target);
    ~StepOutput();
    StepOutput(const StepOutput&) = delete;
    StepOutput& operator=(const StepOutput&) = delete;

    /// Descriptor of the program's own standard output.
    int original() const { return original_; }
    /// Ends the redirection. Throws FileError when the file did not take everything.
    void end();

  private:
    std::string restore();  // what went wrong

    std::string target_;
    int original_;
};

/// The file of --report. It is created, or replaced, only when it is complete.
class ReportFile
{
  public:
    /// Opened before the run, so that a report that cannot be written is known at once. An empty name goes
    /// nowhere, "-" to the descriptor `output`. Throws FileError.
    ReportFile(const std::string& name, int output);
    ~ReportFile();
    ReportFile(const ReportFile&) = delete;
    ReportFile& operator=(const ReportFile&) = delete;

    /// Throws FileError.
    void write(std::string_view text);

  private:
    void openTemporary(bool exists);

    std::string name_;
    std::filesystem::path target_, temporary_;  // temporary: empty when written directly
    int file_ = -1;
    bool shared_ = false;  // with the program's output: never truncated
};

}  // namespace scansteps::host
