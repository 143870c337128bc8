// A step of a plug-in for the tests of the host: puts its settings into every record.
#include <scansteps/handles.h>
#include <scansteps/settings.h>
#include <scansteps/step_factory.h>

namespace {

using namespace scansteps;

class Twice final : public CPUBase
{
  public:
    const char* getName() override { return "Twice"; }
    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        factor_ = settings.integer("twice.factor");
        log_ = settings.text("twice.log");
        for (int i = settings.integer("twice.keeps"); i > 0; --i) handles::allocate();
        forward(*this, params);
    }
    void process(varitype& params) override
    {
        params.set("twice", factor_);
        params.set("log", log_);
        forward(*this, params);
    }

  private:
    int factor_ = 0;
    std::string log_;
};

SCANSTEPS_FACTORY(twice, Twice)

}  // namespace
