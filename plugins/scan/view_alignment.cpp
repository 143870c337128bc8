// Iterations of the registration: pairs, weights, equations, and what the result is worth.
#include "view_alignment.h"

#include <scansteps/error.h>

#include <Eigen/Cholesky>
#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>

namespace scansteps::scan {
namespace {

using Vector = Eigen::Vector3d;
using Vector6 = Eigen::Matrix<double, 6, 1>;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

constexpr double kWideCosine = 0.5, kNarrowCosine = 0.85;

/// A point and the nearest one of another view, in world coordinates, and the unit sum of their normals.
struct Pair
{
    std::size_t from, to;
    Vector point, other, normal;
    double distance() const { return normal.dot(point - other); }
    /// Derivative of the distance by a turn about `centre` (divided by `radius`) and a shift of the first
    /// view; that of the other view is the negative one.
    Vector6 derivative(const Vector& centre, double radius) const
    {
        Vector6 d;
        d << (point - centre).cross(normal) / radius, normal;
        return d;
    }
};

double medianDistance(const std::vector<Pair>& pairs)
{
    std::vector<double> distances;
    distances.reserve(pairs.size());
    for (const Pair& pair : pairs) distances.push_back(std::abs(pair.distance()));
    const auto middle = distances.begin() + std::ptrdiff_t(distances.size() / 2);
    std::nth_element(distances.begin(), middle, distances.end());
    return *middle;
}

double tukey(double distance, double limit)
{
    const double ratio = distance / limit;
    return std::abs(ratio) < 1 ? (1 - ratio * ratio) * (1 - ratio * ratio) : 0;
}

Pose moved(const Pose& pose, const Vector6& motion, const Vector& centre, double radius)
{
    const Vector turn = motion.head<3>() / radius;
    Eigen::Matrix3d rotation = Eigen::Matrix3d::Identity();
    if (turn.norm() > 0) rotation = Eigen::AngleAxisd(turn.norm(), turn.normalized()).toRotationMatrix();
    return Pose{rotation, centre - rotation * centre + motion.tail<3>()} * pose;
}

}  // namespace

struct ViewAlignment::Equations
{
    std::vector<Pair> pairs;
    std::vector<std::size_t> tried;  ///< surfels of each view for which another one was looked for
};

ViewFit ViewAlignment::add(const ViewMesh& mesh, const std::optional<Pose>& estimate)
{
    if (mesh.indices.empty()) failf("sicp: view %zu has no triangles", views_.size() + 1);
    if (settings_.pitch <= 0) settings_.pitch = std::max(1e-3, 4 * double(medianSide(mesh)));
    const auto normals = vertexNormals(mesh);
    if (std::ranges::all_of(normals, [](const auto& normal) { return normal.isZero(); }))
        failf("sicp: view %zu has no triangle with an area", views_.size() + 1);
    const auto inner = innerVertices(mesh, settings_.contour);
    View view;
    for (const double coarser : kCoarser)
        view.levels.emplace_back(mesh, normals, inner, float(settings_.pitch * coarser));
    const Surfels& coarse = view.levels.front();
    Vector sum = Vector::Zero();
    for (const auto& point : coarse.points) sum += point.cast<double>();
    view.middle = sum / double(coarse.size());
    double squares = 0;
    for (const auto& point : coarse.points) squares += (point.cast<double>() - view.middle).squaredNorm();
    view.radius = std::max(1e-3, std::sqrt(squares / double(coarse.size())));
    view.estimate = estimate;
    views_.push_back(std::move(view));
    const std::size_t number = views_.size() - 1;
    if (number == 0)
        views_[0].fit.state = FitState::Good;
    else
        place(number);
    return views_[number].fit;
}

void ViewAlignment::place(std::size_t number)
{
    // Estimates are relative to that of the first view, and better taken as a motion from a view nearby when
    // they are all off alike, as those of a stage.
    std::vector<Pose> starts;
    std::size_t before = number;
    while (before-- > 0 && !isKnown(before)) {
    }
    const std::optional<Pose>&own = views_[number].estimate, &first = views_[0].estimate,
          &last = views_[before].estimate;
    if (own) starts.push_back(first ? *own * first->inverse() : *own);
    if (own && last) starts.push_back(*own * last->inverse() * views_[before].fit.pose);
    if (!own) starts.push_back(views_[before].fit.pose);
    ViewFit best;
    for (const Pose& start : starts) {
        views_[number].fit = {};
        tryFrom(number, start);
        const ViewFit& fit = views_[number].fit;
        const bool isBetter = fit.state == best.state ? fit.overlap > best.overlap
                              : best.state == FitState::Good
                                  ? false
                                  : fit.state == FitState::Good || fit.state == FitState::Ambiguous ||
                                        best.state == FitState::NoOverlap;
        if (isBetter) best = fit;
        if (best.state == FitState::Good) break;
    }
    views_[number].fit = best;
    views_[number].toWorld = best.pose.inverse();
}

void ViewAlignment::tryFrom(std::size_t number, const Pose& start)
{
    View& view = views_[number];
    view.toWorld = start.inverse();
    const double enough = 1e-3 * settings_.pitch;
    double reach = settings_.reach;
    for (std::size_t level = 0; level < kLevels; ++level) {
        const double pitch = settings_.pitch * kCoarser[level];
        for (int i = 0; i < 40; ++i) {
            const double moved = step({number}, {level, reach, kWideCosine, 3000});
            const double least = 2 * pitch;
            if (moved < 0 || (moved < enough * kCoarser[level] && reach <= least)) break;
            reach = std::max(least, 0.8 * reach);
        }
    }
    view.fit.pose = view.toWorld.inverse();
    judge(number);
}

void ViewAlignment::collect(std::size_t from, std::size_t to, const Stage& stage, Equations& equations) const
{
    const Surfels &a = views_[from].levels[stage.level], &b = views_[to].levels[stage.level];
    const Pose &world = views_[from].toWorld, &otherWorld = views_[to].toWorld;
    const Pose across = otherWorld.inverse() * world;
    const Eigen::Matrix3f rotation = across.rotation.cast<float>();
    const Eigen::Vector3f translation = across.translation.cast<float>();
    const std::size_t stride = std::max<std::size_t>(1, a.size() / stage.perPair);
    for (std::size_t n = 0; n < a.size(); n += stride) {
        if (a.isBorder[n]) continue;
        const auto found = b.nearest(rotation * a.points[n] + translation, float(stage.reach));
        if (!found || b.isBorder[*found]) continue;
        const Eigen::Vector3f turned = rotation * a.normals[n];
        if (turned.dot(b.normals[*found]) < float(stage.cosine)) continue;
        equations.pairs.push_back(
            {from, to, world * a.points[n].cast<double>(), otherWorld * b.points[*found].cast<double>(),
             otherWorld.rotation * (turned + b.normals[*found]).normalized().cast<double>()});
    }
}

/// One step of Gauss and Newton for the poses of the `free` views. Returns by how many mm the views have
/// moved, or -1 when too few pairs were found.
double ViewAlignment::step(const std::vector<std::size_t>& free, const Stage& stage)
{
    std::vector<int> column(views_.size(), -1);
    for (std::size_t i = 0; i < free.size(); ++i) column[free[i]] = 6 * int(i);
    Equations equations;
    for (std::size_t i = 0; i < views_.size(); ++i)
        for (std::size_t j = 0; j < views_.size(); ++j)
            if (i != j && (column[i] >= 0 || column[j] >= 0) && (column[i] >= 0 || isKnown(i)) &&
                (column[j] >= 0 || isKnown(j)))
                collect(i, j, stage, equations);
    const std::vector<Pair>& pairs = equations.pairs;
    if (pairs.size() < 30) return -1;
    // Tukey's limit is 4.685 standard deviations, and a median of absolute values 0.6745 of one.
    const double limit = std::max(4.685 / 0.6745 * medianDistance(pairs), 1e-3 * settings_.pitch);
    const Vector centre = views_[free[0]].toWorld * views_[free[0]].middle;
    const double radius = views_[free[0]].radius;
    const auto size = Eigen::Index(6 * free.size());
    Eigen::MatrixXd matrix = Eigen::MatrixXd::Zero(size, size);
    Eigen::VectorXd right = Eigen::VectorXd::Zero(size);
    double total = 0;
    for (const Pair& pair : pairs) {
        const double weight = tukey(pair.distance(), limit);
        const Vector6 d = pair.derivative(centre, radius);
        const int i = column[pair.from], j = column[pair.to];
        const Matrix6 square = weight * d * d.transpose();
        const Vector6 gradient = weight * pair.distance() * d;
        total += weight;
        if (i >= 0) {
            matrix.block<6, 6>(i, i) += square;
            right.segment<6>(i) -= gradient;
        }
        if (j >= 0) {
            matrix.block<6, 6>(j, j) += square;
            right.segment<6>(j) += gradient;
        }
        if (i >= 0 && j >= 0) {
            matrix.block<6, 6>(i, j) -= square;
            matrix.block<6, 6>(j, i) -= square;
        }
    }
    matrix.diagonal().array() += 1e-7 * total;  // what nothing determines stays as it is
    const Eigen::VectorXd motion = matrix.ldlt().solve(right);
    double largest = 0;
    for (std::size_t i = 0; i < free.size(); ++i) {
        const Vector6 part = motion.segment<6>(Eigen::Index(6 * i));
        views_[free[i]].toWorld = moved(views_[free[i]].toWorld, part, centre, radius);
        largest = std::max({largest, part.head<3>().norm(), part.tail<3>().norm()});
    }
    return largest;
}

void ViewAlignment::judge(std::size_t number)
{
    View& view = views_[number];
    const Stage stage{kLevels - 1, 2 * settings_.pitch, kNarrowCosine, SIZE_MAX};
    Equations equations;
    std::vector<bool> isShared(view.levels.back().size(), false);
    for (std::size_t other = 0; other < views_.size(); ++other)
        if (other != number && isKnown(other)) collect(number, other, stage, equations);
    const Pose toCamera = view.toWorld.inverse();
    for (const Pair& pair : equations.pairs)
        if (const auto n = view.levels.back().nearest((toCamera * pair.point).cast<float>(), 1e-2F))
            isShared[*n] = true;
    const auto inner = std::ranges::count(view.levels.back().isBorder, false);
    ViewFit& fit = view.fit;
    fit.overlap = double(std::ranges::count(isShared, true)) / double(std::max<std::ptrdiff_t>(1, inner));
    fit.state = FitState::NoOverlap;
    if (equations.pairs.size() < 30 || fit.overlap < settings_.overlap) return;

    double squares = 0;
    Matrix6 matrix = Matrix6::Zero();
    for (const Pair& pair : equations.pairs) {
        squares += pair.distance() * pair.distance();
        const Vector6 d = pair.derivative(view.toWorld * view.middle, view.radius);
        matrix += d * d.transpose();
    }
    fit.residual = std::sqrt(squares / double(equations.pairs.size()));
    const Eigen::SelfAdjointEigenSolver<Matrix6> solver(matrix / double(equations.pairs.size()));
    fit.freedom = solver.eigenvalues()[0];
    fit.direction = solver.eigenvectors().col(0);
    const double limit = settings_.residual > 0 ? settings_.residual : settings_.pitch / 4;
    fit.state = fit.residual > limit              ? FitState::BadResidual
                : fit.freedom < settings_.freedom ? FitState::Ambiguous
                                                  : FitState::Good;
}

void ViewAlignment::refineAll()
{
    std::vector<std::size_t> free;
    for (std::size_t n = 1; n < views_.size(); ++n)
        if (isKnown(n)) free.push_back(n);
    if (free.empty()) return;
    const double enough = 1e-4 * settings_.pitch;
    for (int i = 0; i < 30; ++i)
        if (step(free, {kLevels - 1, 2 * settings_.pitch, kNarrowCosine, 4000}) < enough) break;
    for (const std::size_t n : free) views_[n].fit.pose = views_[n].toWorld.inverse();
    for (std::size_t n = 0; n < views_.size(); ++n)
        if (n == 0 || isKnown(n)) judge(n);
    views_[0].fit.state = FitState::Good;
}

std::vector<ViewFit> ViewAlignment::finish()
{
    for (bool isNew = true; isNew;) {
        isNew = false;
        for (std::size_t n = 1; n < views_.size(); ++n)
            if (!isKnown(n)) {
                place(n);
                isNew |= isKnown(n);
            }
    }
    refineAll();
    std::vector<ViewFit> fits;
    for (const View& view : views_) fits.push_back(view.fit);
    return fits;
}

std::size_t ViewAlignment::bytes() const
{
    std::size_t sum = 0;
    for (const View& view : views_)
        for (const Surfels& surfels : view.levels) sum += surfels.size() * 48;
    return sum;
}

}  // namespace scansteps::scan
