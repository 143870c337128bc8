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

std::vector<ViewMatch> matchesOf(const Registration& motion, const PreparedView& before,
                                 const PreparedView& view)
{
    std::vector<ViewMatch> result;
    for (const Match& m : motion.matches) {
        const corners::CornerFeature& a = before.features[m.first];
        const corners::CornerFeature& b = view.features[m.second];
        const bool inlier = motion.inliers > 0 && agrees(m, before, view, motion.motion);
        result.push_back({a.x, a.y, b.x, b.y, m.distance, inlier});
    }
    return result;
}

}  // namespace

void ViewSequence::attach(const Held& to, const Registration& motion, const PreparedView& view,
                          ViewPose& place) const
{
    place.reference = to.number;
    place.first = to.first;
    place.fromReference = motion.motion;
    place.toFirst = normalised(to.toFirst * motion.motion.inverse());
    place.matches = matchesOf(motion, to.view, view);
}

ViewPose ViewSequence::add(PreparedView view, const std::optional<Eigen::Matrix3d>& initial)
{
    ViewPose place;
    place.number = place.first = ++count_;
    double deviation = 0;
    int inliers = 0;
    for (std::size_t i = held_.size(); i-- > 0;) {
        const Held& earlier = held_[i];
        // The estimate leads from the view before: from others of its sequence by way of that one.
        Eigen::Matrix3d start;
        const bool hasStart = initial && earlier.first == held_.back().first;
        if (hasStart) start = normalised(*initial * held_.back().toFirst.inverse() * earlier.toFirst);
        registerViews(earlier.view, view, model_, motion_, memory_.get(), hasStart ? &start : nullptr);
        const Registration& motion = motion_;
        if (i + 1 == held_.size()) {
            place.transform = motion.motion;
            place.inliers = motion.inliers;
            place.matches = matchesOf(motion, earlier.view, view);
        }
        if (motion.inliers == 0) continue;
        const double through = std::hypot(earlier.deviation, motion.deviation);
        const bool better = place.reference == 0 || earlier.first < place.first ||
                            (earlier.first == place.first && through < deviation);
        if (!better) continue;
        attach(earlier, motion, view, place);
        deviation = through;
        inliers = motion.inliers;
    }
    // the view before is reached through another
    if (place.inliers == 0 && place.reference != 0 && held_.back().first == place.first) {
        place.transform = normalised(place.toFirst.inverse() * held_.back().toFirst);
        place.inliers = inliers;
    }
    held_.push_back({std::move(view), place.number, place.first, place.toFirst, deviation});
    if (held_.size() > most_) held_.pop_front();
    return place;
}

}  // namespace scansteps::registration
