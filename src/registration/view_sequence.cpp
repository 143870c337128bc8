// Registers a new view with the views still held and chooses which one to attach it to.
#include "registration/view_sequence.h"

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>

namespace scansteps::registration {
namespace {

Eigen::Matrix3d normalised(const Eigen::Matrix3d& motion)
{
    return motion / motion(2, 2);
}

void listMatches(const Registration& motion, const PreparedView& previous, const PreparedView& view,
                 std::vector<ViewMatch>& matches)
{
    matches.clear();
    for (const Match& m : motion.matches) {
        const corners::CornerFeature& a = previous.features[m.first];
        const corners::CornerFeature& b = view.features[m.second];
        const bool inlier = motion.inliers > 0 && isInlier(m, previous, view, motion.motion);
        matches.push_back({a.x, a.y, b.x, b.y, m.distance, inlier});
    }
}

}  // namespace

// Puts the result in motion_; false when it is not reliable.
bool ViewSequence::registerWith(const Held& earlier, const PreparedView& view, const Eigen::Matrix3d* start)
{
    registerViews(earlier.view, view, model_, motion_, memory_.get(), start);
    return motion_.inliers > 0;
}

// Attaches the view by motion_.
void ViewSequence::attach(const Held& to, const PreparedView& view)
{
    pose_.reference = to.number;
    pose_.first = to.first;
    pose_.fromReference = motion_.motion;
    pose_.toFirst = normalised(to.toFirst * motion_.motion.inverse());
    pose_.toFirstError = std::hypot(to.error, motion_.deviation);
    listMatches(motion_, to.view, view, pose_.matches);
}

// Tries the other views, those of the oldest sequence and with the smallest errors first.
void ViewSequence::attachThroughOthers(const PreparedView& view)
{
    order_.resize(held_.size() - 1);
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    std::ranges::sort(order_, {}, [&](std::size_t i) {
        return std::tuple(held_[i].first, held_[i].error, held_[i].number);
    });
    for (const std::size_t i : order_) {
        const Held& earlier = held_[i];
        const bool isAttached = pose_.reference != 0;
        if (isAttached && (earlier.first > pose_.first ||
                           (earlier.first == pose_.first && earlier.error >= pose_.toFirstError)))
            break;
        if (!registerWith(earlier, view)) continue;
        const double through = std::hypot(earlier.error, motion_.deviation);
        if (isAttached && earlier.first == pose_.first && through >= pose_.toFirstError) continue;
        attach(earlier, view);
        // in place of a direct registration with the previous view
        if (pose_.inliers > 0 || held_.back().first != pose_.first) continue;
        pose_.transform = normalised(pose_.toFirst.inverse() * held_.back().toFirst);
        pose_.inliers = motion_.inliers;
        pose_.error = std::hypot(pose_.toFirstError, held_.back().error);
    }
}

const ViewPose& ViewSequence::add(PreparedView view, const std::optional<KnownMotion>& known)
{
    std::vector<ViewMatch> matches = std::move(pose_.matches);
    pose_ = ViewPose{};
    pose_.matches = std::move(matches);
    pose_.matches.clear();
    pose_.number = pose_.first = ++count_;
    if (!held_.empty()) {
        const Held& previous = held_.back();
        if (registerWith(previous, view, known ? &known->motion : nullptr)) {
            pose_.transform = motion_.motion;
            pose_.inliers = motion_.inliers;
            pose_.error = motion_.deviation;
            attach(previous, view);
        } else {
            listMatches(motion_, previous.view, view, pose_.matches);
        }
        attachThroughOthers(view);
        if (known && (pose_.inliers == 0 || known->error < pose_.error)) keep(*known);
    }
    if (held_.size() == capacity_) {
        spare_ = std::move(held_.front().view);
        held_.erase(held_.begin());
    }
    held_.push_back({std::move(view), pose_.number, pose_.first, pose_.toFirst, pose_.toFirstError});
    return pose_;
}

// Uses the motion that was known before, as nothing better was found.
void ViewSequence::keep(const KnownMotion& known)
{
    const Held& previous = held_.back();
    pose_.transform = known.motion;
    pose_.inliers = known.inliers;
    pose_.error = known.error;
    if (pose_.reference != 0 && pose_.reference != previous.number) return;
    pose_.reference = previous.number;
    pose_.first = previous.first;
    pose_.fromReference = known.motion;
    pose_.toFirst = normalised(previous.toFirst * known.motion.inverse());
    pose_.toFirstError = std::hypot(previous.error, known.error);
}

}  // namespace scansteps::registration
