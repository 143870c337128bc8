// Integration of views, vectorised and scalar; products and sums are not fused, so that all instruction sets
// agree.
#include "integrate.h"

#include <algorithm>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "plugins/scan/integrate.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"
//

#ifndef SCANSTEPS_SCAN_INTEGRATE_ONCE
#define SCANSTEPS_SCAN_INTEGRATE_ONCE
namespace scansteps::scan {

// The first voxel of a row, in camera coordinates.
inline Eigen::Vector3f rowStart(const VoxelGrid& grid, const VoxelBlock& block, int row)
{
    const Eigen::Vector3d voxel =
        (kBlockSide * block.place + Eigen::Vector3i(0, row % kBlockSide, row / kBlockSide)).cast<double>();
    return (grid.origin + grid.step * voxel).cast<float>();
}

}  // namespace scansteps::scan
#endif

HWY_BEFORE_NAMESPACE();
namespace scansteps::scan {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

// One vector of voxels of a row; `first` is the position of the row, `offset` the number of its voxels.
template <class D>
HWY_INLINE void IntegrateVector(D d, const RangeImage& view, const Eigen::Vector3f& first,
                                const Eigen::Vector3f& step, float truncation, std::size_t offset, float* sum,
                                float* weight)
{
    using V = hn::Vec<D>;
    const hn::RebindToSigned<D> di;
    const auto k = [&](float value) HWY_ATTR { return hn::Set(d, value); };
    const V number = hn::Iota(d, float(offset));
    const auto along = [&](int axis)
                           HWY_ATTR { return hn::Add(k(first[axis]), hn::Mul(number, k(step[axis]))); };
    const V z = along(2);
    const V scale = hn::Div(k(view.focal), z);
    const V u = hn::Add(hn::Mul(along(0), scale), k(view.left));
    const V v = hn::Add(hn::Mul(along(1), scale), k(view.top));
    const auto inside =
        hn::And(hn::And(hn::Gt(z, hn::Zero(d)), hn::And(hn::Ge(u, hn::Zero(d)), hn::Ge(v, hn::Zero(d)))),
                hn::And(hn::Lt(u, k(float(view.width - 1))), hn::Lt(v, k(float(view.height - 1)))));
    if (hn::AllFalse(d, inside)) return;
    const auto column = hn::ConvertTo(di, hn::IfThenElseZero(inside, u)),
               row = hn::ConvertTo(di, hn::IfThenElseZero(inside, v));
    const V fx = hn::Sub(u, hn::ConvertTo(d, column)), fy = hn::Sub(v, hn::ConvertTo(d, row));
    const auto at = hn::Add(hn::Mul(row, hn::Set(di, view.width)), column);
    const V w = hn::IfThenElseZero(inside, hn::GatherIndex(d, view.weight.data(), at));
    if (hn::AllFalse(d, hn::Gt(w, hn::Zero(d)))) return;
    const float* depth = view.depth.data();
    const V a = hn::GatherIndex(d, depth, at), b = hn::GatherIndex(d, depth + 1, at);
    const V c = hn::GatherIndex(d, depth + view.width, at),
            e = hn::GatherIndex(d, depth + view.width + 1, at);
    const V upper = hn::Add(a, hn::Mul(fx, hn::Sub(b, a))), lower = hn::Add(c, hn::Mul(fx, hn::Sub(e, c)));
    const V surface = hn::Add(upper, hn::Mul(fy, hn::Sub(lower, upper)));
    const V distance = hn::Mul(hn::Sub(surface, z), hn::GatherIndex(d, view.factor.data(), at));
    const auto isSeen = hn::And(hn::Gt(w, hn::Zero(d)), hn::Gt(distance, k(-truncation)));
    const V used = hn::IfThenElseZero(isSeen, w);
    const V value = hn::IfThenElseZero(isSeen, hn::Min(distance, k(truncation)));
    hn::StoreU(hn::Add(hn::LoadU(d, sum), hn::Mul(used, value)), d, sum);
    hn::StoreU(hn::Add(hn::LoadU(d, weight), used), d, weight);
}

void IntegrateView(const RangeImage& view, const VoxelGrid& grid, float truncation,
                   std::span<VoxelBlock* const> blocks)
{
    const hn::CappedTag<float, kBlockSide> d;
    const Eigen::Vector3f step = grid.step.col(0).cast<float>();
    for (VoxelBlock* block : blocks)
        for (int row = 0; row < kBlockSide * kBlockSide; ++row) {
            const Eigen::Vector3f first = rowStart(grid, *block, row);
            for (std::size_t x = 0; x < kBlockSide; x += hn::Lanes(d)) {
                const std::size_t at = std::size_t(row) * kBlockSide + x;
                IntegrateVector(d, view, first, step, truncation, x, &block->sum[at], &block->weight[at]);
            }
        }
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::scan
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::scan {

HWY_EXPORT(IntegrateView);

void integrateView(const RangeImage& view, const VoxelGrid& grid, float truncation,
                   std::span<VoxelBlock* const> blocks)
{
    HWY_DYNAMIC_DISPATCH(IntegrateView)(view, grid, truncation, blocks);
}

namespace scalar {
namespace {

void integrateVoxel(const RangeImage& view, float x, float y, float z, float truncation, float& sum,
                    float& weight)
{
    const float scale = view.focal / z;
    const float u = x * scale + view.left, v = y * scale + view.top;
    if (!(z > 0 && u >= 0 && v >= 0 && u < float(view.width - 1) && v < float(view.height - 1))) return;
    const int column = int(u), row = int(v);
    const auto width = std::size_t(view.width), at = std::size_t(row) * width + std::size_t(column);
    const float w = view.weight[at];
    if (!(w > 0)) return;
    const float fx = u - float(column), fy = v - float(row);
    const float* depth = &view.depth[at];
    const float upper = depth[0] + fx * (depth[1] - depth[0]);
    const float lower = depth[width] + fx * (depth[width + 1] - depth[width]);
    const float distance = (upper + fy * (lower - upper) - z) * view.factor[at];
    if (!(distance > -truncation)) return;
    sum += w * std::min(distance, truncation);
    weight += w;
}

}  // namespace

void integrateView(const RangeImage& view, const VoxelGrid& grid, float truncation,
                   std::span<VoxelBlock* const> blocks)
{
    const Eigen::Vector3f step = grid.step.col(0).cast<float>();
    for (VoxelBlock* block : blocks)
        for (int at = 0; at < kBlockVoxels; ++at) {
            const Eigen::Vector3f first = rowStart(grid, *block, at / kBlockSide);
            const auto number = float(at % kBlockSide);
            integrateVoxel(view, first.x() + number * step.x(), first.y() + number * step.y(),
                           first.z() + number * step.z(), truncation, block->sum[std::size_t(at)],
                           block->weight[std::size_t(at)]);
        }
}

}  // namespace scalar
}  // namespace scansteps::scan
#endif
