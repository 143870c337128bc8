// Replays the saved inputs of the fuzz targets of the record reader and of all steps.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "../../fuzz/core/record_reader_input.h"
#include "../../fuzz/plugin/any_chain_input.h"
#include "support/temp_dir.h"

namespace scansteps {
namespace {

int replay(const char* folder, const std::function<void(const std::uint8_t*, std::size_t)>& feed)
{
    int count = 0;
    const auto corpus = std::filesystem::path(SCANSTEPS_SOURCE_DIR) / "fuzz" / folder;
    for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
        SCOPED_TRACE(entry.path());
        const std::string bytes = test::readFile(entry.path());
        feed(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++count;
    }
    return count;
}

TEST(FuzzCorpus, RecordReader)
{
    EXPECT_GE(replay("core/record_reader_corpus", &fuzzing::readRecords), 20);
}

TEST(FuzzCorpus, AnyChain)
{
    const fuzzing::Scratch scratch;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int count = replay("plugin/any_chain_corpus", [&](const std::uint8_t* data, std::size_t size) {
        fuzzing::AnyChain(data, size, scratch).run();
    });
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    EXPECT_GE(count, 80);
}

}  // namespace
}  // namespace scansteps
