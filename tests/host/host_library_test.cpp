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
