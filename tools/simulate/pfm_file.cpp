#include "pfm_file.h"

#include <fmt/format.h>
#include <plugins/scan/checked_json.h>
#include <scansteps/error.h>

#include <cstring>
#include <sstream>

namespace scansteps::simulate {

void writePfm(const std::string& name, const Image& image)
{
    std::string text =
        fmt::format("{}\n{} {}\n-1.0\n", image.channels == 3 ? "PF" : "Pf", image.width, image.height);
    const std::size_t row = static_cast<std::size_t>(image.width * image.channels);
    for (int y = image.height - 1; y >= 0; --y)
        text.append(reinterpret_cast<const char*>(image.values.data() + image.index(0, y)),
                    row * sizeof(float));
    scan::writeTextFile(name, text, "truth");
}

Image readPfm(const std::string& name)
{
    const std::string text = scan::readTextFile(name, "truth");
    std::istringstream in(text);
    std::string magic;
    int width = 0, height = 0;
    double scale = 0;
    in >> magic >> width >> height >> scale;
    constexpr int kMaxSide = 65535;
    if (!in || (magic != "Pf" && magic != "PF") || width < 1 || height < 1 || width > kMaxSide ||
        height > kMaxSide || scale >= 0)
        failf("truth: %s is no little-endian PFM file", name.c_str());
    const std::size_t channels = magic == "PF" ? 3 : 1;
    const std::size_t row = static_cast<std::size_t>(width) * channels * sizeof(float);
    const auto begin = static_cast<std::size_t>(in.tellg()) + 1;
    if (text.size() < begin || text.size() - begin != row * static_cast<std::size_t>(height))
        failf("truth: %s has another number of pixels than its header says", name.c_str());
    Image image(width, height, static_cast<int>(channels));
    for (int y = 0; y < height; ++y)
        std::memcpy(image.values.data() + image.index(0, height - 1 - y),
                    text.data() + begin + row * static_cast<std::size_t>(y), row);
    return image;
}

}  // namespace scansteps::simulate
