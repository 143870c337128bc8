// Step c2rege: the similarity between a view and the previous view.
#include "registration/registering_step.h"
#include "scansteps/step_factory.h"

namespace scansteps::registration {

class CpuRegE final : public RegisteringStep
{
  public:
    const char* getName() override { return "CpuRegE"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        start(settings, params, settings.integer("rege.draw") != 0, settings.integer("rege.features"),
              ViewSequence(MotionModel::similarity, 1));
    }
};

SCANSTEPS_FACTORY(c2rege, CpuRegE)

}  // namespace scansteps::registration
