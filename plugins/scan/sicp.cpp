// Step sicp: the poses of views from the surface that they share. Holds the views until the flush.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>

#include <cstdio>
#include <utility>

#include "step_frame.h"
#include "view_alignment.h"
#include "view_record.h"

namespace scansteps::scan {

class Sicp final : public CPUBase
{
  public:
    const char* getName() override { return "Sicp"; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    /// Sends the views that fit, then the flush.
    void flush(varitype& params) override;

  private:
    struct Held
    {
        varitype record;
        Array frame;
        bool hasFrame = false;
    };
    void hold(const varitype& params);
    void send(Held& held, const ViewFit& fit);
    void sendAll();

    std::optional<ViewAlignment> alignment_;
    std::optional<Stage> stage_;
    std::vector<Held> held_;
    std::size_t bytes_ = 0, limit_ = 0;
    TextureSet frame_;
};

SCANSTEPS_FACTORY(sicp, Sicp)

namespace {

std::size_t bytesOf(const varitype& value)
{
    if (value.kind() == Kind::Array) return value.as<Array>().byteSize();
    std::size_t sum = 0;
    if (value.kind() == Kind::Struct)
        for (const auto& [name, entry] : value.as<Struct>()) sum += bytesOf(entry);
    return sum;
}

void printFit(std::size_t number, const ViewFit& fit)
{
    const auto& d = fit.direction;
    switch (fit.state) {
        case FitState::Good:
            std::printf("view %zu: RMS %.4f mm, overlap %.1f %%\n", number, fit.residual, 100 * fit.overlap);
            break;
        case FitState::NoOverlap:
            std::printf("view %zu does not fit: no overlap with the others (%.1f %% of its surface)\n",
                        number, 100 * fit.overlap);
            break;
        case FitState::BadResidual:
            std::printf("view %zu does not fit: RMS %.4f mm\n", number, fit.residual);
            break;
        case FitState::Ambiguous:
            std::printf(
                "view %zu does not fit: ambiguous, the shared surface allows a turn about (%.2f, "
                "%.2f, %.2f) with a shift along (%.2f, %.2f, %.2f); eigenvalue %.1e\n",
                number, d[0], d[1], d[2], d[3], d[4], d[5], fit.freedom);
            break;
    }
}

}  // namespace

void Sicp::init(varitype& params)
{
    const Settings settings(*this, params);
    AlignmentSettings s;
    s.reach = double(settings.real("sicp.reach"));
    s.pitch = double(settings.real("sicp.pitch"));
    s.contour = settings.integer("sicp.contour");
    s.overlap = double(settings.real("sicp.overlap"));
    s.residual = double(settings.real("sicp.residual"));
    s.freedom = double(settings.real("sicp.freedom"));
    alignment_.emplace(s);
    limit_ = std::size_t(settings.integer("sicp.memory")) << 20;
    stage_.reset();
    if (const std::string file = settings.text("sicp.calibration"); !file.empty()) {
        stage_ = readCalibration(file).stage;
        if (!stage_) failf("sicp: /stage is missing in %s", file.c_str());
    }
    held_.clear();
    bytes_ = 0;
    forward(*this, params);
}

void Sicp::hold(const varitype& params)
{
    Held held{copyRecord(params), {}, false};
    for (const char* map : {"column", "row", "quality", "residual"}) held.record.remove(map);
    if (params.has("handle")) {
        held.frame = pixelsOf(params["handle"].as<std::int32_t>());
        held.hasFrame = true;
    }
    bytes_ += bytesOf(held.record) + held.frame.byteSize();
    if (bytes_ + alignment_->bytes() > limit_)
        failf("sicp: view %zu needs more than sicp.memory = %zu MB", held_.size() + 1, limit_ >> 20);
    held_.push_back(std::move(held));
}

void Sicp::process(varitype& params)
{
    StepTimer timer(*this);
    if (!alignment_) fail("sicp: a view arrived before the settings");
    const RecordMesh view(params, "sicp");
    std::optional<Pose> estimate = poseOf(params, "sicp");
    if (!estimate && stage_) estimate = stageMotion(*stage_, int(held_.size()));
    hold(params);
    const ViewFit fit = alignment_->add(view.mesh, estimate);
    if (held_.size() > 1) {
        std::printf("so far, ");
        printFit(held_.size(), fit);
    }
    timer.stop();
}

void Sicp::send(Held& held, const ViewFit& fit)
{
    varitype record = std::move(held.record);
    record.set("pose", poseArray(fit.pose));
    record.set("residual", float(fit.residual));
    record.set("overlap", float(fit.overlap));
    if (held.hasFrame) {
        if (frame_.count() == 0) frame_.create(1, 1, format::kU1x8, shapeOf(held.frame));
        frame_.pixels() = std::move(held.frame);
        record.set("handle", frame_.handle());
    }
    forward(*this, record);
}

void Sicp::sendAll()
{
    StepTimer timer(*this);
    const std::vector<ViewFit> fits = alignment_->finish();
    timer.stop();
    std::vector<Held> held = std::exchange(held_, {});
    alignment_.reset();
    std::size_t left = 0;
    for (std::size_t n = 0; n < fits.size(); ++n) {
        printFit(n + 1, fits[n]);
        left += fits[n].state != FitState::Good;
    }
    std::printf("%15zu views\n%15zu of them left out\n", fits.size(), left);
    for (std::size_t n = 0; n < fits.size(); ++n) {
        if (fits[n].state == FitState::Good) send(held[n], fits[n]);
        held[n] = {};
    }
}

void Sicp::flush(varitype& params)
{
    if (alignment_ && alignment_->size() > 0 && alignment_->size() == held_.size()) sendAll();
    CPUBase::flush(params);
}

}  // namespace scansteps::scan
