// Step ccanny5: edges at a scale chosen from the width, and the similarity between successive frames.
#include <cmath>
#include <cstdio>

#include "core/print.h"
#include "registration/motion_canny_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::registration {

class CpuCanny6 final : public MotionCanny
{
  public:
    CpuCanny6() : MotionCanny(MotionModel::similarity) {}
    const char* getName() override { return "CpuCanny6"; }

  private:
    void announce() const override
    {
        print::field(level(), " RLEV\n");
        const double scale = width() > 0 ? std::log2(double(width())) : 0;
        print::field(int(scale + 0.5), " int(log2(W)+0.5)\n");
    }
    // Inliers, scale, rotation.
    void report(const Registration& motion, varitype& record) const override
    {
        const double factor = scaleOf(motion.motion);
        const double angle = rotationOf(motion.motion);
        record.insert("factor", float(factor));
        record.insert("angle", float(angle));
        char text[100];
        std::snprintf(text, sizeof text, "unic:\n%4d %1.2f %1.2f\n", motion.inliers, factor, angle);
        print::text(text);
    }
};

SCANSTEPS_FACTORY(ccanny5, CpuCanny6)

}  // namespace scansteps::registration
