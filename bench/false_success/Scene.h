#pragma once

// Frames made through the geometry of a lens: rendered scenes, and frames taken again by another rig.

#include <functional>
#include <string>

#include "Picture.h"
#include "lens/RigModel.h"

namespace twintrue::false_success {

// Throws std::runtime_error.
RigState rig_of(const std::string& lens_text);

// The brightness, 0 to 255, of what lies from a place in a direction, metres and the axes of the rig.
using Look = std::function<double(const std::array<double, 3>& from, const std::array<double, 3>& ray)>;

// What a rig sees, four rays a pixel.
Picture render(const RigState& rig, const Look& look);

// A box of walls round the rig, painted with noise of several sizes.
struct RoomLook {
  std::array<double, 3> half{1.3, 1.1, 1.6};  // metres from the rig to the walls
  double period = 0.0;                        // metres after which the paint repeats; 0: never
  double contrast = 1.0;
  double finest = 200.0;  // grains a metre, in a room of the usual size
  int paint = 0;          // which of many
};
Look room(const RoomLook& look);

// A painted wall that many metres before the rig; nothing else.
Look wall(double distance, int paint);

// Open ground, a row of far things on the horizon, and a plain sky.
Look outdoors(int paint);

// What one eye of `taken` saw in `picture`, seen again by both eyes of `rig` as if all were far away.
Picture far_scene(const Picture& picture, const RigState& taken, const RigState& rig);

// The picture as eyes turned and moved from `taken` to `rig` take it, each from its own place: true to the
// scene whatever its depth.
Picture turned(const Picture& picture, const RigState& taken, const RigState& rig);

}  // namespace twintrue::false_success
