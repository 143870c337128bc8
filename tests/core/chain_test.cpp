// The chain of steps: creation, timing, events, and frames that are refused.
#include "scansteps/chain.h"

#include "scansteps/steps.h"
#include "support/test.h"

namespace scansteps {
namespace {

TEST(Chain, everyKindCreatesItsClass)
{
    for (const StepInfo& info : kLibrarySteps) {
        auto step = plugin::createStep(info.kind);
        EXPECT_STREQ(step->getName(), std::string_view(info.kind) == "test" ? "cChain" : info.className);
        EXPECT_EQ(step->next, nullptr);
        printed([&] { step.reset(); });
    }
}

TEST(Chain, timingLineAtFlush)
{
    Chain chain({"crgb", "clast"});
    chain.step(0).time = 1234567;
    const std::string text = printed([&] { chain.flush(); });
    EXPECT_EQ(text, "    CpuRGB time =    1.23457 sec \n   CpuLast time =          0 sec \n");
    chain.step(0).name = "left";
    EXPECT_EQ(printed([&] { chain.flush(); }).substr(0, 30), "      left time =    1.23457 s");
}

TEST(Chain, initialiseZeroesTheTimeAndUnknownEventsPassUnchanged)
{
    Chain chain({"crgb", "clast", "cyuv"});
    chain.step(0).time = 5;
    EXPECT_EQ(chain.init({{"dataX", 4}, {"dataY", 2}}), event::kInit);
    EXPECT_EQ(chain.step(0).time, 0);
    varitype odd{Struct{{"eventType", event::kMismatch}, {"mine", 7}}};
    chain.send(odd);
    ASSERT_EQ(chain.arrived.size(), 2U);
    EXPECT_EQ(chain.arrived[1].eventType, event::kMismatch);
    EXPECT_EQ(chain.arrived[1].record["mine"].as<std::int32_t>(), 7);
    const Array frame(Kind::Ushort, 4, 2);
    chain.process(&frame);
    EXPECT_EQ(chain.arrived.size(), 2U) << "clast ends the path of frames";
    varitype bad{Struct{{"eventType", std::uint32_t{1002}}}};
    EXPECT_EQ(thrownText([&] { chain.send(bad); }), "varitype::getv() type error!");
    varitype none{Struct{}};
    EXPECT_EQ(thrownText([&] { chain.send(none); }), "[eventType] not found");
}

TEST(Chain, framesOfAnotherShapeAreRefusedWithBothShapes)
{
    Chain chain({"cu2f"});
    chain.init(geometryOf(8, 2));
    for (const Array& frame :
         {Array(Kind::Ushort, 8, 1), Array(Kind::Uchar, 16, 2), Array(Kind::Ushort, 2, 8), Array()})
        EXPECT_THAT(thrownText([&] { chain.process(&frame); }),
                    testing::EndsWith("initialised for 8 x 2 x 1 Ushort"));
    const Array right(Kind::Ushort, 8, 2);
    chain.process(&right);
    EXPECT_EQ(chain.arrived.back().frame->elements<float>()[0], -32768.0F);
}

TEST(Chain, aFrameThatIsReplacedTakesItsCopyInTheRecordWithIt)
{
    for (const auto& [kind, stays] : {std::pair{"ccanny", false}, {"c2ima", false}, {"csegment", true}}) {
        Chain chain({kind});
        const Array frame(Kind::Ushort, 8, 8);
        printed([&] {
            chain.init(geometryOf(8, 8, {{"combine", Struct{{"factor", 1}}}}));
            chain.process(&frame, {{"data", frame}});
        });
        EXPECT_EQ(chain.arrived.back().record.has("data"), stays) << kind;
    }
}

TEST(Chain, absurdGeometryIsRefusedBeforeMemoryIsTaken)
{
    for (const auto& [x, y] :
         {std::pair{-1, 4}, {4, -1}, {65536, 1}, {65535, 65535}, {INT32_MAX, INT32_MAX}}) {
        Chain chain({"cyuv"});
        EXPECT_NE(thrownText([&, w = x, h = y] {
                      chain.init({{"dataX", w}, {"dataY", h}});
                  }),
                  "")
            << x << " " << y;
    }
    Chain chain({"cyuv"});
    chain.init({{"dataX", 0}, {"dataY", 0}});
    const Array nothing(Kind::Uchar, 0, 0);
    chain.process(&nothing);
    EXPECT_EQ(chain.arrived.size(), 2U);
}

}  // namespace
}  // namespace scansteps
