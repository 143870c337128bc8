// Base of the steps that read numbered image files: iterates over file names, detects the end of the stream
// and delivers frames. Derived steps decode the files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

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
    Array pixels;  ///< in the layout of the frame, rows from top to bottom
};

/// Source step for numbered files. Initialise loads the first file, whose size becomes "dataX" and "dataY";
/// each process event delivers the held file and loads the next one, or writes 1003 into the record when no
/// file is held. A file that cannot be loaded ends the stream; the host is notified unless the series simply
/// ended, that is, unless a file with the next number does not exist.
class ImageSource : public CPUBase
{
  public:
    void init(varitype& params) override;
    void process(varitype& params) override;

  protected:
    /// Decodes a file. On failure, prints the reason and returns nothing. Sets `trouble` like loadImage().
    /// `memory` belonged to an earlier frame and can be reused.
    virtual std::optional<HeldImage> load(const std::string& path, Array&& memory, ImageTrouble& trouble) = 0;
    /// Adds step-specific entries about the frames to the initialise record.
    virtual void describe(varitype& record);
    /// Moves the image into the output buffer and optionally adds it to the frame's record. The memory left
    /// in `image` is reused for a later one.
    virtual void deliver(Array& image, Array& frame, varitype& record);

  private:
    void loadNext();
    /// Notifies the host, once, of the problem with the file loaded last.
    void report(Trouble trouble, const std::string& file);

    std::string currentName_, loadedName_;
    int incr_ = 1, count_ = 0, delivered_ = 0;
    bool one_ = false;
    std::optional<HeldImage> held_;
    ImageTrouble trouble_;  // unreported problem with the file loaded last
    Array spare_;           // memory of an earlier frame
    TextureSet out_;
};

}  // namespace scansteps::images
