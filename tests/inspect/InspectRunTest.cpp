// Features, matches and search of the example frame as the program writes them: consistent in themselves,
// with one another and with a calibration.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/Fixtures.h"
#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using cli_test::example;
using cli_test::Outcome;
using cli_test::settings_with;
using inspect_test::Csv;
using inspect_test::inspect_text;
using inspect_test::Json;
using inspect_test::numbers;
using inspect_test::parse_csv;
using inspect_test::run_inspect;
using testing_support::read_file;
using testing_support::TempDir;

constexpr int kCells = 14 * 14;  // 64 pixels, margins of 40, halves of 1024 x 1024 pixels

std::vector<std::string> on_example(const std::string& command, std::vector<std::string> options = {}) {
  options.insert(options.begin(), {command, example("frame.jpg"), "--lens", example("nominal.lens")});
  return options;
}
// Documents of the example frame, each made when a test first asks for it. Radii of their own tell the four
// scores of a match apart.
std::string scores_apart() { return settings_with("  th2: 4.0", "  th2: 6.0"); }

const Csv& features(const std::string& side) {
  static std::map<std::string, Csv> known;
  if (known.count(side) == 0) {
    known[side] =
        parse_csv(inspect_text(on_example("features", {"--side", side, "--params", scores_apart()})));
  }
  return known[side];
}
const std::string& matches_text() {
  static const std::string text = inspect_text(on_example("matches", {"--params", scores_apart()}));
  return text;
}
const Csv& matches() {
  static const Csv csv = parse_csv(matches_text());
  return csv;
}
const std::string& search_text() {
  static const std::string text = inspect_text(on_example("search", {"--params", scores_apart()}));
  return text;
}

int whole(const std::map<std::string, std::string>& row, const char* column) {
  return std::stoi(row.at(column));
}

TEST(InspectRun, FeaturesAreTheLiveRecordsInOrder) {
  for (const char* side : {"left", "right"}) {
    const Csv& csv = features(side);
    EXPECT_EQ(csv.header, "cell,slot,index,x,y,score,octave,refined,descriptor");
    EXPECT_EQ(csv.facts.at("cells"), kCells);
    EXPECT_EQ(csv.facts.at("capacity"), 30);
    // Without a sub-pixel step none is dropped, so the rows are numbered through.
    ASSERT_EQ(csv.facts.at("count"), static_cast<int>(csv.rows.size()));
    int index = 0;
    int cell = 0;
    int slot = 0;
    for (const auto& row : csv.rows) {
      ASSERT_EQ(whole(row, "index"), index++);
      slot = whole(row, "cell") == cell ? slot : 0;
      ASSERT_EQ(whole(row, "slot"), slot++);
      cell = whole(row, "cell");
      ASSERT_EQ((whole(row, "x") - 40) / 64, cell % 14);
      ASSERT_EQ((whole(row, "y") - 40) / 64, cell / 14);
      ASSERT_EQ(row.at("descriptor").size(), 64u);
      ASSERT_EQ(row.at("descriptor").find_first_not_of("0123456789abcdef"), std::string::npos);
      ASSERT_EQ(row.at("octave") + row.at("refined"), "01");
      ASSERT_GT(whole(row, "score"), 1000);
    }
  }
}

TEST(InspectRun, MatchesAreAllRecordsWithEachColumnInItsPlace) {
  EXPECT_EQ(matches().header,
            "x_a,y_a,x_b,y_b,prev_dx,prev_dy,octave_a,octave_b,response_a,response_b,dist_ratio,prev_state,"
            "cell,rank,score1,score2,score3,score4,accepted,cost,other_cost");
  EXPECT_EQ(matches().facts.at("records"), static_cast<int>(matches().rows.size()));
  // Each keypoint of a match is one of its half.
  std::map<std::string, std::set<std::string>> keypoints;
  for (const char* side : {"left", "right"}) {
    for (const auto& row : features(side).rows) {
      keypoints[side].insert(row.at("x") + "," + row.at("y") + "," + row.at("score"));
    }
  }
  int accepted = 0;
  int cell = -1;
  int rank = 0;
  std::array<int, 3> falls{};  // from one score to the next
  for (const auto& row : matches().rows) {
    const auto keypoint = [&row](const std::string& of) {
      return row.at("x_" + of) + "," + row.at("y_" + of) + "," + row.at("response_" + of);
    };
    ASSERT_EQ(keypoints["left"].count(keypoint("a")), 1u);
    ASSERT_EQ(keypoints["right"].count(keypoint("b")), 1u);
    // Cells in order, ranks from 0 in each.
    ASSERT_EQ(whole(row, "rank"), whole(row, "cell") == cell ? rank + 1 : 0);
    ASSERT_GE(whole(row, "cell"), cell);
    cell = whole(row, "cell");
    rank = whole(row, "rank");
    ASSERT_EQ((whole(row, "x_a") - 40) / 64 + (whole(row, "y_a") - 40) / 64 * 14, cell);
    ASSERT_EQ(row.at("prev_dx") + row.at("prev_dy") + row.at("octave_a") + row.at("octave_b"),
              "100001000000");
    // Only the best candidate stays, which costs less than the other.
    ASSERT_LE(whole(row, "cost"), whole(row, "other_cost"));
    ASSERT_GE(whole(row, "dist_ratio"), 15);
    // A smaller radius has fewer supporters.
    const char* const scores[] = {"score1", "score2", "score3", "score4"};
    for (std::size_t i = 0; i < falls.size(); ++i) {
      ASSERT_GE(whole(row, scores[i]), whole(row, scores[i + 1])) << i;
      falls[i] += whole(row, scores[i]) > whole(row, scores[i + 1]) ? 1 : 0;
    }
    accepted += whole(row, "accepted");
  }
  for (const int fall : falls) EXPECT_GT(fall, 100);
  EXPECT_EQ(matches().facts.at("rel_match_count"), accepted);
  EXPECT_LT(accepted, matches().facts.at("records"));
  EXPECT_NE(matches().facts.at("gmv_x"), matches().facts.at("gmv_y"));
}

TEST(InspectRun, SearchShowsItsLevelsAndSums) {
  const Json search = Json::parse(search_text());
  EXPECT_EQ(search.at("status"), 0);
  EXPECT_EQ(search.at("kept"), matches().facts.at("rel_match_count"));
  std::vector<double> by_rank(10, 0.0);
  for (const auto& row : matches().rows) {
    if (row.at("accepted") != "1") continue;
    for (int rank = whole(row, "rank"); rank < 10; ++rank) ++by_rank[static_cast<std::size_t>(rank)];
  }
  EXPECT_EQ(numbers(search.at("histogram")), by_rank);

  ASSERT_EQ(search.at("retries").size(), 1u);
  const Json& retry = search.at("retries").at(0);
  EXPECT_EQ(retry.at("retry"), 0);
  ASSERT_EQ(retry.at("levels").size(), 10u);
  // The first level: 9 tilts, 7 rolls and 7 pans of the right eye.
  EXPECT_EQ(retry.at("levels").at(0).at("candidates"), 9 * 7 * 7);
  EXPECT_EQ(retry.at("levels").at(0).at("seeds").at(0).at("sigma"), 12.0);
  const Json& last = retry.at("levels").at(9);
  EXPECT_EQ(last.at("level"), 9);
  EXPECT_EQ(last.at("skipped"), false);
  EXPECT_EQ(last.at("seeds").at(1),
            Json::parse(R"({"pose": [0,0,0,0,0,0,0,0,0,0], "score": -1, "sigma": 0})"));

  // What is told of the result follows from the sums.
  const Json& result = search.at("result");
  const Json& sums = retry.at("final").at("sums");
  const auto sum = [&sums](const char* key) { return sums.at(key).get<double>(); };
  EXPECT_EQ(result.at("pose"), last.at("seeds").at(0).at("pose"));
  EXPECT_EQ(result.at("score"), retry.at("final").at("score"));
  EXPECT_EQ(result.at("score"), sums.at("score_sum"));
  EXPECT_DOUBLE_EQ(result.at("quality").get<double>(),
                   sum("count4") / (2 * kCells * std::sqrt(sum("sum4") / sum("count4"))));
  EXPECT_DOUBLE_EQ(result.at("error16").get<double>(), std::sqrt(sum("sum16") / sum("count16")));
  EXPECT_EQ(result.at("best_retry"), 0);
  EXPECT_EQ(result.at("last_retry"), 0);
}

// As processes, as people run both. Nothing of the search runs in this process: it leaves threads behind, and
// a process with threads is none to fork.
TEST(InspectRun, SearchIsThatOfACalibration) {
  const TempDir dir;
  const std::string path = dir.file("result.json");
  const Json shown = Json::parse(cli_test::run_program({"inspect", "search", example("frame.jpg"), "--lens",
                                                        example("nominal.lens"), "--preset", "fast"})
                                     .out);
  const Outcome outcome =
      cli_test::run_program({"calibrate", "--no-refine", example("frame.jpg"), "--lens",
                             example("nominal.lens"), "--preset", "fast", "--json", path});
  ASSERT_EQ(outcome.exit_code, 0);
  const Json run = Json::parse(read_file(path));
  const std::vector<double> pose = numbers(shown.at("result").at("pose"));
  std::size_t i = 0;
  for (const char* eye : {"right_eye", "left_eye"}) {
    for (const char* key : {"pan_rad", "tilt_rad", "roll_rad", "offset_x_px", "offset_y_px"}) {
      EXPECT_EQ(run.at("corrections").at(eye).at(key).get<double>(), pose.at(i++)) << eye << " " << key;
    }
  }
  for (const char* key : {"detection_ratio", "quality", "error16", "score"}) {
    EXPECT_EQ(run.at("measures").at(key).at("value"), shown.at("result").at(key)) << key;
  }
}

TEST(InspectRun, MatchesOfAFileTakeThePlaceOfTheFrame) {
  const TempDir dir;
  const std::vector<std::string> options{"--cells", std::to_string(kCells), "--lens",
                                         example("nominal.lens")};
  const auto run_search = [&](const std::string& csv,
                              std::vector<std::string> more = {"--params", scores_apart()}) {
    std::vector<std::string> arguments{"search", "--matches", dir.write("matches.csv", csv)};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run_inspect(arguments);
  };
  EXPECT_EQ(run_search(matches_text()).out, search_text());

  // The search needs six of the columns.
  std::string reduced = "accepted,rank,x_b,y_b,x_a,y_a\n";
  for (const auto& row : matches().rows) {
    for (const char* column : {"accepted", "rank", "x_b", "y_b", "x_a"}) reduced += row.at(column) + ',';
    reduced += row.at("y_a") + "\r\n";
  }
  EXPECT_EQ(run_search(reduced).out, search_text());

  // With too few matches there is no search.
  const std::string header = "x_a,y_a,x_b,y_b,rank,accepted\n";
  const std::string one = header + "400,400,430,400,0,1\n500,400,530,400,0,0\n";
  const Json few = Json::parse(run_search(one).out);
  EXPECT_EQ(few.at("status"), -999);
  EXPECT_EQ(few.at("kept"), 1);
  EXPECT_EQ(few.at("histogram"), Json::parse("[1,1,1,1,1,1,1,1,1,1]"));
  EXPECT_EQ(few.at("retries"), Json::array());
  EXPECT_DOUBLE_EQ(few.at("detection_ratio").get<double>(), 1.0 / (2 * kCells));
  Json expected = Json::parse(
      R"({"pose": [0,0,0,0,0,0,0,0,0,0], "score": -1, "quality": -1, "error16": -1, "last_retry": 0, "best_retry": -1})");
  expected["detection_ratio"] = few.at("detection_ratio");
  EXPECT_EQ(few.at("result"), expected);

  // A level that is skipped leaves the seeds as they stand; what is no number is told as such.
  const Json skipped = Json::parse(
      run_search(one, {"--ignore-thresholds", "--params", settings_with("  knn: 1", "  knn: 1\n  skip: 1")})
          .out);
  EXPECT_EQ(skipped.at("status"), -997);
  const Json& level = skipped.at("retries").at(0).at("levels").at(0);
  EXPECT_EQ(level.at("skipped"), true);
  EXPECT_EQ(level.at("candidates"), 0);
  EXPECT_EQ(level.at("seeds").at(0),
            Json::parse(R"({"pose": [0,0,0,0,0,0,0,0,0,0], "score": -1, "sigma": 0})"));
  EXPECT_EQ(skipped.at("result").at("quality"), "nan");

  const std::pair<const char*, const char*> bad[] = {
      {"x_a,y_a\n1,2\n", ":1"},
      {"x_a,y_a,x_b,y_b,rank,accepted\n1,2,3,4,0\n", ":2"},
      {"# note\nx_a,y_a,x_b,y_b,rank,accepted\n1,2,3,nan,0,1\n", ":3"},
      {"x_a,y_a,x_b,y_b,rank,accepted\n1,2,3,4,0.5,1\n", "rank"},
      {"x_a,y_a,x_b,y_b,rank,accepted\n1,2,3,4,0,1,9\n", "7 fields"},
      {"# note\n", "header"},
  };
  for (const auto& [csv, word] : bad) {
    const Outcome outcome = run_search(csv);
    EXPECT_EQ(outcome.exit_code, 3) << csv;
    EXPECT_NE(outcome.error.find(word), std::string::npos) << outcome.error;
  }
}

// A run that ends before its search shows the filtering alone, with the message of the run.
TEST(InspectRun, SearchEndsWhereACalibrationEnds) {
  const Outcome outcome =
      run_inspect(on_example("search", {"--params", settings_with("  res_th: 1000", "  res_th: 30000")}));
  EXPECT_EQ(outcome.exit_code, 0);
  const Json json = Json::parse(outcome.out);
  EXPECT_EQ(json.at("status"), -999);
  EXPECT_EQ(json.at("retries"), Json::array());
  EXPECT_NE(outcome.error.find("Left image detection is failed("), std::string::npos) << outcome.error;
}

// What belongs to later stages is not in the way.
TEST(InspectRunChecks, RefuseWhatTheStageCannotCarryOut) {
  const std::string params = settings_with("  k: 2", "  k: 3");
  EXPECT_EQ(run_inspect(on_example("features", {"--side", "right", "--params", params})).exit_code, 0);
  for (const char* command : {"matches", "search"}) {
    const Outcome outcome = run_inspect(on_example(command, {"--params", params}));
    EXPECT_EQ(outcome.exit_code, 4) << command;
    EXPECT_NE(outcome.error.find("key `k`"), std::string::npos) << outcome.error;
  }
  const std::string no_search = settings_with("  mode: 28", "  mode: 4");
  EXPECT_EQ(run_inspect(on_example("search", {"--params", no_search})).exit_code, 4);
}

// A frame with more pixels than the lens file speaks of is looked at, and that is told.
TEST(InspectRunChecks, TellOfALargerFrame) {
  const TempDir dir;
  const std::string frame = dir.file("frame.png");
  cli_test::write_black_frame(frame, cli_test::kSmallWidth, cli_test::kSmallHeight + 1);
  const std::string settings = TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml";
  const Outcome outcome = run_inspect({"features", frame, "--lens", dir.write("lens", cli_test::small_lens()),
                                       "--params", settings, "--side", "left"});
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_NE(outcome.error.find("twintrue: note: The frame of 512 x 257 pixels"), std::string::npos)
      << outcome.error;
}

TEST(InspectRunChecks, TellUnusableInputByTheExitCode) {
  const TempDir dir;
  const std::string lens = example("nominal.lens");
  const std::string frame = example("frame.jpg");
  const std::string small = dir.file("small.png");
  cli_test::write_black_frame(small);
  const std::string csv = dir.write("m.csv", "x_a,y_a,x_b,y_b,rank,accepted\n");
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"features", dir.file("none.png"), "--lens", lens, "--side", "left"}, 3},
      {{"features", lens, "--lens", lens, "--side", "left"}, 3},
      {{"matches", frame, "--lens", dir.file("none.lens")}, 3},
      {{"matches", frame, "--lens", dir.write("bad.lens", "x = 1;\n")}, 4},
      {{"matches", frame, "--lens", lens, "--params", dir.file("none.yaml")}, 3},
      {{"matches", frame, "--lens", lens, "--params", dir.write("bad.yaml", "a: \"b\n")}, 4},
      {{"matches", small, "--lens", lens}, 4},
      {{"features", frame, "--lens", lens, "--side", "up"}, 2},
      {{"features", frame, "--lens", lens}, 2},
      {{"features", frame, "--lens", lens, "--side", "left", "--preset", "sharp"}, 2},
      {{"matches", frame, "--lens", lens, "--preset", "fast", "--params", lens}, 2},
      {{"search", "--lens", lens}, 2},
      {{"search", frame, "--matches", csv, "--cells", "5", "--lens", lens}, 2},
      {{"search", frame, "--cells", "5", "--lens", lens}, 2},
      {{"search", "--matches", csv, "--lens", lens}, 2},
      {{"search", "--matches", csv, "--cells", "0", "--lens", lens}, 2},
      {{"search", "--matches", dir.file("none.csv"), "--cells", "5", "--lens", lens}, 3},
      {{"search", "--matches", csv, "--cells", "5", "--lens", lens, "--params",
        dir.write("mode.yaml", settings_with("  mode: 28", "  mode: 4"))},
       4},
      {{"search", "--matches", csv, "--cells", "5", "--lens", lens, "-o", csv}, 2},
  };
  for (const auto& [arguments, code] : cases) {
    const Outcome outcome = run_inspect(arguments);
    EXPECT_EQ(outcome.exit_code, code) << testing::PrintToString(arguments) << outcome.error;
    EXPECT_EQ(outcome.out, "");
  }
}

}  // namespace
