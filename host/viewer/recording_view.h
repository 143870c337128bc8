// A recording in front of viewers: any of its records by number.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "session.h"

namespace scansteps::viewer {

/// Where the records of a recording lie. It is made from their size fields, so that a long recording opens at
/// once; only small records, such as initialise events are, are read.
class RecordingIndex
{
  public:
    /// Throws FileError when the file cannot be read.
    explicit RecordingIndex(const std::string& path);

    std::size_t size() const { return begins_.size(); }
    /// Reads the record with that index. Throws FileError, also for a damaged record.
    varitype read(std::size_t index) const;
    /// What the last initialise event up to the record says about frames.
    FrameDescription description(std::size_t index) const;
    std::uint64_t offset(std::size_t index) const { return begins_[index]; }
    std::uint64_t bytes(std::size_t index) const;
    /// What is wrong with the file's end, or "".
    const std::string& damage() const { return damage_; }

  private:
    struct Init
    {
        std::size_t index;
        FrameDescription description;
    };
    std::string path_, damage_;
    std::vector<std::uint64_t> begins_;
    std::uint64_t end_ = 0;  // of the last whole record
    std::vector<Init> inits_;
};

class RecordingView final : public Subject
{
  public:
    RecordingView(Session& session, const std::string& path);
    /// Serves until `interrupted` says so.
    void stay(const std::function<bool()>& interrupted);

    Json hello() const override;
    void set(const SetSetting& setting) override;
    Json act(const Action& action) override;
    void watched(bool isWatched) override;

  private:
    void show(std::size_t index);

    Session& session_;
    std::string name_;
    RecordingIndex index_;
    std::mutex mutex_;
    std::condition_variable ordered_;
    std::int64_t wanted_ = -1;
    std::shared_ptr<FramePool> pool_ = std::make_shared<FramePool>();
};

}  // namespace scansteps::viewer
