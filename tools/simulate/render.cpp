#include "render.h"

#include <Eigen/Geometry>

#include <cmath>
#include <limits>

#include "philox.h"

namespace scansteps::simulate {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

/// Light on its way from a place on the projector to the pixel, by a share for each colour.
struct Contribution
{
    float u, v;
    Vector3d share;
};

/// What is found along the rays of one pixel.
struct PixelLight
{
    std::vector<Contribution> contributions;
    Vector3d ambient{0, 0, 0};
    double direct = 0;  ///< grey levels under full light, without detours
    int lit = 0;
    std::vector<double> depths;
};

class PixelTracer
{
  public:
    PixelTracer(const Scene& scene, const PosedScene& posed) : scene_(scene), posed_(posed) {}

    Ray cameraRay(const Vector2d& pixel) const
    {
        return {Vector3d::Zero(), scene_.calibration.camera.ray(pixel)};
    }

    void trace(int x, int y, PixelLight& light) const
    {
        light.contributions.clear();
        light.depths.clear();
        light.ambient.setZero();
        light.direct = 0;
        light.lit = 0;
        const int n = scene_.sensor.samples;
        for (int i = 0; i < n * n; ++i) {
            const Vector2d cell(i % n, i / n);
            const Vector2d pixel = Vector2d(x, y) + (cell.array() + 0.5 - n / 2.0).matrix() / n;
            add(cameraRay(pixel),
                {static_cast<std::uint32_t>(x), static_cast<std::uint32_t>(y), static_cast<std::uint32_t>(i),
                 0},
                light);
        }
    }

  private:
    void add(const Ray& ray, const PhiloxCounter& counter, PixelLight& light) const
    {
        const std::optional<SceneHit> seen = posed_.trace(ray);
        light.depths.push_back(seen ? seen->hit.point.z() : std::numeric_limits<double>::infinity());
        if (!seen) return;
        const double weight = 1.0 / (scene_.sensor.samples * scene_.sensor.samples);
        light.ambient += weight * scene_.ambient * seen->albedo;
        if (const auto arriving = posed_.illuminate(*seen)) {
            const Vector3d reflected = seen->object->surface.reflectance(seen->albedo, seen->hit.normal,
                                                                         arriving->toLight, -ray.direction);
            const Vector3d share = weight * arriving->level * reflected;
            light.contributions.push_back(
                {static_cast<float>(arriving->place.x()), static_cast<float>(arriving->place.y()), share});
            light.direct += share.mean();
            ++light.lit;
        }
        for (int i = 0; i < scene_.bounces; ++i) addBounce(*seen, counter, i, weight / scene_.bounces, light);
    }

    /// Light that the surface gets from another one: in a direction drawn in proportion to the cosine, so
    /// that all count alike.
    void addBounce(const SceneHit& seen, PhiloxCounter counter, int number, double weight,
                   PixelLight& light) const
    {
        counter[3] = static_cast<std::uint32_t>(number);
        const auto key = static_cast<std::uint32_t>(scene_.seed);
        const PhiloxCounter random = philox(counter, {key, 0xb0c});
        const double radius = std::sqrt(uniform(random[0]));
        const double angle = 2 * std::numbers::pi * uniform(random[1]);
        const Vector3d& normal = seen.hit.normal;
        const Vector3d side = normal.unitOrthogonal();
        const Vector3d direction = radius * std::cos(angle) * side +
                                   radius * std::sin(angle) * normal.cross(side) +
                                   std::sqrt(std::max(0.0, 1 - radius * radius)) * normal;
        const auto other = posed_.trace({seen.hit.point + 2e-3 * seen.hit.geometricNormal, direction});
        if (!other) return;
        const auto arriving = posed_.illuminate(*other);
        if (!arriving) return;
        const Vector3d share = weight * arriving->level * seen.albedo.cwiseProduct(other->albedo);
        light.contributions.push_back(
            {static_cast<float>(arriving->place.x()), static_cast<float>(arriving->place.y()), share});
    }

    const Scene& scene_;
    const PosedScene& posed_;
};

/// The pictures of a pose, evaluated pixel by pixel.
class Pictures
{
  public:
    explicit Pictures(const Scene& scene)
    {
        if (const auto* light = std::get_if<PatternLight>(&scene.light)) {
            for (const GreyPicture& picture : light->pictures)
                projected_.emplace_back(picture, light->response);
            count_ = static_cast<int>(projected_.size());
        } else if (const auto* laser = std::get_if<LaserLight>(&scene.light)) {
            dark_ = laser->dark;
            count_ = dark_ ? 2 : 1;
        }
    }
    int count() const { return count_; }

    Vector3d value(int picture, const PixelLight& light) const
    {
        Vector3d sum = light.ambient;
        if (dark_ && picture == 0) return sum;
        for (const Contribution& part : light.contributions)
            sum += projected_.empty()
                       ? part.share
                       : part.share * projected_[static_cast<std::size_t>(picture)].at(part.u, part.v);
        return sum;
    }

  private:
    std::vector<ProjectedPicture> projected_;
    bool dark_ = false;
    int count_ = 1;
};

/// Whether the depths along all rays of a pixel are those of one surface: opposite rays average to the
/// centre's depth.
bool oneSurface(const std::vector<double>& depths, double centre, double footprint)
{
    for (std::size_t i = 0; i < depths.size(); ++i) {
        const double opposite = depths[depths.size() - 1 - i];
        if (!(std::abs(depths[i] + opposite - 2 * centre) < footprint)) return false;
    }
    return true;
}

void fillTruth(const Scene& scene, const PosedScene& posed, const Ray& centreRay, int x, int y,
               const PixelLight& light, Truth& truth)
{
    double black = 0;
    if (const auto* patterns = std::get_if<PatternLight>(&scene.light)) black = patterns->response.black;
    truth.amplitude.at(x, y) = static_cast<float>(light.direct * (1 - black) / 2);
    const auto centre = posed.trace(centreRay);
    if (!centre) return;
    const double depth = centre->hit.point.z();
    truth.depth.at(x, y) = static_cast<float>(depth);
    const auto arriving = posed.illuminate(*centre);
    if (!arriving) return;
    if (scene.calibration.projector && std::holds_alternative<PatternLight>(scene.light)) {
        truth.columns.at(x, y) = static_cast<float>(arriving->place.x());
        truth.rows.at(x, y) = static_cast<float>(arriving->place.y());
    }
    const bool whole = light.lit == static_cast<int>(light.depths.size()) &&
                       oneSurface(light.depths, depth, depth / scene.calibration.camera.focal.x());
    truth.mask[static_cast<std::size_t>(y) * static_cast<std::size_t>(truth.depth.width) +
               static_cast<std::size_t>(x)] = whole ? 255 : 128;
}

}  // namespace

double exposureOf(const Scene& scene, int threads)
{
    const auto* light = std::get_if<PatternLight>(&scene.light);
    if (light == nullptr) return 1;
    const double contrast = 1 - light->response.black;
    if (light->distance > 0) return light->white * light->distance * light->distance / contrast;
    const Eigen::Vector2i size = scene.calibration.camera.size;
    const PosedScene posed(scene, scene.poses.front(), 1);
    const PixelTracer tracer(scene, posed);
    std::vector<double> brightest(static_cast<std::size_t>(size.y()), 0);
    forRows(size.y(), threads, [&](int y) {
        for (int x = 0; x < size.x(); ++x) {
            const auto seen = posed.trace(tracer.cameraRay(Vector2d(x, y)));
            const auto arriving = seen ? posed.illuminate(*seen) : std::nullopt;
            double& best = brightest[static_cast<std::size_t>(y)];
            if (arriving) best = std::max(best, arriving->level * seen->albedo.mean());
        }
    });
    const double most = *std::max_element(brightest.begin(), brightest.end());
    return most > 0 ? light->white / (contrast * most) : 1;
}

Rendering render(const Scene& scene, const scan::Pose& pose, double exposure, int threads)
{
    const Eigen::Vector2i size = scene.calibration.camera.size;
    const Image unknown(size.x(), size.y(), 1, std::numeric_limits<float>::quiet_NaN());
    const int channels = scene.sensor.colour ? 3 : 1;
    const Pictures pictures(scene);
    Rendering result;
    result.pictures.assign(static_cast<std::size_t>(pictures.count()), Image(size.x(), size.y(), channels));
    result.truth = {unknown, unknown, unknown, unknown, std::vector<std::uint8_t>(unknown.values.size())};

    const PosedScene posed(scene, pose, exposure);
    const PixelTracer tracer(scene, posed);
    forRows(size.y(), threads, [&](int y) {
        PixelLight light;
        for (int x = 0; x < size.x(); ++x) {
            tracer.trace(x, y, light);
            fillTruth(scene, posed, tracer.cameraRay(Vector2d(x, y)), x, y, light, result.truth);
            for (int i = 0; i < pictures.count(); ++i) {
                const Vector3d value = pictures.value(i, light);
                Image& picture = result.pictures[static_cast<std::size_t>(i)];
                for (int c = 0; c < channels; ++c)
                    picture.at(x, y, c) = static_cast<float>(channels == 1 ? value.mean() : value[c]);
            }
        }
    });
    return result;
}

}  // namespace scansteps::simulate
