// Poses of views from the surface that they share.
#pragma once

#include <Eigen/Core>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "surfels.h"

namespace scansteps::scan {

struct AlignmentSettings
{
    double reach = 25;      ///< mm that the first estimate may be off
    double pitch = 0;       ///< mm of the finest surfels; 0: four times the first view's median side
    int contour = 6;        ///< triangles from contours that are not used
    double overlap = 0.15;  ///< least share of a view's surfels that other views show as well
    double residual = 0;    ///< largest RMS distance to them, mm; 0: a quarter of the pitch
    double freedom = 5e-4;  ///< least eigenvalue; see ViewFit
};

enum class FitState
{
    Good,
    NoOverlap,    ///< with any view of which the pose is known
    BadResidual,  ///< overlaps, but does not fit
    Ambiguous,    ///< fits, but can be moved along `direction` and still does
};

struct ViewFit
{
    FitState state = FitState::NoOverlap;
    Pose pose;            ///< coordinates of the first view to those of this one's camera
    double residual = 0;  ///< RMS distance to the surface of other views, mm
    double overlap = 0;   ///< share of the surfels, without contours, that other views show as well
    /// Least eigenvalue of the normal matrix of a single constraint, with turns in units of the inverse
    /// radius of the view, and its direction: a turn about and a shift along axes of the first view, the turn
    /// being about the middle of this view.
    double freedom = 0;
    Eigen::Matrix<double, 6, 1> direction = Eigen::Matrix<double, 6, 1>::Zero();
};

/// Registers views one after the other, and all of them together at the end.
///
/// Each point of a view is paired with the nearest one of each other view (Besl and McKay, "A method for
/// registration of 3-D shapes", 1992), unless that lies at a contour (Turk and Levoy, "Zippered polygon
/// meshes from range images", 1994), faces elsewhere or is out of reach. The distance is measured along the
/// sum of both normals (Rusinkiewicz, "A symmetric objective function for ICP", 2019), which is exact where
/// the surface is curved; weights are Tukey's. Levels of surfels go from coarse to fine. The last refinement
/// solves for the poses of all views at once with the pairs of all overlapping views, so that loops close.
class ViewAlignment
{
  public:
    explicit ViewAlignment(const AlignmentSettings& settings) : settings_(settings) {}

    /// Adds a view and finds its pose from the estimate, or from the pose of the view before. The pose of the
    /// first view is the identity. Throws a C string when the mesh has no triangles.
    ViewFit add(const ViewMesh& mesh, const std::optional<Pose>& estimate);
    /// Tries again those that did not fit, refines all, and tells the fit of each view.
    std::vector<ViewFit> finish();

    std::size_t size() const { return views_.size(); }
    double pitch() const { return settings_.pitch; }
    /// Of surfels and trees.
    std::size_t bytes() const;

  private:
    static constexpr std::size_t kLevels = 3;
    static constexpr std::array<double, kLevels> kCoarser{3, 1.7, 1};  ///< pitch of the levels

    struct View
    {
        std::vector<Surfels> levels;
        Eigen::Vector3d middle;
        double radius = 1;
        std::optional<Pose> estimate;
        ViewFit fit;
        Pose toWorld;
    };
    struct Equations;
    struct Stage
    {
        std::size_t level;
        double reach, cosine;
        std::size_t perPair;  ///< surfels used of each pair of views
    };

    bool isKnown(std::size_t view) const { return views_[view].fit.state == FitState::Good; }
    void place(std::size_t view);
    void tryFrom(std::size_t view, const Pose& start);
    double step(const std::vector<std::size_t>& free, const Stage& stage);
    void collect(std::size_t from, std::size_t to, const Stage& stage, Equations& equations) const;
    void judge(std::size_t view);
    void refineAll();

    AlignmentSettings settings_;
    std::vector<View> views_;
};

}  // namespace scansteps::scan
