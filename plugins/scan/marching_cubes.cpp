// The table of marching cubes, derived from its rule, and the extraction.
#include "marching_cubes.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace scansteps::scan {
namespace {

int edgeBetween(int a, int b)
{
    const int axis = std::countr_zero(unsigned(a ^ b)), low = std::min(a, b);
    const int below = low & ((1 << axis) - 1), above = (low >> (axis + 1)) << axis;
    return 4 * axis + (below | above);
}

// The corners of a face, counter-clockwise seen from outside.
std::array<int, 4> faceCorners(int axis, int side)
{
    const int u = 1 << (axis + 1) % 3, v = 1 << (axis + 2) % 3, base = side << axis;
    if (side == 1) return {base, base | u, base | u | v, base | v};
    return {base, base | v, base | u | v, base | u};
}

bool shareFace(int a, int b)
{
    const auto corners = [](int edge) {
        const int low = lowerCorner(edge);
        return std::pair(low, low | 1 << edge / 4);
    };
    const auto [a0, a1] = corners(a);
    const auto [b0, b1] = corners(b);
    for (int bit = 1; bit < 8; bit <<= 1) {
        const int all = (a0 & a1 & b0 & b1) & bit, none = (a0 | a1 | b0 | b1) & bit;
        if (all != 0 || none == 0) return true;
    }
    return false;
}

// Cuts a polygon into triangles with as few sides in faces of the cell as possible, by dynamic programming.
void triangulate(const std::vector<int>& polygon, CellTriangles& out)
{
    const int n = int(polygon.size());
    std::vector<std::vector<int>> cost(std::size_t(n), std::vector<int>(std::size_t(n), 0)), apex = cost;
    const auto side = [&](int i, int j) {
        if (j == i + 1 || (i == 0 && j == n - 1)) return 0;
        return shareFace(polygon[std::size_t(i)], polygon[std::size_t(j)]) ? 1 : 0;
    };
    for (int length = 2; length < n; ++length)
        for (int i = 0; i + length < n; ++i) {
            const int j = i + length;
            int best = std::numeric_limits<int>::max();
            for (int k = i + 1; k < j; ++k) {
                const int sum = cost[i][k] + cost[k][j] + side(i, k) + side(k, j);
                if (sum >= best) continue;
                best = sum;
                apex[i][j] = k;
            }
            cost[i][j] = best;
        }
    const auto emit = [&](auto&& self, int i, int j) -> void {
        if (j < i + 2) return;
        const int k = apex[i][j];
        out.push_back({std::uint8_t(polygon[std::size_t(i)]), std::uint8_t(polygon[std::size_t(k)]),
                       std::uint8_t(polygon[std::size_t(j)])});
        self(self, i, k);
        self(self, k, j);
    };
    emit(emit, 0, n - 1);
}

CellTriangles trianglesOf(int negative)
{
    const auto isNegative = [&](int corner) { return (negative >> corner & 1) != 0; };
    std::array<int, 12> next;
    next.fill(-1);
    for (int axis = 0; axis < 3; ++axis)
        for (int side = 0; side < 2; ++side) {
            const std::array<int, 4> corners = faceCorners(axis, side);
            const auto at = [&](int i) { return corners[std::size_t(i & 3)]; };
            for (int i = 0; i < 4; ++i) {
                if (!isNegative(at(i)) || isNegative(at(i + 1))) continue;
                int first = i;  // of the run of negative corners that ends here
                while (isNegative(at(first + 3))) first += 3;
                next[std::size_t(edgeBetween(at(first + 3), at(first)))] = edgeBetween(at(i), at(i + 1));
            }
        }
    CellTriangles triangles;
    for (int start = 0; start < 12; ++start) {
        std::vector<int> polygon;
        for (int edge = start; next[std::size_t(edge)] >= 0;) {
            polygon.push_back(edge);
            const int following = next[std::size_t(edge)];
            next[std::size_t(edge)] = -1;
            edge = following;
        }
        if (!polygon.empty()) triangulate(polygon, triangles);
    }
    return triangles;
}

// The values of a block and of the first voxels of the blocks after it.
constexpr int kSide = kBlockSide + 1;

class Extractor
{
  public:
    Extractor(const VoxelBlocks& blocks, double voxel) : blocks_(blocks), voxel_(voxel), info_(blocks.size())
    {
    }

    SurfaceMesh mesh()
    {
        for (std::size_t n = 0; n < blocks_.size(); ++n)
            if (load(n)) {
                active_.push_back(n);
                addVertices(n);
            }
        for (const std::size_t n : active_) {
            findNeighbours(n);
            addTriangles(info_[n]->signs);
        }
        return std::move(mesh_);
    }

  private:
    // A bit for each voxel of the rows that values_ has.
    struct Signs
    {
        std::array<std::uint16_t, std::size_t(kSide) * kSide> negative{}, known{};
    };

    // The vertices of a block are numbered row by row: one for each bit 3 * x + axis whose edge is cut.
    struct BlockInfo
    {
        std::uint32_t first = 0;
        std::array<std::uint32_t, kBlockSide * kBlockSide> mask{};
        std::array<std::uint16_t, kBlockSide * kBlockSide> before{};
        Signs signs;
    };

    static int local(int x, int y, int z) { return (z * kSide + y) * kSide + x; }

    void findNeighbours(std::size_t n)
    {
        neighbours_[0] = std::int64_t(n);
        for (int part = 1; part < 8; ++part)
            neighbours_[std::size_t(part)] =
                blocks_.find(blocks_[n].place + Eigen::Vector3i(part & 1, part >> 1 & 1, part >> 2));
    }

    // Returns whether there are both signs.
    bool load(std::size_t n)
    {
        findNeighbours(n);
        signs_ = {};
        std::uint32_t negative = 0, positive = 0;
        for (int z = 0; z < kSide; ++z)
            for (int y = 0; y < kSide; ++y) {
                const int part = (y >> 3) << 1 | (z >> 3) << 2,
                          row = ((z & 7) * kBlockSide + (y & 7)) * kBlockSide;
                const int at = local(0, y, z);
                std::uint32_t isNegative = 0, isKnown = 0;
                const auto take = [&](std::int64_t number, int from, int to, int count) {
                    if (number < 0) return;
                    const VoxelBlock& block = blocks_[std::size_t(number)];
                    for (int x = 0; x < count; ++x) {
                        const float weight = block.weight[std::size_t(from + x)],
                                    sum = block.sum[std::size_t(from + x)];
                        values_[std::size_t(at + to + x)] = sum / weight;
                        isNegative |= std::uint32_t(sum < 0) << (to + x);
                        isKnown |= std::uint32_t(weight > 0) << (to + x);
                    }
                };
                take(neighbours_[std::size_t(part)], row, 0, kBlockSide);
                take(neighbours_[std::size_t(part | 1)], row, kBlockSide, 1);
                signs_.negative[std::size_t(z * kSide + y)] = std::uint16_t(isNegative);
                signs_.known[std::size_t(z * kSide + y)] = std::uint16_t(isKnown);
                negative |= isNegative & isKnown;
                positive |= ~isNegative & isKnown;
            }
        return negative != 0 && positive != 0;
    }

    // The voxels of a row whose edges along each axis have a vertex.
    std::array<std::uint32_t, 3> cutEdges(int y, int z) const
    {
        const auto at = std::size_t(z * kSide + y);
        const std::uint32_t negative = signs_.negative[at], known = signs_.known[at];
        const auto across = [&](std::uint32_t otherNegative, std::uint32_t otherKnown) {
            return (negative ^ otherNegative) & known & otherKnown & 0xFF;
        };
        return {across(negative >> 1, known >> 1), across(signs_.negative[at + 1], signs_.known[at + 1]),
                across(signs_.negative[at + kSide], signs_.known[at + kSide])};
    }

    void addVertices(std::size_t n)
    {
        constexpr std::array<int, 3> kStep{1, kSide, kSide * kSide};
        constexpr float kNearest = 0.002F;
        info_[n] = std::make_unique<BlockInfo>();
        BlockInfo& info = *info_[n];
        info.first = std::uint32_t(mesh_.vertices.size() / 3);
        info.signs = signs_;
        for (int row = 0; row < kBlockSide * kBlockSide; ++row) {
            info.before[std::size_t(row)] = std::uint16_t(mesh_.vertices.size() / 3 - info.first);
            const int y = row % kBlockSide, z = row / kBlockSide;
            const std::array<std::uint32_t, 3> cut = cutEdges(y, z);
            if ((cut[0] | cut[1] | cut[2]) == 0) continue;
            for (int x = 0; x < kBlockSide; ++x)
                for (int axis = 0; axis < 3; ++axis) {
                    if ((cut[std::size_t(axis)] >> x & 1) == 0) continue;
                    const auto at = std::size_t(local(x, y, z));
                    const float a = values_[at], b = values_[at + std::size_t(kStep[std::size_t(axis)])];
                    info.mask[std::size_t(row)] |= 1U << (3 * x + axis);
                    Eigen::Vector3d place =
                        (kBlockSide * blocks_[n].place + Eigen::Vector3i(x, y, z)).cast<double>();
                    place[axis] += double(std::clamp(a / (a - b), kNearest, 1 - kNearest));
                    for (int i = 0; i < 3; ++i) mesh_.vertices.push_back(float(place[i] * voxel_));
                }
        }
    }

    std::uint32_t vertexOf(int x, int y, int z, int edge) const
    {
        const int corner = lowerCorner(edge);
        x += corner & 1;
        y += corner >> 1 & 1;
        z += corner >> 2;
        const std::int64_t block = neighbours_[std::size_t((x >> 3) | (y >> 3) << 1 | (z >> 3) << 2)];
        const BlockInfo& info = *info_[std::size_t(block)];
        const auto row = std::size_t((z & 7) * kBlockSide + (y & 7));
        const std::uint32_t earlier = info.mask[row] & ((1U << (3 * (x & 7) + edge / 4)) - 1);
        return info.first + info.before[row] + std::uint32_t(std::popcount(earlier));
    }

    void addTriangles(const Signs& signs)
    {
        for (int z = 0; z < kBlockSide; ++z)
            for (int y = 0; y < kBlockSide; ++y) {
                const auto at = std::size_t(z * kSide + y);
                std::array<std::uint32_t, 4> negative;  // of the four rows around a row of cells
                std::uint32_t any = 0, all = 0x1FF, known = 0x1FF;
                for (std::size_t i = 0; i < 4; ++i) {
                    const std::size_t row = at + (i & 1) + (i >> 1) * kSide;
                    negative[i] = signs.negative[row];
                    known &= signs.known[row];
                    any |= negative[i];
                    all &= negative[i];
                }
                known &= known >> 1;
                std::uint32_t crossed = known & (any | any >> 1) & ~(all & all >> 1) & 0xFF;
                for (; crossed != 0; crossed &= crossed - 1) {
                    const int x = std::countr_zero(crossed);
                    std::uint32_t corners = 0;
                    for (std::size_t i = 0; i < 4; ++i) corners |= (negative[i] >> x & 3) << 2 * i;
                    for (const auto& triangle : table_[corners])
                        for (const std::uint8_t edge : triangle)
                            mesh_.indices.push_back(vertexOf(x, y, z, edge));
                }
            }
    }

    const VoxelBlocks& blocks_;
    double voxel_;
    const std::array<CellTriangles, 256>& table_ = cellTable();
    std::vector<std::unique_ptr<BlockInfo>> info_;
    std::vector<std::size_t> active_;
    std::array<float, std::size_t(kSide) * kSide * kSide> values_{};
    std::array<std::int64_t, 8> neighbours_{};
    Signs signs_;
    SurfaceMesh mesh_;
};

}  // namespace

int lowerCorner(int edge)
{
    const int axis = edge / 4, rest = edge % 4;
    return (rest & ((1 << axis) - 1)) | (rest >> axis) << (axis + 1);
}

const std::array<CellTriangles, 256>& cellTable()
{
    static const std::array<CellTriangles, 256> kTable = [] {
        std::array<CellTriangles, 256> table;
        for (int negative = 0; negative < 256; ++negative)
            table[std::size_t(negative)] = trianglesOf(negative);
        return table;
    }();
    return kTable;
}

SurfaceMesh extractSurface(const VoxelBlocks& blocks, double voxel)
{
    return Extractor(blocks, voxel).mesh();
}

}  // namespace scansteps::scan
