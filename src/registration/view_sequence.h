// A sequence of views, each registered with the earlier views still held, which gives its motion relative to
// the previous view and to the first.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "registration/register_views.h"

namespace scansteps::registration {

/// A pair of matching features, in a view and in an earlier one.
struct ViewMatch
{
    float x1, y1;  ///< pixel of the earlier view
    float x2, y2;  ///< pixel of this view
    int distance;  ///< number of bits in which the descriptors differ
    bool inlier;   ///< agrees with the registration
};

/// The motion of a view relative to others. Views are numbered from 1.
struct ViewPose
{
    int number = 0;
    Eigen::Matrix3d transform =
        Eigen::Matrix3d::Identity();  ///< maps pixels of the previous view to this one
    int inliers = 0;                  ///< matches that agree with `transform`; 0: unknown, and the identity
    double error = -1;  ///< expected error of `transform` at the frame's corners, pixels; -1: unknown
    int reference = 0;  ///< the earlier view that this one was registered with; 0: none
    Eigen::Matrix3d fromReference = Eigen::Matrix3d::Identity();
    int first = 0;  ///< the view that `toFirst` maps to; this one when it was not registered
    Eigen::Matrix3d toFirst = Eigen::Matrix3d::Identity();  ///< maps pixels of this view to `first`
    double toFirstError = 0;         ///< expected error of `toFirst`; 0 for the first view itself
    std::vector<ViewMatch> matches;  ///< with the reference or else with the previous view; best first
};

/// A motion from the previous view that is known beforehand.
struct KnownMotion
{
    Eigen::Matrix3d motion;
    int inliers = 1;
    double error = 1;  ///< expected, at the frame's corners, pixels
};

/// Holds the most recent views. A new view is registered with each of them and attached to the one that gives
/// the smallest expected error relative to the first view. A view that cannot be registered starts a new
/// sequence; later views that fit both sequences are attached to the older one. Views through which the error
/// could not become smaller are not registered with.
class ViewSequence
{
  public:
    /// Holds up to `capacity` views, at least one.
    explicit ViewSequence(MotionModel model = MotionModel::similarity, std::size_t capacity = 1)
        : model_(model), capacity_(capacity > 0 ? capacity : 1)
    {
    }

    /// `known`, if given, is an estimate of ViewPose::transform; it is kept when the view cannot be
    /// registered. The result is valid until the next call.
    const ViewPose& add(PreparedView view, const std::optional<KnownMotion>& known = std::nullopt);

    /// Memory of a view that is no longer held, to prepare the next one in.
    PreparedView recycled() { return std::move(spare_); }

  private:
    struct Held
    {
        PreparedView view;
        int number = 0;
        int first = 0;
        Eigen::Matrix3d toFirst;
        double error = 0;  // expected, of toFirst at the corners, in pixels
    };

    bool registerWith(const Held& earlier, const PreparedView& view, const Eigen::Matrix3d* start = nullptr);
    void attach(const Held& to, const PreparedView& view);
    void attachThroughOthers(const PreparedView& view);
    void keep(const KnownMotion& known);

    MotionModel model_;
    std::size_t capacity_;
    int count_ = 0;
    std::vector<Held> held_;  // oldest first
    std::vector<std::size_t> order_;
    Registration motion_;
    ViewPose pose_;
    PreparedView spare_;
    std::unique_ptr<ScratchArena> memory_ = std::make_unique<ScratchArena>();
};

}  // namespace scansteps::registration
