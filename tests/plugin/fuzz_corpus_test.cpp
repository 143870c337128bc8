// Replays the saved inputs of every fuzz target: each folder fuzz/<module>/<thing>_corpus.
#include "../../fuzz/core/record_reader_input.h"
#include "../../fuzz/host/batch_input.h"
#include "../../fuzz/host/plugin_description_input.h"
#include "../../fuzz/images/decode_input.h"
#include "../../fuzz/images/image_file_input.h"
#include "../../fuzz/jpeg/decoder_input.h"
#include "../../fuzz/plugin/any_chain_input.h"
#ifdef __linux__
#include "../../fuzz/scan/calibration_input.h"
#endif
#include "support/test.h"
#ifdef SCANSTEPS_VIEWER
#include "../../fuzz/viewer/access_input.h"
#include "../../fuzz/viewer/message_input.h"
#include "../../fuzz/viewer/model_input.h"
#include "../../fuzz/viewer/recording_input.h"
#endif

namespace scansteps {
namespace {

using Feed = std::function<void(const std::filesystem::path&)>;

Feed ofBytes(const std::function<void(const std::uint8_t*, std::size_t)>& feed)
{
    return [=](const std::filesystem::path& path) {
        const std::string bytes = readFile(path);
        feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    };
}

TEST(FuzzCorpus, savedInputsPassTheChecksOfTheirTargets)
{
    const fuzzing::Scratch scratch;
    std::map<std::string, Feed> targets = {
        {"record_reader_corpus", ofBytes(fuzzing::readRecords)},
        {"decode_corpus", ofBytes(fuzzing::decodePictures)},
        {"image_file_corpus", [](const auto& path) { fuzzing::loadImageFile(path.string()); }},
        {"decoder_corpus", ofBytes([](const std::uint8_t* data, std::size_t size) {
             forEachTarget([&] { fuzzing::decodeJpeg(data, size); });
         })},
        {"plugin_description_corpus", ofBytes(fuzzing::readPluginDescription)},
#ifdef SCANSTEPS_VIEWER
        {"message_corpus", ofBytes(fuzzing::readMessage)},
        {"access_corpus", ofBytes(fuzzing::checkHeaders)},
        {"model_corpus", ofBytes(fuzzing::readModels)},
        {"recording_corpus", [](const auto& path) { fuzzing::showRecords(path.string()); }},
#endif
        {"any_chain_corpus", ofBytes([&](const std::uint8_t* data, std::size_t size) {
             fuzzing::AnyChain(data, size, scratch).run();
         })}};
#ifdef __linux__
    targets["calibration_corpus"] = ofBytes(fuzzing::readCalibrationFiles);
    targets["batch_corpus"] = ofBytes(fuzzing::readBatch);
#else
    targets["calibration_corpus"] = targets["batch_corpus"] = [](const auto&) {};  // for Linux only
#endif
    std::map<std::string, int> replayed;
    testing::internal::CaptureStderr();
    printed([&] {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(SCANSTEPS_SOURCE_DIR "/fuzz")) {
            const std::string folder = entry.path().parent_path().filename().string();
            if (!entry.is_regular_file() || !folder.ends_with("_corpus")) continue;
#ifndef SCANSTEPS_VIEWER
            if (entry.path().parent_path().parent_path().filename() == "viewer") continue;
#endif
            SCOPED_TRACE(entry.path());
            targets.at(folder)(entry.path());
            ++replayed[folder];
        }
    });
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(replayed.size(), targets.size()) << "a target without saved inputs";
}

// Saved inputs name the steps of their chain by these keys.
TEST(FuzzCorpus, everyStepHasAKeyOfItsOwn)
{
    for (const StepInfo& step : kLibrarySteps)
        EXPECT_EQ(fuzzing::stepAt(fuzzing::keyOf(step.kind)).kind, step.kind);
}

}  // namespace
}  // namespace scansteps
