// Damaged files of every format that is taken. The decoders are other people's, and some of them crash or run
// for ever on such files: what is asked here is that the program reads a picture or says why not, and nothing
// else.
//
// TWINTRUE_PICTURE_MUTATIONS sets how many damaged files are made of each whole one.

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "apps/cli/PictureFiles.h"
#include "apps/cli/Problem.h"
#include "apps/cli/pictures/Helper.h"
#include "support/TempDir.h"

namespace twintrue::cli {
namespace {

constexpr int kWidth = 40;
constexpr int kHeight = 32;  // the least that a JPEG 2000 of six resolutions has

// A way to write a small picture.
struct Seed {
  std::string format;  // OpenImageIO's name
  std::string ending;
  OIIO::TypeDesc type = OIIO::TypeUInt8;
  int channels = 3;
  std::string attribute{};
  std::string value{};
  int tile = 0;
  int pictures = 1;
};

std::vector<Seed> seeds_of(const std::string& format) {
  const std::map<std::string, std::vector<Seed>> all{
      {"jpeg", {{"jpeg", "jpg"}, {"jpeg", "jpg", OIIO::TypeUInt8, 1}}},
      {"png", {{"png", "png", OIIO::TypeUInt16, 4}, {"png", "png"}}},
      {"tiff",
       {{"tiff", "tif", OIIO::TypeUInt8, 3, "compression", "lzw"},
        {"tiff", "tif", OIIO::TypeUInt16, 4, "compression", "none"},
        {"tiff", "tif", OIIO::TypeFloat, 3, "compression", "zip", 16, 2},
        {"tiff", "tif", OIIO::TypeUInt8, 3, "compression", "jpeg"}}},
      {"openexr",
       {{"openexr", "exr", OIIO::TypeHalf, 3, "compression", "zip"},
        {"openexr", "exr", OIIO::TypeFloat, 4, "compression", "piz", 16},
        {"openexr", "exr", OIIO::TypeHalf, 3, "compression", "dwaa"}}},
      {"dpx",
       {{"dpx", "dpx"},
        {"dpx", "dpx", OIIO::TypeUInt16, 3, "oiio:BitsPerSample", "10"},
        {"dpx", "dpx", OIIO::TypeUInt16, 4}}},
      {"bmp", {{"bmp", "bmp"}, {"bmp", "bmp", OIIO::TypeUInt8, 4}}},
      {"pnm",
       {{"pnm", "ppm"},
        {"pnm", "pgm", OIIO::TypeUInt8, 1},
        {"pnm", "ppm", OIIO::TypeUInt8, 3, "pnm:binary", "0"}}},
      {"webp", {{"webp", "webp"}, {"webp", "webp", OIIO::TypeUInt8, 4}}},
      {"jpeg2000", {{"jpeg2000", "jp2"}, {"jpeg2000", "j2k", OIIO::TypeUInt16, 3}}},
      {"heif", {{"heif", "heic"}, {"heif", "avif", OIIO::TypeUInt8, 3, "compression", "avif"}}},
  };
  return all.at(format);
}

std::string name_of(std::size_t seed, const Seed& each) {
  return "seed" + std::to_string(seed) + "." + each.ending;
}

bool write_seed(const Seed& seed, const std::string& path) {
  const auto output = OIIO::ImageOutput::create(seed.format);
  OIIO::ImageSpec spec(kWidth, kHeight, seed.channels, seed.type);
  if (seed.attribute == "compression") {
    spec.attribute(seed.attribute, seed.value);
  } else if (!seed.attribute.empty()) {
    spec.attribute(seed.attribute, std::stoi(seed.value));
  }
  spec.tile_width = spec.tile_height = seed.tile;
  std::vector<float> samples(static_cast<std::size_t>(kWidth * kHeight * seed.channels));
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<float>(i * 37 % 256) / 255.0f;
  const std::vector<OIIO::ImageSpec> specs(static_cast<std::size_t>(seed.pictures), spec);
  if (!output || !output->open(path, seed.pictures, specs.data())) return false;
  for (int i = 0; i < seed.pictures; ++i) {
    if (i > 0 && !output->open(path, spec, OIIO::ImageOutput::AppendSubimage)) return false;
    if (!output->write_image(OIIO::TypeFloat, samples.data())) return false;
  }
  return output->close();
}

// In the place of a helper: `... FORMAT NUMBER PATH` writes a whole file. This process itself never calls the
// library, whose threads would be missing in the processes that are made of it.
int write_whole(int /*argc*/, char** argv) {
  OIIO::attribute("threads", 1);
  return write_seed(seeds_of(argv[1])[static_cast<std::size_t>(std::atoi(argv[2]))], argv[3]) ? 0 : 1;
}

// The helper's own work in a child of this process: hundreds of starts of the helper itself take minutes.
HelperRun quick_helper(std::chrono::seconds time) {
  HelperRun helper;
  helper.time = time;
  helper.memory = std::uint64_t{3} << 30;
  helper.stand_in = &picture_helper;
  return helper;
}

class Damage {
 public:
  explicit Damage(std::uint32_t seed) : random_(seed) {}

  std::string operator()(std::string bytes) {
    for (unsigned changes = 1 + below(4); changes > 0; --changes) change(bytes);
    return bytes;
  }

 private:
  // Unlike the standard distributions, the same everywhere.
  unsigned below(std::size_t end) { return end == 0 ? 0 : static_cast<unsigned>(random_() % end); }

  // Headers hold what decoders believe, so that half of the changes hit the front.
  std::size_t place(const std::string& bytes) {
    constexpr std::size_t kFront = 160;
    return below(below(2) == 0 ? std::min(bytes.size(), kFront) : bytes.size());
  }

  void change(std::string& bytes) {
    if (bytes.empty()) return;
    const std::size_t at = place(bytes);
    switch (below(7)) {
      case 0:
        bytes[at] = static_cast<char>(bytes[at] ^ (1 << below(8)));
        break;
      case 1:
        bytes[at] = static_cast<char>(below(256));
        break;
      case 2:  // a number that is too large, or -1
        for (std::size_t i = at; i < std::min(at + 4, bytes.size()); ++i)
          bytes[i] = below(4) == 0 ? '\x7f' : '\xff';
        break;
      case 3:  // zero
        for (std::size_t i = at; i < std::min(at + 4, bytes.size()); ++i) bytes[i] = '\0';
        break;
      case 4:
        bytes.resize(at);
        break;
      case 5:
        bytes.insert(at, bytes.substr(place(bytes), below(40)));
        break;
      default:
        bytes.erase(at, 1 + below(8));
    }
  }

  std::mt19937 random_;
};

class HostilePictures : public testing::TestWithParam<const char*> {};

TEST_P(HostilePictures, AreReadOrRefused) {
  const char* const wanted = std::getenv("TWINTRUE_PICTURE_MUTATIONS");
  const int mutations = wanted != nullptr ? std::atoi(wanted) : 16;
  const testing_support::TempDir dir;
  HelperRun writer;
  writer.stand_in = &write_whole;

  int whole = 0;
  int read = 0;
  std::map<std::string, int> refusals;
  const std::vector<Seed> seeds = seeds_of(GetParam());
  for (std::size_t i = 0; i < seeds.size(); ++i) {
    const std::string seed_path = dir.file(name_of(i, seeds[i]));
    const HelperEnd end = run_helper(writer, {GetParam(), std::to_string(i), seed_path}, {});
    if (end.how != HelperEnd::How::kExit || end.number != 0) continue;  // told of by the count below
    const std::string bytes = testing_support::read_file(seed_path);
    for (int mutation = -1; mutation < mutations; ++mutation) {
      SCOPED_TRACE(name_of(i, seeds[i]) + ", mutation " + std::to_string(mutation));
      Damage damage(static_cast<std::uint32_t>(mutation));
      const std::string path = dir.write("damaged", mutation < 0 ? bytes : damage(bytes));
      try {
        // Many decoders run for ever on one file or another, while none may be too late for a whole one.
        const Frame frame = read_frame(path, quick_helper(std::chrono::seconds(mutation < 0 ? 30 : 1)));
        EXPECT_TRUE(is_picture_size(frame.width, frame.height));
        EXPECT_EQ(frame.pixels.size(), std::size_t{frame.width} * frame.height * 3);
        EXPECT_GE(frame.pictures, 1u);
        ++(mutation < 0 ? whole : read);
      } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::kInputUnreadable) << failure.what();
        EXPECT_GE(mutation, 0) << failure.what();
        ++refusals[failure.problems().front().found];
      }
    }
  }
  int refused = 0;
  for (const auto& [text, count] : refusals) refused += count;
  std::cout << GetParam() << ": " << whole << " whole files, " << read << " damaged ones read, " << refused
            << " refused\n";
  if (wanted != nullptr) {
    for (const auto& [text, count] : refusals) std::cout << count << "  " << text << "\n";
  }
  // HEIF takes encoders that not every system has, or that a sanitizer finds fault with.
  if (std::string(GetParam()) != "heif") {
    EXPECT_EQ(whole, static_cast<int>(seeds.size()));
  }
  EXPECT_TRUE(whole == 0 || refused > 0);
}

INSTANTIATE_TEST_SUITE_P(Formats, HostilePictures,
                         testing::Values("jpeg", "png", "tiff", "openexr", "dpx", "bmp", "pnm", "webp",
                                         "jpeg2000", "heif"),
                         [](const auto& each) { return std::string(each.param); });

}  // namespace
}  // namespace twintrue::cli
