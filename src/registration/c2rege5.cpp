// Step c2rege5: the homography between a view and the earlier views that the step still holds.
#include "edges/polyline_record.h"
#include "registration/registering_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::registration {

class CpuRegE5 final : public RegisteringStep
{
  public:
    const char* getName() override { return "CpuRegE5"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        const auto views = std::size_t(settings.integer("rege5.views"));
        start(settings, params, settings.integer("rege5.draw") != 0, settings.integer("rege5.features"),
              ViewSequence(MotionModel::homography, views));
    }

  private:
    // When the record has polylines, the frame holds drawn edges instead of grey values: then the polylines
    // are aligned.
    void support(const varitype& record, PreparedView& view) override
    {
        if (!record.has("fvertsArray")) return;
        edges::polylinesOf(record, lines_);
        alignByEdges(lines_, view);
        print::field(std::int64_t(lines_.size()), " fvertsArray.size()\n");
    }

    edges::Polylines lines_;
};

SCANSTEPS_FACTORY(c2rege5, CpuRegE5)

}  // namespace scansteps::registration
