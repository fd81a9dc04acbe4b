#include "lens/LensParameters.h"

#include <cstddef>
#include <cstdio>

#include "lens/LensKeys.h"
#include "lens/LensNumbers.h"
#include "lens/LensParametersV1.h"
#include "lens/LensParametersV2.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

constexpr double kVersionMargin = 1e-5;
constexpr LensFormatVersions kVersions[] = {
    {0.0, 0.0, 0.0, "0.0"}, {1.0, 1.0, 1.0, "1.0"}, {2.3, 2.31, 2.31, "2.31"}};

template <typename Parameters>
std::unique_ptr<LensParameters> read_as(LensFormat format, ini_store& store, const std::string& section) {
  auto parameters = std::make_unique<Parameters>();
  parameters->set_format(format, format);
  // A value out of range has printed its message; the caller goes on with what there is.
  parameters->read(store, section);
  parameters->set_format(format, format);
  return parameters;
}

bool has_kind(const EyeModel& eye) { return eye.distortion.kind == 1 || eye.distortion.kind == 2; }

// Reads the file into the rig; false leaves the rig alone.
bool read_rig(RigModel& rig, const std::string& path, const std::string& section) {
  ini_store store;
  store.current = &ini_open_section(store, "@default");
  if (ini_load(store, path) == 0) {
    report("ERROR!: Cannot read{}\n", path);
    return false;
  }
  const std::unique_ptr<LensParameters> parameters = lens_parameters_create(store, section);
  if (!parameters) return false;
  ini_free(store);
  parameters->fill_rig(rig);
  return true;
}

template <typename Parameters>
void dump_rig(const RigModel& rig, const std::string& path) {
  auto format = static_cast<LensFormat>(rig.left.distortion.kind);
  Parameters parameters;
  parameters.set_format(format, format);
  parameters.from_rig(rig);
  parameters.set_format(format, format);
  parameters.dump(path, "OPTRA");
}

}  // namespace

const LensFormatVersions& lens_format_versions(LensFormat format) {
  const auto number = static_cast<std::size_t>(format);
  return kVersions[number < std::size(kVersions) ? number : 0];
}

LensFormat match_lens_format(double version) {
  for (const LensFormat format : {LensFormat::k1, LensFormat::k2}) {
    const LensFormatVersions& range = lens_format_versions(format);
    if (version >= range.lowest - kVersionMargin && version <= range.highest + kVersionMargin) return format;
  }
  return LensFormat::kNone;
}

// A format's own name is a number within its range, so the names need no comparison of their own.
LensFormat match_lens_format(const std::string& version) {
  return match_lens_format(text_to_double(version));
}

std::unique_ptr<LensParameters> lens_parameters_create(ini_store& store, const std::string& section) {
  ini_section* const found = ini_find_section(store, section);
  if (found == nullptr) {
    std::fputs(fmt::format("ERROR!: Cannot find {} section in ini file.\n", section).c_str(), stderr);
    return nullptr;
  }
  store.current = found;

  LensFormat format = LensFormat::kNone;
  if (ini_item* const item = ini_find_item(store, *found, "format_version")) {
    item->used = 1;
    format = match_lens_format(item->value);
  }
  const LensFormat other = match_lens_format(ini_get_double(store, "version"));
  if (format == LensFormat::kNone) {
    format = other;
  } else if (other != LensFormat::kNone && other != format) {
    std::fputs("ERROR!: forma_versionかversionのどちらか一方を記述してください。\n", stderr);
    return nullptr;
  }

  if (format == LensFormat::k1) return read_as<LensParametersV1>(format, store, section);
  if (format == LensFormat::k2) return read_as<LensParametersV2>(format, store, section);
  return nullptr;
}

int load_lens_description(RigState& rig_state, const std::string& path, const std::string& section) {
  RigModel& rig = rig_state.current;
  const bool loaded = read_rig(rig, path, section);

  rig_state.reference = rig;
  rig_state.frame_width = rig.left.view_width + rig.right.view_width;
  rig_state.frame_height = rig.left.view_height;
  rig_state.half_width = rig_state.frame_width / 2;
  rig_state.circle_radius_px = rig.circle_radius / rig.sensor_pitch;
  // Eyes that were never filled have no rotation to bring up to date.
  if (has_kind(rig.left)) eye_update_rotation(rig.left);
  if (has_kind(rig.right)) eye_update_rotation(rig.right);
  rig_update_positions(rig);
  return loaded ? 1 : 0;
}

bool write_lens_description(const RigModel& rig, const std::string& path) {
  switch (rig.left.distortion.kind) {
    case 1:
      dump_rig<LensParametersV1>(rig, path);
      return true;
    case 2:
      dump_rig<LensParametersV2>(rig, path);
      return true;
    default:
      throw LensModelError("バージョンが不正");
  }
}

void read_ideal_height(ini_store& store, std::int32_t& precision_bit, double& lut_max) {
  if (ini_item* const item = ini_find_item(store, *store.current, "ideal_height_precision_bit")) {
    item->used = 1;
    precision_bit = item->type == kIniFloat ? truncate_to_int32(text_to_double(item->value))
                                            : static_cast<std::int32_t>(text_to_int64(item->value));
  }
  if (ini_item* const item = ini_find_item(store, *store.current, "ideal_height_lut_max")) {
    item->used = 1;
    lut_max = text_to_double(item->value);
  }
}

bool check_positive(const char* name, std::int32_t value) {
  if (value > 0) return true;
  report("{} is invalid parameter: {} \n", name, value);
  return false;
}

bool check_positive(const char* name, double value) {
  if (value > 0.0) return true;
  report("{} is invalid parameter: {} \n", name, double_to_text(value, 6));
  return false;
}

void fill_commons(EyeModel& left, EyeModel& right, const LensEyeCommons& commons) {
  const auto half_width = static_cast<std::int32_t>(commons.frame_width * 0.5);
  for (EyeModel* eye : {&left, &right}) {
    eye->translate = commons.translate;
    eye->view_width = half_width;
    eye->view_height = commons.frame_height;
    eye->distortion.kind = static_cast<std::uint32_t>(commons.format);
    eye->distortion.coeff = commons.coeff;
    eye->distortion.precision_bit = commons.precision_bit;
    eye->distortion.lut_max = commons.lut_max;
  }
  left.valid_x_begin = half_width;
  left.valid_x_end = commons.frame_width;
  right.valid_x_begin = 0;
  right.valid_x_end = half_width;
}

void finish_eyes(EyeModel& left, EyeModel& right) {
  eye_update_rotation(left);
  eye_update_rotation(right);
  distortion_build_table(left.distortion);
  distortion_copy_table(right.distortion, left.distortion);
}

}  // namespace twintrue
