// Step cneig: drops the features of a record that have too few similar neighbours. Frames pass unchanged.
#include "core/print.h"
#include "corners/feature_record.h"
#include "corners/neighbour_filter.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/settings.h"
#include "scansteps/step_factory.h"

namespace scansteps::corners {

class cpuNeigFilter final : public CPUBase
{
  public:
    const char* getName() override { return "cpuNeigFilter"; }

    void init(varitype& params) override
    {
        const Settings settings(*this, params);
        settings.frameSize();
        settings_ = {settings.real("neig.radius"), settings.integer("neig.distance"),
                     settings.integer("neig.count")};
        forward(*this, params);
    }

    void process(varitype& params) override
    {
        StepTimer timer(*this);
        varitype record = copyRecord(params);
        const std::vector<CornerFeature> features = featuresOf(record);
        const auto numbers = record["verti"].as<Array>().elements<std::int32_t>();
        if (numbers.size() != features.size()) fail("verti: not one int a feature");
        std::vector<CornerFeature> kept;
        std::vector<std::int32_t> indices;
        for (const std::uint32_t i : withSimilarNeighbours(features, settings_)) {
            kept.push_back(features[i]);
            indices.push_back(numbers[i]);
        }
        for (const char* key : {"vert", "vertAttr", "verti"}) record.remove(key);
        insertFeatures(record, kept, indices);
        print::field(std::int64_t(kept.size()), " refs.size()\n");
        timer.forward(record);
    }

  private:
    NeighbourFilter settings_;
};

SCANSTEPS_FACTORY(cneig, cpuNeigFilter)

}  // namespace scansteps::corners
