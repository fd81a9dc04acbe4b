#include "PlainDetection.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "PlainFilter.h"
#include "imaging/Filters.h"

namespace plain {

short tone10(float light, std::int32_t gamma_mode) {
  float curve = light;
  if (gamma_mode == 1) curve = std::pow(light, 0.45454544f);
  if (gamma_mode == 2) {
    curve = light < 0.0031308f ? light * 12.92f : std::pow(light, 0.41666666f) * 1.055f - 0.055f;
  }
  const float value = 1023.0f * curve;
  if (!(std::fabs(value) < 2147483648.0f)) return 0;  // the low half of the smallest integer
  return static_cast<short>(static_cast<std::int32_t>(value));
}

cve::XMat_<unsigned char> working_image(const cve::XMat_<float>& linear, const fpu::Region& view, int number,
                                        bool borders, bool clamp, std::int32_t gamma_mode) {
  cve::XMat_<float> light;
  light.create(linear.rows, linear.cols);
  if (view.width > 0 && view.height > 0) {
    cve::XMat_<float> part = linear.view(view.x, view.y, view.width, view.height);
    if (number >= 0) part = filter(cve::make_float_kernel(number), part, borders);
    for (std::int32_t y = 0; y < view.height; ++y) {
      for (std::int32_t x = 0; x < view.width; ++x) {
        const float value = part.at(y, x);
        light.at(view.y + y, view.x + x) = clamp ? std::clamp(value, 0.0f, 1.0f) : value;
      }
    }
  }
  cve::XMat_<unsigned char> working;
  working.create(linear.rows, linear.cols);
  for (std::int32_t y = 0; y < linear.rows; ++y) {
    for (std::int32_t x = 0; x < linear.cols; ++x) {
      working.at(y, x) = static_cast<unsigned char>((tone10(light.at(y, x), gamma_mode) >> 2) & 0xff);
    }
  }
  return working;
}

void select(const cve::XMat_<float>& response, float threshold, fpu::KeyPointStore& store) {
  const fpu::GridIF& grid = *store.grid;
  const auto capacity = static_cast<std::size_t>(store.capacityPerCell);
  store.count = 0;
  for (std::int32_t c = 0; c < grid.numCells(); ++c) {
    std::vector<fpu::KeyPointRecord> records;
    const std::int32_t left = c % grid.numHorzCells() * grid.cellWidth();
    const std::int32_t top = c / grid.numHorzCells() * grid.cellHeight();
    for (std::int32_t y = top; y < top + grid.cellHeight(); ++y) {
      for (std::int32_t x = left; x < left + grid.cellWidth(); ++x) {
        const auto v = static_cast<std::int32_t>(response.at(y, x) * 100.0f);
        if (!(static_cast<float>(v) > threshold)) continue;
        fpu::KeyPointRecord record;
        record.x = static_cast<float>(x + grid.areaLeft());
        record.y = static_cast<float>(y + grid.areaTop());
        record.cell = c;
        record.link = -1;
        record.score = static_cast<std::uint16_t>(std::min(v, 65535));
        records.push_back(record);
      }
    }
    if (records.size() > capacity) {
      std::stable_sort(records.begin(), records.end(),
                       [](const auto& a, const auto& b) { return a.score > b.score; });
      records.resize(capacity);
    }
    for (fpu::KeyPointRecord& record : records) record.index = store.count++;
    std::copy(records.begin(), records.end(), store.records.begin() + c * store.capacityPerCell);
    store.cellCounts[static_cast<std::size_t>(c)] = static_cast<std::int32_t>(records.size());
  }
}

bool refine(const float* origin, std::int32_t pitch, float& x, float& y) {
  const auto at = [&](int dx, int dy) {
    const auto ix = static_cast<std::ptrdiff_t>(x);
    const auto iy = static_cast<std::ptrdiff_t>(y);
    return origin[(iy + dy) * pitch + ix + dx];
  };
  const float c = at(0, 0), l = at(-1, 0), r = at(1, 0), u = at(0, -1), d = at(0, 1);
  const float ul = at(-1, -1), ur = at(1, -1), dl = at(-1, 1), dr = at(1, 1);
  const float dx = (r - l) * 0.5f;
  const float dy = (d - u) * 0.5f;
  const float dxx = l + r - 2 * c;
  const float dyy = u + d - 2 * c;
  const float t = ul + dr - ur - dl;
  const float dxy = t * 0.25f;
  const float den = dyy * dxx - t * t * 0.0625f;
  if (den < 0.0000001f) return false;
  const float ox = (dxy * dy - dyy * dx) * (1.0f / den);
  const float oy = (dxy * dx - dxx * dy) * (1.0f / den);
  if (std::abs(ox) >= 0.5f || std::abs(oy) >= 0.5f) return false;
  x += ox;
  y += oy;
  return true;
}

void refine(const cve::XMat_<float>& det, bool drop, fpu::KeyPointStore& store) {
  const auto left = static_cast<float>(store.grid->areaLeft());
  const auto top = static_cast<float>(store.grid->areaTop());
  for (std::int32_t c = 0; c < store.grid->numCells(); ++c) {
    std::int32_t& live = store.cellCounts[static_cast<std::size_t>(c)];
    const auto first = store.records.begin() + c * store.capacityPerCell;
    auto kept = first;
    for (auto record = first; record != first + live; ++record) {
      float x = record->x - left;
      float y = record->y - top;
      const bool refined = refine(det.row(0), det.cols, x, y);
      if (!refined && drop) continue;
      *kept = *record;
      kept->x = x + left;
      kept->y = y + top;
      kept->refined = refined ? 1 : 0;
      ++kept;
    }
    live = static_cast<std::int32_t>(kept - first);
  }
}

}  // namespace plain
