// Step c2rege5: the homography between a view and the earlier views that the step still holds.
#include "edges/polyline_record.h"
#include "registration/edge_support.h"
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
        start(settings, params, settings.integer("rege5.draw") != 0,
              ViewSequence(MotionModel::homography, views));
    }

  private:
    // When the record has polylines, the frame holds drawn edges instead of grey values: then the polylines
    // are aligned. Otherwise grey values are compared along edges that are detected here.
    void support(const varitype& record, PreparedView& view) override
    {
        std::size_t count = 0;
        if (record.has("fvertsArray")) {
            edges::polylinesOf(record, lines_);
            alignByEdges(lines_, view);
            count = lines_.size();
        } else {
            const edges::Polylines& lines = finder_.edgesOf(view.full.view());
            view.support = pointsOnEdges(lines, view.full.view());
            count = lines.size();
        }
        print::field(std::int64_t(count), " fvertsArray.size()\n");
    }

    EdgeFinder finder_;
    edges::Polylines lines_;  // from the record
};

SCANSTEPS_FACTORY(c2rege5, CpuRegE5)

}  // namespace scansteps::registration
