// Rays in a scene with one pose: what they hit, and how much light arrives there.
#pragma once

#include <limits>
#include <optional>

#include "scene.h"

namespace scansteps::simulate {

/// Where a ray meets an object; camera coordinates.
struct SceneHit
{
    Hit hit;
    const Object* object = nullptr;
    Eigen::Vector3d albedo;
};

/// Light that arrives at a point: the place on the projector that it comes from, and its irradiance relative
/// to the light of that place, grey levels on a white surface. A laser and a lamp have no place.
struct Irradiance
{
    Eigen::Vector2d place{0, 0};
    double level = 0;
    Eigen::Vector3d toLight;
};

class PosedScene
{
  public:
    /// `exposure` scales the projector's light; see PatternLight.
    PosedScene(const Scene& scene, const scan::Pose& pose, double exposure);

    std::optional<SceneHit> trace(const Ray& ray) const;
    /// None in the shade, on the far side, or outside what the device lights.
    std::optional<Irradiance> illuminate(const SceneHit& hit) const;
    /// Where the light comes from.
    const Eigen::Vector3d& lightOrigin() const { return origin_; }

  private:
    struct Posed
    {
        const Object* object;
        scan::Pose toCamera, toObject;
    };
    bool blocked(const Eigen::Vector3d& from, const Eigen::Vector3d& to) const;
    double level(const Eigen::Vector3d& point, double cosine, double distance, Eigen::Vector2d& place) const;

    const Scene& scene_;
    std::vector<Posed> objects_;
    Eigen::Vector3d origin_;
    double exposure_;
};

}  // namespace scansteps::simulate
