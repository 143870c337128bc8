// Drawing of range images: depth-buffered triangles, interpolated in 1/z, which is exact on their planes.
#include "range_image.h"

#include <scansteps/error.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3f;

Vector vectorAt(std::span<const float> list, std::size_t n)
{
    return Eigen::Map<const Vector>(&list[3 * n]);
}

class Drawer
{
  public:
    Drawer(const ViewMesh& mesh, const RangeLimits& limits) : mesh_(mesh), limits_(limits) {}

    RangeImage image()
    {
        chooseGrid();
        prepareVertices();
        const auto count = std::size_t(image_.width) * std::size_t(image_.height);
        image_.depth.assign(count, 0);
        image_.factor.assign(count, 0);
        image_.weight.assign(count, 0);
        image_.rgb.assign(3 * count, 128);
        quality_.assign(count, 0);
        for (std::size_t t = 0; t < mesh_.indices.size() / 3; ++t) draw(t);
        weighCells();
        return std::move(image_);
    }

  private:
    bool showsFront(std::size_t t, Vector& normal) const
    {
        const Vector a = corner(t, 0), b = corner(t, 1), c = corner(t, 2);
        normal = (b - a).cross(c - a);
        return a.z() > 0 && b.z() > 0 && c.z() > 0 && normal.dot(a) < 0;
    }

    Vector corner(std::size_t t, std::size_t i) const
    {
        return vectorAt(mesh_.vertices, mesh_.indices[3 * t + i]);
    }

    void chooseGrid()
    {
        Eigen::Array2f low = Eigen::Array2f::Constant(std::numeric_limits<float>::max()), high = -low;
        std::vector<float> areas;
        const std::size_t count = mesh_.indices.size() / 3, stride = count / 20000 + 1;
        Vector normal;
        for (std::size_t t = 0; t < count; ++t) {
            isFront_.push_back(showsFront(t, normal));
            if (!isFront_.back()) {
                ++image_.turnedAway;
                continue;
            }
            std::array<Eigen::Array2f, 3> p;
            for (std::size_t i = 0; i < 3; ++i) {
                p[i] = corner(t, i).head<2>() / corner(t, i).z();
                low = low.min(p[i]);
                high = high.max(p[i]);
            }
            if (t % stride != 0) continue;
            const Eigen::Array2f a = p[1] - p[0], b = p[2] - p[0];
            areas.push_back(std::abs(a.x() * b.y() - a.y() * b.x()));
        }
        if (areas.empty()) fail("no triangle shows its front to the camera");
        std::nth_element(areas.begin(), areas.begin() + std::ptrdiff_t(areas.size() / 2), areas.end());
        const Eigen::Array2f extent = high - low;
        const double pitch =
            std::max(std::sqrt(double(areas[areas.size() / 2])),
                     std::sqrt(double(extent.x()) * double(extent.y()) / double(limits_.maxPixels)));
        const double pixels = (double(extent.x()) / pitch + 3) * (double(extent.y()) / pitch + 3);
        if (!(pixels < 2.0 * double(limits_.maxPixels))) fail("the view has no extent or no finite one");
        image_.focal = float(1 / pitch);
        image_.left = 1 - low.x() * image_.focal;
        image_.top = 1 - low.y() * image_.focal;
        image_.width = int(extent.x() * image_.focal) + 3;
        image_.height = int(extent.y() * image_.focal) + 3;
    }

    // Pixel, 1 / z, and normal of every vertex.
    void prepareVertices()
    {
        const std::size_t count = mesh_.vertices.size() / 3;
        std::vector<Vector> normals(count, Vector::Zero());
        Vector normal;
        for (std::size_t t = 0; t < mesh_.indices.size() / 3; ++t)
            if (showsFront(t, normal))
                for (std::size_t i = 0; i < 3; ++i) normals[mesh_.indices[3 * t + i]] += normal;
        vertices_.resize(count);
        for (std::size_t n = 0; n < count; ++n) {
            const Vector p = vectorAt(mesh_.vertices, n);
            const float nearness = 1 / p.z();
            const float cosine = std::min(0.0F, normals[n].normalized().dot(p.normalized()));
            const float sigma = mesh_.sigma.empty() ? 1 : std::max(mesh_.sigma[n], 1e-4F);
            vertices_[n] = {p.x() * nearness * image_.focal + image_.left,
                            p.y() * nearness * image_.focal + image_.top, nearness,
                            -cosine * p.norm() * nearness, cosine * cosine / (sigma * sigma)};
        }
    }

    void draw(std::size_t t)
    {
        if (!isFront_[t]) return;
        const std::uint32_t* corners = &mesh_.indices[3 * t];
        const Vertex &a = vertices_[corners[0]], &b = vertices_[corners[1]], &c = vertices_[corners[2]];
        const float area = (b.u - a.u) * (c.v - a.v) - (b.v - a.v) * (c.u - a.u);
        if (area == 0) return;
        const int x0 = int(std::ceil(std::min({a.u, b.u, c.u}))), x1 = int(std::max({a.u, b.u, c.u}));
        const int y0 = int(std::ceil(std::min({a.v, b.v, c.v}))), y1 = int(std::max({a.v, b.v, c.v}));
        constexpr float kOnEdge = -1e-4F;  // pixels on the common edge of two triangles belong to either
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const float du = float(x) - a.u, dv = float(y) - a.v;
                const float wb = (du * (c.v - a.v) - dv * (c.u - a.u)) / area;
                const float wc = (dv * (b.u - a.u) - du * (b.v - a.v)) / area;
                const float wa = 1 - wb - wc;
                if (wa < kOnEdge || wb < kOnEdge || wc < kOnEdge) continue;
                const float z = 1 / (wa * a.nearness + wb * b.nearness + wc * c.nearness);
                const auto at = std::size_t(y) * std::size_t(image_.width) + std::size_t(x);
                if (image_.depth[at] != 0 && image_.depth[at] <= z) continue;
                image_.depth[at] = z;
                image_.factor[at] = wa * a.factor + wb * b.factor + wc * c.factor;
                quality_[at] = std::max(0.0F, wa * a.quality + wb * b.quality + wc * c.quality);
                if (mesh_.colours.empty()) continue;
                for (std::size_t i = 0; i < 3; ++i)
                    image_.rgb[3 * at + i] = std::uint8_t(std::clamp(mesh_.colours[3 * t + i], 0.0F, 255.0F));
            }
    }

    // A slope of 80 degrees across the diagonal of a cell; more is a step.
    bool isCell(std::size_t at) const
    {
        const std::size_t w = std::size_t(image_.width);
        const auto& z = image_.depth;
        const float low = std::min({z[at], z[at + 1], z[at + w], z[at + w + 1]});
        const float high = std::max({z[at], z[at + 1], z[at + w], z[at + w + 1]});
        return low > 0 && high - low < 8 * low / image_.focal;
    }

    void weighCells()
    {
        const std::size_t w = std::size_t(image_.width), h = std::size_t(image_.height);
        std::vector<float> distance(w * h, 0);  // to the next cell that is none, in pixels, by a chamfer
        for (std::size_t y = 0; y + 1 < h; ++y)
            for (std::size_t x = 0; x + 1 < w; ++x) distance[y * w + x] = isCell(y * w + x) ? 1e6F : 0;
        const auto relax = [&](std::size_t at, std::size_t from, float step) {
            distance[at] = std::min(distance[at], distance[from] + step);
        };
        constexpr float kDiagonal = 1.4142135F;
        for (std::size_t at = w + 1; at < w * h - w - 1; ++at) {
            relax(at, at - 1, 1);
            relax(at, at - w - 1, kDiagonal);
            relax(at, at - w, 1);
            relax(at, at - w + 1, kDiagonal);
        }
        for (std::size_t at = w * h - w - 2; at > w; --at) {
            relax(at, at + 1, 1);
            relax(at, at + w + 1, kDiagonal);
            relax(at, at + w, 1);
            relax(at, at + w - 1, kDiagonal);
        }
        for (std::size_t at = w + 1; at < w * h - w - 1; ++at) {
            if (distance[at] == 0) continue;
            const float inside = limits_.contour > 0 ? std::min(1.0F, distance[at] / limits_.contour) : 1.0F;
            const float least =
                std::min({quality_[at], quality_[at + 1], quality_[at + w], quality_[at + w + 1]});
            image_.weight[at] = least * inside * inside;
        }
    }

    struct Vertex
    {
        float u, v, nearness, factor, quality;
    };
    const ViewMesh& mesh_;
    const RangeLimits& limits_;
    RangeImage image_;
    std::vector<bool> isFront_;
    std::vector<Vertex> vertices_;
    std::vector<float> quality_;
};

}  // namespace

RangeImage rangeImageOf(const ViewMesh& mesh, const RangeLimits& limits)
{
    return Drawer(mesh, limits).image();
}

}  // namespace scansteps::scan
