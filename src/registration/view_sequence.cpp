// Registers a new view with the views still held and chooses which one to attach it to.
#include "registration/view_sequence.h"

#include <Eigen/LU>
#include <cmath>
#include <utility>

namespace scansteps::registration {
namespace {

Eigen::Matrix3d normalised(const Eigen::Matrix3d& motion)
{
    return motion / motion(2, 2);
}

std::vector<ViewMatch> matchesOf(const Registration& motion, const PreparedView& previous,
                                 const PreparedView& view)
{
    std::vector<ViewMatch> result;
    for (const Match& m : motion.matches) {
        const corners::CornerFeature& a = previous.features[m.first];
        const corners::CornerFeature& b = view.features[m.second];
        const bool inlier = motion.inliers > 0 && isInlier(m, previous, view, motion.motion);
        result.push_back({a.x, a.y, b.x, b.y, m.distance, inlier});
    }
    return result;
}

}  // namespace

void ViewSequence::attach(const Held& to, const Registration& motion, const PreparedView& view,
                          ViewPose& pose) const
{
    pose.reference = to.number;
    pose.first = to.first;
    pose.fromReference = motion.motion;
    pose.toFirst = normalised(to.toFirst * motion.motion.inverse());
    pose.matches = matchesOf(motion, to.view, view);
}

ViewPose ViewSequence::add(PreparedView view, const std::optional<Eigen::Matrix3d>& initial)
{
    ViewPose pose;
    pose.number = pose.first = ++count_;
    double deviation = 0;
    int inliers = 0;
    for (std::size_t i = held_.size(); i-- > 0;) {
        const Held& earlier = held_[i];
        // The estimate maps from the previous view; for other views of its sequence it is composed with their
        // poses.
        Eigen::Matrix3d start;
        const bool hasStart = initial && earlier.first == held_.back().first;
        if (hasStart) start = normalised(*initial * held_.back().toFirst.inverse() * earlier.toFirst);
        registerViews(earlier.view, view, model_, motion_, memory_.get(), hasStart ? &start : nullptr);
        const Registration& motion = motion_;
        if (i + 1 == held_.size()) {
            pose.transform = motion.motion;
            pose.inliers = motion.inliers;
            pose.matches = matchesOf(motion, earlier.view, view);
        }
        if (motion.inliers == 0) continue;
        const double through = std::hypot(earlier.deviation, motion.deviation);
        const bool better = pose.reference == 0 || earlier.first < pose.first ||
                            (earlier.first == pose.first && through < deviation);
        if (!better) continue;
        attach(earlier, motion, view, pose);
        deviation = through;
        inliers = motion.inliers;
    }
    // no direct registration with the previous view, but one through another view
    if (pose.inliers == 0 && pose.reference != 0 && held_.back().first == pose.first) {
        pose.transform = normalised(pose.toFirst.inverse() * held_.back().toFirst);
        pose.inliers = inliers;
    }
    held_.push_back({std::move(view), pose.number, pose.first, pose.toFirst, deviation});
    if (held_.size() > capacity_) held_.pop_front();
    return pose;
}

}  // namespace scansteps::registration
