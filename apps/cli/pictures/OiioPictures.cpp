#include "apps/cli/pictures/OiioPictures.h"

#include <OpenImageIO/imageio.h>
#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace twintrue::cli {
namespace {

// OpenImageIO's messages may end in newlines.
std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return text.empty() ? "no reason given" : text;
}

void set_up() {
  // Each thread takes address space, so there are few of them however many processors there are.
  constexpr int kMostThreads = 4;
  const int threads = std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMostThreads);
  OIIO::attribute("threads", threads);
  OIIO::attribute("exr_threads", threads);
}

bool is_linear_light(const OIIO::ImageSpec& spec) {
  std::string space = spec.get_string_attribute("oiio:ColorSpace");
  std::transform(space.begin(), space.end(), space.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return space == "linear" || space == "scene_linear" || space == "lin_srgb" || space == "lin_rec709";
}

float srgb_from_linear(float v) {
  return v <= 0.0031308f ? v * 12.92f : 1.055f * std::pow(v, 1.0f / 2.4f) - 0.055f;
}

std::uint8_t byte_from_unit(float v) {
  // The first comparison also takes what is no number.
  if (!(v > 0.0f)) return 0;
  return static_cast<std::uint8_t>(std::lround(std::min(v, 1.0f) * 255.0f));
}

std::optional<PictureProblem> spec_problem(const OIIO::ImageSpec& spec) {
  if (spec.deep || spec.depth > 1) {
    return PictureProblem{"a picture with depth (deep or a volume)", "a flat picture",
                          "save the frame as PNG, TIFF or JPEG"};
  }
  if (spec.width < 1 || spec.height < 1 || spec.nchannels < 1) {
    return PictureProblem{fmt::format("an empty picture of {} x {} pixels, {} channels", spec.width,
                                      spec.height, spec.nchannels),
                          "both fisheye pictures side by side", "check how the frame was saved"};
  }
  if (!is_picture_size(spec.width, spec.height)) {
    return PictureProblem{fmt::format("{} x {} pixels", spec.width, spec.height),
                          fmt::format("at most {} pixels a side and {} million in all", kLargestPictureSide,
                                      kMostPicturePixels / 1000000),
                          "give the frame as the lens captured it"};
  }
  return std::nullopt;
}

// The channels that hold red, green and blue: the first three that are not alpha, or the first one alone.
std::vector<int> colour_channels(const OIIO::ImageSpec& spec) {
  std::vector<int> channels;
  for (int c = 0; c < spec.nchannels && channels.size() < 3; ++c) {
    if (c != spec.alpha_channel) channels.push_back(c);
  }
  if (channels.empty()) channels.push_back(0);
  if (channels.size() < 3) channels.assign(3, channels.front());
  return channels;
}

PictureProblem damage(const OIIO::ImageInput& input) {
  return {fmt::format("a file that can't be decoded: {}", trimmed(input.geterror())), "a whole picture",
          "the file is damaged or cut short: copy or capture it again"};
}

std::uint32_t count_pictures(OIIO::ImageInput& input, const OIIO::ImageSpec& first) {
  const int told = first.get_int_attribute("oiio:subimages");
  if (told > 0) return std::min(static_cast<std::uint32_t>(told), kMostPicturesCounted);
  std::uint32_t count = 1;
  while (count < kMostPicturesCounted && input.seek_subimage(static_cast<int>(count), 0)) ++count;
  return count;
}

render::SampleType stored_type(const OIIO::ImageSpec& spec) {
  if (spec.format.is_floating_point()) return render::SampleType::kFloat;
  return spec.format.size() == 1 ? render::SampleType::kByte : render::SampleType::kWord;
}

// Rows of one picture, some at a time, as red, green and blue.
class RowReader {
 public:
  RowReader(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, Depth depth)
      : input_(input),
        spec_(spec),
        channels_(colour_channels(spec)),
        taken_(*std::max_element(channels_.begin(), channels_.end()) + 1),
        type_(depth == Depth::kBytes ? render::SampleType::kByte : stored_type(spec)),
        plain_bytes_(spec.format == OIIO::TypeUInt8),
        linear_(!plain_bytes_ && is_linear_light(spec)) {}

  render::SampleType type() const { return type_; }
  // Bytes are encoded here.
  render::Light light() const {
    return linear_ && type_ != render::SampleType::kByte ? render::Light::kLinear : render::Light::kEncoded;
  }

  // A band at a time, so that a float picture is never held whole. Tiled files give whole rows of tiles.
  int band() const { return spec_.tile_height > 1 ? spec_.tile_height : 64; }

  // Fills the rows' places, which lie one behind the other.
  bool read(int begin, int end, std::uint8_t* out) {
    if (type_ == render::SampleType::kWord) {
      return fetch(begin, end, OIIO::TypeUInt16, words_) &&
             gather(words_, out, [](auto word) { return word; });
    }
    if (type_ == render::SampleType::kFloat) {
      return fetch(begin, end, OIIO::TypeFloat, floats_) &&
             gather(floats_, out, [](auto value) { return value; });
    }
    if (plain_bytes_) {
      return fetch(begin, end, OIIO::TypeUInt8, bytes_) &&
             gather(bytes_, out, [](auto byte) { return byte; });
    }
    const bool encode = linear_;
    return fetch(begin, end, OIIO::TypeFloat, floats_) && gather(floats_, out, [encode](float value) {
             return byte_from_unit(encode ? srgb_from_linear(value) : value);
           });
  }

 private:
  template <typename T>
  bool fetch(int begin, int end, OIIO::TypeDesc type, std::vector<T>& values) {
    values.resize(static_cast<std::size_t>(spec_.width) * static_cast<std::size_t>(end - begin) *
                  static_cast<std::size_t>(taken_));
    if (spec_.tile_width > 0) {
      return input_.read_tiles(0, 0, spec_.x, spec_.x + spec_.width, spec_.y + begin, spec_.y + end, spec_.z,
                               spec_.z + 1, 0, taken_, type, values.data());
    }
    return input_.read_scanlines(0, 0, spec_.y + begin, spec_.y + end, spec_.z, 0, taken_, type,
                                 values.data());
  }

  // Picks the colours out of what was fetched.
  template <typename T, typename Convert>
  bool gather(const std::vector<T>& values, std::uint8_t* out, const Convert& convert) const {
    for (std::size_t pixel = 0; pixel < values.size(); pixel += static_cast<std::size_t>(taken_)) {
      for (const int channel : channels_) {
        const auto sample = convert(values[pixel + static_cast<std::size_t>(channel)]);
        std::memcpy(out, &sample, sizeof sample);
        out += sizeof sample;
      }
    }
    return true;
  }

  OIIO::ImageInput& input_;
  const OIIO::ImageSpec& spec_;
  const std::vector<int> channels_;
  const int taken_;  // channels that are read: those of a colour, and what stands between
  const render::SampleType type_;
  const bool plain_bytes_;
  const bool linear_;
  std::vector<float> floats_;
  std::vector<std::uint16_t> words_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::optional<PictureProblem> decode_picture(const std::string& reader, const std::string& path, Depth depth,
                                             const PictureRoom& room, PictureFacts* facts) {
  set_up();
  const std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::create(reader);
  // The library hands out another reader where it has none of that name.
  if (!input || input->format_name() != reader) {
    return PictureProblem{fmt::format("OpenImageIO without a reader called {}", reader), "one that has it",
                          "convert the picture to PNG or TIFF"};
  }
  OIIO::ImageSpec hints;
  hints.attribute("oiio:UnassociatedAlpha", 1);  // else colours come multiplied by alpha
  OIIO::ImageSpec spec;
  if (!input->open(path, spec, hints)) return damage(*input);
  if (auto problem = spec_problem(spec)) return problem;
  RowReader rows(*input, spec, depth);
  std::uint8_t* out = room(spec.width, spec.height, rows.type());
  for (int row = 0; row < spec.height; row += rows.band()) {
    const int end = std::min(row + rows.band(), spec.height);
    if (!rows.read(row, end, out)) return damage(*input);
    out += static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(end - row) * 3 *
           render::bytes_of(rows.type());
  }
  facts->light = rows.light();
  facts->pictures = count_pictures(*input, spec);
  return std::nullopt;
}

std::optional<PictureProblem> write_samples(const std::string& writer, const std::string& path,
                                            const PictureSamples& picture) {
  set_up();
  OIIO::TypeDesc type = OIIO::TypeFloat;
  if (picture.type == render::SampleType::kByte) type = OIIO::TypeUInt8;
  if (picture.type == render::SampleType::kWord) type = OIIO::TypeUInt16;
  std::string reason;
  // By the format's name: the path is one without an ending.
  const std::unique_ptr<OIIO::ImageOutput> output = OIIO::ImageOutput::create(writer);
  OIIO::ImageSpec spec(picture.width, picture.height, static_cast<int>(picture.channels), type);
  // The library would put the time there. Blanks are how a file says that its time is not known.
  spec.attribute("DateTime", "    :  :     :  :  ");
  if (!output) {
    reason = OIIO::geterror();
  } else if (!output->open(path, spec) || !output->write_image(type, picture.samples) || !output->close()) {
    reason = output->geterror();
  } else {
    return std::nullopt;
  }
  return PictureProblem{fmt::format("the picture could not be written: {}", trimmed(reason)),
                        "room for it on the disk", "free some space or choose another folder"};
}

}  // namespace twintrue::cli
