#include "lens/LensScanner.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "lens/LensNumbers.h"
#include "lens/LensReport.h"

namespace twintrue {
namespace {

using Kind = IniTokenKind;

struct FixedToken {
  std::string_view text;
  Kind kind;
};

// Tried in this order, so that a longer operator comes before its prefix.
constexpr FixedToken kFixedTokens[] = {
    {"print", Kind::kPrint},   {"bin", Kind::kBin},        {"str", Kind::kStr},
    {"hex", Kind::kHex},       {"int", Kind::kInt},        {"**", Kind::kPower},
    {"<<", Kind::kShiftLeft},  {">>", Kind::kShiftRight},  {"&&", Kind::kLogicalAnd},
    {"||", Kind::kLogicalOr},  {"==", Kind::kEqual},       {"!=", Kind::kNotEqual},
    {"->", Kind::kArrow},      {"<=", Kind::kLessEqual},   {">=", Kind::kGreaterEqual},
    {"[", Kind::kOpenBracket}, {"]", Kind::kCloseBracket}, {"(", Kind::kOpenParen},
    {")", Kind::kCloseParen},  {"+", Kind::kPlus},         {"-", Kind::kMinus},
    {"*", Kind::kMultiply},    {"/", Kind::kDivide},       {"%", Kind::kModulo},
    {"&", Kind::kBitAnd},      {"|", Kind::kBitOr},        {"^", Kind::kBitXor},
    {"~", Kind::kComplement},  {"!", Kind::kNot},          {"<", Kind::kLess},
    {">", Kind::kGreater},     {"=", Kind::kAssign},       {"?", Kind::kQuestion},
    {";", Kind::kSemicolon},   {":", Kind::kColon},        {".", Kind::kDot},
};

constexpr std::string_view kDecimal = "0123456789_";
constexpr std::string_view kHexadecimal = "0123456789ABCDEF_";  // no lower case: 0xff is 0x and ff
constexpr std::string_view kOctal = "01234567_";
constexpr std::string_view kBinary = "01_";

// The bytes that part a keyword or operator from its neighbour. <, >, = and the comma aren't among them.
bool is_boundary(char c) {
  return c != '\0' && std::string_view("+-*/%(){}[];:?\"!~^|&.").find(c) != std::string_view::npos;
}

bool is_double_byte_lead(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte >= 129 && byte <= 159) || (byte >= 224 && byte <= 252);
}

class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text.substr(0, text.find('\0'))) {}

  ini_token_list scan() {
    ini_token_list tokens;
    for (skip(); !at_end(); skip()) {
      const std::int32_t line = line_;
      std::optional<ini_token> token = next();
      if (!token) {
        report("ERROR: Unknown charactor in {}.\n", line_);
        break;
      }
      token->line = line;
      tokens.push_back(std::move(*token));
    }
    tokens.emplace_back();
    return tokens;
  }

 private:
  bool at_end() const { return at_ >= text_.size(); }

  // The byte at a place, NUL behind the end.
  char peek(std::size_t place) const { return place < text_.size() ? text_[place] : '\0'; }

  void advance() {
    if (text_[at_] == '\n') ++line_;
    ++at_;
  }

  // Whitespace and comments.
  void skip() {
    while (!at_end()) {
      if (is_space(text_[at_])) {
        advance();
      } else if (text_[at_] == '/' && peek(at_ + 1) == '/') {
        while (!at_end() && text_[at_] != '\n') advance();
      } else if (text_[at_] == '/' && peek(at_ + 1) == '*') {
        at_ += 2;
        while (!at_end() && !(text_[at_] == '*' && peek(at_ + 1) == '/')) advance();
        at_ = at_end() ? at_ : at_ + 2;
      } else {
        return;
      }
    }
  }

  std::optional<ini_token> next() {
    if (auto token = fixed()) return token;
    if (auto token = real()) return token;
    if (auto token = integer()) return token;
    if (auto token = identifier()) return token;
    return string();
  }

  std::optional<ini_token> fixed() {
    const std::string_view rest = text_.substr(at_);
    for (const FixedToken& row : kFixedTokens) {
      if (!rest.starts_with(row.text)) continue;
      const char behind = peek(at_ + row.text.size());
      if (is_boundary(row.text[0]) || is_space(behind) || is_boundary(behind) || is_digit(behind)) {
        return take(row.kind, row.text.size());
      }
    }
    return std::nullopt;
  }

  std::optional<ini_token> real() {
    std::size_t end = run(at_, kDecimal);
    count_newline_behind(at_, end);
    if (peek(end) != '.') return std::nullopt;
    const std::size_t fraction = end + 1;
    end = run(fraction, kDecimal);
    count_newline_behind(fraction, end);
    if (end - at_ == 1) return std::nullopt;
    return take(Kind::kFloat, end - at_);
  }

  std::optional<ini_token> integer() {
    const char first = peek(at_);
    const char second = peek(at_ + 1);
    if (!is_digit(first)) return std::nullopt;
    std::size_t end = at_ + 1;
    if (first != '0') {
      end = run(at_, kDecimal);
    } else if (second == 'x' || second == 'X') {
      end = run(at_ + 2, kHexadecimal);
    } else if (second == 'b' || second == 'B') {
      end = run(at_ + 2, kBinary);
    } else if (is_digit(second)) {
      end = run(at_ + 1, kOctal);
    }
    return take(Kind::kInteger, end - at_);
  }

  std::optional<ini_token> identifier() {
    if (!is_alpha(peek(at_))) return std::nullopt;
    std::size_t end = at_;
    while (is_alpha(peek(end)) || is_digit(peek(end)) || peek(end) == '_') ++end;
    return take(Kind::kIdentifier, end - at_);
  }

  std::optional<ini_token> string() {
    if (peek(at_) != '"') return std::nullopt;
    ++at_;
    ini_token token{Kind::kString, 0, {}};
    while (!at_end() && text_[at_] != '"' && text_[at_] != '\n') {
      if (text_[at_] == '\\') {
        ++at_;
        if (!at_end()) token.text += unescape(take_string_byte());
      } else {
        const bool lead = is_double_byte_lead(text_[at_]);
        token.text += take_string_byte();
        if (lead && !at_end()) token.text += take_string_byte();
      }
    }
    if (!at_end()) take_string_byte();
    return token;
  }

  static char unescape(char c) {
    switch (c) {
      case 'a':
        return '\a';
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      default:
        return c;
    }
  }

  // Newlines in a string, and the one that ends it, count twice: lines in messages are known by this count.
  char take_string_byte() {
    const char c = text_[at_++];
    if (c == '\n') line_ += 2;
    return c;
  }

  // A newline right behind a run of digits counts here and again where it is read.
  void count_newline_behind(std::size_t begin, std::size_t end) {
    if (end > begin && peek(end) == '\n') ++line_;
  }

  // Where the run of those bytes that begins at a place ends.
  std::size_t run(std::size_t begin, std::string_view bytes) const {
    const std::size_t end = text_.find_first_not_of(bytes, begin);
    return end == std::string_view::npos ? text_.size() : end;
  }

  ini_token take(Kind kind, std::size_t length) {
    ini_token token{kind, 0, std::string(text_.substr(at_, length))};
    at_ += length;
    return token;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  std::int32_t line_ = 1;
};

}  // namespace

ini_token_list scan_tokens(std::string_view text) { return Scanner(text).scan(); }

}  // namespace twintrue
