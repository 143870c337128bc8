#include "patterns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <span>

namespace scansteps::simulate {
namespace {

/// Share of the light of the pixel around 0 that arrives at distance x: a box of width 1 convolved with a
/// Gaussian.
double pixelShare(double x, double spread)
{
    if (spread <= 0) return x >= -0.5 && x < 0.5 ? 1 : 0;
    const double scale = 1 / (spread * std::sqrt(2.0));
    return (std::erf((x + 0.5) * scale) - std::erf((x - 0.5) * scale)) / 2;
}

double lineLight(std::span<const float> line, double x, double spread, int reach)
{
    const int centre = static_cast<int>(std::floor(x + 0.5));
    double sum = 0;
    for (int i = std::max(centre - reach, 0);
         i <= std::min<int>(centre + reach, static_cast<int>(line.size()) - 1); ++i)
        sum += line[static_cast<std::size_t>(i)] * pixelShare(x - i, spread);
    return sum;
}

bool rowsEqual(const GreyPicture& picture)
{
    const auto first = picture.grey.begin();
    for (int y = 1; y < picture.height; ++y)
        if (!std::equal(first, first + picture.width, first + std::ptrdiff_t{y} * picture.width))
            return false;
    return true;
}

bool columnsEqual(const GreyPicture& picture)
{
    for (std::size_t i = 0; i < picture.grey.size(); ++i)
        if (picture.grey[i] != picture.grey[i - i % static_cast<std::size_t>(picture.width)]) return false;
    return true;
}

}  // namespace

ProjectedPicture::ProjectedPicture(const GreyPicture& picture, const ProjectorResponse& response)
    : width_(picture.width),
      height_(picture.height),
      response_(response),
      alongRows_(rowsEqual(picture)),
      alongColumns_(!alongRows_ && columnsEqual(picture)),
      reach_(response.spread > 0 ? static_cast<int>(std::ceil(5 * response.spread)) + 1 : 1)
{
    std::array<float, 256> light;
    for (std::size_t i = 0; i < light.size(); ++i) {
        const double level = std::pow(static_cast<double>(i) / 255, response.gamma);
        light[i] = static_cast<float>(response.black + (1 - response.black) * level);
    }
    std::vector<float> line;
    if (alongRows_) {
        for (int x = 0; x < width_; ++x) line.push_back(light[picture.grey[static_cast<std::size_t>(x)]]);
    } else if (alongColumns_) {
        for (int y = 0; y < height_; ++y)
            line.push_back(
                light[picture.grey[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_)]]);
    } else {
        for (const std::uint8_t grey : picture.grey) pixels_.push_back(light[grey]);
        return;
    }
    const int entries = (static_cast<int>(line.size()) + 2 * reach_) * kPerPixel + 1;
    for (int i = 0; i < entries; ++i) {
        const double x = static_cast<double>(i) / kPerPixel - reach_ - 0.5;
        table_.push_back(static_cast<float>(lineLight(line, x, response.spread, reach_)));
    }
}

float ProjectedPicture::fromTable(float x) const
{
    const float at = (x + 0.5F + static_cast<float>(reach_)) * kPerPixel;
    if (!(at >= 0 && at < static_cast<float>(table_.size() - 1))) return 0;
    const auto i = static_cast<std::size_t>(at);
    const float t = at - static_cast<float>(i);
    return response_.spread > 0 ? table_[i] + t * (table_[i + 1] - table_[i]) : table_[i];
}

float ProjectedPicture::at(float u, float v) const
{
    if (!(u >= -0.5F && v >= -0.5F && u < static_cast<float>(width_) - 0.5F &&
          v < static_cast<float>(height_) - 0.5F))
        return 0;
    if (alongRows_) return fromTable(u);
    if (alongColumns_) return fromTable(v);
    const int centre = static_cast<int>(std::floor(v + 0.5F));
    double sum = 0;
    for (int y = std::max(centre - reach_, 0); y <= std::min(centre + reach_, height_ - 1); ++y) {
        const double share = pixelShare(v - static_cast<float>(y), response_.spread);
        if (share < 1e-7) continue;
        const float* row = pixels_.data() + std::ptrdiff_t{y} * width_;
        sum += share * lineLight({row, static_cast<std::size_t>(width_)}, u, response_.spread, reach_);
    }
    return static_cast<float>(sum);
}

}  // namespace scansteps::simulate
