// The fusion: range images, blocks near their surfaces, integration, extraction, colours.
#include "fusion.h"

#include <scansteps/error.h>

#include <Eigen/Geometry>
#include <algorithm>
#include <climits>
#include <cmath>
#include <utility>

namespace scansteps::scan {
namespace {

// What a block costs besides its voxels: its part of the map, and of the surface while it is extracted and
// repaired.
constexpr std::size_t kSurfacePerBlock = 4096;

Eigen::Vector3f vertexAt(const SurfaceMesh& mesh, std::size_t n)
{
    return Eigen::Map<const Eigen::Vector3f>(&mesh.vertices[3 * n]);
}

std::vector<float> normalsOf(const SurfaceMesh& mesh)
{
    std::vector<float> normals(mesh.vertices.size(), 0);
    for (std::size_t i = 0; i < mesh.indices.size(); i += 3) {
        const std::uint32_t* t = &mesh.indices[i];
        const Eigen::Vector3f p = vertexAt(mesh, t[0]);
        const Eigen::Vector3f normal = (vertexAt(mesh, t[1]) - p).cross(vertexAt(mesh, t[2]) - p);
        for (int k = 0; k < 3; ++k) Eigen::Map<Eigen::Vector3f>(&normals[3 * std::size_t(t[k])]) += normal;
    }
    for (std::size_t n = 0; n < normals.size(); n += 3) Eigen::Map<Eigen::Vector3f>(&normals[n]).normalize();
    return normals;
}

// The weight of a view at a point of its surface, and its colour there.
float seen(const RangeImage& image, const Eigen::Vector3f& point, float truncation, Eigen::Vector3f& colour)
{
    if (!(point.z() > 0)) return 0;
    const float u = point.x() * image.focal / point.z() + image.left;
    const float v = point.y() * image.focal / point.z() + image.top;
    if (!(u >= 0 && v >= 0 && u < float(image.width - 1) && v < float(image.height - 1))) return 0;
    const auto cell = std::size_t(v) * std::size_t(image.width) + std::size_t(u);
    if (image.weight[cell] <= 0) return 0;
    const auto pixel = std::size_t(v + 0.5F) * std::size_t(image.width) + std::size_t(u + 0.5F);
    if (std::abs(image.depth[pixel] - point.z()) * image.factor[pixel] > truncation) return 0;
    for (int i = 0; i < 3; ++i) colour[i] = image.rgb[3 * pixel + std::size_t(i)];
    return image.weight[cell];
}

}  // namespace

Fusion::Fusion(const FusionSettings& settings) : settings_(settings) {}

void Fusion::reserve(std::size_t bytes)
{
    reserved_ += bytes;
    if (reserved_ + blocks_.size() * (sizeof(VoxelBlock) + kSurfacePerBlock) > settings_.memory)
        failf("more memory is needed than sfuse.memory = %zu MB; raise it, or sfuse.voxel = %g mm",
              settings_.memory >> 20, settings_.voxel);
}

std::int64_t Fusion::add(const ViewMesh& mesh, const Pose& pose)
{
    View view{rangeImageOf(mesh, settings_.range), {}, pose};
    view.grid.step = pose.rotation * settings_.voxel;
    view.grid.origin = pose.translation;
    reserve(view.image.bytes());
    const std::vector<VoxelBlock*> blocks = blocksNear(view);
    integrateView(view.image, view.grid, float(settings_.truncation * settings_.voxel), blocks);
    const std::int64_t turnedAway = view.image.turnedAway;
    views_.push_back(std::move(view));
    return turnedAway;
}

std::vector<VoxelBlock*> Fusion::blocksNear(const View& view)
{
    const RangeImage& image = view.image;
    const Pose toObject = view.pose.inverse();
    const Eigen::Matrix3f rotation = toObject.rotation.cast<float>() / float(kBlockSide * settings_.voxel);
    const Eigen::Vector3f shift = toObject.translation.cast<float>() / float(kBlockSide * settings_.voxel);
    // Cells at the surface reach less than 2 voxels; half of the truncation leaves room for views that
    // disagree.
    const auto reach = float(std::max(2.0, settings_.truncation / 2) / kBlockSide);
    const auto stamp = std::uint32_t(views_.size() + 1);
    std::vector<std::size_t> numbers;
    Eigen::Vector3i lastLow = Eigen::Vector3i::Constant(INT_MAX), lastHigh = lastLow;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x) {
            const std::size_t at = std::size_t(y) * std::size_t(image.width) + std::size_t(x);
            if (image.weight[at] <= 0) continue;
            const float z = image.depth[at];
            const Eigen::Vector3f ray((float(x) - image.left) / image.focal,
                                      (float(y) - image.top) / image.focal, 1);
            const Eigen::Vector3f place = rotation * (ray * z) + shift;
            if (!(place.cwiseAbs().maxCoeff() < float(VoxelBlocks::kMaxPlace - 2)))
                failf("points lie too far from the origin for sfuse.voxel = %g mm", settings_.voxel);
            const Eigen::Vector3i low = (place.array() - reach).floor().cast<int>();
            const Eigen::Vector3i high = (place.array() + reach).floor().cast<int>();
            if (low == lastLow && high == lastHigh) continue;
            lastLow = low;
            lastHigh = high;
            for (int k = low.z(); k <= high.z(); ++k)
                for (int j = low.y(); j <= high.y(); ++j)
                    for (int i = low.x(); i <= high.x(); ++i) {
                        const std::size_t n = blocks_.findOrAdd({i, j, k});
                        if (n == stamps_.size()) {
                            stamps_.push_back(0);
                            reserve(0);
                        }
                        if (std::exchange(stamps_[n], stamp) != stamp) numbers.push_back(n);
                    }
        }
    std::vector<VoxelBlock*> blocks;
    for (const std::size_t n : numbers) blocks.push_back(&blocks_[n]);
    return blocks;
}

std::vector<float> Fusion::coloursOf(const FusedMesh& mesh) const
{
    const SurfaceMesh& surface = mesh.surface;
    const std::size_t measured = mesh.repair.measuredVertices;
    std::vector<Eigen::Vector3f> sums(measured, Eigen::Vector3f::Zero());
    std::vector<float> weights(measured, 0);
    const auto truncation = float(settings_.truncation * settings_.voxel);
    for (const View& view : views_) {
        const Eigen::Matrix3f rotation = view.pose.rotation.cast<float>();
        const Eigen::Vector3f shift = view.pose.translation.cast<float>();
        Eigen::Vector3f colour;
        for (std::size_t n = 0; n < measured; ++n) {
            const Eigen::Vector3f point = rotation * vertexAt(surface, n) + shift;
            const Eigen::Vector3f normal = rotation * Eigen::Map<const Eigen::Vector3f>(&mesh.normals[3 * n]);
            if (normal.dot(point) >= 0) continue;  // shows its back
            const float weight = seen(view.image, point, truncation, colour);
            if (weight <= 0) continue;
            sums[n] += weight * colour;
            weights[n] += weight;
        }
    }
    Eigen::Vector3d total = Eigen::Vector3d::Zero();
    std::size_t counted = 0;
    for (std::size_t n = 0; n < measured; ++n)
        if (weights[n] > 0) {
            sums[n] /= weights[n];
            total += sums[n].cast<double>();
            ++counted;
        }
    const Eigen::Vector3f mean = (total / double(std::max<std::size_t>(counted, 1))).cast<float>();
    std::vector<float> colours;
    colours.reserve(surface.indices.size());
    for (std::size_t i = 0; i < surface.indices.size(); i += 3) {
        const bool isFilled = i / 3 >= mesh.repair.measuredTriangles;
        Eigen::Vector3f colour = isFilled ? mean : Eigen::Vector3f::Zero();
        for (std::size_t k = i; k < i + 3 && !isFilled; ++k)
            colour += (weights[surface.indices[k]] > 0 ? sums[surface.indices[k]] : mean) / 3;
        for (int c = 0; c < 3; ++c) colours.push_back(std::clamp(colour[c], 0.0F, 255.0F));
    }
    return colours;
}

FusedMesh Fusion::finish()
{
    FusedMesh mesh;
    mesh.blocks = blocks_.size();
    mesh.surface = extractSurface(blocks_, settings_.voxel);
    blocks_ = VoxelBlocks();
    stamps_.clear();
    mesh.repair = repairMesh(mesh.surface, settings_.repair);
    mesh.normals = normalsOf(mesh.surface);
    mesh.colours = coloursOf(mesh);
    views_.clear();
    reserved_ = 0;
    return mesh;
}

}  // namespace scansteps::scan
