// Step ccanny5old: edges at a scale chosen from the width, and the rigid motion between successive frames.
#include <cstdio>

#include "core/print.h"
#include "registration/motion_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::registration {

class CpuCanny5 final : public MotionCanny
{
  public:
    CpuCanny5() : MotionCanny(MotionModel::rigid) {}
    const char* getName() override { return "CpuCanny5"; }

  private:
    // Frame number, translation, matches, rotation, expected error of the corners, inliers.
    void report(const Registration& motion, varitype&) const override
    {
        char text[200];
        std::snprintf(text, sizeof text, "cnt %03d %3.3f,%3.3f  %03d  %3.3f,%3.3f %03d\n", frameNumber(),
                      motion.motion(0, 2), motion.motion(1, 2), int(motion.matches.size()),
                      rotationOf(motion.motion), motion.inliers > 0 ? motion.deviation : 0.0, motion.inliers);
        print::text(text);
    }
};

SCANSTEPS_FACTORY(ccanny5old, CpuCanny5)

}  // namespace scansteps::registration
