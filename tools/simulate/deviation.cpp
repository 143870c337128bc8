#include "deviation.h"

#include <plugins/scan/triangulate.h>
#include <scansteps/error.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace scansteps::simulate {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

bool isMeasurable(const ViewTruth& truth, std::size_t i)
{
    return !std::isnan(truth.depth.values[i]) && !std::isnan(truth.columns.values[i]) &&
           truth.amplitude.values[i] >= kMinAmplitude;
}

// The expected error of the depth of every pixel.
std::vector<float> expectedErrors(const ViewTruth& truth, const scan::Calibration& calibration,
                                  const Measurement& measurement)
{
    const scan::RayTable rays = scan::raysOf(calibration.camera);
    const double sigma = std::sqrt(measurement.noise * measurement.noise + 1.0 / 12);
    const double factor =
        sigma * std::sqrt(2.0 / measurement.shifts) * measurement.period / (2 * std::numbers::pi);
    std::vector<float> quality, depth(rays.x.size()), errors(rays.x.size());
    for (const float amplitude : truth.amplitude.values)
        quality.push_back(static_cast<float>(factor / std::max(double(amplitude), 1e-3)));
    scan::depthOfColumns(*calibration.projector, rays.x, rays.y, truth.columns.values, quality, depth,
                         errors);
    return errors;
}

void putVertices(const Mesh& model, const ViewTruth& truth, const scan::CameraModel& camera,
                 Deviation& deviation)
{
    constexpr double kOnRay = 0.05;  // pixels
    for (const Eigen::Vector3d& vertex : model.vertices) {
        const Eigen::Vector2d pixel = camera.project(vertex);
        const double x = std::round(pixel.x()), y = std::round(pixel.y());
        if (!(vertex.z() > 0) || !(x >= 0 && y >= 0 && x < camera.size.x() && y < camera.size.y()) ||
            (pixel - Eigen::Vector2d(x, y)).norm() > kOnRay) {
            ++deviation.elsewhere;
            continue;
        }
        const std::size_t i = truth.depth.index(int(x), int(y));
        if (std::isnan(truth.depth.values[i]) || std::isnan(truth.columns.values[i]))
            ++deviation.elsewhere;
        else
            deviation.map.values[i] = static_cast<float>(vertex.z() - double(truth.depth.values[i]));
    }
}

bool isInside(const ViewTruth& truth, int x, int y)
{
    if (x < 1 || y < 1 || x + 1 >= truth.depth.width || y + 1 >= truth.depth.height) return false;
    for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx)
            if (!isMeasurable(truth, truth.depth.index(x + dx, y + dy))) return false;
    return true;
}

}  // namespace

void Collector::add(double value, double expected)
{
    sizes_.push_back(std::abs(value));
    sum_ += value;
    squares_ += value * value;
    if (!std::isnan(expected)) expectedSquares_ += expected * expected;
    far_ += std::abs(value) > 0.5;
}

Statistics Collector::statistics()
{
    if (sizes_.empty()) return {};
    std::ranges::sort(sizes_);
    const double count = double(sizes_.size());
    return {std::int64_t(sizes_.size()),
            far_,
            sum_ / count,
            std::sqrt(squares_ / count),
            std::sqrt(expectedSquares_ / count),
            sizes_[sizes_.size() / 2],
            sizes_[sizes_.size() * 95 / 100],
            sizes_.back()};
}

Deviation deviationOf(const Mesh& model, const ViewTruth& truth, const scan::Calibration& calibration,
                      const Measurement& measurement)
{
    const scan::CameraModel& camera = calibration.camera;
    if (!calibration.projector) fail("deviation: /projector is missing in the calibration file");
    for (const Image* map : {&truth.depth, &truth.columns, &truth.amplitude})
        if (map->width != camera.size.x() || map->height != camera.size.y() || map->channels != 1)
            fail("deviation: a map of the truth has not the size of the camera");

    Deviation deviation;
    deviation.map = Image(camera.size.x(), camera.size.y(), 1, kNaN);
    putVertices(model, truth, camera, deviation);
    const std::vector<float> expected = expectedErrors(truth, calibration, measurement);
    Collector all, inside;
    for (int y = 0; y < camera.size.y(); ++y)
        for (int x = 0; x < camera.size.x(); ++x) {
            const std::size_t i = deviation.map.index(x, y);
            const double value = deviation.map.values[i];
            const bool isMeasured = !std::isnan(value), isWanted = isMeasurable(truth, i);
            deviation.measurable += isWanted;
            deviation.measured += isWanted && isMeasured;
            if (!isMeasured) continue;
            all.add(value, expected[i]);
            if (isInside(truth, x, y)) inside.add(value, expected[i]);
        }
    deviation.all = all.statistics();
    deviation.inside = inside.statistics();
    return deviation;
}

std::vector<std::uint8_t> falseColours(const Deviation& deviation, const ViewTruth& truth, double limit)
{
    std::vector<std::uint8_t> rgb;
    for (std::size_t i = 0; i < deviation.map.values.size(); ++i) {
        const double value = double(deviation.map.values[i]) / limit;
        if (std::isnan(value)) {
            rgb.insert(rgb.end(), 3, isMeasurable(truth, i) ? 0 : 128);
            continue;
        }
        const auto rest = static_cast<std::uint8_t>(std::lround(255 * (1 - std::min(std::abs(value), 1.0))));
        rgb.push_back(value > 0 ? 255 : rest);
        rgb.push_back(rest);
        rgb.push_back(value > 0 ? rest : 255);
    }
    return rgb;
}

}  // namespace scansteps::simulate
