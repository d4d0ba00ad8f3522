// Files and pictures: what a person opens after a recording.
#include <gtest/gtest.h>
#include <png.h>
#include <sndfile.h>

#include <cstring>
#include <numeric>

#include "host/base/exit_code.h"
#include "host/pictures/annexb.h"
#include "host/pictures/bitmap_font.h"
#include "host/pictures/contact_sheet.h"
#include "host/pictures/h264_decoder.h"
#include "host/pictures/jpeg_decoder.h"
#include "host/pictures/png_file.h"
#include "host/pictures/raw_picture.h"
#include "host/writers/h264_writer.h"
#include "host/writers/jpeg_writer.h"
#include "host/writers/output_file.h"
#include "host/writers/wav_writer.h"
#include "host/writers/y4m_writer.h"
#include "tests/host/fake_content.h"
#include "tests/host/temporary_folder.h"

namespace camhost::test {
namespace {

using std::chrono::milliseconds;

Record record(Stream stream, std::vector<uint8_t> data, int at_ms = 0) {
    Record made;
    made.stream = stream;
    made.arrival = Clock::time_point(milliseconds(at_ms));
    made.data = std::move(data);
    return made;
}

// --- Annex B -------------------------------------------------------------------------------------

TEST(AnnexB, FindsUnitsBehindShortAndLongStartCodes) {
    const std::vector<uint8_t> bytes{9, 0, 0, 0, 1, 0x67, 1, 0, 0, 1, 0x68, 0, 0, 1};
    std::vector<std::vector<uint8_t>> units;
    for_each_nal(bytes, [&](auto nal) { units.emplace_back(nal.begin(), nal.end()); });
    EXPECT_EQ(units, (std::vector<std::vector<uint8_t>>{{0x67, 1}, {0x68}}));
    for_each_nal({}, [](auto) { FAIL(); });
}

TEST(AnnexB, TellsKeyFrameFromPFrame) {
    const AccessUnitParts key = parts_of(fake::h264_units()[0]);
    EXPECT_TRUE(key.sps && key.pps && key.idr);
    EXPECT_EQ(key.slices, 1U);
    const AccessUnitParts other = parts_of(fake::h264_units()[1]);
    EXPECT_FALSE(other.sps || other.pps || other.idr);
    EXPECT_EQ(other.slices, 1U);
}

// --- H.264 ---------------------------------------------------------------------------------------

TEST(H264Decoder, GivesOnePicturePerAccessUnit) {
    H264Decoder decoder;
    PlanarPicture picture;
    unsigned pictures = 0;
    for (const auto& unit : fake::h264_units()) {
        for_each_nal(unit, [&](auto nal) { pictures += decoder.decode(nal, &picture) ? 1 : 0; });
    }
    pictures += decoder.flush(&picture) ? 1 : 0;
    EXPECT_EQ(pictures, fake::h264_units().size());
    EXPECT_EQ(decoder.errors(), 0U);
    EXPECT_EQ(picture.size, (Size{fake::kWidth, fake::kHeight}));
}

TEST(H264Decoder, SurvivesGarbage) {
    H264Decoder decoder;
    PlanarPicture picture;
    std::vector<uint8_t> garbage(300);
    for (uint8_t seed = 0; seed < 32; ++seed) {
        std::iota(garbage.begin(), garbage.end(), seed);
        EXPECT_FALSE(decoder.decode(garbage, &picture));
    }
    EXPECT_GT(decoder.errors(), 0U);
}

TEST(H264Writer, FileIsTheRecordsAndThePictureTheLast) {
    const TemporaryFolder folder;
    H264Writer writer(Stream::kH264Sub, folder.path());
    std::string expected;
    for (const auto& unit : fake::h264_units()) {
        writer.write(record(Stream::kH264Sub, unit), false);
        expected.append(unit.begin(), unit.end());
    }
    const WrittenStream written = writer.finish();
    EXPECT_EQ(folder.text_of("sub.h264"), expected);
    EXPECT_TRUE(written.notes.empty());
    EXPECT_EQ(written.picture_size, (Size{fake::kWidth, fake::kHeight}));
}

TEST(H264Writer, FindsTheKeyFrameThatComesInParts) {
    const TemporaryFolder folder;
    H264Writer writer(Stream::kH264Main, folder.path());
    const auto& units = fake::h264_units();
    writer.write(record(Stream::kH264Main, units[5]), false);  // undecodable without its key frame
    for (const auto& part : fake::split_key_frame()) {
        writer.write(record(Stream::kH264Main, part), false);
    }
    EXPECT_FALSE(writer.finish().picture.empty());
}

TEST(H264Writer, SaysThatThereIsNoKeyFrame) {
    const TemporaryFolder folder;
    H264Writer writer(Stream::kH264Main, folder.path());
    writer.write(record(Stream::kH264Main, fake::h264_units()[1]), false);
    const WrittenStream written = writer.finish();
    EXPECT_TRUE(written.picture.empty());
    EXPECT_EQ(written.notes.size(), 1U);
}

// --- JPEG ----------------------------------------------------------------------------------------

TEST(Jpeg, DecodesWholePicturesOnly) {
    EXPECT_EQ(decode_jpeg(fake::jpeg()).size, (Size{fake::kWidth, fake::kHeight}));
    const std::span<const uint8_t> whole(fake::jpeg());
    EXPECT_TRUE(decode_jpeg(whole.first(whole.size() / 2)).empty());
    EXPECT_TRUE(decode_jpeg({}).empty());
}

TEST(JpegWriter, NumbersItsFiles) {
    const TemporaryFolder folder;
    JpegWriter writer(folder.path());
    writer.write(record(Stream::kJpeg, fake::jpeg()), false);
    writer.write(record(Stream::kJpeg, fake::jpeg()), false);
    const WrittenStream written = writer.finish();
    EXPECT_EQ(written.files.size(), 2U);
    EXPECT_EQ(folder.text_of("jpeg-0002.jpg"),
              std::string(fake::jpeg().begin(), fake::jpeg().end()));
    EXPECT_FALSE(written.picture.empty());
}

// --- raw pictures --------------------------------------------------------------------------------

TEST(RawPicture, SizesAreDeducedFromTheBytes) {
    EXPECT_EQ(deduce_size(Stream::kGray, 76'800), (Size{320, 240}));
    EXPECT_EQ(deduce_size(Stream::kYuy2, 614'400), (Size{640, 480}));
    EXPECT_EQ(deduce_size(Stream::kYuy2, 460'800), (Size{640, 360}));
    EXPECT_EQ(deduce_size(Stream::kYuy2, 720'000), (Size{800, 450}));
    EXPECT_EQ(deduce_size(Stream::kNv12, 460'800), (Size{640, 480}));
    EXPECT_EQ(deduce_size(Stream::kNv12, 629'856), (Size{864, 486}));
    EXPECT_EQ(deduce_size(Stream::kNv21, 345'600), (Size{640, 360}));
    EXPECT_EQ(deduce_size(Stream::kNv21, 540'000), (Size{800, 450}));
    EXPECT_FALSE(deduce_size(Stream::kGray, 76'801).has_value());
}

TEST(RawPicture, PlanesComeApart) {
    const std::vector<uint8_t> yuy2{1, 10, 2, 20, 3, 30, 4, 40};
    const auto packed = to_planar(Stream::kYuy2, {2, 2}, yuy2);
    ASSERT_TRUE(packed);
    EXPECT_EQ(packed->y, (std::vector<uint8_t>{1, 2, 3, 4}));
    EXPECT_EQ(packed->u, (std::vector<uint8_t>{10, 30}));
    EXPECT_EQ(packed->v, (std::vector<uint8_t>{20, 40}));
    const std::vector<uint8_t> semi_planar{1, 2, 3, 4, 50, 60};
    EXPECT_EQ(to_planar(Stream::kNv12, {2, 2}, semi_planar)->u, std::vector<uint8_t>{50});
    EXPECT_EQ(to_planar(Stream::kNv21, {2, 2}, semi_planar)->u, std::vector<uint8_t>{60});
    EXPECT_FALSE(to_planar(Stream::kNv21, {2, 2}, std::span(semi_planar).first(5)));
}

TEST(Picture, ColoursFollowBt601) {
    PlanarPicture picture;
    picture.size = {2, 2};
    picture.chroma = PlanarPicture::Chroma::k420;
    picture.y.assign(4, 81);
    picture.u = {90};
    picture.v = {240};
    const RgbPicture red = to_rgb(picture);
    EXPECT_NEAR(red.pixel(1, 1)[0], 254, 2);
    EXPECT_NEAR(red.pixel(1, 1)[1], 0, 2);
    EXPECT_NEAR(red.pixel(1, 1)[2], 0, 2);
    picture.chroma = PlanarPicture::Chroma::kNone;
    picture.y.assign(4, 235);
    EXPECT_EQ(to_rgb(picture).pixel(0, 0)[2], 255);
}

TEST(Picture, ShrinkingKeepsAspectAndMean) {
    RgbPicture wide({640, 320}, 0);
    for (int y = 0; y < 320; ++y) {
        for (int x = 0; x < 640; x += 2) {
            wide.pixel(x, y)[0] = 200;
        }
    }
    const RgbPicture small = shrink_to_fit(wide, {320, 240});
    EXPECT_EQ(small.size, (Size{320, 160}));
    EXPECT_EQ(small.pixel(100, 100)[0], 100);
    EXPECT_EQ(shrink_to_fit(RgbPicture({10, 10}, 0), {320, 240}).size, (Size{10, 10}));
}

TEST(Y4mWriter, HeaderHasSizeFormatAndMeasuredRate) {
    const TemporaryFolder folder;
    Y4mWriter writer(Stream::kNv12, folder.path());
    const std::vector<uint8_t> picture(640 * 480 * 3 / 2, 77);
    for (int i = 0; i < 5; ++i) {
        writer.write(record(Stream::kNv12, picture, 100 * i), false);
    }
    const WrittenStream written = writer.finish();
    const std::string file = folder.text_of("nv12.y4m");
    const std::string header = "YUV4MPEG2 F010000:1000 W640 H480 Ip A1:1 C420mpeg2\n";
    EXPECT_EQ(file.substr(0, header.size()), header);
    EXPECT_EQ(file.size(), header.size() + 5 * (6 + picture.size()));
    EXPECT_EQ(written.picture_size, (Size{640, 480}));
}

TEST(Y4mWriter, NewSizeBeginsANewFile) {
    const TemporaryFolder folder;
    Y4mWriter writer(Stream::kYuy2, folder.path());
    writer.write(record(Stream::kYuy2, std::vector<uint8_t>(614'400)), false);
    writer.write(record(Stream::kYuy2, std::vector<uint8_t>(720'000)), false);
    EXPECT_EQ(writer.finish().files.size(), 2U);
    EXPECT_NE(folder.text_of("yuy2.y4m").find("W640 H480 Ip A1:1 C422\n"), std::string::npos);
    EXPECT_NE(folder.text_of("yuy2-2.y4m").find("W800 H450"), std::string::npos);
}

TEST(Y4mWriter, UnknownSizeIsKeptRawAndSaid) {
    const TemporaryFolder folder;
    Y4mWriter writer(Stream::kGray, folder.path());
    writer.write(record(Stream::kGray, {1, 2, 3}), false);
    writer.write(record(Stream::kGray, {4}), false);
    const WrittenStream written = writer.finish();
    EXPECT_EQ(folder.text_of("gray.raw"), std::string("\1\2\3\4"));
    ASSERT_EQ(written.notes.size(), 1U);
    EXPECT_NE(written.notes[0].find("3 bytes"), std::string::npos);
    EXPECT_TRUE(written.picture.empty());
}

// --- sound ---------------------------------------------------------------------------------------

struct Sound {
    SF_INFO layout{};
    std::vector<int16_t> samples;
};

Sound read_wav(const std::filesystem::path& path) {
    Sound sound;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.layout);
    EXPECT_NE(file, nullptr);
    sound.samples.resize(static_cast<size_t>(sound.layout.frames * sound.layout.channels));
    sf_readf_short(file, sound.samples.data(), sound.layout.frames);
    sf_close(file);
    return sound;
}

TEST(WavWriter, WritesStereoAtTheRate) {
    const TemporaryFolder folder;
    const std::atomic<int> rate{24000};
    WavWriter writer(folder.path(), rate);
    std::vector<uint8_t> block(960);
    block[0] = 0x34;
    block[1] = 0x12;
    block[2] = 0xFF;
    block[3] = 0xFF;
    writer.write(record(Stream::kPcm, block), false);
    EXPECT_FALSE(writer.finish().picture.empty());
    const Sound sound = read_wav(folder.path() / "audio.wav");
    EXPECT_EQ(sound.layout.samplerate, 24000);
    EXPECT_EQ(sound.layout.channels, 2);
    ASSERT_EQ(sound.samples.size(), 480U);
    EXPECT_EQ(sound.samples[0], 0x1234);
    EXPECT_EQ(sound.samples[1], -1);
}

TEST(WavWriter, NewRateTakesEffectAtTheRestart) {
    const TemporaryFolder folder;
    std::atomic<int> rate{16000};
    WavWriter writer(folder.path(), rate);
    const std::vector<uint8_t> block(960);
    writer.write(record(Stream::kPcm, block), false);
    rate = 24000;
    writer.write(record(Stream::kPcm, block), false);
    writer.write(record(Stream::kPcm, block), true);
    EXPECT_EQ(writer.finish().files.size(), 2U);
    EXPECT_EQ(read_wav(folder.path() / "audio.wav").layout.frames, 480);
    EXPECT_EQ(read_wav(folder.path() / "audio-2.wav").layout.samplerate, 24000);
}

// --- contact sheet -------------------------------------------------------------------------------

TEST(BitmapFont, DrawsAndClips) {
    RgbPicture picture({20, 12}, 0);
    draw_text(&picture, 0, 0, 1, "I");
    EXPECT_EQ(picture.pixel(2, 3)[0], 255) << "the stem";
    EXPECT_EQ(picture.pixel(0, 3)[0], 0);
    draw_text(&picture, -3, -3, 2, "W\x01\xFFz");
    draw_text(&picture, 18, 10, 3, "MM");
}

TEST(ContactSheet, PutsTilesInRowsWithLabels) {
    RgbPicture white({640, 480}, 255);
    const RgbPicture sheet =
        make_contact_sheet({{"a", white}, {"b", white}, {"c", white}, {"d", {}}, {"e", white}});
    EXPECT_EQ(sheet.size.width, 8 + 4 * 328);
    EXPECT_EQ(sheet.pixel(8 + 160, 8 + 120)[0], 255);
    EXPECT_EQ(sheet.pixel(8 + 3 * 328 + 160, 8 + 120)[0], 0) << "empty tile";
    const int second_row = 8 + 240 + 22 + 8;
    EXPECT_EQ(sheet.pixel(8 + 160, second_row + 120)[0], 255);
    EXPECT_EQ(sheet.pixel(8 + 328 + 160, second_row + 120)[0], 40) << "background";
}

TEST(PngFile, ReadsBackAsWritten) {
    const TemporaryFolder folder;
    RgbPicture picture({3, 2}, 7);
    picture.pixel(2, 1)[1] = 99;
    const auto path = folder.path() / "x.png";
    write_png(path, picture);
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_file(&image, path.c_str()), 0);
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    ASSERT_NE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr), 0);
    EXPECT_EQ(pixels, picture.rgb);
    EXPECT_THROW(write_png(folder.path() / "no/folder.png", picture), Failure);
}

TEST(OutputFile, TellsAFullDisc) {
    OutputFile file("/dev/full");
    EXPECT_THROW(
        {
            file.write(std::vector<uint8_t>(1 << 20));
            file.close();
        },
        Failure);
    EXPECT_THROW(OutputFile("/nonexistent/file"), Failure);
}

}  // namespace
}  // namespace camhost::test
