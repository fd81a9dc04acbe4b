// What the program makes of inputs that can't or must not calibrate. Each has to end with an exit code other
// than 0 or with a pose whose error is small; good frames have to end as calibrated.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "Inputs.h"
#include "Judge.h"

namespace twintrue::false_success {
namespace {

using Json = nlohmann::json;

// Core error in pixels of a frame 2048 wide up to which a pose does no harm: two eyes that are off by less
// than 0.1 degrees in height.
constexpr double kSmallError = 1.0;
constexpr double kReferenceWidth = 2048.0;

struct Options {
  std::string program;
  std::string examples;
  std::string frames;
  std::string params;
  std::string only;
  std::string json;
  std::string keep;  // folder for the frames
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

// The program's answer to an input, with the errors that the bench knows.
Json answer_to(const Case& one, const Options& options, const std::filesystem::path& folder) {
  const Input input = one.make();
  const auto file = [&folder](const char* name) { return (folder / name).string(); };
  write_picture(input.frame, file("frame.png"));
  std::ofstream(file("given.lens")) << input.lens;
  std::vector<std::string> arguments{options.program,    "calibrate", file("frame.png"),  "--lens",
                                     file("given.lens"), "--json",    file("result.json")};
  if (!options.params.empty()) arguments.insert(arguments.end(), {"--params", options.params});
  if (one.ignore_thresholds) arguments.emplace_back("--ignore-thresholds");
  std::filesystem::remove(file("result.json"));
  const int code = run_program(arguments);
  std::ifstream stream(file("result.json"));
  Json json = Json::parse(stream, nullptr, false);
  if (json.is_discarded()) json = Json::object();
  json["exit_code"] = code;
  json["case"] = one.name;
  json["good"] = one.good;
  const bool searched = json.contains("measures") && json["measures"]["error16"]["value"].is_number();
  if (searched && !input.true_lens.empty()) {
    const auto before = error_of(input.true_lens, input.lens, {});
    const auto after = error_of(input.true_lens, input.lens, corrections_of(json));
    const double unit = input.frame.width / kReferenceWidth;
    json["error_px"] = {{"core_before", before.core},
                        {"core", after.core},
                        {"rms", after.rms},
                        {"core_at_2048", after.core / unit}};
  }
  return json;
}

// Whether the answer is one that does no harm.
bool is_right(const Json& answer) {
  const std::string outcome =
      answer.contains("verdict") ? answer["verdict"]["outcome"].get<std::string>() : "error";
  if (answer["good"]) return answer["exit_code"] == 0 && outcome == "calibrated";
  if (answer["exit_code"] != 0) return true;
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
      "{:<58} | {} | {:>6} | {:>7} | {:>6} | {:>6} | {:>6} | {:>6} | {:>6} | {:>6} | {:>8} | {:>8} | {:>8} | "
      "{:<5} | {}\n",
      answer["case"].get<std::string>(), answer["exit_code"].get<int>(), shown(measure("detection_ratio")),
      shown(measure("quality")), shown(measure("error16")), shown(measure("score"), "{:.0f}"), shown(fitting),
      shown(systematic), shown(expected), shown(gap), shown(error_value("core_before"), "{:.2f}"),
      shown(error_value("core"), "{:.2f}"), shown(error_value("rms"), "{:.2f}"),
      is_right(answer) ? "right" : "WRONG", verdict);
  std::fflush(out);
}

int run(const Options& options, std::FILE* out) {
  const auto folder = options.keep.empty()
                          ? std::filesystem::temp_directory_path() / fmt::format("false_success.{}", getpid())
                          : std::filesystem::path(options.keep);
  std::filesystem::create_directories(folder);
  fmt::print(
      out,
      "{:<58} | e | detect | quality | err16  | score  | fit2   | system | expect | gap    | core was | core "
      "px  | rms px   | right | verdict\n",
      "input");
  Json answers = Json::array();
  int wrong = 0;
  for (const Case& one : all_cases(options.examples, options.frames)) {
    if (one.name.find(options.only) == std::string::npos) continue;
    answers.push_back(answer_to(one, options, folder));
    print_answer(out, answers.back());
    if (!is_right(answers.back())) ++wrong;
  }
  fmt::print(out, "{} inputs, {} wrong\n", answers.size(), wrong);
  if (!options.json.empty()) std::ofstream(options.json) << answers.dump(1) << '\n';
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
  app.add_option("--only", options.only, "Run only inputs whose name holds this");
  app.add_option("--json", options.json, "Write all numbers to this file");
  app.add_option("--keep", options.keep, "Leave the last frame and lens file in this folder");
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
