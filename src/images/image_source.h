// Base of the steps that read numbered image files: iterates over file names, detects the end of the stream
// and delivers frames. Derived steps bring the function that decodes a file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/captured_output.h"
#include "core/ordered_workers.h"
#include "images/image_file.h"
#include "scansteps/chain.h"
#include "scansteps/host_services.h"
#include "scansteps/texture.h"

namespace scansteps::images {

/// A decoded file waiting for its process event.
struct HeldImage
{
    int width = 0;
    int height = 0;
    Array pixels;                      ///< in the layout of the frame, rows from top to bottom
    std::vector<std::uint8_t> planes;  ///< work memory of the decoder
};

/// Decodes a file. On failure, prints the reason and returns nothing. Sets `trouble` like loadImage(). The
/// memory of `spare`, an earlier image, can be reused. Called on several threads at once.
using LoadHeldImage = std::optional<HeldImage> (*)(const std::string& path, HeldImage&& spare,
                                                   ImageTrouble& trouble);

/// Source step for numbered files. Initialise loads the first file, whose size becomes "dataX" and "dataY";
/// each process event delivers the held file and loads the next one, or writes 1003 into the record when no
/// file is held. A file that cannot be loaded ends the stream; the host is notified unless the series simply
/// ended, that is, unless a file with the next number does not exist.
///
/// From the second file on, the next "load.ahead" files are decoded on other threads. Only what was complete
/// and is unchanged when its turn comes is taken from there; all else is loaded at its turn, as all files are
/// without these threads.
class ImageSource : public CPUBase
{
  public:
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  protected:
    explicit ImageSource(LoadHeldImage load) : load_(load) {}
    /// Adds step-specific entries about the frames to the initialise record.
    virtual void describe(varitype& record);
    /// Moves the image into the output buffer and optionally adds it to the frame's record. The memory left
    /// in `image` is reused for a later one.
    virtual void deliver(Array& image, Array& frame, varitype& record);

  private:
    /// Identifies the content of a file without reading it.
    struct Stamp
    {
        explicit Stamp(const std::string& path);
        bool operator==(const Stamp& other) const = default;

        bool isFile = false;
        std::uintmax_t size = 0;
        std::filesystem::file_time_type time;
    };
    /// A file that is decoded on another thread.
    struct Upcoming
    {
        std::string path;
        HeldImage spare;
        LoadHeldImage load = nullptr;
        std::optional<Stamp> stamp = {};      // from before the file was read
        std::optional<HeldImage> image = {};  // only if it is complete
        CapturedOutput output = {};
        std::int64_t time = 0;  // microseconds

        void run() noexcept;
    };

    void loadNext();
    std::optional<HeldImage> loadCurrent();
    void loadAhead();
    /// Notifies the host, once, of the problem with the file loaded last.
    void report(Trouble trouble, const std::string& file);

    std::string currentName_, loadedName_;
    int incr_ = 1, count_ = 0, delivered_ = 0;
    bool one_ = false;
    std::optional<HeldImage> held_;
    ImageTrouble trouble_;  // unreported problem with the file loaded last
    HeldImage spare_;       // memory of an earlier frame
    TextureSet out_;

    LoadHeldImage load_;
    std::size_t ahead_ = 0;
    std::string lastAhead_;  // the file pushed last
    std::int64_t workerTime_ = 0;
    OrderedWorkers<Upcoming> upcoming_;
};

}  // namespace scansteps::images
