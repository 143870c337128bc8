// Grey images of floats, as the board detector reads them.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace scansteps::scan {

/// Rows from top to bottom. Reading beyond the border gives the nearest pixel.
struct GreyImage
{
    int width = 0, height = 0;
    std::vector<float> values;

    float at(int x, int y) const
    {
        x = std::clamp(x, 0, width - 1);
        y = std::clamp(y, 0, height - 1);
        return values[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                      static_cast<std::size_t>(x)];
    }
    /// Bilinear.
    double sample(double x, double y) const
    {
        const double fx = std::floor(x);
        const double fy = std::floor(y);
        const int ix = static_cast<int>(fx);
        const int iy = static_cast<int>(fy);
        const double s = x - fx;
        const double t = y - fy;
        return (1 - t) * ((1 - s) * at(ix, iy) + s * at(ix + 1, iy)) +
               t * ((1 - s) * at(ix, iy + 1) + s * at(ix + 1, iy + 1));
    }
};

/// Blurred with a Gaussian of standard deviation `sigma` pixels.
GreyImage blurred(const GreyImage& image, double sigma);

}  // namespace scansteps::scan
