// Triangulation, vectorised and scalar; products and sums are not fused, so that all instruction sets agree.
#include "triangulate.h"

#include <array>
#include <cmath>
#include <limits>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "plugins/scan/triangulate.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//

#ifndef SCANSTEPS_SCAN_TRIANGULATE_ONCE
#define SCANSTEPS_SCAN_TRIANGULATE_ONCE
namespace scansteps::scan {

// The distortion of usual lenses changes by less than a tenth of the way, so that ten rounds reach 1e-10.
constexpr int kRounds = 10;

struct ProjectorFactors
{
    std::array<float, 9> r{};
    std::array<float, 3> t{};
    float centre, perFocal, k1, k2, p1, p2, k3;
    int rounds;

    explicit ProjectorFactors(const Projector& projector)
    {
        for (std::size_t i = 0; i < 9; ++i)
            r[i] =
                static_cast<float>(projector.pose.rotation(static_cast<int>(i / 3), static_cast<int>(i % 3)));
        for (std::size_t i = 0; i < 3; ++i)
            t[i] = static_cast<float>(projector.pose.translation[static_cast<int>(i)]);
        centre = static_cast<float>(projector.centre.x());
        perFocal = static_cast<float>(1 / projector.focal.x());
        const auto& k = projector.distortion;
        k1 = static_cast<float>(k[0]);
        k2 = static_cast<float>(k[1]);
        p1 = static_cast<float>(k[2]);
        p2 = static_cast<float>(k[3]);
        k3 = static_cast<float>(k[4]);
        rounds = projector.hasDistortion() ? kRounds : 0;
    }
};

}  // namespace scansteps::scan
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::scan {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

void DepthOfColumns(const Projector& projector, std::span<const float> rayX, std::span<const float> rayY,
                    std::span<const float> column, std::span<const float> quality, std::span<float> depth,
                    std::span<float> sigma)
{
    const hn::ScalableTag<float> d;
    using V = hn::Vec<decltype(d)>;
    const ProjectorFactors f(projector);
    const auto k = [&](float value) HWY_ATTR { return hn::Set(d, value); };
    const std::size_t lanes = hn::Lanes(d), count = depth.size();
    const V nan = k(std::numeric_limits<float>::quiet_NaN()), largest = k(std::numeric_limits<float>::max());
    std::size_t i = 0;
    for (; i + lanes <= count; i += lanes) {
        const V x = hn::LoadU(d, rayX.data() + i), y = hn::LoadU(d, rayY.data() + i);
        const auto row = [&](std::size_t n) HWY_ATTR {
            return hn::Add(hn::Add(hn::Mul(k(f.r[n]), x), hn::Mul(k(f.r[n + 1]), y)), k(f.r[n + 2]));
        };
        const V a0 = row(0), a1 = row(3), a2 = row(6);
        const V measured = hn::Mul(hn::Sub(hn::LoadU(d, column.data() + i), k(f.centre)), k(f.perFocal));
        V s = measured, z = hn::Zero(d), divisor = hn::Zero(d);
        for (int round = 0;; ++round) {
            divisor = hn::Sub(a0, hn::Mul(s, a2));
            z = hn::Div(hn::Sub(hn::Mul(s, k(f.t[2])), k(f.t[0])), divisor);
            if (round == f.rounds) break;
            const V before = hn::Add(hn::Mul(z, a2), k(f.t[2]));
            const V v = hn::Div(hn::Add(hn::Mul(z, a1), k(f.t[1])), before);
            const V r2 = hn::Add(hn::Mul(s, s), hn::Mul(v, v));
            const V radial =
                hn::Mul(r2, hn::Add(k(f.k1), hn::Mul(r2, hn::Add(k(f.k2), hn::Mul(r2, k(f.k3))))));
            const V shift = hn::Add(hn::Add(hn::Mul(s, radial), hn::Mul(k(2 * f.p1), hn::Mul(s, v))),
                                    hn::Mul(k(f.p2), hn::Add(r2, hn::Mul(k(2), hn::Mul(s, s)))));
            s = hn::Sub(measured, shift);
        }
        const V slope =
            hn::Div(hn::Sub(hn::Mul(k(f.t[2]), a0), hn::Mul(k(f.t[0]), a2)), hn::Mul(divisor, divisor));
        const V before = hn::Add(hn::Mul(z, a2), k(f.t[2]));
        const auto isThere =
            hn::And(hn::And(hn::Gt(z, hn::Zero(d)), hn::Le(z, largest)), hn::Gt(before, hn::Zero(d)));
        const V error = hn::Mul(hn::Abs(slope), hn::Mul(hn::LoadU(d, quality.data() + i), k(f.perFocal)));
        hn::StoreU(hn::IfThenElse(isThere, z, nan), d, depth.data() + i);
        hn::StoreU(hn::IfThenElse(isThere, error, nan), d, sigma.data() + i);
    }
    scalar::depthOfColumns(projector, rayX.subspan(i), rayY.subspan(i), column.subspan(i), quality.subspan(i),
                           depth.subspan(i), sigma.subspan(i));
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::scan
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::scan {

HWY_EXPORT(DepthOfColumns);

void depthOfColumns(const Projector& projector, std::span<const float> rayX, std::span<const float> rayY,
                    std::span<const float> column, std::span<const float> quality, std::span<float> depth,
                    std::span<float> sigma)
{
    HWY_DYNAMIC_DISPATCH(DepthOfColumns)(projector, rayX, rayY, column, quality, depth, sigma);
}

namespace scalar {
namespace {

struct Solution
{
    float depth, slope, before;  // z, its change by the normalised column, z in the projector's coordinates
};

Solution solveDepth(const ProjectorFactors& f, float x, float y, float column)
{
    const auto row = [&](std::size_t n) { return f.r[n] * x + f.r[n + 1] * y + f.r[n + 2]; };
    const float a0 = row(0), a1 = row(3), a2 = row(6);
    const float measured = (column - f.centre) * f.perFocal;
    float s = measured, z = 0, divisor = 0;
    for (int round = 0;; ++round) {
        divisor = a0 - s * a2;
        z = (s * f.t[2] - f.t[0]) / divisor;
        if (round == f.rounds) break;
        const float before = z * a2 + f.t[2];
        const float v = (z * a1 + f.t[1]) / before;
        const float r2 = s * s + v * v;
        const float radial = r2 * (f.k1 + r2 * (f.k2 + r2 * f.k3));
        s = measured - (s * radial + 2 * f.p1 * (s * v) + f.p2 * (r2 + 2 * (s * s)));
    }
    return {z, (f.t[2] * a0 - f.t[0] * a2) / (divisor * divisor), z * a2 + f.t[2]};
}

}  // namespace

void depthOfColumns(const Projector& projector, std::span<const float> rayX, std::span<const float> rayY,
                    std::span<const float> column, std::span<const float> quality, std::span<float> depth,
                    std::span<float> sigma)
{
    const ProjectorFactors f(projector);
    for (std::size_t i = 0; i < depth.size(); ++i) {
        const auto [z, slope, before] = solveDepth(f, rayX[i], rayY[i], column[i]);
        const bool isThere = z > 0 && z <= std::numeric_limits<float>::max() && before > 0;
        depth[i] = isThere ? z : std::numeric_limits<float>::quiet_NaN();
        sigma[i] =
            isThere ? std::abs(slope) * (quality[i] * f.perFocal) : std::numeric_limits<float>::quiet_NaN();
    }
}

}  // namespace scalar

RayTable raysOf(const CameraModel& camera)
{
    RayTable rays;
    const auto count = std::size_t(camera.size.x()) * std::size_t(camera.size.y());
    rays.x.reserve(count);
    rays.y.reserve(count);
    for (int y = 0; y < camera.size.y(); ++y)
        for (int x = 0; x < camera.size.x(); ++x) {
            const Eigen::Vector2d ray = camera.normalised({x, y});
            rays.x.push_back(static_cast<float>(ray.x()));
            rays.y.push_back(static_cast<float>(ray.y()));
        }
    return rays;
}

PointGrid pointsOf(const RayTable& rays, std::span<const float> depth, std::span<const float> sigma)
{
    PointGrid grid;
    grid.index.resize(depth.size());
    std::size_t count = 0;
    for (std::size_t i = 0; i < depth.size(); ++i)
        grid.index[i] = std::isnan(depth[i]) ? -1 : static_cast<std::int32_t>(count++);
    grid.points.resize(3 * count);
    grid.sigma.resize(count);
    grid.pixels.resize(count);
    for (std::size_t i = 0; i < depth.size(); ++i) {
        if (grid.index[i] < 0) continue;
        const auto n = static_cast<std::size_t>(grid.index[i]);
        grid.points[3 * n] = rays.x[i] * depth[i];
        grid.points[3 * n + 1] = rays.y[i] * depth[i];
        grid.points[3 * n + 2] = depth[i];
        grid.sigma[n] = sigma[i];
        grid.pixels[n] = i;
    }
    return grid;
}

std::vector<float> rowResiduals(const Projector& projector, const RayTable& rays,
                                std::span<const float> depth, std::span<const float> row)
{
    std::vector<float> residuals(depth.size(), std::numeric_limits<float>::quiet_NaN());
    for (std::size_t i = 0; i < depth.size(); ++i) {
        if (std::isnan(depth[i]) || std::isnan(row[i])) continue;
        const Eigen::Vector3d point =
            Eigen::Vector3d(double{rays.x[i]}, double{rays.y[i]}, 1) * double{depth[i]};
        residuals[i] = static_cast<float>(double{row[i]} - projector.project(projector.pose * point).y());
    }
    return residuals;
}

}  // namespace scansteps::scan
#endif
