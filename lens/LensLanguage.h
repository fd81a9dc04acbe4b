#pragma once

// The language of lens files: sections of named items, filled by statements that are expressions. A file may
// compute one value from another.
//
//   [OPTRA]
//   baseline = 0.06;            // metres
//   half = baseline / 2;
//
// Loading goes file -> LensScanner (tokens) -> LensEvaluator (statements) -> ini_store. Nothing in the
// language knows what a lens is. It is forgiving: a bad statement prints its message on standard output and
// the load goes on.
//
// Use:
//   ini_store store;
//   store.current = &ini_open_section(store, "@default");
//   ini_load(store, path);
//
// A store and all that hangs on it belong to one thread at a time.

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>

namespace twintrue {

// Names compare without regard to the case of ASCII letters.
struct IniNameLess {
  bool operator()(std::string_view a, std::string_view b) const;
};

// Types of items and values.
enum IniType : std::int32_t { kIniNone = 0, kIniInteger = 2, kIniFloat = 3, kIniString = 4 };

// One named value. Whatever the type, the value is kept as text.
struct ini_item {
  std::string value;
  std::int32_t type = kIniNone;  // kIniNone: named, never assigned
  std::string name;
};

struct ini_section {
  std::string name;
  std::list<ini_item> items;  // in order of creation
  std::map<std::string_view, ini_item*, IniNameLess> item_index;
};

// Owns its sections; sections own their items. Neither moves in memory while the store lives.
struct ini_store {
  std::list<ini_section> sections;  // in order of creation
  std::map<std::string_view, ini_section*, IniNameLess> section_index;
  ini_section* current = nullptr;  // one of `sections`; for items of statements that name no section

  ini_store() = default;
  ini_store(const ini_store&) = delete;
  ini_store& operator=(const ini_store&) = delete;
};

// The section of that name, made at the end of the list if there is none. Doesn't change the current section.
// The end of memory prints "ERROR: Not enough memory.\n" and ends the process with exit status 1, here and in
// ini_load().
ini_section& ini_open_section(ini_store& store, std::string_view name);

// The section of that name, or null.
ini_section* ini_find_section(ini_store& store, std::string_view name);

// The item of that name, or null.
ini_item* ini_find_item(ini_section& section, std::string_view name);

// The item of that name, made empty at the end of the list if there is none.
ini_item& ini_open_item(ini_section& section, std::string_view name);

// Loads one file into the store, behind what it already holds. store.current must be set, and is on return
// what it was. A path with the ending ".pin", in any case, is unscrambled first.
//
// Returns 1 if the file could be read, whatever language errors it holds, and 0 if not, after
// "ERROR: Cannot read the \"...\".\n". Files above 4 MiB count as unreadable for want of memory. So that no
// file can fill the machine by doubling strings, a load that has made 64 MiB of item texts and strings stops
// with "ERROR: Not enough memory.\n" and returns 0.
int ini_load(ini_store& store, const std::string& path);

// The integer value of an item of the current section, 0 if there is none: its text as atol reads it, the low
// 32 bits. An item of another type is read with a warning on standard output; a float is truncated.
std::int32_t ini_get(ini_store& store, std::string_view name);

// The float value of an item of the current section, 0.0 if there is none. Warns of a string.
double ini_get_double(ini_store& store, std::string_view name);

// Empties the store; no section is current.
void ini_free(ini_store& store);

// Scrambles the bytes of a ".pin" file in place; the same steps unscramble.
void pin_scramble(std::string& bytes);

}  // namespace twintrue
