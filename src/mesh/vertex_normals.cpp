// Vectorised and scalar vertex normals and STL entries.
#include "mesh/vertex_normals.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "core/prefetch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "mesh/vertex_normals.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep
#include "hwy/highway.h"

#ifndef SCANSTEPS_VERTEX_NORMALS_LIMITS
#define SCANSTEPS_VERTEX_NORMALS_LIMITS
namespace scansteps::mesh {
// Range of lengths whose square a float represents with full precision.
constexpr float kShortest = 1e-18F, kLongest = 1.8e19F;
}  // namespace scansteps::mesh
#endif

// A vector of four lanes is a point, a normal or a colour; the contents of the fourth lane are unspecified.
HWY_BEFORE_NAMESPACE();
namespace scansteps::mesh {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using D4 = hn::CappedTag<float, 4>;
using V4 = hn::Vec<D4>;

/// Loads vertices as four floats. The last vertex is loaded from a copy, because memory may end after it; if
/// it is known not to occur, the comparison is omitted.
template <bool kLastOccurs>
class Points
{
  public:
    explicit Points(const Mesh& mesh) : first_(mesh.vertices.data()), last_(mesh.vertexCount() - 1)
    {
        std::memcpy(copy_, first_ + 3 * last_, 12);
    }
    HWY_INLINE V4 operator[](std::size_t i) const
    {
        return hn::LoadU(D4(), kLastOccurs && i == last_ ? copy_ : first_ + 3 * i);
    }

  private:
    const float* first_;
    std::size_t last_;
    alignas(16) float copy_[4] = {};
};

HWY_INLINE V4 Rotate(V4 v)  // x, y, z to y, z, x
{
    alignas(16) static constexpr std::int32_t kLanes[4] = {1, 2, 0, 3};
    return hn::TableLookupLanes(v, hn::SetTableIndices(D4(), kLanes));
}

/// Sums in lane order z, x, y, which the cross product yields without a final rotation.
template <bool kLastOccurs>
void Accumulate(const Mesh& mesh, std::span<const std::uint32_t> indices, Normal* HWY_RESTRICT sums)
{
    const D4 d;
    const Points<kLastOccurs> points(mesh);
    const std::uint32_t* const end = indices.data() + indices.size();
    for (const std::uint32_t* corner = indices.data(); corner != end; corner += 3) {
        const V4 a = points[corner[0]];
        const V4 u = hn::Sub(points[corner[1]], a);
        const V4 v = hn::Sub(points[corner[2]], a);
        const V4 n = hn::Sub(hn::Mul(u, Rotate(v)), hn::Mul(Rotate(u), v));
        for (int i = 0; i < 3; ++i) {
            float* sum = sums[corner[i]].v;
            hn::Store(hn::Add(hn::Load(d, sum), n), d, sum);
        }
    }
}

/// Converts sums z, x, y to unit normals x, y, z, 0. Returns the number of normals converted.
std::size_t Normalise(std::span<Normal> normals)
{
    const hn::ScalableTag<float> d;
    using V = hn::Vec<decltype(d)>;
    const std::size_t lanes = hn::Lanes(d);
    const V shortest = hn::Set(d, kShortest), longest = hn::Set(d, kLongest);
    std::size_t i = 0;
    for (; i + lanes <= normals.size(); i += lanes) {
        V x, y, z, w;
        hn::LoadInterleaved4(d, normals[i].v, z, x, y, w);
        const V length = hn::Sqrt(hn::Add(hn::Add(hn::Mul(x, x), hn::Mul(y, y)), hn::Mul(z, z)));
        const auto sound = hn::And(hn::Ge(length, shortest), hn::Le(length, longest));
        if (!hn::AllTrue(d, sound)) {
            for (Normal& n : normals.subspan(i, lanes)) n = scalar::unitNormal(n.v[1], n.v[2], n.v[0]);
            continue;
        }
        const V scale = hn::Div(hn::Set(d, 1.0F), length);
        hn::StoreInterleaved4(hn::Mul(x, scale), hn::Mul(y, scale), hn::Mul(z, scale), hn::Zero(d), d,
                              normals[i].v);
    }
    return i;
}

IndexRange Range(std::span<const std::uint32_t> indices)
{
    const hn::ScalableTag<std::uint32_t> d;
    const std::size_t lanes = hn::Lanes(d);
    const IndexRange none;
    auto smallest = hn::Set(d, none.smallest), largest = hn::Set(d, none.largest);
    std::size_t i = 0;
    for (; i + lanes <= indices.size(); i += lanes) {
        prefetch(&indices[i]);
        const auto v = hn::LoadU(d, &indices[i]);
        smallest = hn::Min(smallest, v);
        largest = hn::Max(largest, v);
    }
    const IndexRange rest = rangeOf(indices.subspan(i));
    return scalar::join(rest,
                        {hn::GetLane(hn::MinOfLanes(d, smallest)), hn::GetLane(hn::MaxOfLanes(d, largest))});
}

IndexRange VertexNormals(const Mesh& mesh, std::span<Normal> normals)
{
    constexpr std::size_t kBlock =
        std::size_t{3} * 2048;  // indices that stay in the cache between check and use
    IndexRange range;
    for (std::size_t i = 0; i < mesh.indices.size(); i += kBlock) {
        const auto indices = mesh.indices.subspan(i, std::min(kBlock, mesh.indices.size() - i));
        const IndexRange here = Range(indices);
        range = scalar::join(range, here);
        if (range.largest >= mesh.vertexCount()) return range;
        const bool lastOccurs = here.largest + 1 == mesh.vertexCount();
        (lastOccurs ? Accumulate<true> : Accumulate<false>)(mesh, indices, normals.data());
    }
    for (std::size_t i = Normalise(normals); i < normals.size(); ++i) {
        const float* n = normals[i].v;
        normals[i] = scalar::unitNormal(n[1], n[2], n[0]);
    }
    return range;
}

HWY_INLINE void StoreBytes(V4 v, char* out)
{
    const hn::Repartition<std::uint8_t, D4> d8;
    hn::StoreU(hn::BitCast(d8, v), d8, reinterpret_cast<std::uint8_t*>(out));
}

// Truncates; values that do not fit an integer become negative.
#if HWY_ARCH_X86
HWY_INLINE hn::Vec<hn::RebindToSigned<D4>> Truncated(V4 v)
{
    return {_mm_cvttps_epi32(v.raw)};
}
#else
HWY_INLINE hn::Vec<hn::RebindToSigned<D4>> Truncated(V4 v)
{
    const hn::RebindToSigned<D4> di;
    const V4 limit = hn::Set(D4(), 256.0F);
    return hn::ConvertTo(di, hn::IfThenElse(hn::Lt(v, limit), v, hn::Neg(limit)));
}
#endif

/// Attribute words of four triangles with consecutive colours (the float after them is also read): the upper
/// five bits of each component below a set bit 15. The bits of all components are ORed into `seen`.
using D16 = hn::Repartition<std::int16_t, D4>;
HWY_INLINE hn::Vec<hn::RebindToSigned<D4>> ColourWords(const float* rgb, hn::Vec<D16>& seen)
{
    const D4 d;
    const hn::RebindToSigned<D4> di;
    const D16 d16;
    const hn::Repartition<std::uint16_t, D4> du16;
    alignas(16) static constexpr std::int16_t kPlaces[8] = {1024, 32, 1, 0, 1024, 32, 1, 0};
    const auto places = hn::Load(d16, kPlaces);
    const auto pairOf = [&](const float* at) HWY_ATTR {
        const auto pair =
            hn::ReorderDemote2To(d16, Truncated(hn::LoadU(d, at)), Truncated(hn::LoadU(d, at + 3)));
        seen = hn::Or(seen, pair);
        const auto five = hn::BitCast(d16, hn::ShiftRight<3>(hn::BitCast(du16, pair)));
        auto rest = hn::Zero(di);
        const auto sums = hn::ReorderWidenMulAccumulate(di, five, places, hn::Zero(di), rest);
        return hn::RearrangeToOddPlusEven(sums, rest);
    };
    const auto low = pairOf(rgb), high = pairOf(rgb + 6);
    const auto words = hn::Add(hn::ConcatEven(di, high, low), hn::ConcatOdd(di, high, low));
    return hn::Or(words, hn::Set(di, 0x8000));
}

// Vector loads and stores reach beyond an entry, so at least the last one is left to the scalar code. Returns
// the number of entries written, and whether their colours were valid.
template <bool kLastOccurs>
std::pair<std::size_t, bool> Entries(const Mesh& mesh, const Normal* normal, std::size_t first,
                                     std::size_t count, char* out)
{
    const D4 d;
    const V4 third = hn::Set(d, 0.33333334F);
    auto seen = hn::Zero(D16());
    const Points<kLastOccurs> points(mesh);
    // Copies of the mesh's pointers, because byte stores may alias the mesh.
    const std::uint32_t* corner = mesh.indices.data() + 3 * first;
    const float* rgb = mesh.colours.data() + 3 * first;
    std::size_t done = 0;
    for (; done + 4 < count; done += 4, rgb += 12) {
        prefetch(corner);
        prefetch(rgb);
        alignas(16) std::int32_t words[4];
        hn::Store(ColourWords(rgb, seen), hn::RebindToSigned<D4>(), words);
        const auto entry = [&](std::int32_t word) HWY_ATTR {
            const std::size_t a = corner[0], b = corner[1], c = corner[2];
            V4 sum = hn::Add(hn::Load(d, normal[a].v), hn::Load(d, normal[b].v));
            sum = hn::Add(sum, hn::Load(d, normal[c].v));
            StoreBytes(hn::Mul(sum, third), out);
            StoreBytes(points[a], out + 12);
            StoreBytes(points[b], out + 24);
            StoreBytes(points[c], out + 36);
            std::memcpy(out + 48, &word, 2);
            corner += 3;
            out += kStlEntrySize;
        };
        for (const std::int32_t word : words) entry(word);
    }
    const auto beyond = hn::And(seen, hn::Set(D16(), std::int16_t(0xFF00 - 0x10000)));
    return {done, hn::AllTrue(D16(), hn::Eq(beyond, hn::Zero(D16())))};
}

bool StlEntries(const Mesh& mesh, std::span<const Normal> normals, std::size_t first, std::size_t count,
                char* out)
{
    const IndexRange range = Range(mesh.indices.subspan(3 * first, 3 * count));
    const bool lastOccurs = range.largest + 1 == mesh.vertexCount();
    const auto [done, sound] =
        (lastOccurs ? Entries<true> : Entries<false>)(mesh, normals.data(), first, count, out);
    return scalar::stlEntries(mesh, normals, first + done, count - done, out + done * kStlEntrySize) && sound;
}

}  // namespace HWY_NAMESPACE
}  // namespace scansteps::mesh
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace scansteps::mesh {

HWY_EXPORT(VertexNormals);
HWY_EXPORT(StlEntries);

IndexRange vertexNormals(const Mesh& mesh, std::span<Normal> normals)
{
    return HWY_DYNAMIC_DISPATCH(VertexNormals)(mesh, normals);
}

bool stlEntries(const Mesh& mesh, std::span<const Normal> normals, std::size_t first, std::size_t count,
                char* out)
{
    return count == 0 || HWY_DYNAMIC_DISPATCH(StlEntries)(mesh, normals, first, count, out);
}

namespace scalar {

Normal unitNormal(float x, float y, float z)
{
    const float length = std::sqrt(x * x + y * y + z * z);
    if (length >= kShortest && length <= kLongest) {
        const float scale = 1.0F / length;
        return {{x * scale, y * scale, z * scale, 0}};
    }
    const double exact = std::hypot(double{x}, double{y}, double{z});
    if (!(exact > 0 && exact <= std::numeric_limits<double>::max())) return {};
    return {{static_cast<float>(x / exact), static_cast<float>(y / exact), static_cast<float>(z / exact), 0}};
}

IndexRange join(IndexRange a, IndexRange b)
{
    return {std::min(a.smallest, b.smallest), std::max(a.largest, b.largest)};
}

IndexRange vertexNormals(const Mesh& mesh, std::span<Normal> normals)
{
    const IndexRange range = rangeOf(mesh.indices);
    if (!mesh.indices.empty() && range.largest >= mesh.vertexCount()) return range;
    for (std::size_t k = 0; k < mesh.triangleCount(); ++k) {
        const std::uint32_t* corner = &mesh.indices[3 * k];
        const float* a = &mesh.vertices[std::size_t{3} * corner[0]];
        const float* b = &mesh.vertices[std::size_t{3} * corner[1]];
        const float* c = &mesh.vertices[std::size_t{3} * corner[2]];
        const float u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
        const float v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
        const float n[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) normals[corner[i]].v[j] += n[j];
    }
    for (Normal& n : normals) n = unitNormal(n.v[0], n.v[1], n.v[2]);
    return range;
}

bool stlEntries(const Mesh& mesh, std::span<const Normal> normals, std::size_t first, std::size_t count,
                char* out)
{
    bool sound = true;
    const auto five = [&](float c) {
        const bool fits = c > -1.0F && c < 256.0F;
        sound &= fits;
        return fits ? static_cast<int>(c) >> 3 : 0;
    };
    for (std::size_t k = first; k < first + count; ++k, out += kStlEntrySize) {
        const std::uint32_t* corner = &mesh.indices[3 * k];
        float values[12];
        for (int j = 0; j < 3; ++j) {
            const float sum = normals[corner[0]].v[j] + normals[corner[1]].v[j] + normals[corner[2]].v[j];
            values[j] = sum * 0.33333334F;
        }
        for (int i = 0; i < 3; ++i)
            std::memcpy(values + 3 + 3 * i, &mesh.vertices[std::size_t{3} * corner[i]], 12);
        const float* rgb = &mesh.colours[3 * k];
        const auto word =
            static_cast<std::uint16_t>(((five(rgb[0]) + 32) << 10) + (five(rgb[1]) << 5) + five(rgb[2]));
        std::memcpy(out, values, sizeof values);
        std::memcpy(out + sizeof values, &word, sizeof word);
    }
    return sound;
}

}  // namespace scalar
}  // namespace scansteps::mesh
#endif
