// What the program makes of inputs that can't or must not calibrate. Each has to end with an exit code other
// than 0 or with a pose whose error is small; good frames have to end as calibrated.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <omp.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Inputs.h"
#include "Judge.h"
#include "Summary.h"

namespace twintrue::false_success {
namespace {

using Json = nlohmann::json;

// Core error in pixels of a frame 2048 wide up to which a pose does no harm: two eyes that are off by less
// than 0.1 degrees in height.
constexpr double kSmallError = 1.0;
constexpr double kReferenceWidth = 2048.0;
constexpr double kSummaryWidth = 4096.0;

struct Options {
  std::string program;
  std::string examples;
  std::string frames;
  std::string params;
  std::string only;
  std::string json;
  std::string keep;  // folder for the frames
  int jobs = 2;
  int from = 0;
  bool list = false;
};

int run_program(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

double number(const Json& json) { return json.is_number() ? json.get<double>() : std::nan(""); }

std::string shown(double value, const char* form = "{:.3f}") {
  return std::isfinite(value) ? fmt::format(fmt::runtime(form), value) : std::string("-");
}

std::array<double, 10> corrections_of(const Json& result) {
  std::array<double, 10> values{};
  std::size_t i = 0;
  for (const char* eye : {"right_eye", "left_eye"}) {
    for (const char* key : {"pan_rad", "tilt_rad", "roll_rad", "offset_x_px", "offset_y_px"}) {
      values[i++] = result.at("corrections").at(eye).at(key).get<double>();
    }
  }
  return values;
}

// An input with its place among all.
struct Numbered {
  int number;
  Case one;
};

Json errors_of(const Input& input, const Json& answer) {
  const auto before = error_of(input, {});
  const auto after = error_of(input, corrections_of(answer));
  const double width = input.frame.width;
  return {{"core_before", before.core},
          {"core", after.core},
          {"rms", after.rms},
          {"core_at_2048", after.core_excess * kReferenceWidth / width},
          {"core_at_4096", after.core * kSummaryWidth / width},
          {"excess_at_4096", after.core_excess * kSummaryWidth / width}};
}

// The program's answer to an input, with the errors that the bench knows.
Json answer_to(const Numbered& numbered, const Options& options, const std::filesystem::path& folder) {
  const Case& one = numbered.one;
  const Input input = one.make();
  const auto file = [&folder](const char* name) { return (folder / name).string(); };
  write_picture(input.frame, file("frame.png"));
  std::ofstream(file("given.lens")) << input.lens;
  std::vector<std::string> arguments{
      options.program, "calibrate",         file("frame.png"), "--lens", file("given.lens"),
      "--json",        file("result.json"), "--threads",       "1"};
  if (!options.params.empty()) arguments.insert(arguments.end(), {"--params", options.params});
  if (one.ignore_thresholds) arguments.emplace_back("--ignore-thresholds");
  std::filesystem::remove(file("result.json"));
  const int code = run_program(arguments);
  std::ifstream stream(file("result.json"));
  Json json = Json::parse(stream, nullptr, false);
  if (json.is_discarded()) json = Json::object();
  json["exit_code"] = code;
  json["number"] = numbered.number;
  json["case"] = one.name;
  json["kind"] = one.kind;
  json["good"] = one.good;
  json["shows"] = one.shows;
  json["single"] = one.single;
  const bool searched = json.contains("measures") && json["measures"]["error16"]["value"].is_number();
  if (searched && !input.true_lens.empty()) json["error_px"] = errors_of(input, json);
  return json;
}

// Whether the answer is one that does no harm.
bool is_right(const Json& answer) {
  const std::string outcome =
      answer.contains("verdict") ? answer["verdict"]["outcome"].get<std::string>() : "error";
  if (answer["good"]) return answer["exit_code"] == 0 && outcome == "calibrated";
  if (answer["exit_code"] != 0 || !answer["shows"]) return true;
  return answer.contains("error_px") && number(answer["error_px"]["core_at_2048"]) <= kSmallError;
}

void print_answer(std::FILE* out, const Json& answer) {
  std::string verdict = "-";
  double systematic = std::nan(""), fitting = systematic, expected = systematic, gap = systematic;
  if (answer.contains("verdict")) {
    verdict = answer["verdict"]["outcome"];
    for (const Json& reason : answer["verdict"]["reasons"]) verdict += " " + reason["key"].get<std::string>();
    const Json& evidence = answer["verdict"]["evidence"];
    if (!evidence.is_null()) {
      fitting = number(evidence["fitting_share"]["within_2_px"]);
      systematic = number(evidence["systematic_px"]);
      expected = number(evidence["expected_error_px"]);
      gap = number(evidence["search_gap_px"]);
    }
  }
  const auto measure = [&answer](const char* key) {
    return answer.contains("measures") ? number(answer["measures"][key]["value"]) : std::nan("");
  };
  const Json none = Json::object();
  const Json& error = answer.contains("error_px") ? answer["error_px"] : none;
  const auto error_value = [&error](const char* key) {
    return error.contains(key) ? number(error[key]) : std::nan("");
  };
  fmt::print(
      out,
      "{:<70} | {} | {:>6} | {:>7} | {:>6} | {:>6} | {:>6} | {:>6} | {:>6} | {:>6} | {:>8} | {:>8} | {:>8} | "
      "{:<5} | {}\n",
      answer["case"].get<std::string>(), answer["exit_code"].get<int>(), shown(measure("detection_ratio")),
      shown(measure("quality")), shown(measure("error16")), shown(measure("score"), "{:.0f}"), shown(fitting),
      shown(systematic), shown(expected), shown(gap), shown(error_value("core_before"), "{:.2f}"),
      shown(error_value("core"), "{:.2f}"), shown(error_value("rms"), "{:.2f}"),
      is_right(answer) ? "right" : "WRONG", verdict);
  std::fflush(out);
}

std::vector<Numbered> wanted_cases(const Options& options) {
  std::vector<Case> all = named_cases(options.examples, options.frames);
  for (Case& one : drawn_cases(options.examples, options.frames)) all.push_back(std::move(one));
  std::vector<Numbered> wanted;
  for (auto i = static_cast<std::size_t>(options.from); i < all.size(); ++i) {
    if ((all[i].kind + ": " + all[i].name).find(options.only) == std::string::npos) continue;
    wanted.push_back({static_cast<int>(i), std::move(all[i])});
  }
  return wanted;
}

// Answers to all, several at a time; each is told as soon as those before it are.
std::vector<Json> answer_all(const std::vector<Numbered>& cases, const Options& options,
                             const std::filesystem::path& folder, std::FILE* out) {
  std::vector<Json> answers(cases.size());
  std::atomic<std::size_t> next{0};
  std::size_t told = 0;
  std::mutex telling;
  std::ofstream lines;
  if (!options.json.empty()) lines.open(options.json);
  std::string failure;
  const auto work = [&](int job) {
    omp_set_num_threads(1);
    const auto own = folder / std::to_string(job);
    std::filesystem::create_directories(own);
    for (std::size_t i = next++; i < cases.size(); i = next++) {
      Json answer;
      try {
        answer = answer_to(cases[i], options, own);
      } catch (const std::exception& thrown) {
        const std::scoped_lock lock(telling);
        failure = cases[i].one.name + ": " + thrown.what();
        next = cases.size();
        return;
      }
      const std::scoped_lock lock(telling);
      answers[i] = std::move(answer);
      for (; told < answers.size() && !answers[told].is_null(); ++told) {
        print_answer(out, answers[told]);
        if (lines.is_open()) lines << answers[told].dump() << std::endl;
      }
    }
  };
  std::vector<std::thread> threads;
  for (int job = 0; job < options.jobs; ++job) threads.emplace_back(work, job);
  for (std::thread& thread : threads) thread.join();
  if (!failure.empty()) throw std::runtime_error(failure);
  return answers;
}

int run(const Options& options, std::FILE* out) {
  const std::vector<Numbered> cases = wanted_cases(options);
  if (options.list) {
    for (const Numbered& one : cases)
      fmt::print(out, "{:>4} {}: {}\n", one.number, one.one.kind, one.one.name);
    return std::fclose(out) == 0 ? 0 : 2;
  }
  const auto folder = options.keep.empty() ? std::filesystem::path(temporary_path(".run"))
                                           : std::filesystem::path(options.keep);
  fmt::print(
      out,
      "{:<70} | e | detect | quality | err16  | score  | fit2   | system | expect | gap    | core was | core "
      "px  | rms px   | right | verdict\n",
      "input");
  const std::vector<Json> answers = answer_all(cases, options, folder, out);
  const auto wrong = std::count_if(answers.begin(), answers.end(), std::not_fn(is_right));
  fmt::print(out, "{} inputs, {} wrong\n", answers.size(), wrong);
  print_summary(out, answers);
  if (options.keep.empty()) std::filesystem::remove_all(folder);
  return wrong == 0 ? 0 : 1;
}

}  // namespace
}  // namespace twintrue::false_success

int main(int argc, char** argv) {
  // The library's words about lens files go to standard error, the table alone to standard output.
  twintrue::false_success::Options options;
  CLI::App app("What the program makes of inputs that can't or must not calibrate");
  app.add_option("--program", options.program, "The program twintrue")->required()->check(CLI::ExistingFile);
  app.add_option("--examples", options.examples, "Folder with frame.jpg, nominal.lens, truth.lens")
      ->required()
      ->check(CLI::ExistingDirectory);
  app.add_option("--frames", options.frames, "Folder of further frames")->check(CLI::ExistingDirectory);
  app.add_option("--params", options.params, "Parameter file; the program's preset without");
  app.add_option("--only", options.only, "Run only inputs whose kind and name hold this");
  app.add_option("--json", options.json, "Write all numbers to this file, an input a line");
  app.add_option("--keep", options.keep, "Leave the last frames and lens files in this folder");
  app.add_option("--jobs", options.jobs, "Inputs at a time")->check(CLI::PositiveNumber);
  app.add_option("--from", options.from, "Number of the first input to run")->check(CLI::NonNegativeNumber);
  app.add_flag("--list", options.list, "Name the inputs and run none");
  CLI11_PARSE(app, argc, argv);
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    std::perror("false_success");
    return 2;
  }
  try {
    return twintrue::false_success::run(options, out);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "false_success: %s\n", failure.what());
    return 2;
  }
}
