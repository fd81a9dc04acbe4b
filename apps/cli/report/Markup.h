#pragma once

// Pages as text: what a person named is escaped, and what was opened is closed.

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace twintrue::cli {

// Text for between tags and for attributes in double quotes. Each byte that is no UTF-8, or part of a
// character that a page can't hold, becomes U+FFFD.
std::string escaped(std::string_view text);

// The same bytes with everything replaced that escaped() replaces, but nothing escaped.
std::string printable(std::string_view text);

using Attributes = std::initializer_list<std::pair<std::string_view, std::string_view>>;

// Writes elements one within the other. The result is HTML and, its elements having no namespace, XML as
// well.
class Markup {
 public:
  // An element that others go into, until close().
  Markup& open(std::string_view name, Attributes attributes = {});
  // Closes the innermost element. Throws std::logic_error if there is none.
  Markup& close();
  // An element without content: those of HTML that never have any, and those of SVG.
  Markup& empty(std::string_view name, Attributes attributes = {});
  Markup& text(std::string_view text);
  // An element that holds a text alone.
  Markup& leaf(std::string_view name, std::string_view text, Attributes attributes = {});
  // Markup of the program's own, such as a style sheet.
  Markup& raw(std::string_view markup);

  // All that was written. Throws std::logic_error if an element is still open.
  std::string take();

 private:
  void tag(std::string_view name, Attributes attributes);

  std::string out_;
  std::vector<std::string> open_;
};

}  // namespace twintrue::cli
