#include "lens/LensParameters.h"

#include <cstdio>

#include "base/Saturate.h"
#include "base/WholeFile.h"
#include "lens/LensKeys.h"
#include "lens/LensNumbers.h"
#include "lens/LensParametersV1.h"
#include "lens/LensParametersV2.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

constexpr double kVersionMargin = 1e-5;
constexpr int kDigitsOfMessages = 6;  // behind the point

// How a format is told from its version number.
struct FormatVersions {
  LensFormat format;
  double lowest;
  double highest;
};
constexpr FormatVersions kVersions[] = {{LensFormat::k1, 1.0, 1.0}, {LensFormat::k2, 2.3, 2.31}};

LensFormat format_of(double version) {
  for (const FormatVersions& range : kVersions) {
    if (version >= range.lowest - kVersionMargin && version <= range.highest + kVersionMargin) {
      return range.format;
    }
  }
  return LensFormat::kNone;
}

// Finds out the format of a section, makes it current and reads it; null if the section is absent or its
// version keys name no format or two different ones.
std::unique_ptr<LensParameters> read_parameters(ini_store& store, const std::string& section) {
  ini_section* const found = ini_find_section(store, section);
  if (found == nullptr) {
    std::fputs(fmt::format("ERROR!: Cannot find {} section in ini file.\n", section).c_str(), stderr);
    return nullptr;
  }
  store.current = found;

  LensFormat format = LensFormat::kNone;
  if (const ini_item* const item = ini_find_item(*found, "format_version")) {
    // A format's own name is a number within its range, so the names need no comparison of their own.
    format = format_of(text_to_double(item->value));
  }
  const LensFormat other = format_of(ini_get_double(store, "version"));
  if (format == LensFormat::kNone) {
    format = other;
  } else if (other != LensFormat::kNone && other != format) {
    std::fputs("ERROR!: forma_versionかversionのどちらか一方を記述してください。\n", stderr);
    return nullptr;
  }

  // A value out of range has printed its message; the caller goes on with what there is.
  if (format == LensFormat::k1) {
    auto parameters = std::make_unique<LensParametersV1>();
    parameters->read(store);
    return parameters;
  }
  if (format == LensFormat::k2) {
    auto parameters = std::make_unique<LensParametersV2>();
    parameters->read(store);
    return parameters;
  }
  return nullptr;
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
  const std::unique_ptr<LensParameters> parameters = read_parameters(store, section);
  if (!parameters) return false;
  ini_free(store);
  parameters->fill_rig(rig);
  return true;
}

template <typename Parameters>
std::string text_as(const RigModel& rig) {
  Parameters parameters;
  parameters.from_rig(rig);
  return parameters.text(kLensSection);
}

std::string text_of(const RigModel& rig) {
  switch (rig.left.distortion.kind) {
    case 1:
      return text_as<LensParametersV1>(rig);
    case 2:
      return text_as<LensParametersV2>(rig);
    default:
      throw LensModelError("バージョンが不正");
  }
}

}  // namespace

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
  return !write_whole_file(path, text_of(rig));
}

void read_ideal_height(ini_store& store, std::int32_t& precision_bit, double& lut_max) {
  if (const ini_item* const item = ini_find_item(*store.current, "ideal_height_precision_bit")) {
    precision_bit = item->type == kIniFloat ? truncate_to_int32(text_to_double(item->value))
                                            : static_cast<std::int32_t>(text_to_int64(item->value));
  }
  if (const ini_item* const item = ini_find_item(*store.current, "ideal_height_lut_max")) {
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
  report("{} is invalid parameter: {} \n", name, double_to_text(value, kDigitsOfMessages));
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
