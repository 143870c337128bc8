// Gain fields by least squares over what pictures have in common.
#include "picture_gains.h"

#include <Eigen/Core>
#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCore>
#include <algorithm>
#include <cmath>
#include <numeric>

namespace scansteps::scan {
namespace {

Eigen::Vector2f middleOf(const TextureModel& model, const Visibility& view, std::size_t t)
{
    Eigen::Vector2f sum = Eigen::Vector2f::Zero();
    for (std::size_t i = 3 * t; i < 3 * t + 3; ++i)
        sum += Eigen::Map<const Eigen::Vector2f>(&view.pixels[2 * std::size_t(model.indices[i])]);
    return sum / 3;
}

const std::uint8_t* pixelAt(const Picture& picture, const Eigen::Vector2f& place)
{
    const auto column = std::size_t(std::clamp(int(place.x() + 0.5F), 0, picture.width - 1));
    const auto row = std::size_t(std::clamp(int(place.y() + 0.5F), 0, picture.height - 1));
    return &picture.rgb[3 * (row * std::size_t(picture.width) + column)];
}

// The nodes around a place and their shares in it.
struct Nodes
{
    std::array<int, 4> node;
    std::array<float, 4> share;

    Nodes(const GainField& field, float x, float y)
    {
        const float u = std::max(0.0F, x / field.cell), v = std::max(0.0F, y / field.cell);
        const int column = std::min(int(u), field.columns - 2), row = std::min(int(v), field.rows - 2);
        const float fx = u - float(column), fy = v - float(row);
        const int first = row * field.columns + column;
        node = {first, first + 1, first + field.columns, first + field.columns + 1};
        share = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
    }
};

float greyAt(const Picture& picture, const Eigen::Vector2f& place)
{
    const std::uint8_t* rgb = pixelAt(picture, place);
    return float(rgb[0] + rgb[1] + rgb[2]) / 3;
}

class Matching
{
  public:
    Matching(const GainField& field, std::size_t views)
        : field_(field),
          nodes_(field.columns * field.rows),
          right_(Eigen::VectorXd::Zero(nodes_ * Eigen::Index(views)))
    {
        constexpr double kSmooth = 30, kStay = 0.01;  // in samples
        for (int view = 0; view < int(views); ++view)
            for (int node = 0; node < nodes_; ++node) {
                const int at = view * nodes_ + node;
                entries_.emplace_back(at, at, kStay);
                if (node % field.columns + 1 < field.columns) couple(at, at + 1, kSmooth);
                if (node + field.columns < nodes_) couple(at, at + field.columns, kSmooth);
            }
    }

    struct Sample
    {
        int view;
        Eigen::Vector2f place;
        float score, bright;  // logarithm
    };

    // bright + field of the one shall be that of the other.
    void add(const Sample& a, const Sample& b)
    {
        constexpr float kLargest = 1.1F;  // a factor of 3: rather something else than the same surface
        const float difference = b.bright - a.bright;
        if (std::abs(difference) > kLargest) return;
        const float weight = std::min(a.score, b.score) * std::min(a.score, b.score);
        std::array<int, 8> index;
        std::array<float, 8> factor;
        const Nodes nodesA(field_, a.place.x(), a.place.y()), nodesB(field_, b.place.x(), b.place.y());
        for (std::size_t i = 0; i < 4; ++i) {
            index[i] = a.view * nodes_ + nodesA.node[i];
            factor[i] = nodesA.share[i];
            index[i + 4] = b.view * nodes_ + nodesB.node[i];
            factor[i + 4] = -nodesB.share[i];
        }
        for (std::size_t i = 0; i < 8; ++i) {
            right_(index[i]) += double(weight * factor[i] * difference);
            for (std::size_t j = 0; j < 8; ++j)
                entries_.emplace_back(index[i], index[j], double(weight * factor[i] * factor[j]));
        }
    }

    Eigen::VectorXd solve()
    {
        Eigen::SparseMatrix<double> matrix(right_.size(), right_.size());
        matrix.setFromTriplets(entries_.begin(), entries_.end());
        Eigen::ConjugateGradient<Eigen::SparseMatrix<double>, Eigen::Lower | Eigen::Upper> solver(matrix);
        solver.setTolerance(1e-4);
        return solver.solve(right_);
    }

    int nodes() const { return nodes_; }

  private:
    void couple(int a, int b, double weight)
    {
        entries_.emplace_back(a, a, weight);
        entries_.emplace_back(b, b, weight);
        entries_.emplace_back(a, b, -weight);
        entries_.emplace_back(b, a, -weight);
    }

    const GainField& field_;
    int nodes_;
    std::vector<Eigen::Triplet<double>> entries_;
    Eigen::VectorXd right_;
};

// Shifts all fields so that the model as a whole, each triangle in its best picture, becomes no darker.
void keepBrightness(const TextureModel& model, std::span<const Visibility> views, std::size_t stride,
                    std::vector<GainField>& gains)
{
    double sum = 0, count = 0;
    for (std::size_t t = 0; t < model.indices.size() / 3; t += stride) {
        std::size_t best = 0;
        for (std::size_t view = 1; view < views.size(); ++view)
            if (views[view].scores[t] > views[best].scores[t]) best = view;
        if (views[best].scores[t] <= 0) continue;
        const Eigen::Vector2f place = middleOf(model, views[best], t);
        sum += double(std::log(gains[best].at(place.x(), place.y())));
        ++count;
    }
    for (GainField& field : gains)
        for (float& logarithm : field.logarithms) logarithm -= float(sum / std::max(count, 1.0));
}

}  // namespace

void avoidShade(const TextureModel& model, std::span<const std::int32_t> filled,
                std::span<const Picture> pictures, std::span<Visibility> views)
{
    constexpr float kShade = 0.25F, kAvoid = 0.05F;
    const std::size_t triangles = model.indices.size() / 3;
    const auto isFilled = [&](std::size_t t) { return !filled.empty() && filled[t] != 0; };
    std::vector<float> brightest(triangles, 0);
    const auto forSeen = [&](auto use) {
        for (std::size_t view = 0; view < views.size(); ++view)
            for (std::size_t t = 0; t < triangles; ++t)
                if (views[view].scores[t] > 0)
                    use(t, views[view].scores[t], greyAt(pictures[view], middleOf(model, views[view], t)));
    };
    forSeen([&](std::size_t t, float, float grey) { brightest[t] = std::max(brightest[t], grey); });
    double sum = 0, count = 0;
    for (std::size_t t = 0; t < triangles; ++t) {
        if (isFilled(t) || brightest[t] == 0) continue;
        sum += double(brightest[t]);
        ++count;
    }
    const auto mean = float(sum / std::max(count, 1.0));
    forSeen([&](std::size_t t, float& score, float grey) {
        if (isFilled(t) && grey < kShade * mean)
            score = 0;
        else if (grey < kShade * brightest[t])
            score *= kAvoid;
    });
}

float GainField::at(float x, float y) const
{
    const Nodes nodes(*this, x, y);
    float sum = 0;
    for (std::size_t i = 0; i < 4; ++i) sum += nodes.share[i] * logarithms[std::size_t(nodes.node[i])];
    return std::exp(sum);
}

float GainField::mean() const
{
    return std::exp(std::accumulate(logarithms.begin(), logarithms.end(), 0.0F) / float(logarithms.size()));
}

std::vector<GainField> matchPictures(const TextureModel& model, std::span<const Visibility> views,
                                     std::span<const Picture> pictures)
{
    GainField field;
    const Picture& first = pictures.front();
    field.cell = std::max(1.0F, float(std::max(first.width, first.height)) / 40);
    field.columns = int(float(first.width - 1) / field.cell) + 2;
    field.rows = int(float(first.height - 1) / field.cell) + 2;
    Matching matching(field, views.size());
    const std::size_t triangles = model.indices.size() / 3, stride = triangles / 50000 + 1;
    std::vector<Matching::Sample> seen;
    for (std::size_t t = 0; t < triangles; t += stride) {
        constexpr float kLeast = 0.15F;  // cosine; contours have less
        seen.clear();
        for (std::size_t view = 0; view < views.size(); ++view) {
            if (views[view].scores[t] < kLeast) continue;
            const Eigen::Vector2f place = middleOf(model, views[view], t);
            const std::uint8_t* rgb = pixelAt(pictures[view], place);
            const float grey = greyAt(pictures[view], place);
            if (grey > 15 && std::max({rgb[0], rgb[1], rgb[2]}) <= 250)
                seen.push_back({int(view), place, views[view].scores[t], std::log(grey)});
        }
        for (std::size_t i = 0; i < seen.size(); ++i)
            for (std::size_t j = i + 1; j < seen.size(); ++j) matching.add(seen[i], seen[j]);
    }
    const Eigen::VectorXd logarithms = matching.solve();
    std::vector<GainField> gains(views.size(), field);
    for (std::size_t view = 0; view < views.size(); ++view)
        for (int node = 0; node < matching.nodes(); ++node)
            gains[view].logarithms.push_back(float(logarithms(Eigen::Index(view) * matching.nodes() + node)));
    keepBrightness(model, views, stride, gains);
    return gains;
}

void applyGains(const GainField& gains, int width, std::span<std::uint8_t> rgb)
{
    for (std::size_t i = 0; i < rgb.size(); i += 3) {
        const std::size_t pixel = i / 3;
        const float gain = gains.at(float(pixel % std::size_t(width)), float(pixel / std::size_t(width)));
        for (std::size_t k = i; k < i + 3; ++k)
            rgb[k] = std::uint8_t(std::clamp(std::lround(gain * float(rgb[k])), 0L, 255L));
    }
}

std::array<std::uint8_t, 3> meanColour(const TextureModel& model, std::span<const Visibility> views,
                                       std::span<const Picture> pictures, std::span<const int> labels)
{
    std::array<double, 3> sums{};
    double count = 0;
    for (std::size_t t = 0; t < labels.size(); ++t) {
        if (labels[t] < 0) continue;
        const auto view = std::size_t(labels[t]);
        const std::uint8_t* rgb = pixelAt(pictures[view], middleOf(model, views[view], t));
        for (std::size_t i = 0; i < 3; ++i) sums[i] += rgb[i];
        ++count;
    }
    if (count == 0) return {128, 128, 128};
    std::array<std::uint8_t, 3> mean;
    for (std::size_t i = 0; i < 3; ++i) mean[i] = std::uint8_t(std::clamp(sums[i] / count, 0.0, 255.0));
    return mean;
}

}  // namespace scansteps::scan
