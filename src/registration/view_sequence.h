// Views in the order in which they come, each registered against earlier ones that are still held: how it
// lies to the view before and to the first.
#pragma once

#include <Eigen/Core>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "registration/register_views.h"

namespace scansteps::registration {

/// A pair of features that look alike, in a view and in an earlier one.
struct ViewMatch
{
    float x1, y1;  ///< pixel of the earlier view
    float x2, y2;  ///< pixel of this view
    int distance;  ///< bits in which the descriptors differ
    bool inlier;   ///< agrees with the registration
};

/// Where a view lies. Views are numbered from 1.
struct ViewPose
{
    int number = 0;
    Eigen::Matrix3d transform = Eigen::Matrix3d::Identity();  ///< pixel of the view before to this one
    int inliers = 0;    ///< matches behind `transform`; 0 when it is not known, and the identity
    int reference = 0;  ///< the earlier view that this one was registered against; 0: none
    Eigen::Matrix3d fromReference = Eigen::Matrix3d::Identity();
    int first = 0;  ///< the view that `toFirst` leads to: this one when it was not registered
    Eigen::Matrix3d toFirst = Eigen::Matrix3d::Identity();  ///< pixel of this view to `first`
    std::vector<ViewMatch> matches;  ///< with the reference, or with the view before; best first
};

/// Holds the last views. A new one is registered against each of them; of those that succeed it is attached
/// to the one through which the first view is reached with the least expected error. A view that fits none
/// starts a sequence of its own; views that come later are attached to the older sequence when they fit
/// both.
class ViewSequence
{
  public:
    /// Holds up to `most` views, at least one.
    explicit ViewSequence(MotionModel model = MotionModel::similarity, std::size_t most = 1)
        : model_(model), most_(most > 0 ? most : 1)
    {
    }

    /// `initial`, if there is one, is an estimate of ViewPose::transform.
    ViewPose add(PreparedView view, const std::optional<Eigen::Matrix3d>& initial = std::nullopt);

  private:
    struct Held
    {
        PreparedView view;
        int number = 0;
        int first = 0;
        Eigen::Matrix3d toFirst;
        double deviation = 0;  // expected error of toFirst, pixels at the corners
    };

    void attach(const Held& to, const Registration& motion, const PreparedView& view, ViewPose& place) const;

    MotionModel model_;
    std::size_t most_;
    int count_ = 0;
    std::deque<Held> held_;  // oldest first
    Registration motion_;
    std::unique_ptr<ScratchArena> memory_ = std::make_unique<ScratchArena>();
};

}  // namespace scansteps::registration
