#include "apps/cli/report/Markup.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace twintrue::cli {
namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";

// Length in bytes of the character that the text starts with; 0 if it is none, or none that a page can hold:
// a control, half of a surrogate pair, a longer form of a shorter character, or one that is for no use in
// text.
std::size_t character_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::uint8_t first = byte(0);
  if (first < 0x80) return (first >= 0x20 && first != 0x7f) || first == '\n' || first == '\t' ? 1 : 0;
  const std::size_t length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < length) return 0;
  std::uint32_t code = first & (0x7fU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3fU);
  }
  const bool too_long = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  const bool control = code < 0xa0 || (code & 0xfffe) == 0xfffe;
  // What turns the direction of all text behind it would let a name pass for another one.
  const bool turns = (code >= 0x202a && code <= 0x202e) || (code >= 0x2066 && code <= 0x2069);
  return too_long || surrogate || control || turns || code > 0x10ffff ? 0 : length;
}

template <typename Take>
std::string rewritten(std::string_view text, const Take& take) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = character_length(text);
    take(out, length == 0 ? std::string_view(kReplacement) : text.substr(0, length));
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return out;
}

}  // namespace

std::string printable(std::string_view text) {
  return rewritten(text, [](std::string& out, std::string_view character) { out += character; });
}

std::string escaped(std::string_view text) {
  return rewritten(text, [](std::string& out, std::string_view character) {
    switch (character.front()) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += character;
    }
  });
}

void Markup::tag(std::string_view name, Attributes attributes) {
  out_ += '<';
  out_ += name;
  for (const auto& [key, value] : attributes) {
    out_ += ' ';
    out_ += key;
    out_ += "=\"";
    out_ += escaped(value);
    out_ += '"';
  }
}

Markup& Markup::open(std::string_view name, Attributes attributes) {
  tag(name, attributes);
  out_ += '>';
  open_.emplace_back(name);
  return *this;
}

Markup& Markup::close() {
  if (open_.empty()) throw std::logic_error("no element is open");
  const std::string& name = open_.back();
  out_ += "</" + name + ">";
  // A line's end behind what stands within a text would be a blank of it.
  if (name != "span" && name != "b" && name != "code") out_ += '\n';
  open_.pop_back();
  return *this;
}

Markup& Markup::empty(std::string_view name, Attributes attributes) {
  tag(name, attributes);
  out_ += "/>";
  return *this;
}

Markup& Markup::text(std::string_view text) {
  out_ += escaped(text);
  return *this;
}

Markup& Markup::leaf(std::string_view name, std::string_view content, Attributes attributes) {
  return open(name, attributes).text(content).close();
}

Markup& Markup::raw(std::string_view markup) {
  out_ += markup;
  return *this;
}

std::string Markup::take() {
  if (!open_.empty()) throw std::logic_error("an element is still open: " + open_.back());
  return std::move(out_);
}

}  // namespace twintrue::cli
