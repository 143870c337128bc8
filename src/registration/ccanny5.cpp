// Steps ccanny5old, ccanny5 and ccanny7: they differ in the model of the motion and in what they report.
#include <cmath>
#include <cstdio>

#include "registration/motion_canny.h"
#include "core/print.h"
#include "core/step_factory.h"

namespace scansteps {

class CpuCanny5 final : public MotionCanny
{
  public:
    CpuCanny5() : MotionCanny(MotionModel::rigid) {}
    const char* getName() override { return "CpuCanny5"; }

  private:
    // Number of the frame, shift of the first pixel, matches, turn and expected error of the corners,
    // inliers.
    void report(const Registration& motion, varitype&) const override
    {
        char text[200];
        std::snprintf(text, sizeof text, "cnt %03d %3.3f,%3.3f  %03d  %3.3f,%3.3f %03d\n", frameNumber(),
                      motion.motion(0, 2), motion.motion(1, 2), int(motion.matches.size()),
                      turnOf(motion.motion), motion.inliers > 0 ? motion.deviation : 0.0, motion.inliers);
        print::text(text);
    }
};

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
    // Inliers, scale, turn.
    void report(const Registration& motion, varitype& record) const override
    {
        const double factor = scaleOf(motion.motion);
        const double angle = turnOf(motion.motion);
        record.insert("factor", float(factor));
        record.insert("angle", float(angle));
        char text[100];
        std::snprintf(text, sizeof text, "unic:\n%4d %1.2f %1.2f\n", motion.inliers, factor, angle);
        print::text(text);
    }
};

class CpuCanny7 final : public MotionCanny
{
  public:
    CpuCanny7() : MotionCanny(MotionModel::affine) {}
    const char* getName() override { return "CpuCanny7"; }

  private:
    // Turn in degrees, scale.
    void report(const Registration& motion, varitype&) const override
    {
        char text[100];
        std::snprintf(text, sizeof text, "unic\ncnt %3.3fd %3.3f\n", turnOf(motion.motion),
                      scaleOf(motion.motion));
        print::text(text);
    }
};

SCANSTEPS_STEP(CpuCanny5)
SCANSTEPS_STEP(CpuCanny6)
SCANSTEPS_STEP(CpuCanny7)

}  // namespace scansteps
