// The page of a run: what it says, and that nothing in it reaches outside.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "apps/cli/Preset.h"
#include "apps/cli/report/Markup.h"
#include "apps/cli/report/Misalignment.h"
#include "apps/cli/report/Plot.h"
#include "apps/cli/report/RunInputs.h"
#include "cli/Fixtures.h"
#include "cli/ProgramRun.h"
#include "lens/LensParameters.h"
#include "search/RenderedRoom.h"
#include "support/TempDir.h"

namespace twintrue::cli {
namespace {

using testing::HasSubstr;
using testing::Not;
namespace room = testing_support::room;

// Whether every element is closed where it should be, every attribute quoted and every < and & markup: what
// XML asks for. The first line alone is HTML's own.
testing::AssertionResult is_well_formed(const std::string& page) {
  std::vector<std::string> open;
  std::size_t at = page.find('\n');
  while ((at = page.find_first_of("<>&", at)) != std::string::npos) {
    if (page[at] == '&') {
      const std::size_t end = page.find_first_not_of("abcdefghijklmnopqrstuvwxyz#0123456789", at + 1);
      if (end == at + 1 || page[end] != ';') return testing::AssertionFailure() << page.substr(at, 40);
      at = end;
      continue;
    }
    // A > of the style sheet is text.
    if (page[at] == '>') return testing::AssertionFailure() << "bare >: " << page.substr(at - 20, 40);
    std::size_t end = at;
    bool quoted = false;
    while (++end < page.size() && (quoted || page[end] != '>')) {
      if (page[end] == '"') quoted = !quoted;
      if (page[end] == '<') return testing::AssertionFailure() << "< in a tag: " << page.substr(at, 60);
    }
    const std::string tag = page.substr(at + 1, end - at - 1);
    const std::string name = tag.substr(0, tag.find(' '));
    if (tag.front() == '/') {
      if (open.empty() || open.back() != tag.substr(1))
        return testing::AssertionFailure() << "closes " << tag;
      open.pop_back();
    } else if (tag.back() != '/') {
      open.push_back(name);
    }
    at = end + 1;
  }
  if (!open.empty()) return testing::AssertionFailure() << "open: " << open.back();
  return testing::AssertionSuccess();
}

// What a page may do: nothing but show itself.
void expect_harmless(const std::string& page) {
  EXPECT_TRUE(is_well_formed(page));
  for (const char* word :
       {"http:", "https:", "<script", "<link", "<iframe", "@import", "url(", "javascript:", " on"}) {
    // Event handlers stand in tags: " on" is a word of the text as well.
    if (std::string(word) == " on") {
      EXPECT_THAT(page, Not(testing::ContainsRegex("<[^>]* on[a-z]*=")));
    } else {
      EXPECT_THAT(page, Not(HasSubstr(word)));
    }
  }
  for (std::size_t at = page.find("src="); at != std::string::npos; at = page.find("src=", at + 1)) {
    EXPECT_EQ(page.substr(at, 16), "src=\"data:image/");
  }
}

TEST(Markup, EscapesWhatNamesMayHold) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"<script>alert('1')</script>", "&lt;script&gt;alert(&#39;1&#39;)&lt;/script&gt;"},
      {"a\" onload=\"b & c", "a&quot; onload=&quot;b &amp; c"},
      {"Grüße 日本 😀", "Grüße 日本 😀"},
      {"\xff|\xc0\xaf|\xed\xa0\x80|\xe2\x82|\x1b[0m",
       "\uFFFD|\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD|\uFFFD\uFFFD|\uFFFD[0m"},
      {"exe.\u202Egnp", "exe.\uFFFD\uFFFD\uFFFDgnp"},
      {std::string("cut\0here", 8), "cut\uFFFDhere"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(escaped(text), expected);
    EXPECT_EQ(Markup().leaf("p", text, {{"title", text}}).take(),
              "<p title=\"" + expected + "\">" + expected + "</p>\n");
  }
  Markup unfinished;
  unfinished.open("p");
  EXPECT_THROW(unfinished.take(), std::logic_error);
  EXPECT_THROW(Markup().close(), std::logic_error);
}

// A shell reads back what was quoted.
TEST(RunInputs, QuotesWordsForAShell) {
  const testing_support::TempDir dir;
  const std::vector<std::string> words{"plain-1.png", "two words", "it's",         "$(id)`id`\"\\", "",
                                       "~",           "a\nb",      "\xff\x1b'\\7", "<script>"};
  std::string line = "printf '%s\\0'";
  for (const std::string& word : words) line += " " + shell_quoted(word);
  const std::string script = dir.write("words.sh", line + " > " + shell_quoted(dir.file("out put")));
  ASSERT_EQ(std::system(("bash " + shell_quoted(script)).c_str()), 0);
  std::string expected;
  for (const std::string& word : words) expected += word + '\0';
  EXPECT_EQ(testing_support::read_file(dir.file("out put")), expected);
}

TEST(RunInputs, HashesFilesAndTexts) {
  // From FIPS 180-4's examples.
  constexpr const char* kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
  const testing_support::TempDir dir;
  EXPECT_EQ(fact_of_text("", "abc").sha256, kAbc);
  const InputFact file = fact_of_file("frame", dir.write("abc", "abc"));
  EXPECT_EQ(file.sha256, kAbc);
  EXPECT_EQ(file.bytes, 3);
  EXPECT_EQ(fact_of_file("frame", dir.file("none")).bytes, -1);
}

TEST(RunInputs, TellsWhichKeysAreNotThePresets) {
  for (const Preset& preset : presets()) {
    EXPECT_EQ(nearest_preset(preset.text).name, preset.name);
    EXPECT_TRUE(nearest_preset(preset.text).differences.empty());
  }
  std::string text = find_preset("fast")->text + "own:\n  key: 1\n";
  const std::string key = "num_kps_in_cell:";
  const std::size_t at = text.find(key);
  text.replace(at, text.find('\n', at) - at, key + " 31");
  const NearestPreset nearest = nearest_preset(text);
  EXPECT_EQ(nearest.name, "fast");
  ASSERT_EQ(nearest.differences.size(), 2u);
  EXPECT_EQ(nearest.differences[0].key, "grid.num_kps_in_cell");
  EXPECT_EQ(nearest.differences[0].here, "31");
  EXPECT_NE(nearest.differences[0].there, "31");
  EXPECT_EQ(nearest.differences[1].key, "own.key");
  EXPECT_EQ(nearest.differences[1].there, "");
}

TEST(Plot, PutsRoundNumbersOnAxes) {
  EXPECT_EQ(ticks(-5.0, 5.0, 5), (std::vector<double>{-4, -2, 0, 2, 4}));
  EXPECT_EQ(ticks(0.0, 1.0, 5), (std::vector<double>{0, 0.2, 2 * 0.2, 3 * 0.2, 0.8, 1.0}));
  Histogram histogram(-1.0, 1.0, 4);
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  for (const double value : {-1.0, -0.1, 0.1, 1.0, 1.01, HUGE_VAL, kNone}) histogram.add(value);
  EXPECT_EQ(histogram.beyond(), 3u);
  for (std::size_t i = 0; i < 4; ++i) EXPECT_DOUBLE_EQ(histogram.share(i), 1.0 / 7.0);
}

// Taking the arrow away puts a match into the plane of the other eye's ray, and rays that meet tell how far.
TEST(Misalignment, ArrowsLeadBackAndDistancesHold) {
  const testing_support::TempDir dir;
  RigState rig;
  ASSERT_EQ(load_lens_description(rig, dir.write("nominal.lens", room::lens_text()), kLensSection), 1);
  constexpr std::array<std::array<double, 3>, 4> kPoints{
      {{0.3, 0.2, -2.0}, {-1.5, 0.4, -0.9}, {0.8, -1.2, -0.7}, {0.0, 0.9, -3.0}}};
  std::vector<RayMatch> matches;
  for (const auto& point : kPoints) {
    std::array<Point, 2> at{};
    for (std::size_t i = 0; i < 2; ++i) {
      const EyeModel& eye = i == 0 ? rig.current.right : rig.current.left;
      ASSERT_TRUE(eye_ray_to_image(eye, at[i].data(), &at[i][1], point[0] - eye.position[0],
                                   point[1] - eye.position[1], point[2] - eye.position[2]));
    }
    RayMatch match;
    match.x_a = static_cast<float>(at[0][0]);
    match.y_a = static_cast<float>(at[0][1]);
    match.x_b = static_cast<float>(at[1][0] - rig.half_width);
    match.y_b = static_cast<float>(at[1][1]);
    matches.push_back(match);
  }
  constexpr double kOfAFloat = 2e-3;  // pixels, after the table of the lens's curve
  const Misalignment exact = look_at_matches(rig, matches, CalibResult{}, {});
  for (std::size_t i = 0; i < matches.size(); ++i) {
    const SeenMatch& seen = exact.matches[i];
    EXPECT_NEAR(seen.before, 0.0, kOfAFloat);
    const auto& eye = rig.current.right.position;
    const double away = std::hypot(kPoints[i][0] - eye[0], kPoints[i][1] - eye[1], kPoints[i][2] - eye[2]);
    EXPECT_NEAR(seen.distance, away, 0.002 * away);
    matches[i].y_b += 3.0f;
  }
  const Misalignment off = look_at_matches(rig, matches, CalibResult{}, {});
  for (const std::size_t eye : {0U, 1U}) {
    std::vector<RayMatch> back = matches;
    for (std::size_t i = 0; i < back.size(); ++i) {
      const Point& arrow = off.matches[i].arrow[0][eye];
      EXPECT_GT(std::hypot(arrow[0], arrow[1]), 1.0);
      (eye == 0 ? back[i].x_a : back[i].x_b) -= static_cast<float>(arrow[0]);
      (eye == 0 ? back[i].y_a : back[i].y_b) -= static_cast<float>(arrow[1]);
    }
    for (const SeenMatch& seen : look_at_matches(rig, back, CalibResult{}, {}).matches) {
      EXPECT_NEAR(seen.before, 0.0, kOfAFloat);
    }
  }
  // A degree at the middle of the picture is sixty minutes.
  EXPECT_NEAR(off.arc_minutes(room::kScale / 90.0), 60.0, 1e-9);
}

std::string number_after(const std::string& text, const std::string& words) {
  const std::size_t at = text.find(words);
  if (at == std::string::npos) return "not found: " + words;
  const std::size_t begin = at + words.size();
  return text.substr(begin, text.find_first_not_of("+-.0123456789e", begin) - begin);
}

// A frame of a room, and, in an order that the verdict refuses, the same with its halves exchanged.
class ReportOfARoom : public testing::Test {
 protected:
  void write_frame(const std::string& path, bool exchanged) {
    auto bytes =
        room::take_frame({0.6 * room::kDegree, -0.4 * room::kDegree, 0.5 * room::kDegree}, {0, 0, 0});
    constexpr std::size_t kHalf = std::size_t{3} * room::kWidth / 2;
    for (auto row = bytes.begin(); exchanged && row != bytes.end(); row += 2 * kHalf) {
      std::swap_ranges(row, row + kHalf, row + kHalf);
    }
    cli_test::write_picture(path, room::kWidth, room::kHeight, 3, OIIO::TypeUInt8, samples(bytes));
  }
  static std::vector<float> samples(const std::vector<std::uint8_t>& bytes) {
    std::vector<float> samples;
    for (const std::uint8_t byte : bytes) samples.push_back(static_cast<float>(byte) / 255.0f);
    return samples;
  }

  // Runs and reads what it left.
  void calibrate(const std::string& frame, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"calibrate", frame,     "--lens", lens,
                                   "--report",  page_path, "--json", json_path};
    words.insert(words.end(), more.begin(), more.end());
    outcome = cli_test::run_program(words);
    page = testing_support::read_file(page_path);
    json = nlohmann::json::parse(testing_support::read_file(json_path));
  }

  testing_support::TempDir dir;
  std::string lens = dir.write("nominal.lens", room::lens_text());
  std::string page_path = dir.file("page.html");
  std::string json_path = dir.file("result.json");
  cli_test::Outcome outcome;
  std::string page;
  nlohmann::json json;
};

TEST_F(ReportOfARoom, TellsWhatJsonTells) {
  const std::string name = "it's <script>alert(1)<b>&\".png";
  write_frame(dir.file(name), false);
  calibrate(dir.file(name));
  ASSERT_EQ(outcome.exit_code, 0) << outcome.error;
  expect_harmless(page);
  EXPECT_THAT(
      page,
      HasSubstr("<title>Calibration of it&#39;s &lt;script&gt;alert(1)&lt;b&gt;&amp;&quot;.png</title>"));
  EXPECT_THAT(page, HasSubstr("<h1>Calibrated</h1>"));

  constexpr std::array<std::pair<const char*, const char*>, 5> kRows{{{"pan", "pan_deg"},
                                                                      {"tilt", "tilt_deg"},
                                                                      {"roll", "roll_deg"},
                                                                      {"offset x", "offset_x_px"},
                                                                      {"offset y", "offset_y_px"}}};
  for (const auto& [label, key] : kRows) {
    const auto& corrections = json.at("corrections");
    const double right = corrections.at("right_eye").at(key).get<double>();
    const double left = corrections.at("left_eye").at(key).get<double>();
    const bool is_angle = std::string(key).ends_with("deg");
    const auto cell = [&](double value) {
      return is_angle ? fmt::format("<td class=\"n\">{:+.4f}°</td>\n", value)
                      : fmt::format("<td class=\"n\">{:+.3f} px</td>\n", value);
    };
    EXPECT_THAT(page, HasSubstr(fmt::format("<td>{}</td>\n{}{}", label, cell(right), cell(left))));
  }
  // What the page works out from the matches is what the verdict found by its own way.
  const auto& evidence = json.at("verdict").at("evidence");
  const auto& shares = evidence.at("fitting_share");
  EXPECT_THAT(page, HasSubstr(fmt::format("{:.0f} % of the matches lie within 2 px before and {:.0f} % after",
                                          100.0 * shares.at("within_2_px_before").get<double>(),
                                          100.0 * shares.at("within_2_px").get<double>())));
  EXPECT_EQ(number_after(page, "parallax spreads over "),
            fmt::format("{:.4g}", evidence.at("parallax_spread_px").get<double>()));
  for (const char* key : {"left_half_keypoints", "matches", "accepted", "searched"}) {
    EXPECT_THAT(page, HasSubstr(fmt::format(">{}</text>", json.at("counts").at(key).get<int>()))) << key;
  }
  EXPECT_THAT(page, HasSubstr("Retry 0 ended with score "));
  EXPECT_THAT(page, HasSubstr(fact_of_file("", dir.file(name)).sha256));
  EXPECT_THAT(page, HasSubstr(fact_of_file("", lens).sha256));
  EXPECT_THAT(page, HasSubstr("every key as in the preset default"));
  EXPECT_THAT(page, HasSubstr(escaped(shell_quoted(dir.file(name)))));
  constexpr std::size_t kMostBytes = 3000000;
  EXPECT_LT(page.size(), kMostBytes);
  // Six views, each with words for who does not see it.
  std::size_t views = 0;
  for (std::size_t at = 0; (at = page.find("<img ", at)) != std::string::npos; ++at, ++views) {
    EXPECT_THAT(page.substr(page.find(" alt=\"", at), 20), HasSubstr("Anaglyph"));
  }
  EXPECT_EQ(views, 6u);
}

TEST_F(ReportOfARoom, SaysWhyThereIsNoResult) {
  write_frame(dir.file("frame.png"), true);
  calibrate(dir.file("frame.png"));
  EXPECT_EQ(outcome.exit_code, 6);
  expect_harmless(page);
  EXPECT_THAT(page, HasSubstr("<h1>Not calibrated</h1>"));
  for (const auto& reason : json.at("verdict").at("reasons")) {
    EXPECT_THAT(page, HasSubstr(escaped(reason.at("found").get<std::string>())));
    EXPECT_THAT(page, HasSubstr(escaped(reason.at("to_do").get<std::string>())));
  }
  EXPECT_THAT(page, HasSubstr("not to rely on"));

  cli_test::write_black_frame(dir.file("black.png"), room::kWidth, room::kHeight);
  calibrate(dir.file("black.png"));
  EXPECT_EQ(outcome.exit_code, 5);
  expect_harmless(page);
  EXPECT_THAT(page, HasSubstr("<b>Too few keypoints in the left half"));
  EXPECT_THAT(page, HasSubstr("it is dark"));
  EXPECT_THAT(page, HasSubstr("There are none: the run ended before the search"));
}

TEST_F(ReportOfARoom, NeverReplacesAnInput) {
  write_frame(dir.file("frame.png"), false);
  for (const std::string& taken : {dir.file("frame.png"), lens}) {
    const std::string before = testing_support::read_file(taken);
    const auto refused =
        cli_test::run_program({"calibrate", dir.file("frame.png"), "--lens", lens, "--report", taken});
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_THAT(refused.error, HasSubstr("--report"));
    EXPECT_EQ(testing_support::read_file(taken), before);
  }
  // A run that fails leaves the page of the one before it, and nothing half.
  const std::string old_page = dir.write("old.html", "old");
  const auto failed = cli_test::run_program(
      {"calibrate", dir.file("frame.png"), "--lens", dir.file("none.lens"), "--report", old_page});
  EXPECT_EQ(failed.exit_code, 3);
  EXPECT_EQ(testing_support::read_file(old_page), "old");
  EXPECT_EQ(cli_test::names_in(std::filesystem::path(lens).parent_path()),
            (std::vector<std::string>{"frame.png", "nominal.lens", "old.html"}));
}

}  // namespace
}  // namespace twintrue::cli
