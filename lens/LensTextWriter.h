#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace twintrue {

// Makes the text of a lens file of lines that the language reads back: no exponents, a blank on either side
// of the `=`.
class LensTextWriter {
 public:
  void write_section(const std::string& name);
  void write(const char* key, std::int32_t value);
  void write(const char* key, double value);  // ten digits behind the point
  void write(const char* key, const std::string& text);

  // The lines up to here; the writer starts anew.
  std::string take() { return std::exchange(text_, {}); }

 private:
  std::string text_;
};

}  // namespace twintrue
