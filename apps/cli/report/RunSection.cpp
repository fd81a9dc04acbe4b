#include <fmt/format.h>

#include "apps/cli/report/Plot.h"
#include "apps/cli/report/Sections.h"

namespace twintrue::cli {
namespace {

constexpr double kMegabyte = 1e6;

void add_inputs(Markup& page, const RunInputs& inputs) {
  page.open("div", {{"class", "wide"}}).open("table").open("tr").leaf("th", "Input");
  page.leaf("th", "Bytes", {{"class", "n"}}).leaf("th", "SHA-256").close();
  for (const InputFact& file : inputs.files) {
    page.open("tr").open("td").text(file.what);
    if (!file.path.empty()) page.empty("br").leaf("span", file.path, {{"class", "name"}});
    page.close().leaf("td", file.bytes < 0 ? "gone since" : std::to_string(file.bytes), {{"class", "n"}});
    page.open("td").leaf("code", file.sha256.empty() ? "-" : file.sha256).close().close();
  }
  page.close().close();
}

void add_settings(Markup& page, const PageFacts& facts) {
  const NearestPreset& preset = facts.inputs.preset;
  page.leaf("h3", "Settings");
  page.open("p").leaf("span", facts.report.settings_name, {{"class", "name"}});
  if (preset.differences.empty()) {
    page.text(fmt::format(": every key as in the preset {}.", preset.name)).close();
    return;
  }
  page.text(fmt::format(
      ": {} not as in the preset {}, which is the nearest.",
      preset.differences.size() == 1 ? "1 key is" : fmt::format("{} keys are", preset.differences.size()),
      preset.name));
  page.close().open("div", {{"class", "wide"}}).open("table").open("tr");
  page.leaf("th", "Key").leaf("th", "Here").leaf("th", "Preset " + preset.name).close();
  constexpr std::size_t kMost = 400;  // a file may hold anything
  for (std::size_t i = 0; i < std::min(preset.differences.size(), kMost); ++i) {
    const KeyDifference& difference = preset.differences[i];
    page.open("tr");
    for (const std::string& cell : {difference.key, difference.here, difference.there}) {
      constexpr std::size_t kLongest = 200;
      page.open("td");
      page.leaf("code", cell.empty()             ? "not stated"
                        : cell.size() > kLongest ? cell.substr(0, kLongest) + " ..."
                                                 : cell);
      page.close();
    }
    page.close();
  }
  page.close().close();
  if (preset.differences.size() > kMost) {
    page.leaf("p", fmt::format("... and {} more.", preset.differences.size() - kMost));
  }
}

void add_stages(Markup& page, const RunRecord& record) {
  page.leaf("h3", "Time and memory").open("div", {{"class", "wide"}}).open("table").open("tr");
  page.leaf("th", "Stage").leaf("th", "Seconds", {{"class", "n"}});
  page.leaf("th", "Peak memory by its end", {{"class", "n"}}).close();
  double sum = 0.0;
  for (const StageRecord& stage : record.stages) {
    sum += stage.seconds;
    page.open("tr").leaf("td", stage.name).leaf("td", fmt::format("{:.3f}", stage.seconds), {{"class", "n"}});
    page.leaf("td", fmt::format("{:.0f} MB", static_cast<double>(stage.peak_bytes) / kMegabyte),
              {{"class", "n"}});
    page.close();
  }
  page.open("tr")
      .leaf("td", "all")
      .leaf("td", fmt::format("{:.3f}", sum), {{"class", "n"}})
      .leaf("td", "")
      .close();
  page.close().close();
}

std::string command_line(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) {
    if (!line.empty()) line += ' ';
    line += shell_quoted(word);
  }
  return line;
}

}  // namespace

void add_run(Markup& page, const PageFacts& facts) {
  page.leaf("h2", "What was run");
  page.leaf("p",
            fmt::format("twintrue {}, which ended with exit code {} (calib() returned {}).", TWINTRUE_VERSION,
                        static_cast<int>(exit_code_of(facts.report)), facts.report.status));
  if (facts.report.out_lens) {
    page.open("p").text("Corrected lens file: ");
    page.leaf("span", *facts.report.out_lens, {{"class", "name"}}).close();
  }
  add_inputs(page, facts.inputs);
  add_settings(page, facts);
  add_stages(page, facts.record);
  page.leaf("h3", "To run it again").open("pre").text(command_line(facts.inputs.command)).close();
}

}  // namespace twintrue::cli
