// Pictures written and read back: PNG through libpng's reader, PGM and PPM
// by their headers and bytes.
#include <png.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ImageWriter.h"
#include "ProgressLine.h"

namespace {

using namespace kesta::gentl;

constexpr std::uint64_t kMono8 = 0x01080001;
constexpr std::uint64_t kMono16 = 0x01100007;
constexpr std::uint64_t kRgb8 = 0x02180014;
constexpr std::uint64_t kBgr8 = 0x02180015;

struct Picture {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int bitDepth = 0;
    int channels = 0;
    std::vector<std::uint8_t> bytes; ///< rows as the file holds them
};

Picture ReadPng(const std::string& path) {
    Picture p;
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        ADD_FAILURE() << "libpng cannot read " << path << ": " << image.message;
        return p;
    }
    p.width = image.width;
    p.height = image.height;
    const bool linear = (image.format & PNG_FORMAT_FLAG_LINEAR) != 0;
    p.bitDepth = linear ? 16 : 8;
    p.channels = (image.format & PNG_FORMAT_FLAG_COLOR) ? 3 : 1;
    p.bytes.resize(PNG_IMAGE_SIZE(image));
    // Read back as stored: 8-bit samples stay 8-bit, 16-bit ones come as host words.
    if (!png_image_finish_read(&image, nullptr, p.bytes.data(), 0, nullptr)) {
        ADD_FAILURE() << image.message;
    }
    return p;
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class ImageWriterTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/kesta-image-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override {
        for (const std::string& f : files) {
            std::remove(f.c_str());
        }
        rmdir(dir.c_str());
    }
    std::string File(const std::string& name) {
        files.push_back(dir + "/" + name);
        return files.back();
    }
    static std::vector<std::uint8_t> Ramp(std::size_t size) {
        std::vector<std::uint8_t> data(size);
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<std::uint8_t>(i * 7 + 3);
        }
        return data;
    }

    std::string dir;
    std::vector<std::string> files;
    std::string error;
};

// PNG and PGM headers are checked by the grab of tests/netns/cli; here the
// samples: byte order of 16-bit pixels and the colour order.
TEST_F(ImageWriterTest, SixteenBitAndColourSamplesSurviveAPngRoundTrip) {
    // Mono16 pixels are little-endian words; the PNG holds the same values.
    const std::vector<std::uint8_t> wide = Ramp(4 * 2 * 2);
    ASSERT_TRUE(
        ImageWriter::Write(File("mono16.png"), {4, 2, kMono16, wide.data(), wide.size()}, error));
    Picture p = ReadPng(files.back());
    ASSERT_EQ(p.bitDepth, 16);
    ASSERT_EQ(p.bytes.size(), wide.size());
    for (std::size_t i = 0; i < wide.size() / 2; ++i) {
        std::uint16_t read = 0;
        std::memcpy(&read, &p.bytes[2 * i], 2);
        EXPECT_EQ(read, wide[2 * i] | wide[2 * i + 1] << 8) << i;
    }

    // BGR8 comes out in RGB order.
    const std::vector<std::uint8_t> bgr = Ramp(2 * 2 * 3);
    ASSERT_TRUE(ImageWriter::Write(File("bgr.png"), {2, 2, kBgr8, bgr.data(), bgr.size()}, error));
    p = ReadPng(files.back());
    ASSERT_EQ(p.channels, 3);
    ASSERT_EQ(p.bytes.size(), bgr.size());
    for (std::size_t px = 0; px < 4; ++px) {
        EXPECT_EQ(p.bytes[3 * px], bgr[3 * px + 2]);
        EXPECT_EQ(p.bytes[3 * px + 2], bgr[3 * px]);
    }
}

TEST_F(ImageWriterTest, SixteenBitPgmHoldsBigEndianSamples) {
    const std::vector<std::uint8_t> wide = {0x01, 0x02, 0x03, 0x04};
    ASSERT_TRUE(
        ImageWriter::Write(File("b.pgm"), {2, 1, kMono16, wide.data(), wide.size()}, error));
    EXPECT_EQ(ReadFile(files.back()), std::string("P5\n2 1\n65535\n\x02\x01\x04\x03"));
}

TEST_F(ImageWriterTest, RefusesWhatItCannotWriteWhole) {
    const std::vector<std::uint8_t> data = Ramp(100);
    EXPECT_FALSE(ImageWriter::Write(dir + "/x.png", {10, 11, kMono8, data.data(), data.size()},
                                    error)); // one line short
    EXPECT_NE(error.find("holds 100 bytes, the image needs 110"), std::string::npos) << error;
    EXPECT_FALSE(
        ImageWriter::Write(dir + "/x.png", {2, 2, 0x0108000A, data.data(), data.size()}, error));
    EXPECT_NE(error.find("0x0108000A"), std::string::npos) << error;
    EXPECT_FALSE(
        ImageWriter::Write(dir + "/x.jpg", {2, 2, kMono8, data.data(), data.size()}, error));
    EXPECT_FALSE(
        ImageWriter::Write(dir + "/x.ppm", {2, 2, kMono8, data.data(), data.size()}, error));
    EXPECT_FALSE(ImageWriter::Write(dir + "/no/such/dir/x.png",
                                    {2, 2, kMono8, data.data(), data.size()}, error));
    EXPECT_EQ(ImageWriter::ImageBytes(640, 480, kRgb8), 640u * 480 * 3);
}

// A piped progress line is read by the grab of tests/netns/cli.
TEST(ProgressLine, RatesComeFromTheIntervalAndATerminalGetsCarriageReturns) {
    GrabCounters before;
    before.seconds = 1.0;
    before.frames = 10;
    before.bytes = 10'000'000;
    GrabCounters now = before;
    now.seconds = 3.0;
    now.frames = 50;
    now.bytes = 50'000'000;
    EXPECT_NE(ProgressLine::Format(now, before).find("frames 50  20.0 fps  20.0 MB/s"),
              std::string::npos);
    std::ostringstream tty;
    ProgressLine live(tty, true);
    live.Update(now);
    live.Update(before);
    live.Finish();
    const std::string shown = tty.str();
    EXPECT_EQ(std::count(shown.begin(), shown.end(), '\r'), 2);
    EXPECT_EQ(shown.back(), '\n');
}

} // namespace
