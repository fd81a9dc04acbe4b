#include "Summary.h"

#include <map>
#include <string>

#include <fmt/format.h>

namespace twintrue::false_success {
namespace {

using Json = nlohmann::json;

struct Counts {
  int inputs = 0;
  int plain = 0;  // plainly calibrated
  int plain_wrong = 0;
  int plain_far_off = 0;
  int plain_bent = 0;  // with a picture that is wrong under any pose
  int right = 0;       // with a pose that is right
  int right_but = 0;
  int right_refused = 0;

  void add(const Json& answer) {
    ++inputs;
    if (!answer.contains("error_px") || !answer["error_px"]["core_at_4096"].is_number()) return;
    const double error = answer["error_px"]["core_at_4096"];
    const double excess = answer["error_px"]["excess_at_4096"];
    const bool refused = answer["exit_code"] != 0;
    const bool is_plain = !refused && answer["verdict"]["outcome"] == "calibrated";
    if (is_plain) {
      ++plain;
      if (excess > kWrongError) ++plain_wrong;
      if (excess > kFarOffError) ++plain_far_off;
      if (excess <= kWrongError && error > kWrongError) ++plain_bent;
    }
    if (error >= kRightError) return;
    ++right;
    if (refused) {
      ++right_refused;
    } else if (!is_plain) {
      ++right_but;
    }
  }
};

std::string share(int part, int whole) {
  return whole == 0 ? "-" : fmt::format("{:.1f}%", 100.0 * part / whole);
}

void print_line(std::FILE* out, const std::string& name, const Counts& c) {
  fmt::print(out, "{:<34} {:6} | {:5} {:7} {:6} {:6} {:6} | {:5} {:5} {:6} {:7} {:6}\n", name, c.inputs,
             c.plain, c.plain_wrong, share(c.plain_wrong, c.plain), c.plain_far_off, c.plain_bent, c.right,
             c.right_but, share(c.right_but, c.right), c.right_refused, share(c.right_refused, c.right));
}

}  // namespace

void print_summary(std::FILE* out, const std::vector<Json>& answers) {
  std::map<std::string, Counts> groups;
  std::map<std::string, Counts> kinds;
  for (const Json& answer : answers) {
    const std::string what = !answer["shows"]   ? "hidden faults"
                             : answer["single"] ? "single faults"
                                                : "mixtures";
    const std::string half = answer["number"].get<int>() % 2 == 0 ? ", even" : ", odd";
    for (const std::string& name : {std::string("all"), "all" + half, what, what + half})
      groups[name].add(answer);
    kinds[answer["kind"]].add(answer);
  }
  fmt::print(out,
             "\nCore error in pixels of the frame scaled to 4096 wide: wrong > {} above that of the best "
             "pose, far off "
             "> {}; bent: wrong under any pose; right < {}\n"
             "{:<34} {:>6} | {:>5} {:>7} {:>6} {:>6} {:>6} | {:>5} {:>5} {:>6} {:>7} {:>6}\n",
             kWrongError, kFarOffError, kRightError, "", "inputs", "plain", "wrong", "", "far", "bent",
             "right", "but", "", "refused", "");
  for (const auto& [name, counts] : groups) print_line(out, name, counts);
  fmt::print(out, "\n");
  for (const auto& [name, counts] : kinds) print_line(out, name, counts);
  std::fflush(out);
}

}  // namespace twintrue::false_success
