#include "apps/cli/PictureFiles.h"

#include <OpenImageIO/imageio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "apps/cli/Problem.h"
#include "apps/cli/pictures/CommonPictures.h"
#include "apps/cli/pictures/PictureCount.h"
#include "apps/cli/pictures/PictureKind.h"
#include "cli/Fixtures.h"

namespace twintrue::cli {
namespace {

using cli_test::write_picture;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr int kWidth = 5;
constexpr int kHeight = 70;  // more rows than are read at a time
constexpr std::size_t kPixels = kWidth * kHeight;

// A value of 0 to 1 for each sample, such that neighbours in all directions differ.
float sample_at(std::size_t index) { return static_cast<float>(index * 37 % 256) / 255.0f; }

std::vector<float> samples_of(int channels) {
  std::vector<float> samples(kPixels * static_cast<std::size_t>(channels));
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = sample_at(i);
  return samples;
}

std::uint8_t rounded(double unit) { return static_cast<std::uint8_t>(std::lround(unit * 255.0)); }

// Tests stand elsewhere than the program, so they name its helper.
Frame read(const std::string& path) {
  HelperRun helper;
  helper.program = TWINTRUE_PICTURE_HELPER;
  return read_frame(path, helper);
}

TEST(PictureFiles, KeepsBytesAndOrderOfPlainPictures) {
  const testing_support::TempDir dir;
  std::vector<std::uint8_t> expected;
  for (const float sample : samples_of(3)) expected.push_back(rounded(sample));
  // By hand: the library writes this format from top to bottom or from bottom to top, as its version will.
  dir.write("a.ppm", "P6\n" + std::to_string(kWidth) + " " + std::to_string(kHeight) + "\n255\n" +
                         std::string(expected.begin(), expected.end()));
  for (const char* name : {"a.png", "a.tif", "a.bmp", "a.dpx"}) {
    write_picture(dir.file(name), kWidth, kHeight, 3, OIIO::TypeUInt8, samples_of(3));
  }
  // The content counts, not the ending.
  std::filesystem::copy(dir.file("a.tif"), dir.file("b.jpg"));
  std::filesystem::copy(dir.file("a.png"), dir.file("b"));
  for (const char* name : {"a.png", "a.tif", "a.bmp", "a.dpx", "a.ppm", "b.jpg", "b"}) {
    SCOPED_TRACE(name);
    const Frame frame = read(dir.file(name));
    EXPECT_EQ(frame.pictures, 1u);
    EXPECT_EQ(frame.width, static_cast<std::uint32_t>(kWidth));
    EXPECT_EQ(frame.height, static_cast<std::uint32_t>(kHeight));
    EXPECT_THAT(frame.pixels, ElementsAreArray(expected));
  }
}

TEST(PictureFiles, ReadsTiledPictures) {
  const testing_support::TempDir dir;
  const std::string path = dir.file("tiled.tif");
  const auto output = OIIO::ImageOutput::create(path);
  OIIO::ImageSpec spec(kWidth, kHeight, 3, OIIO::TypeUInt8);
  spec.tile_width = 16;
  spec.tile_height = 32;
  ASSERT_TRUE(output->open(path, spec));
  const std::vector<float> samples = samples_of(3);
  ASSERT_TRUE(output->write_image(OIIO::TypeFloat, samples.data()));
  ASSERT_TRUE(output->close());
  std::vector<std::uint8_t> expected;
  for (const float sample : samples) expected.push_back(rounded(sample));
  EXPECT_THAT(read(path).pixels, ElementsAreArray(expected));
}

// JPEG and PNG have a reader of their own, which must give what the reader of all other formats gives.
TEST(PictureFiles, ReadsCommonPicturesAsTheHelperDoes) {
  const testing_support::TempDir dir;
  struct Row {
    const char* name;
    int channels;
    OIIO::TypeDesc type;
    bool common;
  };
  for (const Row& row :
       {Row{"rgb.png", 3, OIIO::TypeUInt8, true}, Row{"rgba.png", 4, OIIO::TypeUInt8, true},
        Row{"grey.png", 1, OIIO::TypeUInt8, true}, Row{"grey_alpha.png", 2, OIIO::TypeUInt8, true},
        Row{"rgb.jpg", 3, OIIO::TypeUInt8, true}, Row{"grey.jpg", 1, OIIO::TypeUInt8, true},
        Row{"deep.png", 3, OIIO::TypeUInt16, false}, Row{"rgb.tif", 3, OIIO::TypeUInt8, false}}) {
    SCOPED_TRACE(row.name);
    const std::string path = dir.file(row.name);
    write_picture(path, kWidth, kHeight, row.channels, row.type, samples_of(row.channels));
    const std::optional<Frame> frame = read_common_picture(path);
    ASSERT_EQ(frame.has_value(), row.common);
    if (!frame) continue;
    std::vector<std::uint8_t> bytes(kPixels * static_cast<std::size_t>(row.channels));
    OIIO::ImageSpec raw;
    raw.attribute("oiio:UnassociatedAlpha", 1);
    ASSERT_TRUE(
        OIIO::ImageInput::open(path, &raw)->read_image(0, 0, 0, row.channels, OIIO::TypeUInt8, bytes.data()));
    ASSERT_EQ(frame->pixels.size(), kPixels * 3);
    for (std::size_t i = 0; i < kPixels * 3; ++i) {
      const std::size_t channel = row.channels < 3 ? 0 : i % 3;
      ASSERT_EQ(frame->pixels[i], bytes[i / 3 * static_cast<std::size_t>(row.channels) + channel]) << i;
    }
  }
}

TEST(PictureFiles, LeavesDamagedCommonPicturesToTheHelper) {
  const testing_support::TempDir dir;
  for (const char* name : {"a.png", "a.jpg"}) {
    SCOPED_TRACE(name);
    write_picture(dir.file(name), kWidth, kHeight, 3, OIIO::TypeUInt8, samples_of(3));
    ASSERT_TRUE(read_common_picture(dir.file(name)));
    const auto size = std::filesystem::file_size(dir.file(name));
    for (const auto kept : {size / 2, size - 1, std::uintmax_t{9}, std::uintmax_t{3}}) {
      std::filesystem::resize_file(dir.file(name), kept);
      EXPECT_FALSE(read_common_picture(dir.file(name))) << kept << " bytes";
    }
  }
}

TEST(PictureFiles, MakesThreeBytesOfEachPixel) {
  const testing_support::TempDir dir;
  const std::vector<float> with_alpha{0.2f, 0.4f, 0.6f, 0.0f, 0.2f, 0.4f, 0.6f, 0.5f};
  struct Row {
    int width, channels;
    OIIO::TypeDesc type;
    std::vector<float> samples;
    std::vector<std::uint8_t> bytes;
  };
  for (const Row& row : std::vector<Row>{
           // 0.3 of a byte's step above a byte, and 0.7.
           {1, 3, OIIO::TypeUInt16, {100.3f / 255.0f, 100.7f / 255.0f, 1.0f}, {100, 101, 255}},
           {2, 1, OIIO::TypeUInt8, {0.2f, 0.8f}, {51, 51, 51, 204, 204, 204}},
           {2, 2, OIIO::TypeUInt8, {0.2f, 1.0f, 0.8f, 0.5f}, {51, 51, 51, 204, 204, 204}},
           // Alpha goes without darkening the colours.
           {2, 4, OIIO::TypeUInt8, with_alpha, {51, 102, 153, 51, 102, 153}},
           {2, 4, OIIO::TypeUInt16, with_alpha, {51, 102, 153, 51, 102, 153}},
       }) {
    write_picture(dir.file("a.png"), row.width, 1, row.channels, row.type, row.samples);
    EXPECT_THAT(read(dir.file("a.png")).pixels, ElementsAreArray(row.bytes)) << row.channels;
  }
}

TEST(PictureFiles, EncodesLinearLightAndClampsFloats) {
  const testing_support::TempDir dir;
  const float not_a_number = std::nanf("");
  const std::vector<float> samples{0.001f, 0.2f, 0.7f, -3.0f, 20.0f, not_a_number};
  write_picture(dir.file("linear.exr"), 2, 1, 3, OIIO::TypeFloat, samples);
  // The sRGB curve of IEC 61966-2-1.
  const std::uint8_t dark = rounded(12.92 * 0.001);
  const std::uint8_t middle = rounded(1.055 * std::pow(0.2, 1.0 / 2.4) - 0.055);
  const std::uint8_t bright = rounded(1.055 * std::pow(0.7, 1.0 / 2.4) - 0.055);
  EXPECT_THAT(read(dir.file("linear.exr")).pixels, ElementsAre(dark, middle, bright, 0, 255, 0));

  write_picture(dir.file("encoded.tif"), 2, 1, 3, OIIO::TypeFloat, samples, "sRGB");
  EXPECT_THAT(read(dir.file("encoded.tif")).pixels, ElementsAre(0, 51, 179, 0, 255, 0));
}

TEST(PictureFiles, TellsHowManyPicturesAFileHolds) {
  const testing_support::TempDir dir;
  for (const std::string format : {"tiff", "openexr"}) {
    SCOPED_TRACE(format);
    const std::string path = dir.file("three." + format);
    const auto output = OIIO::ImageOutput::create(format);
    std::vector<OIIO::ImageSpec> specs(3, OIIO::ImageSpec(2, 1, 3, OIIO::TypeHalf));
    for (std::size_t i = 0; i < specs.size(); ++i) {
      specs[i].attribute("oiio:subimagename", "part" + std::to_string(i));
      specs[i].attribute("oiio:ColorSpace", "sRGB");
    }
    ASSERT_TRUE(output->open(path, static_cast<int>(specs.size()), specs.data()));
    for (std::size_t i = 0; i < specs.size(); ++i) {
      if (i > 0) {
        ASSERT_TRUE(output->open(path, specs[i], OIIO::ImageOutput::AppendSubimage));
      }
      const std::vector<float> samples(6, i == 0 ? 1.0f : 0.0f);
      ASSERT_TRUE(output->write_image(OIIO::TypeFloat, samples.data()));
    }
    ASSERT_TRUE(output->close());
    testing::internal::CaptureStderr();
    const Frame frame = read(path);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "twintrue: FRAME: " + path + " holds 3 pictures; the first one is used\n");
    EXPECT_EQ(frame.pictures, 3u);
    EXPECT_THAT(frame.pixels, Each(255));
  }
}

// The marker segment that lists the pictures of a JPEG, of these types.
std::string index_of(const std::vector<std::string>& types) {
  const std::string header("MM\0*\0\0\0\x08\0\x02", 10);
  const std::string version(
      "\xb0\0\0\7\0\0\0\4"
      "0100",
      12);
  const std::string entries = std::string("\xb0\2\0\7\0\0\0", 7) + static_cast<char>(16 * types.size()) +
                              std::string("\0\0\0\x26", 4) + std::string(4, '\0');
  std::string body = std::string("MPF\0", 4) + header + version + entries;
  for (const std::string& type : types) body += '\xff' + type + std::string(12, '\0');
  return std::string("\xff\xe2\0", 3) + static_cast<char>(2 + body.size()) + body;
}

TEST(PictureFiles, CountsThePicturesOfCommonFiles) {
  const std::string primary("\3\0\0", 3);
  const std::string view("\2\0\3", 3);
  const std::string thumbnail("\1\0\1", 3);
  const std::string untyped(3, '\0');
  const std::string begin("\xff\xd8\xff\xe0\0\4xx", 8);
  const std::string scan("\xff\xda\0\4xx", 6);
  EXPECT_EQ(jpeg_picture_count(begin + index_of({view, view})), 2u);
  EXPECT_EQ(jpeg_picture_count(begin + index_of({primary, thumbnail, untyped}) + scan), 1u);
  EXPECT_EQ(jpeg_picture_count(begin + index_of({thumbnail}) + scan), 1u);
  EXPECT_EQ(jpeg_picture_count(begin + scan + index_of({view, view})), 1u);
  const std::string whole = begin + index_of({primary, view, view});
  EXPECT_EQ(jpeg_picture_count(whole), 3u);
  for (std::size_t kept = 0; kept < whole.size(); ++kept) {
    // In memory of its own, so that a sanitizer sees what is read behind the end.
    const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(kept));
    EXPECT_LT(jpeg_picture_count({cut.data(), cut.size()}), 3u) << kept;
  }

  const auto chunk = [](const std::string& name, const std::string& body) {
    return std::string(3, '\0') + static_cast<char>(body.size()) + name + body + "sums";
  };
  const std::string signature = "\x89PNG\r\n\x1a\n" + chunk("IHDR", std::string(13, 'x'));
  const std::string moving = chunk("acTL", std::string("\0\0\0\5\0\0\0\0", 8));
  EXPECT_EQ(png_picture_count(signature + moving + chunk("IDAT", "x")), 5u);
  EXPECT_EQ(png_picture_count(signature + chunk("IDAT", "x") + moving), 1u);
  EXPECT_EQ(png_picture_count(signature + chunk("acTL", std::string(8, '\xff'))), kMostPicturesCounted);
  EXPECT_EQ(png_picture_count(signature + "\xff\xff\xff\xf0"
                                          "abcd"),
            1u);
}

// With the index as a segment of its own, behind which a sound picture follows.
TEST(PictureFiles, TellsOfTheOtherPicturesOfAJpeg) {
  const testing_support::TempDir dir;
  const std::string path = dir.file("a.jpg");
  write_picture(path, kWidth, kHeight, 3, OIIO::TypeUInt8, samples_of(3));
  const std::string view("\2\0\3", 3);
  std::string file = testing_support::read_file(path);
  dir.write("a.jpg", file.insert(2, index_of({view, view})));
  const std::optional<Frame> frame = read_common_picture(path);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->pictures, 2u);
}

// A TIFF's directory with one entry of one number.
std::string tiff_with(const std::string& tag_type, const std::string& value) {
  return std::string("MM\0*\0\0\0\x08\0\x01", 10) + tag_type + std::string("\0\0\0\x01", 4) + value +
         std::string(4, '\0');
}

TEST(PictureFiles, RecognisesFilesByTheirContent) {
  const testing_support::TempDir dir;
  const std::string zeros(400, '\0');
  const auto box = [&](const std::string& brands) {
    return std::string("\0\0\0", 3) + static_cast<char>(8 + brands.size()) + "ftyp" + brands + zeros;
  };
  const auto bytes = [](const char* text, std::size_t count) { return std::string(text, count); };
  std::string stream = zeros;
  stream[0] = stream[188] = stream[376] = 'G';
  struct Row {
    std::string content;
    std::string reader;  // or "" and words of the refusal
    std::vector<std::string> words;
  };
  const std::vector<Row> rows{
      {bytes("\xff\xd8\xff", 3), "jpeg", {}},
      {bytes("\x89PNG\r\n\x1a\n", 8), "png", {}},
      {bytes("II*\0", 4) + zeros, "tiff", {}},
      {bytes("MM\0+", 4) + zeros, "tiff", {}},
      {bytes("v/1\x01", 4), "openexr", {}},
      {"SDPX", "dpx", {}},
      {"XPDS", "dpx", {}},
      {"BM" + zeros.substr(0, 12) + bytes("\x28\0\0\0", 4), "bmp", {}},
      {"BMW owners' handbook, the second edition", "", {"no picture", "BMW owne"}},
      {"P6\n1 1", "pnm", {}},
      {"P5#", "pnm", {}},
      {"P2 ", "pnm", {}},
      {"P4 ", "", {"no picture", "P4 "}},
      {"P6x", "", {"no picture"}},
      {"RIFF0000WEBPVP8 ", "webp", {}},
      {"RIFF0000WAVE", "", {"no picture"}},
      {bytes("\0\0\0\x0cjP  \r\n\x87\n", 12), "jpeg2000", {}},
      {bytes("\xff\x4f\xff\x51", 4), "jpeg2000", {}},
      {box("heic0000mif1"), "heif", {}},
      {box("avif0000"), "heif", {}},
      {box("miaf0000miafmif1"), "heif", {}},
      {box("miaf0000mif1"), "heif", {}},
      {box("miaf0000miaf") + "mif1", "", {"movie"}},  // behind the box
      {box("isom0000isomavc1"), "", {"movie", "MP4", "still", "ffmpeg"}},
      {box("qt  0000qt  mif1"), "", {"movie", "QuickTime", "still"}},
      {box("crx 0000crx isom"), "", {"raw", "develop"}},
      {zeros.substr(0, 4) + "moov", "", {"movie", "still"}},
      {bytes("\x1a\x45\xdf\xa3", 4), "", {"Matroska", "still"}},
      {"RIFF0000AVI LIST", "", {"AVI", "still"}},
      {stream, "", {"MPEG", "still"}},
      {stream.substr(0, 376) + zeros, "", {"no picture"}},
      {bytes("II*\0\x10\0\0\0CR\x02\0", 12), "", {"raw", "develop"}},
      {tiff_with(bytes("\xc6\x12\0\x01", 4), "\1\4\0\0"), "", {"raw", "small copy", "develop"}},
      {tiff_with(bytes("\0\xfe\0\x04", 4), bytes("\0\0\0\1", 4)), "", {"raw", "small copy"}},
      {tiff_with(bytes("\0\xfe\0\x04", 4), bytes("\0\0\0\2", 4)), "tiff", {}},
      {"GIF89a", "", {"GIF", "convert"}},
      {bytes("\x1b[2Jab\n\0", 8), "", {R"("\x1b[2Jab\x0a\x00")"}},
  };
  for (const Row& row : rows) {
    const std::string path = dir.write("file", row.content);
    const auto kind = recognise_picture(path);
    SCOPED_TRACE(testing::PrintToString(row.content.substr(0, 30)));
    if (row.reader.empty()) {
      ASSERT_TRUE(std::holds_alternative<PictureProblem>(kind));
      const auto& problem = std::get<PictureProblem>(kind);
      EXPECT_THAT(problem.expected, HasSubstr("JPEG, PNG, TIFF"));
      for (const std::string& word : row.words) EXPECT_THAT(problem.found + problem.remedy, HasSubstr(word));
    } else {
      ASSERT_TRUE(std::holds_alternative<PictureKind>(kind)) << std::get<PictureProblem>(kind).found;
      EXPECT_EQ(std::get<PictureKind>(kind).reader, row.reader);
    }
  }
}

TEST(PictureFiles, WritesTheSameFileAtAnyTime) {
  const testing_support::TempDir dir;
  HelperRun helper;
  helper.program = TWINTRUE_PICTURE_HELPER;
  const OutputFile file({"-o", dir.file("out.tif")}, {});
  write_float_picture(file, 3, 2, {0.0f, -1.5f, 2.0f, 1e30f, 5.0f, 6.0f}, helper);
  const auto input = OIIO::ImageInput::open(file.temporary().string());
  ASSERT_TRUE(input);
  // Blanks say that the time is not known.
  EXPECT_EQ(input->spec().get_string_attribute("DateTime", "none"), "    :  :     :  :  ");
  std::vector<float> pixels(6);
  ASSERT_TRUE(input->read_image(0, 0, 0, 1, OIIO::TypeFloat, pixels.data()));
  EXPECT_THAT(pixels, ElementsAre(0.0f, -1.5f, 2.0f, 1e30f, 5.0f, 6.0f));
}

TEST(PictureFiles, RefusesDamagedAndAbsurdPictures) {
  const testing_support::TempDir dir;
  write_picture(dir.file("whole.png"), 300, 200, 3, OIIO::TypeUInt8, std::vector<float>(300 * 200 * 3, 0.5f));
  const std::string bytes = testing_support::read_file(dir.file("whole.png"));
  // A PPM that claims 70000 x 70000 pixels.
  const std::string huge = "P6\n70000 70000\n255\nabc";
  const std::vector<std::string> bad{dir.write("cut.png", bytes.substr(0, bytes.size() / 2)),
                                     dir.write("text.png", "no picture at all"),
                                     dir.write("empty.png", ""),
                                     dir.write("huge.ppm", huge),
                                     dir.file("missing.png"),
                                     dir.path().string()};
  for (const std::string& path : bad) {
    SCOPED_TRACE(path);
    try {
      read(path);
      ADD_FAILURE() << "was read";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::kInputUnreadable);
      EXPECT_THAT(failure.what(), HasSubstr(path));
    }
  }
}

}  // namespace
}  // namespace twintrue::cli
