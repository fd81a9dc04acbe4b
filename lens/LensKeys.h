#pragma once

// What the two formats share: tables of keys, and the part of an eye that doesn't depend on units.

#include <array>
#include <cstdint>
#include <string>
#include <variant>

#include "lens/LensLanguage.h"
#include "lens/LensParameters.h"
#include "lens/LensReport.h"
#include "lens/LensTextWriter.h"
#include "lens/RigModel.h"

namespace twintrue {

// What files that are written hold of two values that no rig does.
inline constexpr double kWrittenAlpha = 0.625;
inline constexpr double kWrittenBeta = 0.125;

// A key and the member of the same name. Tables of keys are in the order in which files hold them.
template <typename Parameters>
struct LensKey {
  const char* name;
  std::variant<std::int32_t Parameters::*, double Parameters::*> member;
  // Of a length that has to be above 0: what is taken, and what is printed, if it isn't.
  double fallback = 0.0;
  const char* notice = nullptr;
};

// Reads the keys from the store's current section; an absent one is 0.
template <typename Parameters, typename Keys>
void read_keys(ini_store& store, Parameters& parameters, const Keys& keys) {
  for (const LensKey<Parameters>& key : keys) {
    if (const auto* whole = std::get_if<std::int32_t Parameters::*>(&key.member)) {
      parameters.** whole = ini_get(store, key.name);
      continue;
    }
    double& value = parameters.*std::get<double Parameters::*>(key.member);
    value = ini_get_double(store, key.name);
    if (key.notice != nullptr && !(value > 0.0)) {
      report("{}", key.notice);
      value = key.fallback;
    }
  }
}

template <typename Parameters, typename Keys>
void write_keys(LensTextWriter& writer, const Parameters& parameters, const Keys& keys) {
  for (const LensKey<Parameters>& key : keys) {
    std::visit([&](auto member) { writer.write(key.name, parameters.*member); }, key.member);
  }
}

// Reads how fine and how long the inverse table is to be; an absent key leaves its default, without a word.
void read_ideal_height(ini_store& store, std::int32_t& precision_bit, double& lut_max);

// Whether a value is above 0. Prints a message if not.
bool check_positive(const char* name, std::int32_t value);
bool check_positive(const char* name, double value);

struct LensEyeCommons {
  LensFormat format;
  std::int32_t frame_width;
  std::int32_t frame_height;
  std::array<double, 3> translate;
  std::array<double, 6> coeff;
  std::int32_t precision_bit;
  double lut_max;
};

// Gives both eyes their halves of the frame and one and the same translation and curve.
void fill_commons(EyeModel& left, EyeModel& right, const LensEyeCommons& commons);

// Brings rotations and tables up to date. The table is computed once, for the left eye.
void finish_eyes(EyeModel& left, EyeModel& right);

}  // namespace twintrue
