// How a verdict ends the program.

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

TEST(Verdict, DecidesHowTheProgramEnds) {
  const room::EyeError right{0.6 * kDegree, -0.4 * kDegree, 0.5 * kDegree};
  const auto frame = room::take_frame(right, {0, 0, 0});
  const auto far_off = room::take_frame({0, 10.0 * kDegree, 0}, {0, 0, 0});
  struct FrameCase {
    const char* name;
    std::vector<std::uint8_t> bytes;
    const char* outcome;
  };
  const std::vector<FrameCase> cases{{"as taken", frame, "calibrated"},
                                     {"one picture twice", one_picture_twice(frame), "not_calibrated"},
                                     {"10 degrees off", far_off, "not_calibrated"}};
  const testing_support::TempDir dir;
  const std::string lens = dir.write("nominal.lens", room::lens_text());
  for (const FrameCase& one : cases) {
    const std::string picture = dir.file("frame.png");
    std::vector<float> samples(one.bytes.begin(), one.bytes.end());
    for (float& sample : samples) sample /= 255.0f;
    cli_test::write_picture(picture, room::kWidth, room::kHeight, 3, OIIO::TypeUInt8, samples);
    const auto outcome = cli_test::run_program({"calibrate", picture, "--lens", lens, "--json", "-"});
    const auto json = nlohmann::json::parse(outcome.out);
    const auto& verdict = json.at("verdict");
    EXPECT_EQ(verdict.at("outcome"), one.outcome) << one.name << outcome.out;
    const bool good = std::string(one.outcome) == "calibrated";
    EXPECT_EQ(outcome.exit_code == 0, good) << one.name;
    EXPECT_EQ(json.at("exit_code"), outcome.exit_code) << one.name;
    EXPECT_EQ(verdict.at("reasons").empty(), good) << one.name;
  }
}

}  // namespace
