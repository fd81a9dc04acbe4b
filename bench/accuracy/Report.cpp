#include "Report.h"

#include <algorithm>
#include <limits>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace twintrue::accuracy {
namespace {

// NaN, which is an error that can't be told, counts as the worst.
struct MedianAndWorst {
  double median;
  double worst;
};
template <typename Get>
MedianAndWorst over(const std::vector<Trial>& trials, Get get) {
  std::vector<double> values;
  for (const Trial& trial : trials) {
    const double value = get(trial);
    values.push_back(value == value ? value : std::numeric_limits<double>::infinity());
  }
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  const double median = values.size() % 2 == 1 ? values[half] : 0.5 * (values[half - 1] + values[half]);
  return {median, values.back()};
}

nlohmann::json to_json(const SceneError& error) {
  return {{"rms", error.rms}, {"median", error.median}, {"core", error.core}, {"lost", error.lost}};
}

}  // namespace

void print_header(std::FILE* out) {
  fmt::print(
      out,
      "{:<16} {:>9} {:>7} {:>6} | {:^24} | {:^24} | {:^24} | {:>7} | {:>9} {:>9} | {:>6} {:>7} {:>7} {:>7}\n",
      "case", "format", "matches", "status", "before: rms, median, core", "after: rms, median, core",
      "optimum: rms, med., core", "excess", "score", "optimum's", "cands", "work M", "seconds", "cpu s");
}

void print_trial(std::FILE* out, const Trial& t) {
  const auto three = [](const SceneError& e) {
    return fmt::format("{:8.3f}{:8.3f}{:8.3f}", e.rms, e.median, e.core);
  };
  fmt::print(out,
             "{:<16} {}/{:>7} {:>7} {:>6} | {} | {} | {} | {:7.3f} | {:9.2f} {:9.2f} | {:>6} {:7.2f} {:7.2f} "
             "{:7.2f}\n",
             t.name, t.format, t.width, t.matches, t.status, three(t.before), three(t.after),
             three(t.optimum), t.excess(), t.score, t.optimum_score, t.candidates,
             static_cast<double>(t.work) * 1e-6, t.seconds, t.cpu_seconds);
  std::fflush(out);
}

void print_summary(std::FILE* out, const std::string& name, const std::vector<Trial>& trials) {
  if (trials.empty()) return;
  fmt::print(out, "\n{}: {} cases; median and worst\n", name, trials.size());
  const auto line = [&](const char* what, auto get) {
    const MedianAndWorst m = over(trials, get);
    fmt::print(out, "  {:<34} {:9.4f} {:9.4f}\n", what, m.median, m.worst);
  };
  line("core before, px", [](const Trial& t) { return t.before.core; });
  line("core after, px", [](const Trial& t) { return t.after.core; });
  line("core of the optimum, px", [](const Trial& t) { return t.optimum.core; });
  line("excess, px", [](const Trial& t) { return t.excess(); });
  line("core after, at 4096 wide", [](const Trial& t) { return t.after.core * 4096.0 / t.width; });
  line("core of the optimum, at 4096 wide", [](const Trial& t) { return t.optimum.core * 4096.0 / t.width; });
  line("excess, at 4096 wide", [](const Trial& t) { return t.excess_at_4096(); });
  line("rms after, px", [](const Trial& t) { return t.after.rms; });
  line("rms of the optimum, px", [](const Trial& t) { return t.optimum.rms; });
  line("median after, px", [](const Trial& t) { return t.after.median; });
  line("median of the optimum, px", [](const Trial& t) { return t.optimum.median; });
  line("score missed, share", [](const Trial& t) { return 1.0 - t.score / t.optimum_score; });
  line("work, candidates x matches, million",
       [](const Trial& t) { return static_cast<double>(t.work) * 1e-6; });
  line("seconds", [](const Trial& t) { return t.seconds; });
  line("processor seconds", [](const Trial& t) { return t.cpu_seconds; });
  std::fflush(out);
}

std::string to_json(const std::vector<Trial>& trials) {
  nlohmann::json all = nlohmann::json::array();
  for (const Trial& t : trials) {
    all.push_back({{"name", t.name},
                   {"format", t.format},
                   {"width", t.width},
                   {"matches", t.matches},
                   {"status", t.status},
                   {"before", to_json(t.before)},
                   {"after", to_json(t.after)},
                   {"optimum", to_json(t.optimum)},
                   {"excess", t.excess()},
                   {"excess_at_4096", t.excess_at_4096()},
                   {"sigma", t.sigma},
                   {"score", t.score},
                   {"optimum_score", t.optimum_score},
                   {"candidates", t.candidates},
                   {"work", t.work},
                   {"seconds", t.seconds},
                   {"cpu_seconds", t.cpu_seconds},
                   {"found", t.found},
                   {"wanted", t.wanted}});
  }
  return all.dump(2) + "\n";
}

}  // namespace twintrue::accuracy
