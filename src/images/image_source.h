// What the steps that read numbered image files share: the walk through the names, the end of the stream and
// the delivery of frames. How a file is decoded is the derived step's.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "images/image_file.h"
#include "scansteps/chain.h"
#include "scansteps/host_services.h"
#include "scansteps/texture.h"

namespace scansteps::images {

/// A decoded file that waits for its process event.
struct HeldImage
{
    int width = 0;
    int height = 0;
    Array pixels;  ///< the frame that it becomes, rows top to bottom
};

/// Source step over numbered files. Initialise loads the first file, whose size becomes "dataX" and "dataY";
/// every process event delivers the file that is held and loads the next one, and writes 1003 into the record
/// when there is none. A file that cannot be loaded ends the stream; the host is told of it unless the series
/// just ended, that is, unless the next number does not exist.
class ImageSource : public CPUBase
{
  public:
    void init(varitype& params) override;
    void process(varitype& params) override;

  protected:
    /// Decodes a file; nothing, with the reason printed, when that fails. `trouble` is filled as loadImage()
    /// does. `memory` is that of an earlier frame, to be used again.
    virtual std::optional<HeldImage> load(const std::string& path, Array&& memory, ImageTrouble& trouble) = 0;
    /// Adds what else the step says about its frames to the initialise record.
    virtual void describe(varitype& record);
    /// Puts the image into the output buffer and, where the step does so, into the record of the frame. What
    /// is left in `image` is memory for a later one.
    virtual void deliver(Array& image, Array& frame, varitype& record);

  private:
    void loadNext();
    /// Tells the host, once, what was wrong with the file that was loaded last.
    void report(Trouble trouble, const std::string& file);

    std::string currentName_, loadedName_;
    int incr_ = 1, count_ = 0, delivered_ = 0;
    bool one_ = false;
    std::optional<HeldImage> held_;
    ImageTrouble trouble_;  // of the file loaded last, as far as it matters
    Array spare_;           // memory of an earlier frame
    TextureSet out_;
};

}  // namespace scansteps::images
