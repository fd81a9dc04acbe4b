// How a verdict ends the program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"
#include "search/RenderedRoom.h"
#include "support/TempDir.h"

namespace {

using testing_support::room::kDegree;
namespace room = testing_support::room;

constexpr std::size_t kHalfBytes = std::size_t{3} * room::kWidth / 2;

std::vector<std::uint8_t> one_picture_twice(std::vector<std::uint8_t> bytes) {
  for (std::size_t y = 0; y < room::kHeight; ++y) {
    const auto left = bytes.begin() + static_cast<std::ptrdiff_t>(2 * kHalfBytes * y);
    std::copy_n(left, kHalfBytes, left + static_cast<std::ptrdiff_t>(kHalfBytes));
  }
  return bytes;
}

std::vector<std::uint8_t> halves_exchanged(std::vector<std::uint8_t> bytes) {
  for (auto row = bytes.begin(); row != bytes.end(); row += 2 * kHalfBytes) {
    std::swap_ranges(row, row + kHalfBytes, row + kHalfBytes);
  }
  return bytes;
}

// In the corner of a picture that is larger by some columns and rows.
void write_in_corner(const std::string& path, const std::vector<std::uint8_t>& bytes, int more) {
  const int width = static_cast<int>(room::kWidth) + more;
  const int height = static_cast<int>(room::kHeight) + more;
  std::vector<float> samples(static_cast<std::size_t>(3 * width * height), 0.5f);
  for (std::size_t y = 0; y < room::kHeight; ++y) {
    for (std::size_t i = 0; i < 2 * kHalfBytes; ++i) {
      samples[3 * y * static_cast<std::size_t>(width) + i] =
          static_cast<float>(bytes[2 * kHalfBytes * y + i]) / 255.0f;
    }
  }
  cli_test::write_picture(path, width, height, 3, OIIO::TypeUInt8, samples);
}

TEST(Verdict, DecidesHowTheProgramEnds) {
  const room::EyeError right{0.6 * kDegree, -0.4 * kDegree, 0.5 * kDegree};
  const auto frame = room::take_frame(right, {0, 0, 0});
  const auto far_off = room::take_frame({0, 10.0 * kDegree, 0}, {0, 0, 0});
  struct FrameCase {
    const char* name;
    std::vector<std::uint8_t> bytes;
    int more;
    const char* outcome;
    const char* only_reason;
  };
  const std::vector<FrameCase> cases{
      {"in a larger picture", frame, 16, "calibrated", ""},
      {"one picture twice", one_picture_twice(frame), 0, "not_calibrated", ""},
      {"halves exchanged", halves_exchanged(frame), 0, "not_calibrated", "exchanged_halves"},
      {"10 degrees off", far_off, 0, "calibrated_but", "search_quality"}};
  const testing_support::TempDir dir;
  const std::string lens = dir.write("nominal.lens", room::lens_text());
  for (const FrameCase& one : cases) {
    SCOPED_TRACE(one.name);
    const std::string picture = dir.file("frame.png");
    write_in_corner(picture, one.bytes, one.more);
    const auto outcome = cli_test::run_program({"calibrate", picture, "--lens", lens, "--json", "-", "-v"});
    const auto json = nlohmann::json::parse(outcome.out);
    const auto& verdict = json.at("verdict");
    EXPECT_EQ(verdict.at("outcome"), one.outcome) << outcome.out;
    EXPECT_EQ(outcome.exit_code == 0, std::string(one.outcome) != "not_calibrated");
    EXPECT_EQ(json.at("exit_code"), outcome.exit_code);
    EXPECT_EQ(verdict.at("reasons").empty(), std::string(one.outcome) == "calibrated");
    if (*one.only_reason != 0) {
      ASSERT_EQ(verdict.at("reasons").size(), 1u) << verdict.at("reasons");
      EXPECT_EQ(verdict.at("reasons").at(0).at("key"), one.only_reason);
    }
    // That not all of the picture counts is told to people and to programs.
    const bool larger = one.more != 0;
    ASSERT_EQ(json.at("notes").size(), larger ? 1u : 0u);
    EXPECT_EQ(outcome.error.find("twintrue: note: ") != std::string::npos, larger);
    if (larger) {
      EXPECT_THAT(json.at("notes").at(0).get<std::string>(), testing::HasSubstr("1040 x 528"));
    }

    // Every step stands on standard error, with the numbers that JSON has.
    const auto count = [&](const char* key) { return json.at("counts").at(key).dump(); };
    std::size_t at = 0;
    for (const std::string& step :
         {"s  lens file " + lens + ": format 1, frames of 1024 x 512 pixels",
          "frame " + picture + (larger ? ": 1040 x 528" : ": 1024 x 512"),
          std::string("settings built-in preset default: 4900 cells, 39200 places"),
          std::string("format_version"), "left half (right eye): " + count("left_half_keypoints"),
          "right half (left eye): " + count("right_half_keypoints"), "halves: " + count("matches"),
          "accepted: " + count("accepted"), std::string("s  retry 0, level 0: "),
          std::string("s  retry 0, level 1: "), std::string("retry 0: score "), "had: " + count("searched"),
          std::string("calib() returned ")}) {
      const std::size_t found = outcome.error.find(step, at);
      EXPECT_NE(found, std::string::npos) << step << " in " << outcome.error;
      if (found != std::string::npos) at = found;
    }
  }
}

}  // namespace
