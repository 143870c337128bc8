// What Slurm's programs say of job arrays.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace scansteps::host {

enum class QueuedAs
{
    Nothing,  ///< ended, or never there
    Pending,
    Active,  ///< running, or being started or ended
};

/// The tasks of arrays that have not ended.
class Queue
{
  public:
    /// A line of squeue: "ARRAY|TASKS|STATE", with TASKS such as "7" or "0-7,9,20-30:2%4", in brackets or
    /// not.
    void add(const std::string& line);
    QueuedAs find(const std::string& array, std::size_t task) const;
    bool empty() const { return spans_.empty(); }

  private:
    struct Span
    {
        std::size_t first = 0, last = 0, step = 1;
        QueuedAs as = QueuedAs::Pending;
    };
    std::map<std::string, std::vector<Span>> spans_;
};

/// Nothing when the controller does not answer. An array that Slurm has forgotten has ended.
std::optional<Queue> tryQueueOf(const std::vector<std::string>& arrays);
/// The same, but throws FileError.
Queue queueOf(const std::vector<std::string>& arrays);
/// The number of the array with that name; empty without one. Throws FileError.
std::string arrayNamed(const std::string& name);
/// Such as "TIMEOUT" or "NODE_FAIL"; "unknown" where Slurm has forgotten it and keeps no accounts.
std::string endStateOf(const std::string& array, std::size_t task);
/// How many tasks an array may have.
std::size_t maxArrayTasks();
/// Submits with these options, tries again while the controller does not answer, and returns the number.
/// `script`, which only becomes the program, is written. Throws FileError.
std::string submitArray(std::vector<std::string> options, const std::string& script, const std::string& plan);
void cancelArrays(const std::vector<std::string>& arrays);

}  // namespace scansteps::host
