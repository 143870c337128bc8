// Corners of checkerboards: candidates and their refinement.
#include <Eigen/LU>
#include <cmath>
#include <numbers>

#include "board.h"

namespace scansteps::scan {
namespace {

using Eigen::Vector2d;

/// -det of the Hessian: large where the brightness has a saddle.
double saddleStrength(const GreyImage& image, int x, int y)
{
    const double centre = image.at(x, y);
    const double xx = image.at(x - 1, y) + image.at(x + 1, y) - 2 * centre;
    const double yy = image.at(x, y - 1) + image.at(x, y + 1) - 2 * centre;
    const double xy =
        (image.at(x + 1, y + 1) - image.at(x - 1, y + 1) - image.at(x + 1, y - 1) + image.at(x - 1, y - 1)) /
        4.0;
    return xy * xy - xx * yy;
}

/// Whether brightness changes four times between clearly light and clearly dark on a circle around the point,
/// with opposite quarters alike.
bool hasFourQuarters(const GreyImage& image, const Vector2d& point, double radius)
{
    constexpr int kSteps = 32;
    double values[kSteps];
    double low = 1e30;
    double high = -1e30;
    for (int i = 0; i < kSteps; ++i) {
        const double angle = 2 * std::numbers::pi * i / kSteps;
        values[i] = image.sample(point.x() + radius * std::cos(angle), point.y() + radius * std::sin(angle));
        low = std::min(low, values[i]);
        high = std::max(high, values[i]);
    }
    const double middle = (low + high) / 2;
    int changes = 0;
    int alike = 0;
    for (int i = 0; i < kSteps; ++i) {
        changes += (values[i] > middle) != (values[(i + 1) % kSteps] > middle);
        alike += (values[i] > middle) == (values[(i + kSteps / 2) % kSteps] > middle);
    }
    return changes == 4 && alike >= kSteps - 8;
}

}  // namespace

GreyImage blurred(const GreyImage& image, double sigma)
{
    const int reach = static_cast<int>(std::ceil(3 * sigma));
    std::vector<float> weights;
    float sum = 0;
    for (int i = -reach; i <= reach; ++i) {
        weights.push_back(static_cast<float>(std::exp(-i * i / (2 * sigma * sigma))));
        sum += weights.back();
    }
    GreyImage across = image;
    GreyImage result = image;
    const auto pass = [&](const GreyImage& from, GreyImage& to, int dx, int dy) {
        for (int y = 0; y < from.height; ++y) {
            for (int x = 0; x < from.width; ++x) {
                float value = 0;
                for (int i = -reach; i <= reach; ++i)
                    value += weights[static_cast<std::size_t>(i + reach)] * from.at(x + i * dx, y + i * dy);
                to.values[static_cast<std::size_t>(y) * static_cast<std::size_t>(from.width) +
                          static_cast<std::size_t>(x)] = value / sum;
            }
        }
    };
    pass(image, across, 1, 0);
    pass(across, result, 0, 1);
    return result;
}

Vector2d refineCorner(const GreyImage& image, Vector2d start, double radius)
{
    Vector2d centre = start;
    for (int round = 0; round < 12; ++round) {
        Eigen::Matrix2d tensor = Eigen::Matrix2d::Zero();
        Vector2d moment = Vector2d::Zero();
        const int reach = static_cast<int>(std::ceil(radius));
        for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx) {
                const double weight = std::exp(-(dx * dx + dy * dy) / (0.5 * radius * radius));
                const double x = centre.x() + dx;
                const double y = centre.y() + dy;
                const Vector2d gradient((image.sample(x + 1, y) - image.sample(x - 1, y)) / 2,
                                        (image.sample(x, y + 1) - image.sample(x, y - 1)) / 2);
                const Eigen::Matrix2d outer = weight * gradient * gradient.transpose();
                tensor += outer;
                moment += outer * Vector2d(dx, dy);
            }
        }
        const Vector2d step = tensor.inverse() * moment;
        centre += step;
        if (!(step.norm() > 1e-4) || !((centre - start).norm() < 2 * radius)) break;
    }
    return centre;
}

std::vector<Vector2d> cornerCandidates(const GreyImage& image)
{
    const GreyImage smooth = blurred(image, 1.5);
    GreyImage strength = image;
    float strongest = 0;
    for (int y = 0; y < image.height; ++y) {
        for (int x = 0; x < image.width; ++x) {
            const float value = static_cast<float>(saddleStrength(smooth, x, y));
            strength.values[static_cast<std::size_t>(y) * static_cast<std::size_t>(image.width) +
                            static_cast<std::size_t>(x)] = value;
            strongest = std::max(strongest, value);
        }
    }
    std::vector<std::pair<float, Vector2d>> found;
    constexpr int kReach = 3;
    for (int y = kReach + 1; y + kReach + 1 < image.height; ++y) {
        for (int x = kReach + 1; x + kReach + 1 < image.width; ++x) {
            const float value = strength.at(x, y);
            if (value < 0.02F * strongest) continue;
            bool best = true;
            for (int dy = -kReach; dy <= kReach && best; ++dy)
                for (int dx = -kReach; dx <= kReach && best; ++dx)
                    best = strength.at(x + dx, y + dy) < value || (dx == 0 && dy == 0);
            if (best && hasFourQuarters(smooth, Vector2d(x, y), 4)) found.emplace_back(value, Vector2d(x, y));
        }
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    constexpr std::size_t kMaxCandidates = 20000;
    std::vector<Vector2d> candidates;
    for (const auto& entry : found)
        if (candidates.size() < kMaxCandidates) candidates.push_back(entry.second);
    return candidates;
}

}  // namespace scansteps::scan
