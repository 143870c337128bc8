// The host library as other programs use it: their own frames and steps, resulting records, observers, and
// errors.
#include <gtest/gtest.h>

#include "scansteps/host.h"

namespace scansteps::host {
namespace {

// Adds "seen" to the records of frames, or throws.
class Mark final : public StepBase
{
  public:
    void init(varitype& params) override
    {
        throws_ = params.has("throws");
        forward(*this, params);
    }
    void process(varitype& params) override
    {
        if (throws_) throw "not this one\n";
        params.set("seen", 1);
        forward(*this, params);
    }

  private:
    bool throws_ = false;
};

const StepInfo kMark = {
    .kind = "mark", .className = "Mark", .typeIn = "ANY", .typeOut = "ANY", .frames = {}, .settings = {}};

Pipeline markedSum()
{
    Pipeline pipeline = pipelineFromJson(R"({"steps": ["cf2u", {"kind": "cu2f", "name": "back"}], "settings":
        {"dataX": 4, "dataY": 2, "dataFormat": "CPU::f_1x32"}})");
    pipeline.steps.insert(pipeline.steps.begin() + 1,
                          {&kMark, "own", {}, [] { return std::make_unique<Mark>(); }});
    checkSettings(pipeline);
    return pipeline;
}

TEST(HostLibrary, sendsFramesOfTheCallerThroughStepsOfBothAndShowsThemBetween)
{
    const StepLibrary library;
    std::vector<std::string> seen;
    Hooks hooks;
    hooks.observe = [&](std::size_t position, const varitype& record) {
        if (eventType(record) != event::kProcess) return;
        const Array& frame = pixelsOf(record["handle"].as<int>());
        seen.push_back(std::to_string(position) + (frame.kind() == Kind::Float ? " float" : " 16 bits"));
    };
    Chain chain(markedSum(), library, hooks);
    EXPECT_EQ(codeOf(checkPipeline(chain.pipeline())), kEnded);
    chain.initialise();
    for (const int width : {4, 6}) {  // initialised again with other settings
        chain.pipeline().settings.set("dataX", width);
        chain.initialise();
        chain.input().writable().elements<float>()[0] = 7;
        varitype record{Struct{{"id", 5}}};
        const auto result = chain.transform(record);
        ASSERT_TRUE(result);
        EXPECT_EQ((*result)["seen"].as<int>(), 1);
        EXPECT_EQ((*result)["id"].as<int>(), 5);
        const Array& frame = pixelsOf((*result)["handle"].as<int>());
        EXPECT_EQ(frame.dim(0), std::uint32_t(width));
        EXPECT_EQ(frame.elements<float>()[0], 7);
    }
    chain.flush();
    const std::vector<std::string> once = {"0 float", "1 16 bits", "2 16 bits", "3 float"};
    EXPECT_EQ(std::vector(seen.begin(), seen.begin() + 4), once);
    EXPECT_EQ(chain.steps()[1].name, "own");
}

// The frame that a pipeline with `sets` makes of one and the same input; `change` is made while it runs.
Array frameOf(const std::vector<std::string>& sets, const std::function<void(Chain&)>& change,
              std::vector<std::size_t>* initialised = nullptr)
{
    static const StepLibrary library;
    Pipeline pipeline = pipelineFromLine("cdown1 ! ccanny");
    for (const std::string set : {"dataX=64", "dataY=48", "dataFormat=CPU::u_1x16", "down1.factor=1"})
        applySet(pipeline, set);
    for (const std::string& set : sets) applySet(pipeline, set);
    checkSettings(pipeline);
    Hooks hooks;
    hooks.observe = [&](std::size_t position, const varitype& record) {
        if (initialised != nullptr && eventType(record) == event::kInit) initialised->push_back(position);
    };
    Chain chain(pipeline, library, hooks);
    const auto send = [&] {
        const auto samples = chain.input().writable().elements<std::uint16_t>();
        for (std::size_t i = 0; i < samples.size(); ++i)
            samples[i] = std::uint16_t(32768 + (i % 64 / 8 * 31 + i / 640 * 17) % 251);
        varitype record{Struct()};
        return chain.transform(record).value();
    };
    chain.initialise();
    if (initialised != nullptr) initialised->clear();
    if (change) {
        send();
        change(chain);
    }
    const varitype result = send();
    return pixelsOf(result["handle"].as<int>());
}

TEST(HostLibrary, updatesWhatHasChangedToWhatItWouldBeFromTheStart)
{
    const struct
    {
        std::size_t step;
        std::string set;
        std::vector<std::size_t> initialised;
    } cases[] = {
        {1, "OCV.trh=3000", {1, 2}},
        {1, "OCV.trl=900", {1, 2}},
        {0, "down1.factor=2", {0, 1, 2}},  // the next step gets smaller frames
    };
    const Array before = frameOf({}, {});
    for (const auto& c : cases) {
        SCOPED_TRACE(c.set);
        std::vector<std::size_t> initialised;
        const auto change = [&](Chain& chain) {
            applySet(chain.pipeline(), c.step, c.set);
            checkSettings(chain.pipeline());
            chain.update();
        };
        const Array updated = frameOf({}, change, &initialised), fresh = frameOf({c.set}, {});
        EXPECT_TRUE(varitype(updated).equals(varitype(fresh)));
        EXPECT_FALSE(varitype(updated).equals(varitype(before)));
        EXPECT_EQ(initialised, c.initialised);
    }
}

TEST(HostLibrary, namesStepKindFrameAndMessageOfAnErrorAndGoesOnAfterwards)
{
    const StepLibrary library;
    Chain chain(markedSum(), library), other(markedSum(), library);  // used alternately
    other.initialise();
    chain.pipeline().steps[1].settings.set("throws", 1);
    chain.initialise();
    EXPECT_TRUE(other.process());
    try {
        chain.process();
        FAIL();
    } catch (const StepError& error) {
        EXPECT_STREQ(error.what(), "not this one");
        EXPECT_EQ(error.code, kStepFailed);
        EXPECT_EQ(error.step, 1u);
        EXPECT_EQ(error.kind + "/" + error.name, "mark/own");
        EXPECT_EQ(error.phase, Phase::Process);
        EXPECT_EQ(error.frame, 1);
    }
    chain.flush();
    chain.pipeline().steps[1].settings.remove("throws");
    chain.pipeline().frames = 3;
    const RunFacts facts = runPipeline(chain);
    EXPECT_EQ(facts.exitCode, kEnded);
    EXPECT_EQ(facts.frames, 3);
}

TEST(HostLibrary, findsWhatIsWrongStepByStep)
{
    Pipeline pipeline = pipelineFromLine("cjread ! d2h");
    applySet(pipeline, "load.name=missing.jpg");
    checkSettings(pipeline);
    const auto findings = checkPipeline(pipeline, {.strict = true});
    EXPECT_EQ(codeOf(findings), kFileFailed);
    ASSERT_FALSE(findings.empty());
    for (const Finding& finding : findings) EXPECT_TRUE(finding.step) << finding.text;
    EXPECT_THROW(pipelineFromJson("{\"steps\": [\"cyuf\"]}"), UsageError);
}

}  // namespace
}  // namespace scansteps::host
