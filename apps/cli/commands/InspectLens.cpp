#include "apps/cli/commands/InspectLens.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/InspectJson.h"
#include "apps/cli/commands/InspectOutput.h"
#include "lens/LensLanguage.h"
#include "lens/LensParameters.h"
#include "lens/RigModel.h"
#include "search/PoseCandidate.h"

namespace twintrue::cli {
namespace {

// An empty file is one that the lens language can read: it holds no section.
void require_lens_file(const std::string& path) {
  std::error_code error;
  const bool empty =
      std::filesystem::is_regular_file(path, error) && std::filesystem::file_size(path, error) == 0 && !error;
  if (!empty) require_readable_file({"FILE", path});
}

DocumentTarget make_target(const LensArguments& arguments) {
  DocumentTarget target(arguments.out, {{"FILE", arguments.file}});
  require_lens_file(arguments.file);
  return target;
}

Json distortion_json(const LensDistortion& distortion) {
  Json json;
  json["kind"] = distortion.kind;
  json["coeff"] = json_array(distortion.coeff);
  json["precision_bit"] = distortion.precision_bit;
  json["lut_max"] = distortion.lut_max;
  json["table_scale"] = distortion.table_scale;
  json["table_size"] = distortion.table_size;
  double sum = 0.0;
  double last = 0.0;
  if (distortion.table && !distortion.table->empty()) {
    for (const double entry : *distortion.table) sum += entry;
    last = distortion.table->back();
  }
  json["table_sum"] = sum;
  json["table_last"] = last;
  return json;
}

Json eye_json(const EyeModel& eye) {
  Json json;
  json["position"] = json_array(eye.position);
  json["lambda"] = eye.lambda;
  json["psi"] = eye.psi;
  json["roll"] = eye.roll;
  json["shift_x"] = eye.shift_x;
  json["shift_y"] = eye.shift_y;
  json["translate"] = json_array(eye.translate);
  json["rotation"] = json_array(eye.rotation);
  json["view_width"] = eye.view_width;
  json["view_height"] = eye.view_height;
  json["scale"] = eye.scale;
  json["center_x"] = eye.center_x;
  json["center_y"] = eye.center_y;
  json["fov_degrees"] = eye.fov_degrees;
  json["valid_x_begin"] = eye.valid_x_begin;
  json["valid_x_end"] = eye.valid_x_end;
  json["magnify_v"] = eye.magnify_v;
  json["magnify_h"] = eye.magnify_h;
  json["offset_x"] = eye.offset_x;
  json["offset_y"] = eye.offset_y;
  json["distortion"] = distortion_json(eye.distortion);
  return json;
}

Json rig_state_json(const RigState& rig) {
  const RigModel& model = rig.current;
  Json current;
  current["left"] = eye_json(model.left);
  current["right"] = eye_json(model.right);
  current["output_width"] = model.output_width;
  current["output_height"] = model.output_height;
  current["input_width"] = model.input_width;
  current["input_height"] = model.input_height;
  current["baseline"] = model.baseline;
  current["sensor_pitch"] = model.sensor_pitch;
  current["circle_distance"] = model.circle_distance;
  current["circle_radius"] = model.circle_radius;
  Json json;
  json["frame_width"] = rig.frame_width;
  json["frame_height"] = rig.frame_height;
  json["half_width"] = rig.half_width;
  json["circle_radius_px"] = rig.circle_radius_px;
  json["current"] = std::move(current);
  return json;
}

[[noreturn]] void fail_lens(const std::string& path, const std::string& found) {
  throw Failure(
      ExitCode::kFileUnusable,
      Problem{fmt::format("FILE: {}", path), found,
              "a lens file with a section [OPTRA] and a version that is known",
              "correct what the reader's messages name; `twintrue inspect lens` shows what was read"});
}

// The rig of a lens file that describes one, whatever its numbers.
void load_rig(RigState& rig, const std::string& path) {
  std::string thrown;
  const MessagesToErrors redirected;
  try {
    if (load_lens_description(rig, path, kLensSection) != 0) return;
  } catch (const std::exception& failure) {
    thrown = failure.what();
  }
  fail_lens(path, thrown.empty() ? "no lens" : fmt::format("no usable lens: {}", thrown));
}

const EyeModel& eye_of(const RigState& rig, const LensArguments& arguments) {
  return arguments.eye == "left" ? rig.current.left : rig.current.right;
}

// Marks a place that nobody wrote to: a number that is none, and with these bits no computation's result.
double unwritten() { return std::bit_cast<double>(std::uint64_t{0x7ff8'7477'696e'5452}); }

Json written_or_null(double value) {
  const bool written = std::bit_cast<std::uint64_t>(value) != std::bit_cast<std::uint64_t>(unwritten());
  return written ? Json(value) : Json(nullptr);
}

CalibResult parse_pose(const std::string& text) {
  CalibResult pose = starting_result();
  std::string_view rest = text;
  std::size_t count = 0;
  for (bool more = true; more; ++count) {
    const std::size_t comma = rest.find(',');
    more = comma != std::string_view::npos;
    const double value = parse_number("--pose", rest.substr(0, comma));
    if (count < kPoseFields.size()) pose.*kPoseFields[count] = value;
    if (more) rest.remove_prefix(comma + 1);
  }
  if (count == kPoseFields.size()) return pose;
  throw Failure(
      ExitCode::kUsage,
      Problem{"--pose", fmt::format("{} numbers", count), "ten numbers with commas between them",
              "give pan, tilt, roll, offset_x and offset_y of the right eye, then of the left one"});
}

// The writer doesn't tell whether the disk took it all.
void require_whole(const OutputFile& lens) {
  const ChatterCapture quiet(ChatterCapture::Streams::kOutputAndErrors);
  RigState rig;
  if (load_lens_description(rig, lens.temporary().string(), kLensSection) != 0) return;
  throw Failure(
      ExitCode::kOther,
      Problem{fmt::format("OUT: {}", lens.target().string()), "the lens file could not be written whole",
              "room for it on the disk", "free some space or choose another folder"});
}

}  // namespace

void inspect_lens_text(const LensArguments& arguments) {
  DocumentTarget target = make_target(arguments);
  ini_store store;
  store.current = &ini_open_section(store, "@default");
  Json json;
  {
    const MessagesToErrors redirected;
    json["loaded"] = ini_load(store, arguments.file);
  }
  json["sections"] = Json::array();
  for (const ini_section& section : store.sections) {
    Json items = Json::array();
    for (const ini_item& item : section.items) {
      items.push_back(
          {{"name", text_of_bytes(item.name)}, {"type", item.type}, {"value", text_of_bytes(item.value)}});
    }
    json["sections"].push_back({{"name", text_of_bytes(section.name)}, {"items", std::move(items)}});
  }
  target.write(write_json(json));
}

void inspect_lens(const LensArguments& arguments) {
  DocumentTarget target = make_target(arguments);
  RigState rig;
  Json json;
  json["result"] = nullptr;
  json["exception"] = nullptr;
  json["rig_state"] = nullptr;
  {
    const MessagesToErrors redirected;
    try {
      json["result"] = load_lens_description(rig, arguments.file, kLensSection);
    } catch (const std::exception& failure) {
      json["exception"] = failure.what();
    }
  }
  if (json["result"] == 1) json["rig_state"] = rig_state_json(rig);
  target.write(write_json(json));
}

void inspect_ray(const LensArguments& arguments) {
  DocumentTarget target = make_target(arguments);
  const double px = parse_number("PX", arguments.point[0]);
  const double py = parse_number("PY", arguments.point[1]);
  RigState rig;
  load_rig(rig, arguments.file);
  std::array<double, 3> ray;
  ray.fill(unwritten());
  Json json;
  json["ok"] = eye_image_to_ray(eye_of(rig, arguments), &ray[0], &ray[1], &ray[2], px, py);
  json["x"] = written_or_null(ray[0]);
  json["y"] = written_or_null(ray[1]);
  json["z"] = written_or_null(ray[2]);
  target.write(write_json(json));
}

void inspect_image(const LensArguments& arguments) {
  DocumentTarget target = make_target(arguments);
  const double x = parse_number("X", arguments.point[0]);
  const double y = parse_number("Y", arguments.point[1]);
  const double z = parse_number("Z", arguments.point[2]);
  RigState rig;
  load_rig(rig, arguments.file);
  double px = unwritten();
  double py = unwritten();
  Json json;
  json["ok"] = eye_ray_to_image(eye_of(rig, arguments), &px, &py, x, y, z);
  json["px"] = written_or_null(px);
  json["py"] = written_or_null(py);
  target.write(write_json(json));
}

void inspect_write(const LensArguments& arguments) {
  const CalibResult pose = parse_pose(arguments.pose);
  const NamedPath out{"OUT", arguments.out_lens};
  refuse_scrambled_name(out);
  OutputFile lens(out, {{"FILE", arguments.file}});
  DocumentTarget target(arguments.out, {{"FILE", arguments.file}, out});
  require_lens_file(arguments.file);
  RigState rig;
  load_rig(rig, arguments.file);
  Json json;
  {
    const MessagesToErrors redirected;
    rig_apply_pose(rig, pose);
    json["written"] = write_lens_description(rig.current, lens.temporary().string());
  }
  require_whole(lens);
  lens.commit();
  target.write(write_json(json));
}

}  // namespace twintrue::cli
