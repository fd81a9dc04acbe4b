// `twintrue view`: what it writes, and what it refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/cli/PictureFiles.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"

namespace {

namespace fs = std::filesystem;
using cli_test::example;
using cli_test::names_in;
using cli_test::Outcome;
using cli_test::run_program;
using testing::AllOf;
using testing::HasSubstr;
using testing_support::read_file;
using twintrue::cli::DeepFrame;
using twintrue::render::SampleType;

// 16-bit words, some of which no byte stands for, with other colours in each half.
std::vector<float> frame_samples() {
  std::vector<float> samples;
  for (int y = 0; y < cli_test::kSmallHeight; ++y) {
    for (int x = 0; x < cli_test::kSmallWidth; ++x) {
      const float wave =
          0.5f + 0.3f * std::sin(0.11f * static_cast<float>(x) + 0.07f * static_cast<float>(y));
      for (const float share : {1.0f, 0.6f, x < cli_test::kSmallWidth / 2 ? 0.2f : 0.9f})
        samples.push_back(wave * share);
    }
  }
  return samples;
}

class View : public testing::Test {
 protected:
  View() {
    dir.write("small.lens", cli_test::small_lens());
    write("frame.png", OIIO::TypeUInt8);
  }
  void write(const std::string& name, OIIO::TypeDesc type) const {
    cli_test::write_picture(dir.file(name), cli_test::kSmallWidth, cli_test::kSmallHeight, 3, type,
                            frame_samples());
  }
  Outcome view(const std::vector<std::string>& more, const std::string& of = "frame.png") const {
    std::vector<std::string> all{"view", dir.file(of), "--lens", lens};
    all.insert(all.end(), more.begin(), more.end());
    return run_program(all);
  }
  // The picture that a run with these options writes.
  DeepFrame drawn(std::vector<std::string> options, const std::string& out = "out.png",
                  const std::string& of = "frame.png") const {
    options.insert(options.end(), {"-o", dir.file(out)});
    const Outcome outcome = view(options, of);
    if (outcome.exit_code != 0) throw std::runtime_error(outcome.error);
    twintrue::cli::HelperRun helper;
    helper.program = TWINTRUE_PICTURE_HELPER;
    return twintrue::cli::read_deep_frame(dir.file(out), helper);
  }

  testing_support::TempDir dir;
  std::string lens = dir.file("small.lens");
};

// Rows and columns of a frame of bytes.
std::vector<std::uint8_t> part_of(const DeepFrame& frame, std::uint32_t x, std::uint32_t y,
                                  std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint8_t> part;
  for (std::uint32_t row = y; row < y + height; ++row) {
    const auto first = frame.samples.begin() + static_cast<std::ptrdiff_t>((row * frame.width + x) * 3);
    part.insert(part.end(), first, first + static_cast<std::ptrdiff_t>(width * 3));
  }
  return part;
}

TEST_F(View, DrawsEveryProjectionInEveryLayout) {
  struct Row {
    std::string layout;
    std::uint32_t across, down;
  };
  for (const std::string projection : {"half-equirect", "rectilinear", "fisheye"}) {
    for (const Row& row : {Row{"side-by-side", 2, 1}, Row{"top-bottom", 1, 2}, Row{"anaglyph", 1, 1},
                           Row{"anaglyph-amber-blue", 1, 1}, Row{"difference", 1, 1}, Row{"blink", 1, 1}}) {
      SCOPED_TRACE(projection + " " + row.layout);
      const DeepFrame picture = drawn({"--as", projection, "--layout", row.layout, "--size", "90x70"});
      EXPECT_EQ(picture.width, 90 * row.across);
      EXPECT_EQ(picture.height, 70 * row.down);
      EXPECT_GT(
          std::count_if(picture.samples.begin(), picture.samples.end(), [](auto byte) { return byte > 0; }),
          picture.samples.size() / 3);
    }
  }
  // Without a size: what the frame resolves.
  EXPECT_EQ(drawn({}).width, 512u);
  EXPECT_EQ(drawn({"--as", "rectilinear"}).width, 256u);
}

TEST_F(View, KeepsAsManyBitsAsThePictureCanHold) {
  write("deep.png", OIIO::TypeUInt16);
  write("float.tif", OIIO::TypeFloat);
  write("light.exr", OIIO::TypeFloat);
  struct Row {
    std::string from, to;
    SampleType type;
  };
  for (const Row& row :
       {Row{"frame.png", "a.png", SampleType::kByte}, Row{"frame.png", "a.jpg", SampleType::kByte},
        Row{"frame.png", "a.tif", SampleType::kByte}, Row{"deep.png", "b.png", SampleType::kWord},
        Row{"deep.png", "b.tiff", SampleType::kWord}, Row{"deep.png", "b.JPEG", SampleType::kByte},
        Row{"float.tif", "c.tif", SampleType::kFloat}, Row{"float.tif", "c.png", SampleType::kWord},
        Row{"float.tif", "c.exr", SampleType::kFloat}, Row{"light.exr", "d.tif", SampleType::kFloat},
        Row{"light.exr", "d.exr", SampleType::kFloat}}) {
    SCOPED_TRACE(row.from + " to " + row.to);
    const DeepFrame picture = drawn({"--size", "100"}, row.to, row.from);
    EXPECT_EQ(picture.type, row.type);
    // One place of the left eye, as a display value, beside that of the bytes that a JPEG holds.
    const std::size_t at = (50 * 200 + 50) * 3;
    double red = picture.samples[at] / 255.0;
    if (row.type == SampleType::kWord) {
      red = reinterpret_cast<const std::uint16_t*>(picture.samples.data())[at] / 65535.0;
    }
    if (row.type == SampleType::kFloat) red = reinterpret_cast<const float*>(picture.samples.data())[at];
    const bool light_out = row.to.ends_with(".exr");
    EXPECT_EQ(picture.light == twintrue::render::Light::kLinear, light_out);
    if (light_out) red = 1.055 * std::pow(red, 1 / 2.4) - 0.055;
    constexpr double kJpegTolerance = 0.02;
    EXPECT_NEAR(red, drawn({"--size", "100"}, "bytes.jpg", row.from).samples[at] / 255.0, kJpegTolerance);
    if (row.type == SampleType::kWord) {
      // Bytes that were widened would all be whole multiples.
      const auto* const words = reinterpret_cast<const std::uint16_t*>(picture.samples.data());
      EXPECT_GT(std::count_if(words, words + 60000, [](auto word) { return word % 257 != 0; }), 30000);
    }
  }
}

TEST_F(View, CutsAndComparesWhatItDraws) {
  dir.write("turned.lens", cli_test::small_lens() + "right_eye_psi = 0.1;\n");
  std::string other = dir.file("turned.lens");
  const std::vector<std::string> size{"--size", "100x80"};
  const DeepFrame one = drawn(size);
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.end(), size.begin(), size.end());
    return drawn(more);
  };
  const DeepFrame cut = with({"--crop", "30x20+10+40"});
  ASSERT_EQ(cut.width, 60u);
  EXPECT_EQ(part_of(cut, 0, 0, 30, 20), part_of(one, 10, 40, 30, 20));
  EXPECT_EQ(part_of(cut, 30, 0, 30, 20), part_of(one, 110, 40, 30, 20));

  std::swap(lens, other);
  const DeepFrame two = drawn(size);
  std::swap(lens, other);
  ASSERT_NE(one.samples, two.samples);
  const DeepFrame rows = with({"--compare", other});
  ASSERT_EQ(rows.height, 160u);
  EXPECT_EQ(part_of(rows, 0, 0, 200, 80), one.samples);
  EXPECT_EQ(part_of(rows, 0, 80, 200, 80), two.samples);
  const DeepFrame columns = with({"--compare", other, "--compare-in", "columns"});
  ASSERT_EQ(columns.width, 400u);
  EXPECT_EQ(part_of(columns, 0, 0, 200, 80), one.samples);
  EXPECT_EQ(part_of(columns, 200, 0, 200, 80), two.samples);
}

std::uint32_t number_at(const std::string& bytes, std::size_t place) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes[place + i]);
  return value;
}

std::uint32_t check_sum(const std::string& bytes) {
  return static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size())));
}

std::string chunk(const std::string& name, const std::string& data) {
  const auto number = [](std::size_t value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) bytes += static_cast<char>(value >> shift & 0xff);
    return bytes;
  };
  return number(data.size()) + name + data + number(check_sum(name + data));
}

TEST_F(View, BlinksBetweenTheEyes) {
  const DeepFrame both = drawn({"--size", "60"}, "both.png");
  const DeepFrame first = drawn({"--size", "60", "--layout", "blink"}, "blink.png");
  EXPECT_EQ(first.samples, part_of(both, 0, 0, 60, 60));
  // The second picture as a still: the data of its chunks in the place of the first one's.
  const std::string file = read_file(dir.file("blink.png"));
  std::string still = file.substr(0, 8);
  std::string names;
  for (std::size_t at = 8; at < file.size(); at += number_at(file, at) + 12) {
    const std::string name = file.substr(at + 4, 4);
    const std::string data = file.substr(at + 8, number_at(file, at));
    EXPECT_EQ(number_at(file, at + 8 + data.size()), check_sum(name + data)) << name;
    names += name + " ";
    if (name == "acTL") {
      EXPECT_EQ(number_at(data, 0), 2u);
    } else if (name == "IHDR" || name == "IEND") {
      still += chunk(name, data);
    } else if (name == "fdAT") {
      still += chunk("IDAT", data.substr(4));
    }
  }
  EXPECT_THAT(names, testing::MatchesRegex("IHDR acTL (iTXt )?fcTL (IDAT )+fcTL (fdAT )+IEND "));
  const DeepFrame second = twintrue::cli::read_deep_frame(dir.write("second.png", still));
  EXPECT_EQ(second.samples, part_of(both, 60, 0, 60, 60));
}

TEST_F(View, TellsPlayersWhatTheyAreGiven) {
  struct Row {
    std::vector<std::string> options;
    std::vector<std::string> words;
    bool tagged;
  };
  for (const std::string out : {"tags.png", "tags.jpg"}) {
    for (const Row& row :
         {Row{{"--size", "200x100"},
              {"FullPanoWidthPixels>400<", "FullPanoHeightPixels>100<", "CroppedAreaImageWidthPixels>200<",
               "CroppedAreaLeftPixels>100<", "CroppedAreaTopPixels>0<", "StereoMode>left-right<"},
              true},
          Row{{"--size", "200", "--layout", "anaglyph", "--crop", "50x40+30+20"},
              {"FullPanoWidthPixels>400<", "CroppedAreaImageWidthPixels>50<",
               "CroppedAreaImageHeightPixels>40<", "CroppedAreaLeftPixels>130<", "CroppedAreaTopPixels>20<"},
              true},
          Row{{"--layout", "top-bottom"},
              {"StereoMode>top-bottom<", "ProjectionType>equirectangular<"},
              true},
          Row{{"--as", "fisheye"}, {}, false}, Row{{"--compare", lens}, {}, false}}) {
      SCOPED_TRACE(out + " " + testing::PrintToString(row.options));
      drawn(row.options, out);
      const std::string file = read_file(dir.file(out));
      EXPECT_EQ(file.find("GPano") != std::string::npos, row.tagged);
      for (const std::string& word : row.words) EXPECT_THAT(file, HasSubstr(word));
    }
  }
}

TEST_F(View, RefusesWhatItCannotDo) {
  const std::string out = dir.write("old.png", "old");
  fs::create_symlink(lens, dir.file("link.png"));
  dir.write("large.lens", [] {
    std::string text = cli_test::small_lens();
    return text.replace(text.find("input_width = 512"), 17, "input_width = 812");
  }());
  dir.write("text.png", "no picture");
  const std::vector<std::string> before = names_in(dir.path());
  const std::string frame = dir.file("frame.png");
  struct Row {
    std::vector<std::string> arguments;
    int code;
    std::string word;
  };
  const std::vector<Row> rows{
      {{frame, "--lens", lens}, 2, "--out"},
      {{frame, "--lens", lens, "-o", frame}, 2, "the file that FRAME names"},
      {{frame, "--lens", lens, "-o", dir.file("link.png")}, 2, "the file that --lens names"},
      {{frame, "--lens", dir.file("large.lens"), "--compare", lens, "-o", dir.file("link.png")},
       2,
       "--compare"},
      {{frame, "--lens", lens, "-o", dir.file("a.gif")}, 2, ".png, .jpg, .tif or .exr"},
      {{frame, "--lens", lens, "-o", dir.file("a")}, 2, "without an ending"},
      {{frame, "--lens", lens, "-o", dir.file("a.jpg"), "--layout", "blink"}, 2, "animated PNG"},
      {{frame, "--lens", lens, "-o", dir.file("no/a.png")}, 2, "no folder"},
      {{frame, "--lens", lens, "-o", out, "--layout", "heap"}, 2, "--layout"},
      {{frame, "--lens", lens, "-o", out, "--size", "12y4"}, 2, "--size"},
      {{frame, "--lens", lens, "-o", out, "--size", "0"}, 2, "`0`"},
      {{frame, "--lens", lens, "-o", out, "--size", "99999999999"}, 2, "--size"},
      {{frame, "--lens", lens, "-o", out, "--size", "60000"}, 2, "120000 x 60000"},
      {{frame, "--lens", lens, "-o", dir.file("a.jpg"), "--size", "32760x10"}, 2, "65520 x 10"},
      {{frame, "--lens", lens, "-o", out, "--size", "100", "--crop", "50x50+60+0"}, 2, "100 x 100"},
      {{frame, "--lens", lens, "-o", out, "--crop", "50x50"}, 2, "`50x50`"},
      {{frame, "--lens", lens, "-o", out, "--fov", "90"}, 2, "180 degrees each way"},
      {{frame, "--lens", lens, "-o", out, "--as", "rectilinear", "--fov", "180"}, 2, "180 degrees"},
      {{frame, "--lens", lens, "-o", out, "--as", "rectilinear", "--fov", "nan"}, 2, "degrees"},
      {{frame, "--lens", lens, "-o", out, "--as", "fisheye", "--pan", "3"}, 2, "--pan"},
      {{frame, "--lens", lens, "-o", out, "--compare-in", "rows"}, 2, "--compare OTHER.lens"},
      {{dir.file("none.png"), "--lens", lens, "-o", out}, 3, "no such file"},
      {{dir.file("text.png"), "--lens", lens, "-o", out}, 3, "text.png"},
      {{frame, "--lens", dir.file("none.lens"), "-o", out}, 3, "none.lens"},
      {{frame, "--lens", lens, "--compare", dir.file("none.lens"), "-o", out}, 3, "none.lens"},
      {{frame, "--lens", frame, "-o", out}, 4, "no usable lens"},
      {{frame, "--lens", dir.file("large.lens"), "-o", out}, 4, "smaller than the lens file says"},
      {{frame, "--lens", lens, "--compare", dir.file("large.lens"), "-o", out}, 4, "large.lens"},
  };
  for (const Row& row : rows) {
    std::vector<std::string> arguments{"view"};
    arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
    SCOPED_TRACE(testing::PrintToString(row.arguments));
    const Outcome outcome = run_program(arguments);
    EXPECT_EQ(outcome.exit_code, row.code);
    EXPECT_THAT(outcome.error, HasSubstr(row.word));
    EXPECT_EQ(names_in(dir.path()), before);
  }
  EXPECT_EQ(read_file(out), "old");
}

// Whenever it is told to end, there is the old file or the whole new one, and nothing beside it.
TEST_F(View, LeavesNothingBehindWhenItIsInterrupted) {
  drawn({"--size", "700"}, "whole.png");
  const std::string whole = read_file(dir.file("whole.png"));
  const std::string out = dir.write("out.png", "old");
  const std::vector<std::string> names = names_in(dir.path());
  int ended = 0;
  for (int delay = 0; delay < 25; ++delay) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const std::string frame = dir.file("frame.png");
      freopen("/dev/null", "w", stdout);
      execl(TWINTRUE_PROGRAM, TWINTRUE_PROGRAM, "view", frame.c_str(), "--lens", lens.c_str(), "--size",
            "700", "-o", out.c_str(), nullptr);
      _exit(127);
    }
    usleep(static_cast<useconds_t>(delay) * 8000);
    kill(child, delay % 2 == 0 ? SIGINT : SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ended += WIFSIGNALED(status) ? 1 : 0;
    EXPECT_EQ(names_in(dir.path()), names) << delay;
    const std::string left = read_file(out);
    EXPECT_TRUE(left == "old" || left == whole) << delay;
  }
  EXPECT_GT(ended, 0);
}

// Vertical disparity of a square of the left picture, by the best place of the right one.
struct Found {
  double rows;
  double error;    // mean square of what is left
  double texture;  // the same of what is there
};

Found best_place(const DeepFrame& pair, int column, int row) {
  constexpr int kHalf = 10, kUp = 4;
  const int width = static_cast<int>(pair.width) / 2;
  const auto green = [&](int x, int y) {
    return static_cast<double>(pair.samples[static_cast<std::size_t>((y * 2 * width + x) * 3 + 1)]);
  };
  std::array<double, 2 * kUp + 1> best;
  best.fill(1e30);
  for (int dy = -kUp; dy <= kUp; ++dy) {
    for (int dx = -45; dx <= 5; ++dx) {
      double sum = 0.0;
      for (int j = -kHalf; j <= kHalf; ++j) {
        for (int i = -kHalf; i <= kHalf; ++i) {
          const double apart = green(column + i, row + j) - green(width + column + i + dx, row + j + dy);
          sum += apart * apart;
        }
      }
      auto& of_row = best[static_cast<std::size_t>(dy + kUp)];
      of_row = std::min(of_row, sum);
    }
  }
  double mean = 0.0, square = 0.0;
  constexpr double kPixels = (2 * kHalf + 1) * (2 * kHalf + 1);
  for (int j = -kHalf; j <= kHalf; ++j) {
    for (int i = -kHalf; i <= kHalf; ++i) {
      mean += green(column + i, row + j) / kPixels;
      square += green(column + i, row + j) * green(column + i, row + j) / kPixels;
    }
  }
  const auto least = static_cast<std::size_t>(std::min_element(best.begin(), best.end()) - best.begin());
  Found found{static_cast<double>(least) - kUp, best[least] / kPixels, square - mean * mean};
  if (least > 0 && least + 1 < best.size()) {
    const double below = best[least - 1], above = best[least + 1];
    found.rows += 0.5 * (below - above) / (below + above - 2 * best[least]);
  }
  return found;
}

// The example's picture itself, in rows of a picture 1024 pixels wide: its pixels are all that it has.
double disparity_of_example(const std::string& lens_name, const testing_support::TempDir& dir) {
  const std::string out = dir.file(lens_name + ".png");
  const Outcome outcome = run_program({"view", example("frame.jpg"), "--lens", example(lens_name), "--as",
                                       "rectilinear", "--fov", "75", "--size", "1024x800", "-o", out});
  if (outcome.exit_code != 0) throw std::runtime_error(outcome.error);
  const DeepFrame pair = twintrue::cli::read_deep_frame(out);
  std::vector<double> rows;
  for (int row = 60; row < 760; row += 80) {
    for (int column = 90; column < 980; column += 80) {
      const Found found = best_place(pair, column, row);
      if (found.texture > 200 && found.error < 0.15 * found.texture) rows.push_back(found.rows);
    }
  }
  if (rows.size() < 20) throw std::runtime_error("too few places");
  std::nth_element(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(rows.size() / 2), rows.end());
  return std::fabs(rows[rows.size() / 2]);
}

TEST_F(View, BringsTheExampleIntoTheSameRowsThroughItsTrueLensAlone) {
  EXPECT_LT(disparity_of_example("truth.lens", dir), 0.1);
  EXPECT_GT(disparity_of_example("nominal.lens", dir), 1.0);
}

}  // namespace
