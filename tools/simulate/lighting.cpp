#include "lighting.h"

#include <cmath>

namespace scansteps::simulate {
namespace {

using Eigen::Vector2d;
using Eigen::Vector3d;

/// Distance of the start of a ray from the surface that it leaves, so that it does not hit it: far above the
/// rounding of Embree's floats, far below the smallest step of a body.
constexpr double kOffset = 2e-3;

Vector3d lightOrigin(const Scene& scene)
{
    if (std::holds_alternative<PatternLight>(scene.light))
        return scene.calibration.projector->pose.inverse().translation;
    if (const auto* laser = std::get_if<LaserLight>(&scene.light)) return laser->origin;
    return std::get<LampLight>(scene.light).origin;
}

}  // namespace

PosedScene::PosedScene(const Scene& scene, const scan::Pose& pose, double exposure)
    : scene_(scene), origin_(simulate::lightOrigin(scene)), exposure_(exposure)
{
    for (const Object& object : scene.objects) {
        const scan::Pose toCamera = pose * object.pose;
        objects_.push_back({&object, toCamera, toCamera.inverse()});
    }
}

std::optional<SceneHit> PosedScene::trace(const Ray& ray) const
{
    std::optional<SceneHit> nearest;
    for (const Posed& posed : objects_) {
        const Ray local{posed.toObject * ray.origin, posed.toObject.rotation * ray.direction};
        const double limit = nearest ? nearest->hit.distance : std::numeric_limits<double>::infinity();
        std::optional<Hit> hit = posed.object->body->intersect(local, limit);
        if (!hit) continue;
        const Vector3d albedo = posed.object->surface.albedo(hit->point);
        hit->point = ray.origin + hit->distance * ray.direction;
        hit->normal = posed.toCamera.rotation * hit->normal;
        hit->geometricNormal = posed.toCamera.rotation * hit->geometricNormal;
        nearest = SceneHit{*hit, posed.object, albedo};
    }
    return nearest;
}

bool PosedScene::blocked(const Vector3d& from, const Vector3d& to) const
{
    for (const Posed& posed : objects_) {
        const Vector3d start = posed.toObject * from;
        if (posed.object->body->blocks({start, posed.toObject * to - start}, 1)) return true;
    }
    return false;
}

double PosedScene::level(const Vector3d& point, double cosine, double distance, Vector2d& place) const
{
    if (const auto* laser = std::get_if<LaserLight>(&scene_.light)) {
        const scan::LaserPlane& plane = *scene_.calibration.laser;
        const double x = (plane.normal.dot(point) + plane.offset) / laser->sigma;
        return laser->peak * cosine * std::exp(-x * x / 2);
    }
    if (const auto* lamp = std::get_if<LampLight>(&scene_.light)) return lamp->level * cosine;
    const scan::Projector& projector = *scene_.calibration.projector;
    const Vector3d seen = projector.pose * point;
    if (seen.z() <= 0) return 0;
    place = projector.project(seen);
    const bool inside = place.x() >= -0.5 && place.y() >= -0.5 && place.x() < projector.size.x() - 0.5 &&
                        place.y() < projector.size.y() - 0.5;
    return inside ? exposure_ * cosine / (distance * distance) : 0;
}

std::optional<Irradiance> PosedScene::illuminate(const SceneHit& hit) const
{
    const Vector3d way = origin_ - hit.hit.point;
    Irradiance light;
    const double distance = way.norm();
    light.toLight = way / distance;
    const double cosine = hit.hit.normal.dot(light.toLight);
    if (cosine <= 0 || hit.hit.geometricNormal.dot(light.toLight) <= 0) return {};
    light.level = level(hit.hit.point, cosine, distance, light.place);
    // Less than a thousandth of a grey level is not worth a ray.
    if (!(light.level > 1e-3) && !std::holds_alternative<PatternLight>(scene_.light)) return {};
    if (!(light.level > 0) || blocked(hit.hit.point + kOffset * hit.hit.geometricNormal, origin_)) return {};
    return light;
}

}  // namespace scansteps::simulate
