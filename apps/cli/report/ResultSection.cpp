#include <fmt/format.h>

#include <cctype>
#include <initializer_list>
#include <string>
#include <string_view>

#include "apps/cli/report/Sections.h"

namespace twintrue::cli {
namespace {

const char* style_of(Verdict::Outcome outcome) {
  switch (outcome) {
    case Verdict::Outcome::kCalibrated:
      return "verdict good";
    case Verdict::Outcome::kCalibratedBut:
      return "verdict doubt";
    default:
      return "verdict bad";
  }
}

void add_verdict(Markup& page, const RunReport& report) {
  const Verdict verdict = verdict_of(report);
  std::string words = words_of(verdict.outcome);
  words.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(words.front())));
  page.open("div", {{"class", style_of(verdict.outcome)}});
  page.leaf("h1", words);
  page.open("p").text("Frame ").leaf("span", report.frame_path, {{"class", "name"}});
  page.text(fmt::format(" ({} x {} pixels), lens file ", report.frame_width, report.frame_height));
  page.leaf("span", report.lens_path, {{"class", "name"}}).close();
  if (!verdict.reasons.empty()) {
    page.open("ul");
    for (const VerdictReason& reason : verdict.reasons) {
      page.open("li").leaf("b", reason.found).text(" " + reason.to_do).close();
    }
    page.close();
  }
  // Of a status that rules the result out the advice is its reason again.
  if (!report.status_decides()) page.leaf("p", advice_for(report));
  for (const std::string& note : report.notes) page.leaf("p", "Note: " + note);
  page.close();
}

void add_numbers(Markup& page, std::initializer_list<std::string> cells) {
  for (const std::string& cell : cells) page.leaf("td", cell, {{"class", "n"}});
}

// A phone has no room for the word.
std::string with_degree_sign(std::string deviation) {
  constexpr std::string_view kWord = " deg";
  if (deviation.ends_with(kWord)) deviation.replace(deviation.size() - kWord.size(), kWord.size(), "°");
  return deviation;
}

void add_corrections(Markup& page, const RunReport& report) {
  page.leaf("h2", "Corrections");
  if (!report.has_pose()) {
    page.leaf("p", "There are none: the run ended before the search for them.");
    return;
  }
  page.open("div", {{"class", "wide"}}).open("table").open("tr");
  page.leaf("th", "Correction");
  for (const char* head : {"Right eye", "Left eye"}) page.leaf("th", head, {{"class", "n"}});
  if (report.evidence) {
    for (const char* head : {"Difference ±", "In common ±"}) page.leaf("th", head, {{"class", "n"}});
  }
  page.close();
  bool open = false;
  bool kept = false;
  for (const Correction& row : corrections_of(report)) {
    const bool is_angle = std::string_view(row.unit) == "deg";
    const auto number = [&](double value) {
      return is_angle ? fmt::format("{:+.4f}°", value) : fmt::format("{:+.3f} px", value);
    };
    page.open("tr").leaf("td", row.label);
    add_numbers(page, {number(row.right_eye), number(row.left_eye)});
    if (report.evidence) add_numbers(page, {with_degree_sign(row.difference), with_degree_sign(row.common)});
    page.close();
    for (const std::string& known : {row.difference, row.common}) {
      open = open || known == kNotFixed;
      kept = kept || known == kKept;
    }
  }
  page.close().close();
  if (!report.evidence) return;
  page.leaf("p",
            "Angles in degrees, offsets in pixels of the frame; they are added to what the lens file says. "
            "± is one standard deviation: of the right eye against the left one, and of what both eyes have "
            "in common. The difference is what a viewer sees; what both share turns or moves the whole "
            "picture.");
  if (open) {
    page.leaf("p",
              "“not fixed”: the matches of this frame know the value hardly better than one knew before "
              "them. Any value near it would fit as well, so don't read anything into the number; a frame "
              "with texture all over and with near and far things would fix it.");
  }
  if (kept) {
    page.leaf("p", "“kept”: the frame hardly tells, so the value stays as the lens file has it.");
  }
}

void add_measures(Markup& page, const RunReport& report) {
  page.leaf("h2", "Measures");
  page.open("div", {{"class", "wide"}}).open("table").open("tr").leaf("th", "Measure");
  page.leaf("th", "Found", {{"class", "n"}}).leaf("th", "Wanted").leaf("th", "Test").close();
  for (const Measure& measure : measures_of(report)) {
    const std::string test = test_of(measure);
    page.open("tr").leaf("td", measure.label);
    add_numbers(page, {number_of(measure)});
    page.leaf("td", wanted_of(measure));
    page.leaf("td", test, {{"class", test == "ok" ? "ok" : test == "FAILED" ? "failed" : ""}}).close();
  }
  page.close().close();
  page.leaf("p",
            "detection ratio: share of the wanted places in the frame's grid that hold a usable match. "
            "quality: matches within 4 pixels for each wanted place, divided by their rms error in pixels. "
            "error16: rms error of the matches within 16 pixels. score: what the search made as large as it "
            "could; only scores of one frame compare. All are of the search's own pose.",
            {{"class", "muted"}});
  if (!report.evidence) return;
  const Evidence& evidence = *report.evidence;
  page.leaf("p", fmt::format("Of {} matches, {:.0f} % fit within 2 pixels under the lens file as given and "
                             "{:.0f} % under the corrections. Expected error over the field: {:.2g} px; the "
                             "corrections move the picture by {:.2g} px.",
                             evidence.matches, 100.0 * evidence.before, 100.0 * evidence.within[1],
                             evidence.fit.expected_error, evidence.change));
}

}  // namespace

void add_result(Markup& page, const PageFacts& facts) {
  add_verdict(page, facts.report);
  add_corrections(page, facts.report);
  add_measures(page, facts.report);
}

}  // namespace twintrue::cli
