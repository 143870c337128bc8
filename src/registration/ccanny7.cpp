// Step ccanny7: edges at a scale chosen from the width, and the affine map between successive frames.
#include <cstdio>

#include "core/print.h"
#include "registration/motion_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::registration {

class CpuCanny7 final : public MotionCanny
{
  public:
    CpuCanny7() : MotionCanny(MotionModel::affine) {}
    const char* getName() override { return "CpuCanny7"; }

  private:
    // Rotation in degrees, scale.
    void report(const Registration& motion, varitype&) const override
    {
        char text[100];
        std::snprintf(text, sizeof text, "unic\ncnt %3.3fd %3.3f\n", rotationOf(motion.motion),
                      scaleOf(motion.motion));
        print::text(text);
    }
};

SCANSTEPS_FACTORY(ccanny7, CpuCanny7)

}  // namespace scansteps::registration
