#include "surface.h"

#include <algorithm>
#include <cmath>

#include "philox.h"

namespace scansteps::simulate {
namespace {

using Eigen::Vector3d;

double latticeValue(const Eigen::Vector3i& at, std::uint32_t seed)
{
    const PhiloxCounter counter{static_cast<std::uint32_t>(at[0]), static_cast<std::uint32_t>(at[1]),
                                static_cast<std::uint32_t>(at[2]), 0};
    return uniform(philox(counter, {seed, 0x7e0})[0]);
}

/// Random values at integer points, interpolated with a smooth step in each direction.
double smoothNoise(const Vector3d& point, std::uint32_t seed)
{
    const Vector3d floor = point.array().floor();
    const Eigen::Vector3i cell = floor.cast<int>();
    const Vector3d t = point - floor;
    const Vector3d s = t.array().square() * (3 - 2 * t.array());
    double sum = 0;
    for (int corner = 0; corner < 8; ++corner) {
        const Eigen::Vector3i offset(corner & 1, corner >> 1 & 1, corner >> 2);
        double weight = 1;
        for (int i = 0; i < 3; ++i) weight *= offset[i] != 0 ? s[i] : 1 - s[i];
        sum += weight * latticeValue(cell + offset, seed);
    }
    return sum;
}

/// Whether a point lies in one of the dots: in the square just before the middle of the board, and in the
/// next ones along its rows and along its columns. `inSquare` is the offset from the centre of the square, in
/// squares.
bool inDot(int column, int row, int columns, int rows, const Eigen::Vector2d& inSquare)
{
    const int c = column - (columns - 1) / 2;
    const int r = row - (rows - 1) / 2;
    const bool marked = (c == 0 && r == 0) || (c == 1 && r == 0) || (c == 0 && r == 2);
    return marked && inSquare.norm() < 0.25;
}

bool checkerIsSecond(const Surface& surface, const Vector3d& point)
{
    const double x = point.x() / surface.period + surface.columns / 2.0;
    const double y = point.y() / surface.period + surface.rows / 2.0;
    if (!(x >= 0 && y >= 0 && x < surface.columns && y < surface.rows)) return false;
    const int column = static_cast<int>(x);
    const int row = static_cast<int>(y);
    const Eigen::Vector2d inSquare(x - column - 0.5, y - row - 0.5);
    const bool dark = (column + row) % 2 == 0;
    return dark != (surface.dots && inDot(column, row, surface.columns, surface.rows, inSquare));
}

}  // namespace

Vector3d Surface::albedo(const Vector3d& point) const
{
    switch (texture) {
        case Texture::Plain:
            return colour;
        case Texture::Stripes: {
            const double at = point.dot(direction) / period;
            return at - std::floor(at) < 0.5 ? colour : second;
        }
        case Texture::Checker:
            return checkerIsSecond(*this, point) ? second : colour;
        case Texture::Noise: {
            const double coarse = smoothNoise(point / period, seed);
            const double share = (2 * coarse + smoothNoise(point * (2.7 / period), seed + 1)) / 3;
            return colour + share * (second - colour);
        }
    }
    return colour;
}

Vector3d Surface::reflectance(const Vector3d& albedo, const Vector3d& normal, const Vector3d& toLight,
                              const Vector3d& toEye) const
{
    if (specular <= 0) return albedo;
    const double cosine = std::max(0.0, normal.dot((toLight + toEye).normalized()));
    return albedo.array() + specular * (shininess + 2) / 2 * std::pow(cosine, shininess);
}

}  // namespace scansteps::simulate
