#include "apps/cli/commands/InspectMatches.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <system_error>

#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/CsvFloat.h"
#include "apps/cli/commands/InspectOutput.h"
#include "matching/MatchSet.h"

namespace twintrue::cli {
namespace {

constexpr const char* kHeader =
    "x_a,y_a,x_b,y_b,prev_dx,prev_dy,octave_a,octave_b,response_a,response_b,dist_ratio,prev_state,cell,rank,"
    "score1,score2,score3,score4,accepted,cost,other_cost";

constexpr std::size_t kLargestMatches = std::size_t{1} << 30;

std::string matches_csv(const FrameRun& run, const MatchedHalves& halves) {
  const fpu::CorrectionSettings& correction = run.unit->mvcSettings;
  std::string csv =
      fmt::format("# gmv_x={} gmv_y={} rel_match_count={} records={}\n{}\n", correction.gmv_x,
                  correction.gmv_y, run.unit->relMatchCount, halves.set.records.size(), kHeader);
  for (const fpu::MatchRecord& record : halves.set.records) {
    for (const float value :
         {record.x_a, record.y_a, record.x_b, record.y_b, record.prev_dx, record.prev_dy}) {
      csv += csv_float(value) + ',';
    }
    fmt::format_to(std::back_inserter(csv), "{},{},{},{},", record.octave_a, record.octave_b,
                   csv_float(record.response_a), csv_float(record.response_b));
    fmt::format_to(std::back_inserter(csv), "{},{},{},{},{},{},{},{},{},{},{}\n", record.dist_ratio,
                   record.prev_state, record.cell, record.rank, record.score1, record.score2, record.score3,
                   record.score4, record.accepted, record.cost, record.other_cost);
  }
  return csv;
}

// Walks a CSV file line by line.
class CsvReader {
 public:
  explicit CsvReader(const std::string& path)
      : path_(path), text_(read_text_file({"--matches", path}, kLargestMatches)), rest_(text_) {}

  // Splits the next line that holds something; false at the end.
  bool next(std::vector<std::string_view>& fields) {
    while (!rest_.empty()) {
      ++number_;
      const std::size_t end = rest_.find('\n');
      std::string_view line = rest_.substr(0, end);
      rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
      if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
      if (line.empty() || line.front() == '#') continue;
      fields.clear();
      for (;;) {
        const std::size_t comma = line.find(',');
        fields.push_back(line.substr(0, comma));
        if (comma == std::string_view::npos) return true;
        line.remove_prefix(comma + 1);
      }
    }
    return false;
  }

  [[noreturn]] void fail(const std::string& found, const std::string& expected) const {
    throw Failure(ExitCode::kInputUnreadable,
                  Problem{fmt::format("--matches: {}:{}", path_, number_), found, expected,
                          "give a file as `twintrue inspect matches` writes it"});
  }

  template <typename T>
  T number(std::string_view field, const char* column) const {
    T value{};
    const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
    bool good = error == std::errc{} && end == field.data() + field.size();
    if constexpr (std::is_floating_point_v<T>) good = good && std::isfinite(value);
    if (!good) fail(fmt::format("`{}` in column {}", field, column), "a number");
    return value;
  }

 private:
  std::string path_;
  std::string text_;
  std::string_view rest_;
  int number_ = 0;
};

constexpr std::array<const char*, 6> kColumns{"x_a", "y_a", "x_b", "y_b", "rank", "accepted"};

std::array<std::size_t, kColumns.size()> find_columns(const CsvReader& reader,
                                                      const std::vector<std::string_view>& header) {
  std::array<std::size_t, kColumns.size()> places{};
  for (std::size_t i = 0; i < kColumns.size(); ++i) {
    while (places[i] < header.size() && header[places[i]] != kColumns[i]) ++places[i];
    if (places[i] == header.size()) {
      reader.fail(fmt::format("no column {}", kColumns[i]), fmt::format("the header {}", kHeader));
    }
  }
  return places;
}

}  // namespace

void inspect_matches(const RunArguments& arguments) {
  DocumentTarget target(arguments.out, inputs_of(arguments));
  const auto run = open_frame_run(arguments, Reach::kMatching);
  const MatchedHalves halves(*run);
  target.write(matches_csv(*run, halves));
}

std::vector<RayMatch> read_matches(const std::string& path) {
  CsvReader reader(path);
  std::vector<std::string_view> fields;
  if (!reader.next(fields)) reader.fail("no header", fmt::format("the header {}", kHeader));
  const std::size_t width = fields.size();
  const auto places = find_columns(reader, fields);
  std::vector<RayMatch> matches;
  while (reader.next(fields)) {
    if (fields.size() != width) {
      reader.fail(fmt::format("{} fields", fields.size()), fmt::format("{}, as in the header", width));
    }
    const auto real = [&](std::size_t i) { return reader.number<float>(fields[places[i]], kColumns[i]); };
    const auto whole = [&](std::size_t i) {
      return reader.number<std::int32_t>(fields[places[i]], kColumns[i]);
    };
    RayMatch match;
    match.x_a = real(0);
    match.y_a = real(1);
    match.x_b = real(2);
    match.y_b = real(3);
    match.rank = whole(4);
    match.accepted = whole(5);
    if (match.accepted != 0) matches.push_back(match);
  }
  return matches;
}

}  // namespace twintrue::cli
