// Inputs of one fault at a time over kinds, strengths and scenes, and of several at once.

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <fmt/format.h>

#include "Draws.h"
#include "Faults.h"
#include "Inputs.h"
#include "LensText.h"
#include "Scene.h"

namespace twintrue::false_success {
namespace {

using accuracy::Draws;

constexpr int kPoses = 3;           // in which each scene is seen
constexpr int kScenesOfAFault = 2;  // on which each strength of a fault is tried
constexpr int kMixtures = 150;      // mild ones, and as many hard ones

// How a rig may stand to its lens file, of a frame 2048 wide.
void put_pose(std::string& lens, Draws& draws, double width) {
  constexpr double kDegrees = 0.5;
  const double px = 1.5 * width / 2048.0;
  for (const char* eye : {"right", "left"}) {
    std::array<double, 3> turn{};
    for (double& angle : turn) angle = draws.between(-kDegrees, kDegrees);
    lens = with_turn(lens, eye, turn[0], turn[1], turn[2]);
    const double x = draws.between(-px, px);
    lens = with_offset(lens, eye, x, draws.between(-px, px));
  }
}

// Frames that nothing is wrong with, each made once. Safe on any number of threads.
class Scenes {
 public:
  Scenes(const std::string& examples, const std::string& frames) : examples_(examples) {
    photographs_.emplace_back("example", [=] { return read_input(examples + "/frame.jpg", examples); });
    if (frames.empty()) return;
    const auto frame = [frames](const std::string& name, bool large) {
      return [=] {
        const std::string folder = std::string(frames).append("/").append(name);
        Input input = read_input(folder + "/frame.png", folder);
        return large ? at_half(std::move(input)) : input;
      };
    };
    photographs_.emplace_back("tiles", frame("tiles_small", false));
    photographs_.emplace_back("furnished room", frame("room_distorted", true));
    photographs_.emplace_back("court", frame("court_format2", true));
  }

  // With texture all over and near things.
  std::vector<std::string> plain() const {
    std::vector<std::string> names{"room", "hall", "closet"};
    for (const auto& photograph : photographs_) names.push_back(photograph.first);
    return names;
  }
  // That tell less.
  static std::vector<std::string> poor() {
    return {"far hall",    "outdoors",         "wall at 1 m",     "wall at 4 m",     "faint room",
            "coarse room", "room tiled 30 cm", "room tiled 8 cm", "closet of 0.4 m", "hall of 15 m"};
  }

  Input get(const std::string& name, int pose) {
    std::shared_ptr<Slot> slot;
    {
      const std::scoped_lock lock(mutex_);
      auto& place = slots_[fmt::format("{} {}", name, pose)];
      if (!place) place = std::make_shared<Slot>();
      slot = place;
    }
    std::call_once(slot->made, [&] { slot->input = make(name, pose); });
    return slot->input;
  }

 private:
  struct Slot {
    std::once_flag made;
    Input input;
  };

  Input make(const std::string& name, int pose) const {
    std::uint64_t seed = static_cast<std::uint64_t>(pose) + 1;
    for (const char letter : name) seed = 31 * seed + static_cast<std::uint64_t>(letter);
    Draws draws(seed);
    for (const auto& [photograph, read] : photographs_) {
      if (photograph != name) continue;
      Input input = read();
      if (pose == 0) return input;
      const RigState taken = rig_of(input.true_lens);
      input.true_lens = input.lens;
      put_pose(input.true_lens, draws, input.frame.width);
      input.frame = turned(input.frame, taken, rig_of(input.true_lens));
      return input;
    }
    Input input;
    input.lens = input.true_lens = read_text(examples_ + "/nominal.lens");
    put_pose(input.true_lens, draws, 2048.0);
    input.frame = render(rig_of(input.true_lens), look_of(name, pose));
    return input;
  }

  static Look look_of(const std::string& name, int pose) {
    const std::map<std::string, RoomLook> rooms{
        {"room", {}},
        {"hall", {.half = {3.0, 2.0, 4.0}}},
        {"closet", {.half = {0.8, 0.7, 1.0}}},
        {"far hall", {.half = {30.0, 20.0, 40.0}}},
        {"faint room", {.contrast = 0.12}},
        {"coarse room", {.finest = 20.0}},
        {"room tiled 30 cm", {.period = 0.3}},
        {"room tiled 8 cm", {.period = 0.08}},
        {"closet of 0.4 m", {.half = {0.4, 0.35, 0.4}}},
        {"hall of 15 m", {.half = {12.0, 8.0, 15.0}}},
    };
    if (name == "outdoors") return outdoors(pose);
    if (name == "wall at 1 m") return wall(1.0, pose);
    if (name == "wall at 4 m") return wall(4.0, pose);
    RoomLook look = rooms.at(name);
    look.paint = pose;
    return room(look);
  }

  std::string examples_;
  std::vector<std::pair<std::string, std::function<Input()>>> photographs_;
  std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Slot>> slots_;
};

template <typename T>
void shuffle(std::vector<T>& values, Draws& draws) {
  for (std::size_t i = values.size(); i > 1; --i) {
    std::swap(values[i - 1], values[static_cast<std::size_t>(draws.unit() * static_cast<double>(i))]);
  }
}

struct Dose {
  const Fault* fault;
  double strength;
};

std::string name_of(const Dose& dose) { return fmt::format(fmt::runtime(dose.fault->form), dose.strength); }

Case spoilt(const std::shared_ptr<Scenes>& scenes, const std::string& scene, int pose,
            const std::vector<Dose>& doses, std::uint64_t seed) {
  Case one;
  std::string names;
  for (const Dose& dose : doses) {
    names += (names.empty() ? "" : ", ") + name_of(dose);
    one.shows = one.shows && dose.fault->shows;
  }
  one.name = fmt::format("{}: {} ({})", scene, names.empty() ? "as it is" : names, pose);
  one.single = doses.size() == 1;
  one.make = [=] {
    Input input = scenes->get(scene, pose);
    Draws draws(seed);
    for (const Dose& dose : doses) dose.fault->apply(input, dose.strength, draws);
    return input;
  };
  return one;
}

// Two to four faults of different kinds, of the milder or the harder half of their strengths. What no frame
// can show is left out.
std::vector<Dose> draw_doses(Draws& draws, bool hard) {
  std::vector<Dose> doses;
  const std::size_t count = 2 + static_cast<std::size_t>(draws.unit() * 3.0);
  while (doses.size() < count) {
    const auto& faults = all_faults();
    const Fault& fault = faults[static_cast<std::size_t>(draws.unit() * static_cast<double>(faults.size()))];
    const bool there = std::any_of(doses.begin(), doses.end(),
                                   [&](const Dose& dose) { return dose.fault->kind == fault.kind; });
    if (there || !fault.shows) continue;
    const std::size_t middle = fault.strengths.size() / 2;
    const auto place = static_cast<std::size_t>(draws.unit() * static_cast<double>(middle));
    doses.push_back({&fault, fault.strengths[hard ? fault.strengths.size() - 1 - place : place]});
  }
  // What turns the rig comes before what warps or hides its pictures.
  std::stable_partition(doses.begin(), doses.end(),
                        [](const Dose& dose) { return dose.fault->kind == "large misalignment"; });
  return doses;
}

}  // namespace

std::vector<Case> drawn_cases(const std::string& examples, const std::string& frames) {
  const auto scenes = std::make_shared<Scenes>(examples, frames);
  std::vector<Case> cases;
  Draws draws(11);
  const auto draw_pose = [&draws] { return static_cast<int>(draws.unit() * kPoses); };
  const auto add = [&](const std::string& scene, const std::vector<Dose>& doses, const std::string& kind) {
    Case one = spoilt(scenes, scene, draw_pose(), doses, cases.size());
    one.kind = kind;
    cases.push_back(std::move(one));
  };
  for (const std::string& scene : Scenes::poor()) {
    for (int pose = 0; pose < kPoses; ++pose) {
      Case one = spoilt(scenes, scene, pose, {}, 0);
      one.kind = "scene";
      one.single = true;
      cases.push_back(std::move(one));
    }
  }
  for (const Fault& fault : all_faults()) {
    for (const double strength : fault.strengths) {
      std::vector<std::string> names = scenes->plain();
      shuffle(names, draws);
      names.resize(std::min<std::size_t>(names.size(), kScenesOfAFault));
      for (const std::string& name : names) add(name, {{&fault, strength}}, fault.kind);
    }
  }
  for (const bool hard : {false, true}) {
    for (int i = 0; i < kMixtures; ++i) {
      constexpr double kPoor = 0.15;
      const auto names = draws.unit() < kPoor ? Scenes::poor() : scenes->plain();
      const auto& name = names[static_cast<std::size_t>(draws.unit() * static_cast<double>(names.size()))];
      add(name, draw_doses(draws, hard), hard ? "hard mixture" : "mild mixture");
    }
  }
  shuffle(cases, draws);  // so that a part of the run speaks for all of it
  return cases;
}

}  // namespace twintrue::false_success
