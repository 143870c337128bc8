// Draws matches and the outline of the earlier view.
#include "registration/draw_views.h"

#include <array>

#include "grey/draw_line.h"

namespace scansteps::registration {

void drawPose(std::span<std::uint16_t> frame, int width, int height, const ViewPose& pose,
              grey::SampleCoding coding)
{
    const std::uint16_t ink = grey::inkOf(coding);
    const auto faint = std::uint16_t(ink - 127);
    for (const bool inliers : {false, true})
        for (const ViewMatch& m : pose.matches)
            if (m.inlier == inliers)
                grey::drawLine(frame, width, height, double(m.x1), double(m.y1), double(m.x2), double(m.y2),
                               inliers ? ink : faint);
    if (pose.reference == 0) return;
    const double right = width - 1;
    const double bottom = height - 1;
    const std::array<Eigen::Vector2d, 5> outline{{{0, 0}, {right, 0}, {right, bottom}, {0, bottom}, {0, 0}}};
    for (std::size_t i = 0; i + 1 < outline.size(); ++i) {
        const Eigen::Vector2d a = transformed(pose.fromReference, outline[i]);
        const Eigen::Vector2d b = transformed(pose.fromReference, outline[i + 1]);
        grey::drawLine(frame, width, height, a.x(), a.y(), b.x(), b.y(), ink);
    }
}

}  // namespace scansteps::registration
