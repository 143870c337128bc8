// Steps cjread and cjreadf: numbered files through whole chains, and frames that the other steps accept.

#include "images/image_file.h"
#include "jpeg/pack_yuyv16.h"
#include "support/images.h"
#include "support/jpeg.h"
#include "support/test.h"

namespace scansteps {
namespace {

using namespace images;

constexpr const char* kDecoderError = "Bad huffman data (buffer overflow)";

// A temporary folder, and a chain of the source under test.
struct ImageSource : testing::TestWithParam<const char*>
{
    TempDir dir;
    Chain chain{{GetParam()}};
    const bool yuyv = std::string(GetParam()) == "cjreadf";

    // Writes a picture of one grey level, whose content decides how it is read.
    void write(const std::string& name, int grey, int width = 2, int height = 2)
    {
        if (yuyv)
            dir.write(name, jpegFile({width, height,
                                      std::vector(std::size_t(3 * width * height), std::uint8_t(grey))},
                                     {.horizontal = 1, .vertical = 1}));
        else
            dir.write(name, "P5 " + std::to_string(width) + " " + std::to_string(height) + " 255\n" +
                                std::string(std::size_t(width * height), char(grey)));
    }
    void writeNumbered(int from, int to)
    {
        for (int i = from; i <= to; ++i) write((i < 10 ? "f0" : "f") + std::to_string(i) + ".jpg", i);
    }
    // Initialises again, discarding what has arrived.
    void init(Struct load)
    {
        chain.arrived.clear();
        chain.notices.clear();
        load.set("name", dir / load["name"].as<std::string>());
        chain.init({{"load", load}, {"dataX", 7}, {"other", "kept"}});
    }
    // Sends process events until the stream ends; returns the grey level of every frame.
    std::vector<int> run(Struct load)
    {
        init(std::move(load));
        for (int i = 0; i < 50; ++i)
            if (chain.process() == event::kFlush) break;
        std::vector<int> greys;
        for (std::size_t i = 1; i < chain.arrived.size(); ++i)
            greys.push_back(int(chain.arrived[i].frame->data()[0]));
        return greys;
    }
};

INSTANTIATE_TEST_SUITE_P(Both, ImageSource, testing::Values("cjread", "cjreadf"),
                         [](const auto& each) { return std::string(each.param); });

TEST_P(ImageSource, countsUpUntilAFileIsMissing)
{
    writeNumbered(8, 11);
    const std::string out = printed([&] {
        EXPECT_THAT(run({{"name", "f08.jpg"}}), ElementsAre(8, 9, 10, 11));
    });
    EXPECT_THAT(out, HasSubstr(dir / "f09.jpg" + std::string(" filename.c_str()\n")));
    EXPECT_THAT(out, testing::EndsWith((yuyv ? "!ifs\n" : "image file not found\n") + "error read\n"s));

    ASSERT_EQ(chain.arrived.size(), 5U) << "the end is not forwarded";
    const varitype& record = chain.arrived[0].record;
    EXPECT_EQ(record["dataX"].as<int>(), 2);
    EXPECT_EQ(record["dataY"].as<int>(), 2);
    EXPECT_EQ(record["dataFormat"].as<std::string>(), yuyv ? "CPU::u_1x16" : "CPU::u_1x8");
    EXPECT_EQ(record.has("VideoFormat"), yuyv);
    EXPECT_EQ(record["other"].as<std::string>(), "kept");
    EXPECT_EQ(chain.arrived[2].record["filename"].as<std::string>(), dir / "f09.jpg");
}

TEST_P(ImageSource, stepsAndLimits)
{
    writeNumbered(0, 12);
    write("g8.jpg", 108);
    write("g9.jpg", 109);
    write("g0.jpg", 100);
    write("plain.jpg", 99);
    const std::pair<Struct, std::vector<int>> table[] = {
        {{{"name", "f08.jpg"}, {"incr", 2}}, {8, 10, 12}},
        {{{"name", "f02.jpg"}, {"incr", -1}}, {2, 1, 0}},
        {{{"name", "f10.jpg"}, {"incr", -5}}, {10, 5, 0}},
        {{{"name", "f04.jpg"}, {"incr", 0}, {"count", 3}}, {4, 4, 4, 4}},
        {{{"name", "f00.jpg"}, {"count", 3}}, {0, 1, 2, 3}},
        {{{"name", "f03.jpg"}, {"one", 1}}, {3}},
        {{{"name", "missing0.jpg"}}, {}},
        {{{"name", "g8.jpg"}}, {108, 109}},  // a wrapped counter ends the stream
        {{{"name", "plain.jpg"}}, {99}},     // no digits: one frame
    };
    for (const auto& [load, greys] : table) EXPECT_EQ(run(load), greys) << load["name"].as<std::string>();
}

// The end of a series is not reported, nor is any file after it.
TEST_P(ImageSource, notifiesTheHostOfFilesThatCannotBeRead)
{
    writeNumbered(0, 5);
    dir.write("f04.jpg", "P5 2 1 255\n");
    const std::string photo = jpegFile(cropped(examplePhoto("photo_coffee.jpg"), 64, 48));
    dir.write("p0.jpg", photo);
    dir.write("p1.jpg", photo.substr(0, photo.size() * 4 / 5));
    dir.write("p2.jpg", photo);
    const struct
    {
        Struct load;
        std::vector<KeptNotice> notices;
    } table[] = {
        {{{"name", "f05.jpg"}}, {}},
        {{{"name", "f02.jpg"}, {"count", 1}}, {}},
        {{{"name", "f03.jpg"}, {"one", 1}}, {}},
        {{{"name", "f02.jpg"}},
         {{Trouble::SourceStopped, "", "f04.jpg",
           yuyv ? "Not a JPG file ?" : "PPM file: fewer samples than its header says"}}},
        {{{"name", "f09.jpg"}}, {{Trouble::SourceStopped, "", "f09.jpg", "No such file or directory"}}},
        {{{"name", "p0.jpg"}},
         {{Trouble::FrameIncomplete, "", "p1.jpg", yuyv ? kDecoderError : "Premature end of JPEG file"}}},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.load["name"].as<std::string>());
        printed([&] { run(row.load); });
        ASSERT_EQ(chain.notices.size(), row.notices.size());
        for (std::size_t i = 0; i < row.notices.size(); ++i) {
            EXPECT_EQ(chain.notices[i].trouble, row.notices[i].trouble);
            EXPECT_EQ(chain.notices[i].step, chain.step(0).getName());
            EXPECT_EQ(chain.notices[i].file, dir / row.notices[i].file);
            EXPECT_EQ(chain.notices[i].reason, row.notices[i].reason);
        }
    }
    EXPECT_EQ(chain.arrived.size(), 4U) << "a damaged file does not end the series";
}

TEST_P(ImageSource, laterFilesMayHaveAnotherSizeAndTheBufferThatComesBackAnyShape)
{
    write("h0.jpg", 1);
    write("h1.jpg", 2, 1, 3);
    write("h2.jpg", 3, 4, 1);
    init({{"name", "h0.jpg"}});
    const std::uint32_t shapes[][2] = {{2, 2}, {1, 3}, {4, 1}};
    for (const auto& [width, height] : shapes) {
        chain.process();
        const Arrived& last = chain.arrived.back();
        EXPECT_TRUE(
            last.frame->hasShape(yuyv ? Kind::Ushort : Kind::Uchar, yuyv ? width : 3 * width, height));
        EXPECT_EQ(int(last.frame->data()[0]), int(chain.arrived.size()) - 1);
        pixelsOf(last.record["handle"].as<int>()) = Array(Kind::Float, 1, 1);  // as a consumer may swap in
    }
}

const std::string kFirst = examplePath("img0000.jpg");

Struct photographs(Struct more = {})
{
    more.set("load", Struct{{"name", kFirst}, {"count", 1}});
    return more;
}

std::vector<std::uint16_t> expectedSamples(const std::string& path)
{
    const std::string file = readFile(path);
    const JpegPlanes planes = decodeJpegRaw({file.begin(), file.end()});
    std::vector<std::uint16_t> samples(planes[0].size());
    jpeg::scalar::packYuyv16(planes[0], planes[1], planes[2], samples, 640, 480);
    return samples;
}

TEST(CjreadF, framesUnderTheHandleAndInTheRecord)
{
    Chain chain({"cjreadf"});
    chain.init(photographs());
    for (int i = 0; i < 2; ++i) {
        chain.process();
        const Arrived& arrived = chain.arrived.back();
        const auto expected = expectedSamples(examplePath("img000" + std::to_string(i) + ".jpg"));
        EXPECT_EQ(samplesOf(*arrived.frame), expected);
        EXPECT_EQ(samplesOf(arrived.record["data"].as<Array>()), expected);
    }
}

// A record must hold a frame once: cstrip keeps "data", d2h turns it back into a handle.
TEST(CjreadF, recordings)
{
    const TempDir dir;
    Chain both({"cjreadf", "filesaver"});
    both.init(photographs({{"save", Struct{{"name", dir / "both"}}}}));
    EXPECT_EQ(thrownText([&] { both.process(); }), "[data] already found");
    ASSERT_THAT(both.notices, SizeIs(1));
    EXPECT_THAT(both.notices[0].reason, HasSubstr("put cstrip before"));

    for (const char* between : {"cstrip", "d2h"}) {
        Chain recorded({"cjreadf", between, "filesaver"});
        recorded.init(photographs({{"save", Struct{{"name", dir / between}}}}));
        recorded.process();
        recorded.flush();
        Chain replayed({"reads"});
        replayed.init({{"load", Struct{{"name", dir / between}}}});
        replayed.process();
        EXPECT_EQ(samplesOf(*replayed.arrived.at(1).frame), expectedSamples(kFirst));
        EXPECT_EQ(replayed.arrived[0].record["VideoFormat"].as<std::string>(), "YUYV16");
    }
}

TEST(CjreadF, filesItCannotTakeEndTheStreamAndDamagedOnesAreGreyBelow)
{
    const TempDir dir;
    const Image photo = cropped(examplePhoto("photo_coffee.jpg"), 64, 48);
    const std::pair<std::string, const char*> table[] = {
        {jpegFile(photo, {.progressive = true}), "Only baseline images are supported (got SOF2)\n"},
        {jpegFile(photo, {.horizontal = 1, .vertical = 1, .colours = JCS_GRAYSCALE}),
         "We only support YUV images\n"},
        {jpegFile(photo, {.horizontal = 1, .vertical = 1, .colours = JCS_RGB}),
         "We only support YCbCr image\n"},
    };
    for (const auto& [file, text] : table) {
        Chain chain({"cjreadf"});
        EXPECT_EQ(printed([&, bytes = file] {
                      chain.init({{"load", Struct{{"name", dir.write("a0.jpg", bytes)}}}});
                      EXPECT_EQ(chain.process(), event::kFlush);
                  }),
                  std::string(text) + "parse error!\nerror read\n");
    }
    const std::string whole = jpegFile(photo);
    dir.write("s0.jpg", whole);
    dir.write("s1.jpg", whole.substr(0, whole.size() * 4 / 5));
    Chain chain({"cjreadf"});
    const std::string out = printed([&] {
        chain.init({{"load", Struct{{"name", dir / "s0.jpg"}}}});
        for (int i = 0; i < 2; ++i) EXPECT_EQ(chain.process(), event::kProcess);
    });
    EXPECT_THAT(out, HasSubstr(std::string(kDecoderError) + "\nparse error!\n             -1 result\n"));
    const auto good = samplesOf(*chain.arrived[1].frame), cut = samplesOf(*chain.arrived[2].frame);
    EXPECT_TRUE(std::equal(cut.begin(), cut.begin() + 64 * 16, good.begin()));
    EXPECT_EQ(cut.back(), 0x8080);
}

}  // namespace
}  // namespace scansteps
