// The language of lens files. Whatever the bytes, scanning and evaluating end, and a file, the same file
// scrambled and the text in memory leave the same items behind.

#include "lens/LensLanguage.h"
#include "Support.h"
#include "lens/LensEvaluator.h"
#include "lens/LensScanner.h"

namespace {

using namespace twintrue;

// The items of a store as text, asked for in both types.
std::string contents(ini_store& store) {
  std::string all;
  for (ini_section& section : store.sections) {
    store.current = &section;
    all += "[" + section.name + "]\n";
    for (const ini_item& item : section.items) {
      all += item.name + " " + std::to_string(item.type) + " " + item.value + "\n";
      all += std::to_string(ini_get(store, item.name)) + "\n";
      ini_get_double(store, item.name);
    }
  }
  return all;
}

std::string loaded(const std::string& path) {
  ini_store store;
  store.current = &ini_open_section(store, "@default");
  const int result = ini_load(store, path);
  return std::to_string(result) + "\n" + contents(store);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::MemoryFile file;
  static const fuzzing::Alias pin(file.path(), ".Pin");

  std::string text(reinterpret_cast<const char*>(data), size);
  ini_store store;
  store.current = &ini_open_section(store, "@default");
  const bool done = evaluate_tokens(store, scan_tokens(text));
  const std::string items = (done ? "1\n" : "0\n") + contents(store);
  fuzzing::require(loaded(file.write(text)) == items, "a file reads like its text");

  pin_scramble(text);
  file.write(text);
  fuzzing::require(loaded(pin.path()) == items, "a scrambled file reads like a plain one");
  pin_scramble(text);
  fuzzing::require(text.compare(0, size, reinterpret_cast<const char*>(data), size) == 0,
                   "scrambling twice changes nothing");
  return 0;
}
