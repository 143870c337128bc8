// Step mfilt: forwards exactly one process event, selected by its number.
#include "scansteps/chain.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class MessFilter final : public CPUBase
{
  public:
    const char* getName() override { return "MessFilter"; }

    void init(varitype& params) override
    {
        settings_ = copyRecord(params["mfilt"]);
        counter_ = 0;
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        ++counter_;
        if (counter_ == settings_["val"].as<std::int32_t>()) forward(*this, params);
    }

  private:
    varitype settings_ = Struct{};
    std::int64_t counter_ = 0;
};

SCANSTEPS_FACTORY(mfilt, MessFilter)

}  // namespace scansteps::flow
