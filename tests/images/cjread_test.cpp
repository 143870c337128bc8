// Step cjread: numbered files through a whole chain.

#include "support/images.h"
#include "support/test.h"

namespace scansteps {
namespace {

// A folder with tiny numbered PPM files, each with its number as its only grey.
struct CjreadTest : testing::Test
{
    TempDir dir;
    Chain chain{{"cjread"}};

    void writeNumbered(int from, int to)
    {
        for (int i = from; i <= to; ++i) {
            char name[16];
            std::snprintf(name, sizeof name, "f%04d.ppm", i);
            dir.write(name, std::string("P5 2 1 255\n") + std::string(2, char(i)));
        }
    }

    // Initialises anew; what arrived before is forgotten.
    void init(Struct load)
    {
        chain.arrived.clear();
        load.set("name", dir / load["name"].as<std::string>());
        chain.init({{"load", load}, {"dataX", 7}, {"other", "kept"}});
    }

    // Process events until the stream ends; the grey of every frame.
    std::vector<int> run(int atMost = 50)
    {
        for (int i = 0; i < atMost; ++i)
            if (chain.process() == event::kFlush) break;
        std::vector<int> greys;
        for (std::size_t i = 1; i < chain.arrived.size(); ++i)
            greys.push_back(chain.arrived[i].frame->elements<std::uint8_t>()[0]);
        return greys;
    }
};

TEST_F(CjreadTest, numbersUpUntilAFileIsMissing)
{
    writeNumbered(8, 11);
    const std::string out = printed([&] {
        init({{"name", "f0008.ppm"}});
        EXPECT_THAT(run(), ElementsAre(8, 9, 10, 11));
    });
    EXPECT_THAT(out, HasSubstr(dir / "f0009.ppm" + std::string(" filename.c_str()\n")));
    EXPECT_THAT(out, HasSubstr("image file not found\nerror read\n"));

    ASSERT_EQ(chain.arrived.size(), 5U) << "the end is not forwarded";
    const varitype& record = chain.arrived[0].record;
    EXPECT_EQ(record["dataX"].as<int>(), 2);
    EXPECT_EQ(record["dataY"].as<int>(), 1);
    EXPECT_EQ(record["dataFormat"].as<std::string>(), "CPU::u_1x8");
    EXPECT_EQ(record["other"].as<std::string>(), "kept");
    EXPECT_EQ(chain.arrived[2].record["filename"].as<std::string>(), dir / "f0009.ppm");
    EXPECT_TRUE(chain.arrived[1].frame->hasShape(Kind::Uchar, 6, 1));
}

TEST_F(CjreadTest, stepsAndLimits)
{
    writeNumbered(0, 12);
    const struct
    {
        Struct load;
        std::vector<int> greys;
    } table[] = {
        {{{"name", "f0008.ppm"}, {"incr", 2}}, {8, 10, 12}},
        {{{"name", "f0002.ppm"}, {"incr", -1}}, {2, 1, 0}},
        {{{"name", "f0010.ppm"}, {"incr", -5}}, {10, 5, 0}},
        {{{"name", "f0004.ppm"}, {"incr", 0}, {"count", 3}}, {4, 4, 4, 4}},
        {{{"name", "f0000.ppm"}, {"count", 3}}, {0, 1, 2, 3}},
        {{{"name", "f0003.ppm"}, {"one", 1}}, {3}},
        {{{"name", "missing0.ppm"}}, {}},
    };
    for (const auto& row : table) {
        init(row.load);
        EXPECT_EQ(run(), row.greys);
    }
}

// The end of a series is no trouble, nor is any file after its end.
TEST_F(CjreadTest, theHostIsToldOfFilesThatCannotBeRead)
{
    const std::string photo = readFile(examplePath("img0000.jpg"));
    writeNumbered(0, 3);
    dir.write("f0004.ppm", "P5 2 1 255\n");
    writeNumbered(5, 5);
    dir.write("p0.jpg", photo);
    dir.write("p1.jpg", photo.substr(0, photo.size() / 2));
    const struct
    {
        Struct load;
        std::vector<KeptNotice> notices;
    } table[] = {
        {{{"name", "f0005.ppm"}}, {}},
        {{{"name", "f0002.ppm"}, {"count", 1}}, {}},
        {{{"name", "f0003.ppm"}, {"one", 1}}, {}},
        {{{"name", "f0002.ppm"}},
         {{Trouble::SourceStopped, "", "f0004.ppm", "PPM file: fewer samples than its header says"}}},
        {{{"name", "f0009.ppm"}}, {{Trouble::SourceStopped, "", "f0009.ppm", "No such file or directory"}}},
        {{{"name", "p0.jpg"}}, {{Trouble::FrameIncomplete, "", "p1.jpg", "Premature end of JPEG file"}}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.load["name"].as<std::string>());
        chain.notices.clear();
        init(row.load);
        run();
        ASSERT_EQ(chain.notices.size(), row.notices.size());
        for (std::size_t i = 0; i < row.notices.size(); ++i) {
            EXPECT_EQ(chain.notices[i].trouble, row.notices[i].trouble);
            EXPECT_EQ(chain.notices[i].step, "Cjread");
            EXPECT_EQ(chain.notices[i].file, dir / row.notices[i].file);
            EXPECT_EQ(chain.notices[i].reason, row.notices[i].reason);
        }
    }
}

TEST_F(CjreadTest, aWrappedCounterEndsTheStream)
{
    dir.write("g8.ppm", "P5 1 1 255\n8");
    dir.write("g9.ppm", "P5 1 1 255\n9");
    dir.write("g0.ppm", "P5 1 1 255\n0");
    dir.write("plain.ppm", "P5 1 1 255\np");
    init({{"name", "g8.ppm"}});
    EXPECT_THAT(run(), ElementsAre('8', '9'));
    init({{"name", "plain.ppm"}});
    EXPECT_THAT(run(), ElementsAre('p')) << "no digits: one frame";
}

TEST_F(CjreadTest, aFrameOfAnotherSizeSaysSo)
{
    dir.write("h0.ppm", "P5 2 1 255\nab");
    dir.write("h1.ppm", "P5 1 3 255\nabc");
    init({{"name", "h0.ppm"}});
    run();
    ASSERT_EQ(chain.arrived.size(), 3U);
    EXPECT_TRUE(chain.arrived[2].frame->hasShape(Kind::Uchar, 3, 3));
}

// A consumer swaps our buffer for one of its own, of any shape: the next frame is right all the same.
TEST_F(CjreadTest, theBufferThatComesBackMayHaveAnyShape)
{
    writeNumbered(1, 3);
    init({{"name", "f0001.ppm"}});
    for (int i = 1; i <= 3; ++i) {
        chain.process();
        const auto& last = chain.arrived.back();
        EXPECT_EQ(last.frame->elements<std::uint8_t>()[0], i);
        pixelsOf(last.record["handle"].as<std::int32_t>()) = Array(Kind::Float, 1, 1);
    }
}

}  // namespace
}  // namespace scansteps
