// Step stri: points from projector columns and the calibration.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>

#include <cmath>
#include <cstdio>
#include <limits>

#include "step_frame.h"
#include "triangulate.h"

namespace scansteps::scan {

class Stri final : public CPUBase
{
  public:
    const char* getName() override { return "Stri"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    /// Drops depths whose row is too far from the expected one; returns the residuals.
    std::vector<float> checkRows(const varitype& record);

    Calibration calibration_;
    float maxResidual_ = 2;
    RayTable rays_;
    std::vector<float> depth_, sigma_;
    FrameCoding coding_ = FrameCoding::Rgb8;
    TextureSet frame_;
};

SCANSTEPS_FACTORY(stri, Stri)

void Stri::init(varitype& params)
{
    const Settings settings(*this, params);
    calibration_ = readCalibration(settings.text("stri.calibration"));
    maxResidual_ = settings.real("stri.residual");
    if (!createFrames(*this, params, frame_, coding_)) return;
    const Eigen::Vector2i size(int(frame_.width()), int(frame_.height()));
    if (calibration_.camera.size != size)
        failf("stri: frames of %d x %d pixels, but the camera was calibrated with %d x %d", size.x(),
              size.y(), calibration_.camera.size.x(), calibration_.camera.size.y());
    rays_ = raysOf(calibration_.camera);
    depth_.resize(rays_.x.size());
    sigma_.resize(rays_.x.size());
    forward(*this, params);
}

void Stri::process(varitype& params)
{
    FrameScope frame(*this, params, frame_);
    varitype& record = frame.record();
    if (!record.has("column"))
        fail("stri: the record has no \"column\"; sgray makes it from a pattern series");
    if (!calibration_.projector) fail("stri: /projector is missing in the calibration file");
    const std::uint32_t width = frame_.width(), height = frame_.height();
    depthOfColumns(*calibration_.projector, rays_.x, rays_.y, planeOf(record, "column", width, height),
                   planeOf(record, "quality", width, height), depth_, sigma_);
    if (record.has("row")) record.set("residual", arrayOf<float>(checkRows(record), width, height));
    const PointGrid grid = pointsOf(rays_, depth_, sigma_);
    const std::size_t count = grid.sigma.size();
    const std::vector<float> colours = coloursOf(frame_.pixels(), coding_, grid.pixels);
    record.set("pns", Struct{{"Points", arrayOf<float>(grid.points, 3, count)},
                             {"Colors", arrayOf<float>(colours, 3, count)}});
    record.set("index", arrayOf<std::int32_t>(grid.index, width, height));
    record.set("sigma", arrayOf<float>(grid.sigma, count, 1));
    std::printf("%15zu points\n", count);
    frame.forwardUnchanged();
}

std::vector<float> Stri::checkRows(const varitype& record)
{
    const auto row = planeOf(record, "row", frame_.width(), frame_.height());
    std::vector<float> residuals = rowResiduals(*calibration_.projector, rays_, depth_, row);
    int dropped = 0;
    for (std::size_t i = 0; i < residuals.size(); ++i)
        if (std::abs(residuals[i]) > maxResidual_) {
            depth_[i] = std::numeric_limits<float>::quiet_NaN();
            ++dropped;
        }
    std::printf("%15d off the expected row\n", dropped);
    return residuals;
}

}  // namespace scansteps::scan
