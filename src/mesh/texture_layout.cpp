// Grouping of triangles, packing of their rectangles, and texture coordinates.
#include "mesh/texture_layout.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#define STB_RECT_PACK_IMPLEMENTATION
#define STBRP_STATIC
#include <stb/stb_rect_pack.h>

#include "scansteps/error.h"

namespace scansteps::mesh {

namespace {

constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

void checkPixelCount(const Mesh& mesh)
{
    if (mesh.pixels.size() != 2 * mesh.vertexCount())
        failf("\"Pixels\" has %zu values for %zu vertices", mesh.pixels.size(), mesh.vertexCount());
}

/// Returns the picture of each triangle, after validating "Views".
class Views
{
  public:
    Views(const Mesh& mesh, std::size_t pictures) : mesh_(mesh)
    {
        const std::size_t count = mesh.viewsOfTriangles ? mesh.triangleCount() : mesh.vertexCount();
        if (mesh.views.size() != count)
            failf("\"Views\" has %zu values for %zu %s", mesh.views.size(), count,
                  mesh.viewsOfTriangles ? "triangles (an array of 1 x N x 1 is for vertices)"
                                        : "vertices (an array of N x 1 x 1 is for triangles)");
        for (std::size_t i = 0; i < mesh.views.size(); ++i)
            if (mesh.views[i] < 0 || static_cast<std::size_t>(mesh.views[i]) >= pictures)
                failf("\"Views\": entry %zu is %d, but there are %zu images", i, mesh.views[i], pictures);
    }

    int of(std::size_t triangle) const
    {
        if (mesh_.viewsOfTriangles) return mesh_.views[triangle];
        const std::uint32_t* corner = &mesh_.indices[3 * triangle];
        const int view = mesh_.views[corner[0]];
        if (mesh_.views[corner[1]] != view || mesh_.views[corner[2]] != view)
            failf("\"Views\": triangle %zu joins vertices of different images", triangle);
        return view;
    }

  private:
    const Mesh& mesh_;
};

void checkInside(const Mesh& mesh, std::uint32_t vertex, const PictureView& picture)
{
    const float x = mesh.pixels[std::size_t{2} * vertex];
    const float y = mesh.pixels[std::size_t{2} * vertex + 1];
    const auto inside = [](float v, int size) { return v >= -1.0F && v <= static_cast<float>(size); };
    if (!inside(x, picture.width) || !inside(y, picture.height))
        failf("\"Pixels\": entry %u (%g, %g) lies outside its image of %d x %d", vertex,
              static_cast<double>(x), static_cast<double>(y), picture.width, picture.height);
}

/// Union-find structure for connected triangles.
class Components
{
  public:
    explicit Components(std::size_t count) : parent_(count) { std::iota(parent_.begin(), parent_.end(), 0U); }

    std::uint32_t root(std::uint32_t i)
    {
        while (parent_[i] != i) i = parent_[i] = parent_[parent_[i]];
        return i;
    }
    void join(std::uint32_t a, std::uint32_t b)
    {
        a = root(a);
        b = root(b);
        parent_[std::max(a, b)] = std::min(a, b);  // the first triangle represents its group
    }

  private:
    std::vector<std::uint32_t> parent_;
};

struct Bounds
{
    float left = std::numeric_limits<float>::max(), top = left;
    float right = std::numeric_limits<float>::lowest(), bottom = right;

    void add(float x, float y)
    {
        left = std::min(left, x);
        right = std::max(right, x);
        top = std::min(top, y);
        bottom = std::max(bottom, y);
    }
};

/// Numbers the groups in the order of their first triangles; returns the group of each triangle.
std::vector<std::uint32_t> groupTriangles(const Mesh& mesh, const Views& views, std::size_t pictures,
                                          std::vector<TextureGroup>& groups)
{
    const std::size_t count = mesh.triangleCount();
    std::vector<std::vector<std::uint32_t>> byPicture(pictures);
    for (std::size_t k = 0; k < count; ++k)
        byPicture[static_cast<std::size_t>(views.of(k))].push_back(static_cast<std::uint32_t>(k));
    Components components(count);
    std::vector<std::uint32_t> lastUse(mesh.vertexCount(), kNone);
    for (const auto& triangles : byPicture) {
        for (const std::uint32_t k : triangles)
            for (std::size_t i = 0; i < 3; ++i) {
                std::uint32_t& last = lastUse[mesh.indices[std::size_t{3} * k + i]];
                if (last != kNone) components.join(last, k);
                last = k;
            }
        for (const std::uint32_t k : triangles)  // reset for the next picture
            for (std::size_t i = 0; i < 3; ++i) lastUse[mesh.indices[std::size_t{3} * k + i]] = kNone;
    }
    std::vector<std::uint32_t> groupOf(count);
    for (std::size_t k = 0; k < count; ++k) {
        const std::uint32_t root = components.root(static_cast<std::uint32_t>(k));
        if (root == k) {
            groupOf[k] = static_cast<std::uint32_t>(groups.size());
            groups.emplace_back().picture = views.of(k);
        } else {
            groupOf[k] = groupOf[root];
        }
    }
    return groupOf;
}

/// Sets a group's rectangle from the bounds of its pixels. Returns true if the scale was reduced to fit a
/// page.
bool measure(TextureGroup& group, const Bounds& bounds, const TextureSettings& settings)
{
    group.sourceLeft = static_cast<int>(std::floor(bounds.left));
    group.sourceTop = static_cast<int>(std::floor(bounds.top));
    const int right = static_cast<int>(std::ceil(bounds.right)) - group.sourceLeft;
    const int bottom = static_cast<int>(std::ceil(bounds.bottom)) - group.sourceTop;
    const float room = static_cast<float>(settings.width - 2 * kTextureBorder - 1);
    const float longer = static_cast<float>(std::max({right, bottom, 1}));
    group.scale = std::min(settings.scale, room / longer);
    const auto enlarged = [&](int last) {
        const int inside = static_cast<int>(std::ceil(static_cast<float>(last) * group.scale)) + 1;
        return std::min(inside + 2 * kTextureBorder, settings.width);
    };
    group.width = enlarged(right);
    group.height = enlarged(bottom);
    return group.scale < settings.scale;
}

/// Places all groups, tallest first; returns the number of pages.
int pack(std::vector<TextureGroup>& groups, int width)
{
    std::vector<TextureGroup*> byHeight;
    for (TextureGroup& group : groups) byHeight.push_back(&group);
    std::stable_sort(byHeight.begin(), byHeight.end(),
                     [](const TextureGroup* a, const TextureGroup* b) { return a->height > b->height; });
    std::vector<stbrp_node> nodes(static_cast<std::size_t>(width));
    stbrp_context context;
    stbrp_init_target(&context, width, width, nodes.data(), width);
    int page = 0;
    for (TextureGroup* group : byHeight) {
        stbrp_rect rect{};
        rect.w = group->width;
        rect.h = group->height;
        if (stbrp_pack_rects(&context, &rect, 1) == 0) {
            ++page;
            stbrp_init_target(&context, width, width, nodes.data(), width);
            stbrp_pack_rects(&context, &rect, 1);  // every group fits an empty page
        }
        group->page = page;
        group->left = rect.x;
        group->top = rect.y;
    }
    return page + 1;
}

/// Computes the position of every vertex on its group's page, and adds a texture vertex for every further
/// group that uses the vertex.
void placeVertices(const Mesh& mesh, std::span<const std::uint32_t> groupOf, TextureLayout& layout)
{
    std::vector<std::uint32_t> owner(mesh.vertexCount(), kNone);  // group of each texture vertex
    std::vector<std::uint32_t> next(mesh.vertexCount(), kNone);   // the same mesh vertex in another group
    layout.positions.assign(2 * mesh.vertexCount(), 0.0F);
    layout.corners.assign(mesh.indices.begin(), mesh.indices.end());
    for (std::size_t c = 0; c < layout.corners.size(); ++c) {
        const std::uint32_t vertex = mesh.indices[c];
        const std::uint32_t group = groupOf[c / 3];
        std::uint32_t at = vertex;
        while (owner[at] != group && owner[at] != kNone && next[at] != kNone) at = next[at];
        if (owner[at] != group && owner[at] != kNone) {
            next[at] = static_cast<std::uint32_t>(owner.size());
            at = next[at];
            owner.push_back(kNone);
            next.push_back(kNone);
            layout.extra.push_back(vertex);
            layout.positions.resize(layout.positions.size() + 2);
        }
        layout.corners[c] = at;
        if (owner[at] == group) continue;
        owner[at] = group;
        const TextureGroup& g = layout.groups[group];
        const auto place = [&](std::size_t axis, int start, int source) {
            const float offset =
                (mesh.pixels[std::size_t{2} * vertex + axis] - static_cast<float>(source)) * g.scale;
            layout.positions[std::size_t{2} * at + axis] =
                static_cast<float>(start + kTextureBorder) + offset;
        };
        place(0, g.left, g.sourceLeft);
        place(1, g.top, g.sourceTop);
    }
}

void orderByPage(std::span<const std::uint32_t> groupOf, TextureLayout& layout)
{
    layout.pageEnd.assign(static_cast<std::size_t>(layout.pages), 0);
    const auto pageOf = [&](std::size_t k) {
        return static_cast<std::size_t>(layout.groups[groupOf[k]].page);
    };
    for (std::size_t k = 0; k < groupOf.size(); ++k) ++layout.pageEnd[pageOf(k)];
    std::exclusive_scan(layout.pageEnd.begin(), layout.pageEnd.end(), layout.pageEnd.begin(), 0U);
    layout.order.resize(groupOf.size());
    for (std::size_t k = 0; k < groupOf.size(); ++k)
        layout.order[layout.pageEnd[pageOf(k)]++] = static_cast<std::uint32_t>(k);
}

}  // namespace

TextureLayout singlePage(const Mesh& mesh)
{
    TextureLayout layout;
    if (mesh.pixels.empty()) return layout;
    checkPixelCount(mesh);
    const auto bad =
        std::find_if_not(mesh.pixels.begin(), mesh.pixels.end(), [](float v) { return std::isfinite(v); });
    if (bad != mesh.pixels.end())
        failf("\"Pixels\": entry %lld is not finite",
              static_cast<long long>((bad - mesh.pixels.begin()) / 2));
    return layout;
}

TextureLayout layOutPages(const Mesh& mesh, std::span<const PictureView> pictures,
                          const TextureSettings& settings)
{
    if (settings.width < kSmallestPage)
        failf("texture pages of %d pixels are too narrow for several images", settings.width);
    checkPixelCount(mesh);
    const Views views(mesh, pictures.size());
    TextureLayout layout;
    const std::vector<std::uint32_t> groupOf = groupTriangles(mesh, views, pictures.size(), layout.groups);
    std::vector<Bounds> bounds(layout.groups.size());
    for (std::size_t c = 0; c < mesh.indices.size(); ++c) {
        const std::uint32_t vertex = mesh.indices[c], group = groupOf[c / 3];
        checkInside(mesh, vertex, pictures[static_cast<std::size_t>(layout.groups[group].picture)]);
        bounds[group].add(mesh.pixels[std::size_t{2} * vertex], mesh.pixels[std::size_t{2} * vertex + 1]);
    }
    for (std::size_t g = 0; g < bounds.size(); ++g)
        layout.shrunk += measure(layout.groups[g], bounds[g], settings) ? 1 : 0;
    layout.pages = pack(layout.groups, settings.width);
    if (layout.pages > kMaxPages) failf("the mesh needs %d texture pages", layout.pages);
    placeVertices(mesh, groupOf, layout);
    orderByPage(groupOf, layout);
    return layout;
}

}  // namespace scansteps::mesh
