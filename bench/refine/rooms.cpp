// Renders frames of known truth for refine_bench.

#include <cstdio>
#include <exception>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "Room.h"

int main(int argc, char** argv) {
  twintrue::refine_bench::RoomSettings settings;
  std::string folder;
  int count = 8;
  CLI::App app("Renders rooms seen by dual fisheyes of known truth");
  app.add_option("folder", folder, "Folder for them: one folder each")->required();
  app.add_option("--count", count, "Frames");
  app.add_option("--width", settings.width, "Width of a frame: 2048, 4096 or 8192");
  app.add_option("--seed", settings.seed, "Seed of the first");
  app.add_option("--noise", settings.noise, "Noise, grey levels");
  app.add_option("--angle-error", settings.angle_error_deg, "Greatest true error of an angle, degrees");
  app.add_option("--offset-error", settings.offset_error_px, "And of an offset, pixels of a frame 4096 wide");
  CLI11_PARSE(app, argc, argv);
  try {
    for (int i = 0; i < count; ++i, ++settings.seed) {
      settings.format = 1 + i % 2;
      render_room(settings,
                  std::filesystem::path(folder) / fmt::format("room{}_{}", settings.seed, settings.width));
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "refine_rooms: %s\n", failure.what());
    return 1;
  }
  return 0;
}
