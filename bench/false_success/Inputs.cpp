#include "Inputs.h"

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include <fmt/format.h>

#include "LensText.h"
#include "PictureFaults.h"
#include "Scene.h"

namespace twintrue::false_success {
namespace {

// The rig of the file seen again with these turns of both eyes added to the true ones.
Input turned_input(Input input, std::array<double, 3> right, std::array<double, 3> left) {
  const RigState taken = rig_of(input.true_lens);
  input.true_lens = with_turn(input.true_lens, "right", right[0], right[1], right[2]);
  input.true_lens = with_turn(input.true_lens, "left", left[0], left[1], left[2]);
  input.frame = turned(input.frame, taken, rig_of(input.true_lens));
  return input;
}

Input rendered(Input input, std::array<double, 3> right, std::array<double, 3> left, const Look& look) {
  input.true_lens = with_turn(input.lens, "right", right[0], right[1], right[2]);
  input.true_lens = with_turn(input.true_lens, "left", left[0], left[1], left[2]);
  input.frame = render(rig_of(input.true_lens), look);
  return input;
}

Input far_input(Input input) {
  input.frame = far_scene(input.frame, rig_of(input.true_lens), rig_of(input.true_lens));
  return input;
}

// Copies the columns of one half over the other.
void copy_half(Picture& to, const Picture& from, bool from_right, bool to_right) {
  const int half = to.width / 2;
  for (int y = 0; y < to.height; ++y) {
    for (int x = 0; x < half; ++x) {
      to.at(x + (to_right ? half : 0), y) = from.at(x + (from_right ? half : 0), y);
    }
  }
}

Input same_picture(Input input, bool right_one) {
  copy_half(input.frame, input.frame, right_one, !right_one);
  input.true_lens.clear();
  return input;
}

Input exchanged(Input input) {
  const Picture from = input.frame;
  copy_half(input.frame, from, true, false);
  copy_half(input.frame, from, false, true);
  input.true_lens.clear();
  return input;
}

// Keeps the picture where `keep` says so, by place in a half: -0.5 to 0.5, to the right and downward.
Input masked(Input input, const std::function<bool(double, double)>& keep) {
  grey(input.frame, keep);
  return input;
}

Input one_half(Input input, const std::function<void(Picture&, int, int)>& spoil) {
  spoil(input.frame, input.frame.width / 2, input.frame.width);
  return input;
}

// The left eye's picture is larger by that factor, which no pose can mend.
Input magnified_half(Input input, double factor) {
  const RigState rig = rig_of(input.lens);
  const Picture from = input.frame;
  const double cx = rig.current.left.center_x;
  const double cy = rig.current.left.center_y;
  const int half = from.width / 2;
  for (int y = 0; y < from.height; ++y) {
    for (int x = half; x < from.width; ++x) {
      input.frame.at(x, y) = sample(from, cx + (x - cx) / factor, cy + (y - cy) / factor, half, from.width);
    }
  }
  input.true_lens.clear();
  return input;
}

void blacken(Picture& picture, int x_begin, int x_end) {
  for (int y = 0; y < picture.height; ++y) {
    for (int x = x_begin; x < x_end; ++x) picture.at(x, y) = {};
  }
}

Input noise(Input input, double sigma) {
  std::mt19937 engine(7);
  for (Colour& pixel : input.frame.pixels) {
    const auto value = static_cast<float>(engine() % 256);
    pixel = {value, value, value};
  }
  if (sigma > 0.0) {
    blur(input.frame, 0, input.frame.width, sigma);
    const auto gain = static_cast<float>(3.0 * sigma);
    for (Colour& pixel : input.frame.pixels) {
      for (float& value : pixel) value = 128.0f + (value - 128.0f) * gain;
    }
  }
  input.true_lens.clear();
  return input;
}

// What the left eye sees inside a circle was elsewhere when it looked.
Input moved(Input input, double radius, int dx, int dy) {
  const Picture from = input.frame;
  const int half = from.width / 2;
  for (int y = 0; y < from.height; ++y) {
    for (int x = half; x < from.width; ++x) {
      const double u = static_cast<double>(x - half) / from.height - 0.5;
      const double v = static_cast<double>(y) / from.height - 0.5;
      if (std::hypot(u, v) >= radius) continue;
      const int sx = x + dx;
      const int sy = y + dy;
      if (sx >= half && sx < from.width && sy >= 0 && sy < from.height)
        input.frame.at(x, y) = from.at(sx, sy);
    }
  }
  return input;
}

Input mirrored_half(Input input) {
  const Picture from = input.frame;
  const int half = from.width / 2;
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < half; ++x) input.frame.at(half + x, y) = from.at(from.width - 1 - x, y);
  }
  input.true_lens.clear();
  return input;
}

// A rig that hangs upside down: the eyes have changed places, and all but the rolls has changed its sign.
Input upside_down(Input input) {
  const Picture from = input.frame;
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < from.width; ++x) {
      input.frame.at(x, y) = x == 0 || y == 0 ? Colour{} : from.at(from.width - x, from.height - y);
    }
  }
  const std::string taken = input.true_lens;
  for (const char* key : {"lambda", "psi", "roll", "x0", "y0"}) {
    const double sign = std::string(key) == "roll" ? 1.0 : -1.0;
    const std::string right = fmt::format("right_eye_{}", key);
    const std::string left = fmt::format("left_eye_{}", key);
    input.true_lens = with(input.true_lens, right, sign * value_of(taken, left));
    input.true_lens = with(input.true_lens, left, sign * value_of(taken, right));
  }
  return input;
}

Input shifted(Input input, int dx) {
  const Picture from = input.frame;
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < from.width; ++x) {
      input.frame.at(x, y) = x >= dx ? from.at(x - dx, y) : Colour{};
    }
  }
  input.true_lens = plus(input.true_lens, "right_eye_x0", static_cast<double>(dx) / from.width);
  input.true_lens = plus(input.true_lens, "left_eye_x0", static_cast<double>(dx) / from.width);
  return input;
}

Input with_lens(Input input, const std::function<std::string(const std::string&)>& change) {
  input.lens = change(input.lens);
  return input;
}

}  // namespace

Input read_input(const std::string& frame, const std::string& folder) {
  return {read_picture(frame), read_text(folder + "/nominal.lens"), read_text(folder + "/truth.lens"), {}};
}

Input at_half(Input input) {
  input.frame = halved(input.frame);
  for (std::string* lens : {&input.lens, &input.true_lens}) *lens = of_width(*lens, 0.5);
  return input;
}

std::vector<Case> named_cases(const std::string& examples, const std::string& frames) {
  std::vector<Case> cases;
  std::string kind = "small frames";
  const auto example = [examples] { return read_input(examples + "/frame.jpg", examples); };
  const auto good = [&cases](const std::string& name, std::function<Input()> make) {
    cases.push_back({.name = name, .kind = "good", .good = true, .make = std::move(make)});
  };
  const auto bad = [&](const std::string& name, std::function<Input()> make) {
    cases.push_back({.name = name, .kind = kind, .make = std::move(make)});
  };
  // Below what the presets are made for.
  const auto& small = bad;
  // Also past the tests of the counts, where the verdict stands alone.
  const auto bad_twice = [&](const std::string& name, const std::function<Input()>& make) {
    cases.push_back({.name = name, .kind = kind, .make = make});
    cases.push_back(
        {.name = name + ", thresholds ignored", .kind = kind, .ignore_thresholds = true, .make = make});
  };
  const std::array<double, 3> none{};

  good("example", example);
  small("example, 1024 wide", [=] { return at_half(example()); });
  good("example, both eyes turned by up to 1.5 deg", [=] {
    return turned_input(example(), {1.5, -1.5, 1.2}, {-1.2, 1.5, -1.5});
  });
  good("example, lens file is right", [=] {
    Input input = example();
    input.lens = input.true_lens;
    return input;
  });
  good("rendered room", [=] { return rendered(example(), {0.8, -0.6, 0.5}, {-0.4, 0.3, 0.2}, room({})); });
  good("rendered room, 8192 wide", [=] {
    Input input = example();
    input.lens = of_width(input.lens, 4.0);
    return rendered(input, {0.8, -0.6, 0.5}, {-0.4, 0.3, 0.2}, room({}));
  });
  const bool more = !frames.empty();
  const auto frame = [frames](const char* name) {
    return [=] { return read_input(frames + "/" + name + "/frame.png", frames + "/" + name); };
  };
  const auto room_frame = frame("room_distorted");
  const auto court = frame("court_format2");
  if (more) {
    good("tiles", frame("tiles_small"));
    good("room", room_frame);
    good("court", court);
    good("room, 2048 wide", [=] { return at_half(room_frame()); });
    small("room, 1024 wide", [=] { return at_half(at_half(room_frame())); });
  }

  kind = "not a pair";
  bad("same picture twice (right eye's)", [=] { return same_picture(example(), false); });
  bad("same picture twice (left eye's)", [=] { return same_picture(example(), true); });
  bad_twice("halves exchanged", [=] { return exchanged(example()); });
  bad_twice("one half black", [=] { return one_half(example(), blacken); });
  bad_twice("one half blurred", [=] {
    return one_half(example(), [](Picture& p, int from, int to) { blur(p, from, to, 5.0); });
  });
  bad_twice("one half mirrored", [=] { return mirrored_half(example()); });
  bad("one half larger by 1 %", [=] { return magnified_half(example(), 1.01); });
  bad("one half larger by 3 %", [=] { return magnified_half(example(), 1.03); });
  bad("frame upside down", [=] { return upside_down(example()); });
  bad_twice("noise, pixel by pixel", [=] { return noise(example(), 0.0); });
  bad_twice("noise of 2 px grains", [=] { return noise(example(), 2.0); });
  bad_twice("flat grey", [=] { return masked(example(), [](double, double) { return false; }); });
  bad_twice("two scenes", [=] {
    Input input = example();
    const Input other = rendered(example(), none, none, room({}));
    copy_half(input.frame, other.frame, true, true);
    input.true_lens.clear();
    return input;
  });

  kind = "lens file";
  const auto lens_case = [&](const std::string& name, const std::function<Input()>& base,
                             const std::function<std::string(const std::string&)>& change) {
    bad(name, [=] { return with_lens(base(), change); });
  };
  for (const double factor : {1.03, 0.97}) {
    const auto scale = [factor](const std::string& lens) {
      return times(lens, "image_circle_radius", factor);
    };
    lens_case(fmt::format("lens file: scale {:+.0f} %", 100 * (factor - 1)), example, scale);
    if (more)
      lens_case(fmt::format("lens file: scale {:+.0f} % (room)", 100 * (factor - 1)), room_frame, scale);
  }
  for (const double factor : {1.1, 0.9}) {
    lens_case(fmt::format("lens file: scale {:+.0f} %", 100 * (factor - 1)), example,
              [factor](const std::string& lens) { return times(lens, "image_circle_radius", factor); });
  }
  for (const double mm : {0.1, 0.3, 1.0, -1.0}) {
    lens_case(fmt::format("lens file: circle distance {:+.1f} mm", mm), example,
              [mm](const std::string& lens) { return plus(lens, "inter_image_circle_distance", mm); });
  }
  lens_case("lens file: circles exchanged", example, [](const std::string& lens) {
    const double whole = value_of(lens, "input_width") * value_of(lens, "sensor_pitch");
    return with(lens, "inter_image_circle_distance", whole - value_of(lens, "inter_image_circle_distance"));
  });
  lens_case("lens file: other format, no distortion", example, in_other_format);
  lens_case("lens file: other distortion", example,
            [](const std::string& lens) { return with(lens, "distortion_coeff1", 8.0); });
  if (more) {
    lens_case("lens file: format 1 as 2 (room)", room_frame, in_other_format);
    lens_case("lens file: format 2 as 1 (court)", court, in_other_format);
    bad_twice("lens file: centres swapped (court)", [=] {
      return with_lens(court(), [](const std::string& lens) {
        return times(times(lens, "left_img_c_center_X", -1.0), "right_img_c_center_X", -1.0);
      });
    });
    bad_twice("two scenes (room and court)", [=] {
      Input input = room_frame();
      copy_half(input.frame, court().frame, true, true);
      input.true_lens.clear();
      return input;
    });
  }

  kind = "large misalignment";
  bad_twice("right pan off by 10 deg", [=] { return turned_input(example(), {10, 0, 0}, none); });
  bad_twice("right pan off by -10 deg", [=] { return turned_input(example(), {-10, 0, 0}, none); });
  bad_twice("right tilt off by 10 deg", [=] { return turned_input(example(), {0, 10, 0}, none); });
  bad_twice("right roll off by 10 deg", [=] { return turned_input(example(), {0, 0, 10}, none); });
  bad_twice("pans off by 5 and -5 deg", [=] { return turned_input(example(), {5, 0, 0}, {-5, 0, 0}); });
  bad_twice("all of the right eye off by 4 deg", [=] { return turned_input(example(), {4, 4, 4}, none); });
  bad("both eyes tilted by 10 deg", [=] { return turned_input(example(), {0, 10, 0}, {0, 10, 0}); });

  kind = "texture";
  const auto one_object = [](double u, double v) {
    const bool object = std::hypot(u - 0.12, v + 0.05) < 0.11;
    const bool crumb = std::hypot(std::remainder(u, 0.25), std::remainder(v + 0.1, 0.25)) < 0.012;
    return object || crumb;
  };
  bad_twice("most matches on one small object", [=] { return masked(example(), one_object); });
  bad_twice("texture below only",
            [=] { return masked(example(), [](double, double v) { return v > 0.0; }); });
  bad_twice("texture on one side only",
            [=] { return masked(example(), [](double u, double) { return u > 0.05; }); });
  bad_twice("texture in the middle only",
            [=] { return masked(example(), [](double u, double v) { return std::hypot(u, v) < 0.2; }); });
  bad_twice("texture in a band only",
            [=] { return masked(example(), [](double, double v) { return std::abs(v) < 0.07; }); });
  bad("far scene", [=] { return far_input(example()); });
  if (more) {
    bad("far scene (court)", [=] { return far_input(court()); });
    bad("halves exchanged (court)", [=] { return exchanged(court()); });
    bad("same picture twice (court)", [=] { return same_picture(court(), false); });
  }
  const std::array<double, 3> right{0.8, -0.6, 0.5};
  const std::array<double, 3> left{-0.4, 0.3, 0.2};
  bad_twice("tiled walls, 30 cm", [=] { return rendered(example(), right, left, room({.period = 0.3})); });
  bad_twice("tiled walls, 10 cm", [=] { return rendered(example(), right, left, room({.period = 0.1})); });
  bad_twice("tiled walls, 4 cm", [=] { return rendered(example(), right, left, room({.period = 0.04})); });
  kind = "moved object";
  bad("object moved by 4 px up, a third", [=] { return moved(example(), 0.28, 0, 4); });
  bad("object moved by 2 px up, a third", [=] { return moved(example(), 0.28, 0, 2); });
  bad("object moved between the halves, a tenth", [=] { return moved(example(), 0.16, 9, 14); });
  bad("object moved between the halves, a third", [=] { return moved(example(), 0.28, 9, 14); });
  bad("object moved between the halves, two thirds", [=] { return moved(example(), 0.4, 9, 14); });
  bad("frame shifted by 40 px", [=] { return shifted(example(), 40); });
  return cases;
}

}  // namespace twintrue::false_success
