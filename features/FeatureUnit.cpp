#include "features/FeatureUnit.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

#include "features/RENO_Impl.h"

namespace fpu {
namespace {

// Version of the feature interface, as the query `ver_str` tells it.
constexpr std::array<int, 4> kVersion{2, 1, 0, 3};

std::int32_t write_text(std::string_view text, void* out, std::size_t bytes) {
  if (bytes == 0) return kUnsuitableKind;
  char* buffer = static_cast<char*>(out);
  const std::size_t length = std::min(text.size(), bytes);
  std::copy_n(text.begin(), length, buffer);
  std::fill(buffer + length, buffer + bytes, '\0');
  buffer[bytes - 1] = '\0';
  return 0;
}

template <typename T>
std::int32_t write_number(T value, void* out, std::size_t bytes) {
  if (bytes < sizeof value) return kUnsuitableKind;
  std::memcpy(out, &value, sizeof value);
  return 0;
}

std::int32_t write_value(std::int32_t value, std::int32_t kind, void* out, std::size_t bytes) {
  switch (kind) {
    case kParamDouble:
      return write_number(static_cast<double>(value), out, bytes);
    case kParamText:
      return write_text(fmt::format("{}", value), out, bytes);
    case kParamInt32:
      return write_number(value, out, bytes);
    default:
      return kUnsuitableKind;
  }
}

}  // namespace

FeatureUnit::FeatureUnit() = default;

std::int32_t FeatureUnit::init() {
  if (!opened) return kNotOpened;
  if (!document.loaded) return kInitFailed;
  auto made = std::make_unique<RENO_Impl>();
  made->read(twintrue::param_root_child(document, "RENO"));
  if (!made->usable(frameWidth, frameHeight)) return kInitFailed;
  const std::int32_t patch_size = made->patchSize();
  const std::int32_t weight_dist = made->weightDist();
  detector = std::move(made);

  grid.frameWidth = frameWidth;
  grid.frameHeight = frameHeight;
  grid.loaded = grid.load(document, patch_size / 2 + kReachBeyondPatch);
  if (!grid.loaded || grid.maxKpsInCell() < 1) return kInitFailed;

  matchingSettings.image_width = frameWidth;
  matchingSettings.image_height = frameHeight;
  matchingSettings.patchSize = patch_size;
  matchingSettings.weightDist = weight_dist;
  if (!load_matching_settings(matchingSettings, document, 0)) return kInitFailed;
  std::int32_t candidates_per_keypoint = 0;
  switch (matchingSettings.out_mode) {
    case 0:
      candidates_per_keypoint = matchingSettings.k;
      break;
    case 2:
      candidates_per_keypoint = 1;
      break;
    default:
      std::abort();
  }

  mvcSettings.image_width = frameWidth;
  mvcSettings.image_height = frameHeight;
  mvcSettings.max_num_data_in_cell = grid.maxKpsInCell();
  mvcSettings.candidates = candidates_per_keypoint;
  if (!load_correction_settings(mvcSettings, document, 0)) return kInitFailed;

  if (!load_check_settings(vdetSettings, document, "vdet", verbose)) return kInitFailed;
  ready = true;
  return 0;
}

std::int32_t FeatureUnit::detectAndDescribe(const cve::XMat& image, KeyPointStore& store,
                                            cve::XMat_<unsigned char>& descriptors) {
  const bool other_size = image.cols != frameWidth || image.rows != frameHeight;
  if (!ready || (!image.empty() && other_size)) {
    std::fill(store.cellCounts.begin(), store.cellCounts.end(), 0);
    store.count = 0;
    descriptors.data = nullptr;
    return 0;
  }
  // Both halves of a frame go through the same slot: nothing of one image is needed for the other.
  constexpr std::int32_t kSlot = 1;
  timer.lap();
  detector->detect(kSlot, image, store);
  if (verbose) std::printf("num of keypoints: %d\n", store.count);
  timer.lapAndPrint("detection time for an image: {} ms\n");
  detector->compute(kSlot, store, descriptors);
  timer.lapAndPrint("description time for an image: {} ms\n");
  return store.count;
}

std::int32_t FeatureUnit::getParam(const char* name, std::int32_t* out) const {
  return getParam(name, kParamInt32, out, sizeof *out);
}

std::int32_t FeatureUnit::getParam(const char* name, std::int32_t kind, void* out, std::size_t bytes) const {
  if (!ready) return kNotReady;
  if (name == nullptr) return kUnknownName;
  if (out == nullptr) return kUnsuitableKind;
  const std::string_view key(name);
  const GridIF& cells = grid;
  if (key == "ver_str") {
    if (kind != kParamText) return kUnsuitableKind;
    return write_text(fmt::format("{:d}.{:d}.{:d}.{:d}", kVersion[0], kVersion[1], kVersion[2], kVersion[3]),
                      out, bytes);
  }
  std::int32_t value = 0;
  if (key == "horz_cell_size" || key == "cell_width") {
    value = cells.cellWidth();
  } else if (key == "vert_cell_size" || key == "cell_height") {
    value = cells.cellHeight();
  } else if (key == "max_num_data_in_cell") {
    value = cells.maxKpsInCell();
  } else if (key == "max_num_kps_in_frame") {
    value = cells.maxKpsInFrame();
  } else if (key == "rel_match_count") {
    value = relMatchCount;
  } else if (key == "num_vert_cell") {
    value = cells.numVertCells();
  } else if (key == "num_horz_cell") {
    value = cells.numHorzCells();
  } else {
    return kUnknownName;
  }
  return write_value(value, kind, out, bytes);
}

std::unique_ptr<FeatureUnit> createFeatureUnit(twintrue::ParamDocument&& document, std::int32_t width,
                                               std::int32_t height) {
  if (width < 1 || height < 1) return nullptr;
  try {
    auto unit = std::make_unique<FeatureUnit>();
    unit->verbose = false;
    unit->timer.printEnabled = false;
    unit->document = std::move(document);
    unit->frameWidth = width;
    unit->frameHeight = height;
    unit->opened = true;
    if (unit->init() < 0) return nullptr;
    return unit;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return nullptr;
  }
}

std::unique_ptr<FeatureUnit> createFeatureUnit(const std::string& paramPath, std::int32_t width,
                                               std::int32_t height) {
  if (width < 1 || height < 1) return nullptr;  // no reason to read the file
  twintrue::ParamDocument document;
  try {
    if (!twintrue::param_document_open(document, paramPath)) return nullptr;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return nullptr;
  }
  return createFeatureUnit(std::move(document), width, height);
}

}  // namespace fpu
