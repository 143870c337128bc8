// Depth buffers, scores and labels.
#include "texture_choice.h"

#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <utility>

namespace scansteps::scan {
namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kFar = std::numeric_limits<float>::max();

// One picture's depth buffer.
class DepthBuffer
{
  public:
    DepthBuffer(const TextureModel& model, const CameraModel& camera, const Pose& pose)
        : width_(camera.size.x()), height_(camera.size.y()), focal_(float(camera.focal.mean()))
    {
        const std::size_t count = model.vertices.size() / 3;
        pixels_.resize(2 * count, kNaN);
        points_.resize(count);
        for (std::size_t n = 0; n < count; ++n) {
            const Eigen::Vector3d point =
                pose * Eigen::Map<const Eigen::Vector3f>(&model.vertices[3 * n]).cast<double>();
            points_[n] = point.cast<float>();
            if (!(point.z() > 0)) continue;
            const Eigen::Vector2d pixel = camera.project(point);
            // Far outside, where the distortion is unknown, it may fold back into the picture.
            const double x = point.x() / point.z() * camera.focal.x() + camera.centre.x();
            const double y = point.y() / point.z() * camera.focal.y() + camera.centre.y();
            if (!(x > -0.2 * width_ && x < 1.2 * width_ && y > -0.2 * height_ && y < 1.2 * height_)) continue;
            pixels_[2 * n] = float(pixel.x());
            pixels_[2 * n + 1] = float(pixel.y());
        }
        depth_.assign(std::size_t(width_) * std::size_t(height_), kFar);
        for (std::size_t t = 0; t < model.indices.size(); t += 3) draw(&model.indices[t]);
    }

    float scoreOf(const std::uint32_t* t, float minCosine, int contour) const
    {
        const Eigen::Vector3f a = points_[t[0]], middle = (a + points_[t[1]] + points_[t[2]]) / 3;
        const Eigen::Vector3f normal = (points_[t[1]] - a).cross(points_[t[2]] - a);
        const float cosine = -normal.normalized().dot(middle.normalized());
        if (!(cosine > minCosine)) return 0;
        Eigen::Vector2f centre = Eigen::Vector2f::Zero();
        for (int i = 0; i < 3; ++i) {
            const float x = pixels_[2 * std::size_t(t[i])], y = pixels_[2 * std::size_t(t[i]) + 1];
            if (!(x >= 0 && y >= 0 && x <= float(width_ - 1) && y <= float(height_ - 1))) return 0;
            centre += Eigen::Vector2f(x, y) / 3;
        }
        const int x = int(centre.x() + 0.5F), y = int(centre.y() + 0.5F);
        // Pixels beside the middle may be nearer on a slope.
        const float slack = 3 * middle.z() / focal_ / std::max(cosine, 0.2F);
        if (at(x, y) < middle.z() - slack) return 0;
        // The pixel itself may be mixed with what is behind a contour; its neighbours are doubtful.
        if (isAtContour(x, y, 1, middle.z(), 2 * slack)) return 0;
        const bool isNear = contour > 1 && isAtContour(x, y, contour, middle.z(), slack * float(contour));
        return isNear ? 0.1F * cosine : cosine;
    }

    std::vector<float> takePixels() { return std::move(pixels_); }

  private:
    float at(int x, int y) const { return depth_[std::size_t(y) * std::size_t(width_) + std::size_t(x)]; }

    bool isAtContour(int x, int y, int reach, float z, float slack) const
    {
        if (x < reach || y < reach || x + reach >= width_ || y + reach >= height_) return true;
        for (const auto& [dx, dy] :
             {std::pair(-1, 0), {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}})
            if (std::abs(at(x + reach * dx, y + reach * dy) - z) > slack) return true;
        return false;
    }

    void draw(const std::uint32_t* t)
    {
        std::array<Eigen::Vector2f, 3> p;
        for (std::size_t i = 0; i < 3; ++i) {
            p[i] = Eigen::Map<const Eigen::Vector2f>(&pixels_[2 * std::size_t(t[i])]);
            if (std::isnan(p[i].x())) return;
        }
        const Eigen::Vector2f low = p[0].cwiseMin(p[1]).cwiseMin(p[2]),
                              high = p[0].cwiseMax(p[1]).cwiseMax(p[2]);
        const Eigen::Vector2f u = p[1] - p[0], v = p[2] - p[0];
        const float area = u.x() * v.y() - u.y() * v.x();
        if (area == 0) return;
        const int x0 = std::max(0, int(std::ceil(low.x()))),
                  x1 = std::min(width_ - 1, int(std::floor(high.x())));
        const int y0 = std::max(0, int(std::ceil(low.y()))),
                  y1 = std::min(height_ - 1, int(std::floor(high.y())));
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const Eigen::Vector2f d = Eigen::Vector2f(float(x), float(y)) - p[0];
                const float wb = (d.x() * v.y() - d.y() * v.x()) / area;
                const float wc = (u.x() * d.y() - u.y() * d.x()) / area;
                if (wb < 0 || wc < 0 || wb + wc > 1) continue;
                const float z =
                    (1 - wb - wc) * points_[t[0]].z() + wb * points_[t[1]].z() + wc * points_[t[2]].z();
                float& depth = depth_[std::size_t(y) * std::size_t(width_) + std::size_t(x)];
                depth = std::min(depth, z);
            }
    }

    int width_, height_;
    float focal_;
    std::vector<float> pixels_, depth_;
    std::vector<Eigen::Vector3f> points_;
};

// Labels of triangles, moved towards fewer seams.
class Labelling
{
  public:
    Labelling(const TextureModel& model, std::span<const Visibility> views)
        : views_(views), neighbours_(neighboursOf(model)), labels_(neighbours_.size(), -1)
    {
    }

    void chooseBest()
    {
        std::vector<float> best(labels_.size(), 0), scores, mean;
        for (std::size_t view = 0; view < views_.size(); ++view) {
            scores = views_[view].scores;
            for (int round = 0; round < kRounds; ++round) average(view, scores, mean);
            for (std::size_t t = 0; t < labels_.size(); ++t)
                if (scores[t] > best[t]) {
                    best[t] = scores[t];
                    labels_[t] = int(view);
                }
        }
    }

    void followNeighbours()
    {
        constexpr float kAgreement = 0.15F;  // worth of a neighbour with the same picture, in cosines
        for (int round = 0; round < kRounds; ++round)
            for (std::size_t t = 0; t < labels_.size(); ++t) {
                if (labels_[t] < 0) continue;
                float best = -1;
                int label = labels_[t];
                const auto consider = [&](int candidate) {
                    if (candidate < 0 || scoreOf(candidate, t) <= 0) return;
                    float value = scoreOf(candidate, t);
                    for (const std::int32_t n : neighbours_[t])
                        value += n >= 0 && labels_[std::size_t(n)] == candidate ? kAgreement : 0;
                    if (value <= best) return;
                    best = value;
                    label = candidate;
                };
                consider(labels_[t]);
                for (const std::int32_t n : neighbours_[t])
                    if (n >= 0) consider(labels_[std::size_t(n)]);
                labels_[t] = label;
            }
    }

    // Parts of one picture with fewer triangles take the picture of their longest border that sees them all.
    void joinIslands(std::size_t least)
    {
        std::vector<bool> isDone(labels_.size(), false);
        for (std::size_t start = 0; start < labels_.size(); ++start) {
            if (isDone[start] || labels_[start] < 0) continue;
            const int own = labels_[start];
            std::vector<std::size_t> part{start};
            std::vector<int> border(views_.size(), 0);
            isDone[start] = true;
            for (std::size_t i = 0; i < part.size(); ++i)
                for (const std::int32_t n : neighbours_[part[i]]) {
                    if (n < 0) continue;
                    const auto next = std::size_t(n);
                    if (labels_[next] >= 0 && labels_[next] != own) ++border[std::size_t(labels_[next])];
                    if (labels_[next] != own || isDone[next]) continue;
                    isDone[next] = true;
                    part.push_back(next);
                }
            if (part.size() >= least) continue;
            int chosen = own, longest = 0;
            for (std::size_t view = 0; view < border.size(); ++view)
                if (border[view] > longest &&
                    std::ranges::all_of(part, [&](std::size_t t) { return scoreOf(int(view), t) > 0; })) {
                    longest = border[view];
                    chosen = int(view);
                }
            for (const std::size_t t : part) labels_[t] = chosen;
        }
    }

    std::vector<int> take() { return std::move(labels_); }

  private:
    static constexpr int kRounds = 10;

    float scoreOf(int view, std::size_t t) const { return views_[std::size_t(view)].scores[t]; }

    // Half its own score and half that of the neighbours; a triangle that is not seen stays so.
    void average(std::size_t view, std::vector<float>& scores, std::vector<float>& mean) const
    {
        mean.resize(scores.size());
        for (std::size_t t = 0; t < scores.size(); ++t) {
            float sum = 0;
            for (const std::int32_t n : neighbours_[t]) sum += n >= 0 ? scores[std::size_t(n)] : scores[t];
            mean[t] = views_[view].scores[t] > 0 ? 0.5F * scores[t] + sum / 6 : 0;
        }
        scores.swap(mean);
    }

    std::span<const Visibility> views_;
    std::vector<std::array<std::int32_t, 3>> neighbours_;
    std::vector<int> labels_;
};

}  // namespace

Visibility visibilityOf(const TextureModel& model, const CameraModel& camera, const Pose& pose,
                        const TextureLimits& limits)
{
    DepthBuffer buffer(model, camera, pose);
    Visibility visibility;
    const float minCosine = std::cos(limits.angle * std::numbers::pi_v<float> / 180);
    for (std::size_t t = 0; t < model.indices.size(); t += 3)
        visibility.scores.push_back(buffer.scoreOf(&model.indices[t], minCosine, limits.contour));
    visibility.pixels = buffer.takePixels();
    return visibility;
}

std::vector<std::array<std::int32_t, 3>> neighboursOf(const TextureModel& model)
{
    const std::size_t vertices = model.vertices.size() / 3;
    std::vector<std::uint32_t> start(vertices + 1, 0), around(model.indices.size());
    for (const std::uint32_t n : model.indices) ++start[n + 1];
    std::partial_sum(start.begin(), start.end(), start.begin());
    std::vector<std::uint32_t> next(start.begin(), start.end() - 1);
    for (std::size_t i = 0; i < model.indices.size(); ++i)
        around[next[model.indices[i]]++] = std::uint32_t(i);
    std::vector<std::array<std::int32_t, 3>> neighbours(model.indices.size() / 3, {-1, -1, -1});
    for (std::size_t i = 0; i < model.indices.size(); ++i) {
        const std::uint32_t a = model.indices[i], b = model.indices[i % 3 == 2 ? i - 2 : i + 1];
        for (std::uint32_t k = start[a]; k < start[a + 1]; ++k) {
            const std::size_t corner = around[k];  // of a triangle with the side (b, a)
            if (model.indices[corner % 3 == 0 ? corner + 2 : corner - 1] != b) continue;
            neighbours[i / 3][i % 3] = std::int32_t(corner / 3);
            break;
        }
    }
    return neighbours;
}

std::vector<int> choosePictures(const TextureModel& model, std::span<const Visibility> views,
                                const TextureLimits& limits)
{
    Labelling labelling(model, views);
    labelling.chooseBest();
    labelling.followNeighbours();
    for (int round = 0; round < 2; ++round) labelling.joinIslands(std::size_t(limits.island));
    return labelling.take();
}

}  // namespace scansteps::scan
