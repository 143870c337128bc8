// Checks the table of steps against the steps: what each does with every setting of the table that is
// missing, of another kind, or out of range, and with frames that do not fit.
#include "scansteps/steps.h"

#include "scansteps/socket.h"
#include "support/test.h"

namespace scansteps {
namespace {

constexpr const char* kTypeError = "varitype::getv() type error!";

// Sets the value at a path or removes it; a family is created for its first setting.
void put(Struct& settings, std::string_view path, const std::optional<varitype>& value)
{
    const std::size_t dot = path.find('.');
    const auto set = [](Struct& to, std::string_view key, const std::optional<varitype>& what) {
        if (what)
            to.set(key, *what);
        else
            to.remove(key);
    };
    if (dot == std::string_view::npos) return set(settings, path, value);
    Struct family;
    if (const varitype* before = settings.find(path.substr(0, dot))) family = before->as<Struct>();
    set(family, path.substr(dot + 1), value);
    settings.set(path.substr(0, dot), std::move(family));
}

varitype number(const SettingInfo& setting, double value)
{
    return setting.kind == Kind::Int ? varitype(int(value)) : varitype(float(value));
}

class TableTest : public testing::Test
{
  protected:
    TableTest()
    {
        BIOfs recording(dir_ / "run.rec", BIOfs::Mode::Write);
        writeRecord(recording,
                    Struct{{"eventType", 1001}, {"dataX", 4}, {"dataY", 2}, {"dataFormat", "CPU::u_1x16"}});
    }

    varitype validValue(const SettingInfo& setting) const
    {
        const std::string_view path = setting.path;
        if (path == "load.name") return dir_ / "run.rec";
        if (path == "sender.port") return int(receiver_.port());
        if (setting.role == SettingRole::Output) return dir_ / "written";
        if (setting.kind == Kind::String) return "CPU::u_1x8";
        return number(setting, std::clamp(2.0, setting.min, setting.max));
    }

    // The fewest settings that the step accepts.
    Struct fewest(const StepInfo& step)
    {
        Struct settings;
        for (const SettingInfo& setting : step.settings)
            if (setting.required) put(settings, setting.path, validValue(setting));
        if (findSetting(step, "capture.dev_name") != nullptr)
            put(settings, "capture.dev_name", varitype("test:bars"));
        return settings;
    }

    // The text that the step throws, usually at initialise; mfilt reads its number with every frame.
    std::string raised(const StepInfo& step, const Struct& settings, int* eventType = nullptr)
    {
        std::string text;
        printed([&] {
            Chain chain({step.kind});
            text = thrownText([&] {
                const int after = chain.init(settings);
                if (eventType != nullptr) *eventType = after;
                if (std::string_view(step.kind) == "mfilt") chain.process();
            });
        });
        receiver_.accept(0);
        return text;
    }

    std::string raisedWith(const StepInfo& step, const SettingInfo& setting,
                           const std::optional<varitype>& value)
    {
        Struct settings = fewest(step);
        put(settings, setting.path, value);
        return raised(step, settings);
    }

    void checkKindOfValue(const StepInfo& step, const SettingInfo& setting, bool runs)
    {
        const std::string path = setting.path;
        const varitype other = setting.kind == Kind::String ? varitype(7) : varitype("text");
        if (runs || !setting.presence) {
            EXPECT_EQ(raisedWith(step, setting, other), setting.presence ? "" : kTypeError);
        }
        if (path.find('.') == std::string::npos) return;
        Struct noFamily = fewest(step);
        noFamily.set(path.substr(0, path.find('.')), 5);
        EXPECT_EQ(raised(step, noFamily), "MustBe nsa ");
    }

    void checkMissing(const StepInfo& step, const SettingInfo& setting, bool runs)
    {
        const std::string path = setting.path;
        if (setting.required) {
            EXPECT_EQ(raisedWith(step, setting, std::nullopt),
                      "[" + path.substr(path.rfind('.') + 1) + "] not found");
            Struct none = fewest(step);
            none.remove(path.substr(0, path.find('.')));
            EXPECT_EQ(raised(step, none), "[" + path.substr(0, path.find('.')) + "] not found");
        } else if (runs) {
            int after = 0;
            EXPECT_EQ(raised(step, fewest(step), &after), "");
            const bool reports = std::string_view(setting.doc).find("1004") != std::string_view::npos;
            EXPECT_TRUE(path != "dataFormat" || (after == event::kMismatch) == reports);
        }
    }

    void checkRange(const StepInfo& step, const SettingInfo& setting, bool runs)
    {
        const auto isInt = [](double v) { return v >= INT32_MIN && v <= INT32_MAX; };
        for (const auto& [limit, away] : {std::pair{setting.min, -1.0}, std::pair{setting.max, 1.0}}) {
            const double outside = limit + away;
            if (!std::isfinite(limit) || (setting.kind == Kind::Int && !isInt(outside))) continue;
            SCOPED_TRACE(outside);
            if (runs || setting.enforced) {
                const std::string text = raisedWith(step, setting, number(setting, outside));
                EXPECT_EQ(text.find(", must be ") != std::string::npos, setting.enforced) << text;
            }
            if (runs && std::string_view(setting.path) != "sender.port") {
                EXPECT_EQ(raisedWith(step, setting, number(setting, limit)), "");
            }
        }
    }

    TempDir dir_;
    Listener receiver_{0, "127.0.0.1"};
};

TEST_F(TableTest, StepsReadEverySettingAsTheTableSays)
{
    for (const StepInfo& step : kLibrarySteps) {
        const bool runs = std::string_view(step.kind) != "ccap";  // which needs a camera
        for (const SettingInfo& setting : step.settings) {
            SCOPED_TRACE(std::string(step.kind) + " " + setting.path);
            checkMissing(step, setting, runs);
            checkKindOfValue(step, setting, runs);
            checkRange(step, setting, runs);
        }
    }
}

// A frame as a step of the table takes it; empty for a step that takes any or none.
Array frameFor(Pixels pixels, int width, int height)
{
    if (pixels == Pixels::None || pixels == Pixels::Any || pixels == Pixels::Same) return {};
    const bool isRgb = pixels == Pixels::Rgb8;
    return Array(isRgb                     ? Kind::Uchar
                 : pixels == Pixels::Float ? Kind::Float
                                           : Kind::Ushort,
                 std::uint32_t(isRgb ? 3 * width : width), std::uint32_t(height));
}

TEST_F(TableTest, StepsRefuseFramesThatDoNotFitAndTakeTinyOnes)
{
    for (const StepInfo& step : kLibrarySteps) {
        const Kind kind = frameFor(step.frames.in, 1, 1).kind();
        if (kind == Kind::Empty) continue;
        SCOPED_TRACE(step.kind);
        for (const int size : {0, 1, 3, 5, 40}) {
            Chain chain({step.kind});
            Struct settings = geometryOf(size, size, fewest(step));
            settings.set("dataFormat", kind == Kind::Uchar   ? "CPU::u_1x8"
                                       : kind == Kind::Float ? "CPU::f_1x32"
                                                             : "CPU::u_1x16");
            const Array frame = frameFor(step.frames.in, size, size), wrong(kind, 1, 39);
            std::string error, refused, unnamed, lost;
            printed([&] {
                error = thrownText([&] {
                    chain.init(settings);
                    for (int i = 0; i < 2; ++i) chain.process(&frame);
                    chain.flush();
                });
                refused = thrownText([&] { chain.process(&wrong); });
                unnamed = thrownText([&] { chain.process(); });
                lost = thrownText([&] { chain.process(nullptr, {{"handle", 2000}}); });
            });
            EXPECT_EQ(error, std::string_view(step.kind) == "ccorner5" ? "too small" : "");
            if (size < 40) continue;
            EXPECT_THAT(refused, StartsWith(chain.step(0).getName() + ": the frame is 1 x 39 x 1 "s));
            EXPECT_TRUE(chain.hostPixels().sameShape(wrong)) << "exchanged";
            EXPECT_EQ(unnamed, "[handle] not found");
            EXPECT_EQ(lost, "Handle::zero handle!!!");
        }
    }
}

}  // namespace
}  // namespace scansteps
