// Steps read and reads: play a recording. The frame of a record is moved into a buffer of the step, without
// a copy of its pixels.
#pragma once

#include "recording/recording.h"
#include "scansteps/chain.h"
#include "scansteps/texture.h"

namespace scansteps {

/// What both players do.
class RecordingPlayer : public CPUBase
{
  public:
    void process(varitype& params) override;

  protected:
    /// Opens the file; the recorded init record, merged into the host's, describes the frames to come.
    void start(const std::string& path, varitype& params);
    /// The next record that is an event; its frame may take over the storage of `spare`.
    virtual varitype nextEvent(Array* spare) = 0;

    Recording recording_;

  private:
    void moveFrame(varitype& record);

    TextureSet out_;
};

/// Prints the file name and skips records without "eventType".
class FileReader final : public RecordingPlayer
{
  public:
    const char* getName() override { return "FileReader"; }
    void init(varitype& params) override;

  private:
    varitype nextEvent(Array* spare) override;
};

/// Strict: one record an event, and each has to be one.
class FileReaderS final : public RecordingPlayer
{
  public:
    const char* getName() override { return "FileReaderS"; }
    void init(varitype& params) override;

  private:
    varitype nextEvent(Array* spare) override;
};

}  // namespace scansteps
