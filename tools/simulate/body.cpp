#include "body.h"

#include <Eigen/Geometry>

#include <cmath>
#include <stdexcept>
#include <utility>

namespace scansteps::simulate {
namespace {

using Eigen::Vector3d;

Hit hitAt(const Ray& ray, double distance, Vector3d normal, Vector3d geometricNormal)
{
    if (geometricNormal.dot(ray.direction) > 0) {
        geometricNormal = -geometricNormal;
        normal = -normal;
    }
    return {distance, ray.origin + distance * ray.direction, normal, geometricNormal};
}

class Sphere final : public Body
{
  public:
    explicit Sphere(double radius) : radius_(radius) {}
    std::optional<Hit> intersect(const Ray& ray, double limit) const override
    {
        const double a = ray.direction.squaredNorm();
        const double b = ray.direction.dot(ray.origin);
        // The foot of the perpendicular from the centre, which avoids the cancellation of b² − a c.
        const Vector3d foot = ray.origin - b / a * ray.direction;
        const double square = radius_ * radius_ - foot.squaredNorm();
        if (square < 0) return {};
        const double half = std::sqrt(square / a);
        for (const double t : {-b / a - half, -b / a + half}) {
            if (!(t > 0 && t < limit)) continue;
            const Vector3d normal = (ray.origin + t * ray.direction) / radius_;
            return hitAt(ray, t, normal, normal);
        }
        return {};
    }

  private:
    double radius_;
};

class Rectangle final : public Body
{
  public:
    Rectangle(double width, double height) : half_(width / 2, height / 2) {}
    std::optional<Hit> intersect(const Ray& ray, double limit) const override
    {
        const double t = -ray.origin.z() / ray.direction.z();
        if (!(t > 0 && t < limit)) return {};
        Hit hit = hitAt(ray, t, Vector3d::UnitZ(), Vector3d::UnitZ());
        if (std::abs(hit.point.x()) > half_.x() || std::abs(hit.point.y()) > half_.y()) return {};
        hit.point.z() = 0;
        return hit;
    }

  private:
    Eigen::Vector2d half_;
};

struct ReleaseDevice
{
    void operator()(RTCDevice device) const { rtcReleaseDevice(device); }
};
struct ReleaseScene
{
    void operator()(RTCScene scene) const { rtcReleaseScene(scene); }
};
using Device = std::unique_ptr<std::remove_pointer_t<RTCDevice>, ReleaseDevice>;
using Scene = std::unique_ptr<std::remove_pointer_t<RTCScene>, ReleaseScene>;

/// One instruction set and one thread while building, so that every machine traces the same rays alike.
RTCDevice sharedDevice()
{
    static const Device device(rtcNewDevice("isa=sse4.2,threads=1"));
    if (!device) throw std::runtime_error("Embree gives no device");
    return device.get();
}

class Triangles final : public Body
{
  public:
    explicit Triangles(Mesh mesh) : mesh_(std::move(mesh)), scene_(rtcNewScene(sharedDevice()))
    {
        if (mesh_.triangles.empty()) throw std::runtime_error("the mesh has no triangles");
        RTCGeometry geometry = rtcNewGeometry(sharedDevice(), RTC_GEOMETRY_TYPE_TRIANGLE);
        const auto buffer = [geometry](RTCBufferType type, RTCFormat format, std::size_t bytes,
                                       std::size_t count) {
            return rtcSetNewGeometryBuffer(geometry, type, 0, format, bytes, count);
        };
        auto* vertices =
            static_cast<float*>(buffer(RTC_BUFFER_TYPE_VERTEX, RTC_FORMAT_FLOAT3, 12, mesh_.vertices.size()));
        auto* indices = static_cast<unsigned*>(
            buffer(RTC_BUFFER_TYPE_INDEX, RTC_FORMAT_UINT3, 12, mesh_.triangles.size()));
        if (vertices == nullptr || indices == nullptr)
            throw std::runtime_error("Embree: no memory for the mesh");
        for (const Vector3d& vertex : mesh_.vertices)
            for (const double value : vertex) *vertices++ = static_cast<float>(value);
        for (const auto& triangle : mesh_.triangles)
            for (const int value : triangle) *indices++ = static_cast<unsigned>(value);
        rtcCommitGeometry(geometry);
        rtcAttachGeometry(scene_.get(), geometry);
        rtcReleaseGeometry(geometry);
        // Robust: no ray passes between two triangles.
        rtcSetSceneFlags(scene_.get(), RTC_SCENE_FLAG_ROBUST);
        rtcCommitScene(scene_.get());
    }

    std::optional<Hit> intersect(const Ray& ray, double limit) const override
    {
        RTCRayHit query{};
        query.ray = embreeRay(ray, limit);
        query.hit.geomID = RTC_INVALID_GEOMETRY_ID;
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcIntersect1(scene_.get(), &context, &query);
        if (query.hit.geomID == RTC_INVALID_GEOMETRY_ID) return {};
        return refined(ray, query.hit.primID, query.ray.tfar);
    }

    bool blocks(const Ray& ray, double limit) const override
    {
        RTCRay query = embreeRay(ray, limit);
        RTCIntersectContext context;
        rtcInitIntersectContext(&context);
        rtcOccluded1(scene_.get(), &context, &query);
        return query.tfar < 0;
    }

  private:
    static RTCRay embreeRay(const Ray& ray, double limit)
    {
        RTCRay result{};
        result.org_x = static_cast<float>(ray.origin.x());
        result.org_y = static_cast<float>(ray.origin.y());
        result.org_z = static_cast<float>(ray.origin.z());
        result.dir_x = static_cast<float>(ray.direction.x());
        result.dir_y = static_cast<float>(ray.direction.y());
        result.dir_z = static_cast<float>(ray.direction.z());
        result.tfar = static_cast<float>(limit);
        result.mask = ~0U;
        return result;
    }

    const Vector3d& corner(std::size_t triangle, std::size_t i) const
    {
        return mesh_.vertices[static_cast<std::size_t>(mesh_.triangles[triangle][i])];
    }

    Hit refined(const Ray& ray, std::size_t triangle, double found) const
    {
        const Vector3d& a = corner(triangle, 0);
        const Vector3d ab = corner(triangle, 1) - a;
        const Vector3d ac = corner(triangle, 2) - a;
        const Vector3d area = ab.cross(ac);
        const double across = area.dot(ray.direction);
        // A ray along the plane of the triangle has no better point than the one found.
        const double exact = across != 0 ? area.dot(a - ray.origin) / across : found;
        const double t = std::abs(exact - found) < 1e-4 * found ? exact : found;
        const Vector3d geometric = area.normalized();
        if (mesh_.normals.empty()) return hitAt(ray, t, geometric, geometric);
        const Vector3d offset = ray.origin + t * ray.direction - a;
        const double v = area.dot(offset.cross(ac)) / area.squaredNorm();
        const double w = area.dot(ab.cross(offset)) / area.squaredNorm();
        const auto normal = [&](std::size_t i) -> const Vector3d& {
            return mesh_.normals[static_cast<std::size_t>(mesh_.triangles[triangle][i])];
        };
        const Vector3d smooth = (1 - v - w) * normal(0) + v * normal(1) + w * normal(2);
        return hitAt(ray, t, smooth.normalized(), geometric);
    }

    Mesh mesh_;
    Scene scene_;
};

}  // namespace

std::unique_ptr<Body> sphereBody(double radius)
{
    return std::make_unique<Sphere>(radius);
}

std::unique_ptr<Body> rectangleBody(double width, double height)
{
    return std::make_unique<Rectangle>(width, height);
}

std::unique_ptr<Body> meshBody(Mesh mesh)
{
    return std::make_unique<Triangles>(std::move(mesh));
}

}  // namespace scansteps::simulate
