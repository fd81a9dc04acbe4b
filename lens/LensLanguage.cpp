#include "lens/LensLanguage.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <optional>
#include <system_error>

#include "base/Saturate.h"
#include "base/WholeFile.h"
#include "lens/LensEvaluator.h"
#include "lens/LensNumbers.h"
#include "lens/LensReport.h"
#include "lens/LensScanner.h"

namespace twintrue {
namespace {

constexpr std::size_t kMaxFileBytes = std::size_t{4} << 20;

char fold(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

// Runs the body and ends the process if memory does.
template <typename Body>
decltype(auto) with_enough_memory(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    std::fputs("ERROR: Not enough memory.\n", stdout);  // no formatting: that takes memory
    std::exit(1);
  }
}

// All bytes of the file, or nothing.
std::optional<std::string> read_bytes(const std::string& path) {
  std::string bytes;
  const std::error_code error = read_whole_file(path, kMaxFileBytes, bytes);
  if (error == std::errc::file_too_large) report("ERROR: Not enough memory.\n");
  if (error) return std::nullopt;
  return bytes;
}

bool is_pin(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return false;
  std::string ending = path.substr(dot);
  std::transform(ending.begin(), ending.end(), ending.begin(), fold);
  return ending == ".pin";
}

void warn(const char* kind, const ini_section& section, const ini_item& item) {
  report("WARNNING: ini_get() read {} item {}.{}\n", kind, section.name, item.name);
}

}  // namespace

bool IniNameLess::operator()(std::string_view a, std::string_view b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                      [](char x, char y) { return fold(x) < fold(y); });
}

ini_section& ini_open_section(ini_store& store, std::string_view name) {
  return with_enough_memory([&]() -> ini_section& {
    if (ini_section* known = ini_find_section(store, name)) return *known;
    ini_section& section = store.sections.emplace_back();
    section.name = name;
    store.section_index.emplace(section.name, &section);
    return section;
  });
}

ini_section* ini_find_section(ini_store& store, std::string_view name) {
  const auto found = store.section_index.find(name);
  return found == store.section_index.end() ? nullptr : found->second;
}

ini_item* ini_find_item(ini_section& section, std::string_view name) {
  const auto found = section.item_index.find(name);
  return found == section.item_index.end() ? nullptr : found->second;
}

ini_item& ini_open_item(ini_section& section, std::string_view name) {
  return with_enough_memory([&]() -> ini_item& {
    if (ini_item* known = ini_find_item(section, name)) return *known;
    ini_item& item = section.items.emplace_back();
    item.name = name;
    section.item_index.emplace(item.name, &item);
    return item;
  });
}

int ini_load(ini_store& store, const std::string& path) {
  assert(store.current != nullptr);
  std::optional<std::string> bytes;
  try {
    bytes = read_bytes(path);
  } catch (const std::bad_alloc&) {
    std::fputs("ERROR: Not enough memory.\n", stdout);
  }
  if (!bytes) {
    report("ERROR: Cannot read the \"{}\".\n", path);
    return 0;
  }
  return with_enough_memory([&] {
    if (is_pin(path)) pin_scramble(*bytes);
    ini_section* const entered_with = store.current;
    const bool done = evaluate_tokens(store, scan_tokens(bytes->c_str()));
    store.current = entered_with;
    return done ? 1 : 0;
  });
}

std::int32_t ini_get(ini_store& store, std::string_view name) {
  const ini_item* const item = ini_find_item(*store.current, name);
  if (item == nullptr) return 0;
  if (item->type == kIniFloat) {
    warn("double", *store.current, *item);
    return truncate_to_int32(text_to_double(item->value));
  }
  if (item->type == kIniString) warn("string", *store.current, *item);
  return static_cast<std::int32_t>(text_to_int64(item->value));
}

double ini_get_double(ini_store& store, std::string_view name) {
  const ini_item* const item = ini_find_item(*store.current, name);
  if (item == nullptr) return 0.0;
  if (item->type == kIniString) warn("string", *store.current, *item);
  return text_to_double(item->value);
}

void ini_free(ini_store& store) {
  store.current = nullptr;
  store.section_index.clear();
  store.sections.clear();
}

void pin_scramble(std::string& bytes) {
  std::uint32_t a = 5130947;
  std::uint32_t b = 27418863;
  for (char& byte : bytes) {
    const std::uint32_t t = (a + 8270153) ^ 0x3BD17E94;
    a = (b + 6041729) ^ 0xC72F08A6;
    const std::uint32_t key = (((a + 6217) ^ t) - 13058) >> 7;
    byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (key & 0xFF));
    b = t;
  }
}

}  // namespace twintrue
