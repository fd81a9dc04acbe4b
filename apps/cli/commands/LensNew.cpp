#include "apps/cli/commands/LensNew.h"

#include <fmt/format.h>

#include <iostream>
#include <sstream>
#include <vector>

#include "apps/cli/OutputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/commands/LensNewReport.h"
#include "apps/cli/commands/LensNewValues.h"

namespace twintrue::cli {
namespace {

std::string as_comment(const std::string& text) {
  std::istringstream lines(text);
  std::string comment;
  for (std::string line; std::getline(lines, line);) comment += "// " + line + "\n";
  return comment;
}

std::vector<NamedPath> inputs_of(const LensNewArguments& arguments) {
  std::vector<NamedPath> inputs;
  if (arguments.both.opencv) inputs.push_back({"--opencv", *arguments.both.opencv});
  if (arguments.left.opencv) inputs.push_back({"--opencv-left", *arguments.left.opencv});
  if (arguments.right.opencv) inputs.push_back({"--opencv-right", *arguments.right.opencv});
  return inputs;
}

FirstLens make_lens(const FirstLensInput& input) {
  try {
    return make_first_lens(input);
  } catch (const FirstLensError& error) {
    throw Failure(ExitCode::kUsage, problem_of(error, input));
  }
}

}  // namespace

void lens_new(const LensNewArguments& arguments) {
  const FirstLensInput input = first_lens_input(arguments);
  std::optional<OutputFile> file;
  if (arguments.out) {
    const NamedPath out{"-o", *arguments.out};
    refuse_scrambled_name(out);
    file.emplace(out, inputs_of(arguments));
  }
  const FirstLens lens = make_lens(input);
  const std::string description = describe_first_lens(input, lens);
  const std::string notes = first_lens_notes(input, lens);
  const std::string text =
      as_comment("First lens file, made by `twintrue lens new`.\n" + description + notes) + lens.text;
  if (!file) {
    std::cout << text;
    std::cerr << notes;
    return;
  }
  file->write(text);
  check_lens(file->temporary().string());  // as every run will read it
  file->commit();
  std::cout << description;
  std::cerr << notes;
  std::cout << fmt::format("\nnext: twintrue calibrate FRAME --lens {0} -o corrected.lens\n", *arguments.out);
}

}  // namespace twintrue::cli
