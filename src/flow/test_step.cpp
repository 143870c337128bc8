// Step test: prints and forwards the records of all events.
#include "core/print.h"
#include "scansteps/chain.h"
#include "scansteps/step_factory.h"

namespace scansteps::flow {

class Test final : public cChain
{
  public:
    ~Test() override { print::line("~Test"); }
    void dispatch(varitype& params) override
    {
        dump(params, "Test::");
        print::text("\n\n");
        forward(*this, params);
    }
};

SCANSTEPS_FACTORY(test, Test)

}  // namespace scansteps::flow
