// The bust: horizontal sections are ellipses whose radii follow a smooth profile, with smooth bumps on top.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "mesh.h"

namespace scansteps::simulate {
namespace {

/// A section of the body: height from 0 to 1, radii to the front and to the side, shift to the front, in
/// heights.
struct Section
{
    double at, front, side, shift;
};
constexpr Section kSections[] = {
    {0.00, 0.200, 0.240, 0.000}, {0.06, 0.205, 0.250, 0.000},  {0.16, 0.170, 0.290, 0.004},
    {0.28, 0.150, 0.285, 0.006}, {0.38, 0.100, 0.150, 0.002},  {0.45, 0.085, 0.090, -0.004},
    {0.54, 0.115, 0.100, 0.004}, {0.64, 0.150, 0.122, 0.012},  {0.76, 0.168, 0.132, 0.008},
    {0.88, 0.150, 0.120, 0.000}, {1.00, 0.110, 0.090, -0.006},
};

/// A bump on the surface: where (height, direction), how large, how wide in both directions.
struct Bump
{
    double at, angle, height, sigmaAt, sigmaAngle;
};
constexpr Bump kBumps[] = {
    {0.660, 0.00, 0.042, 0.030, 0.16},  {0.705, 0.00, 0.018, 0.035, 0.11},    // nose
    {0.745, 0.36, 0.012, 0.020, 0.24},  {0.745, -0.36, 0.012, 0.020, 0.24},   // brow
    {0.700, 0.42, -0.010, 0.018, 0.15}, {0.700, -0.42, -0.010, 0.018, 0.15},  // eyes
    {0.600, 0.00, 0.012, 0.014, 0.28},  {0.545, 0.00, 0.018, 0.022, 0.26},    // mouth, chin
    {0.690, 1.62, 0.020, 0.040, 0.13},  {0.690, -1.58, 0.020, 0.040, 0.13},   // ears
    {0.840, 2.85, 0.055, 0.055, 0.38},  {0.300, 0.70, 0.014, 0.060, 0.30},    // hair, collar
    {0.200, -0.55, 0.022, 0.045, 0.22}, {0.120, 2.10, 0.016, 0.050, 0.35},    // folds
};

/// Catmull–Rom interpolation of a member of the sections.
double profile(double at, double Section::*member)
{
    const int last = static_cast<int>(std::size(kSections)) - 1;
    int i = 0;
    while (i + 1 < last && kSections[i + 1].at <= at) ++i;
    const auto slope = [&](int k) {
        const Section& a = kSections[std::max(k - 1, 0)];
        const Section& b = kSections[std::min(k + 1, last)];
        return (b.*member - a.*member) / (b.at - a.at);
    };
    const double width = kSections[i + 1].at - kSections[i].at;
    const double t = (at - kSections[i].at) / width;
    const double t2 = t * t;
    const double t3 = t2 * t;
    return (2 * t3 - 3 * t2 + 1) * kSections[i].*member + (3 * t2 - 2 * t3) * kSections[i + 1].*member +
           width * ((t3 - 2 * t2 + t) * slope(i) + (t3 - t2) * slope(i + 1));
}

double bumps(double at, double angle)
{
    double sum = 0;
    for (const Bump& bump : kBumps) {
        const double a = std::remainder(angle - bump.angle, 2 * std::numbers::pi) / bump.sigmaAngle;
        const double h = (at - bump.at) / bump.sigmaAt;
        sum += bump.height * std::exp(-(a * a + h * h) / 2);
    }
    return sum;
}

/// Closes the body at both ends: 1 in between, falling to 0 like a quarter of an ellipse over `round`.
double closing(double at, double round)
{
    const double t = std::clamp(1 - std::min(at, 1 - at) / round, 0.0, 1.0);
    return std::sqrt(1 - t * t);
}

Eigen::Vector3d bodyPoint(double at, double angle)
{
    const double end = closing(at, at < 0.5 ? 0.03 : 0.13);
    const double a = profile(at, &Section::front);
    const double b = profile(at, &Section::side);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double radius = end * (a * b / std::sqrt(b * b * c * c + a * a * s * s) + bumps(at, angle));
    return {radius * c + end * profile(at, &Section::shift), radius * s, at - 0.5};
}

}  // namespace

Mesh bustMesh(double height, int rows, int columns)
{
    Mesh mesh;
    // Rows closer together towards both ends, where the surface turns flat.
    for (int i = 1; i < rows; ++i) {
        const double at = (1 - std::cos(std::numbers::pi * i / rows)) / 2;
        for (int j = 0; j < columns; ++j)
            mesh.vertices.push_back(height * bodyPoint(at, 2 * std::numbers::pi * j / columns));
    }
    const int bottom = static_cast<int>(mesh.vertices.size());
    mesh.vertices.push_back(height * bodyPoint(0, 0));
    mesh.vertices.push_back(height * bodyPoint(1, 0));
    const int lastRow = (rows - 2) * columns;
    for (int j = 0; j < columns; ++j) {
        const int next = (j + 1) % columns;
        mesh.triangles.push_back({bottom, next, j});
        mesh.triangles.push_back({bottom + 1, lastRow + j, lastRow + next});
        for (int row = 0; row < lastRow; row += columns) {
            mesh.triangles.push_back({row + j, row + next, row + columns + next});
            mesh.triangles.push_back({row + j, row + columns + next, row + columns + j});
        }
    }
    mesh.smooth();
    return mesh;
}

}  // namespace scansteps::simulate
