#include "lens/LensEvaluator.h"

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "lens/LensNumbers.h"
#include "lens/LensReport.h"
#include "lens/LensValue.h"

namespace twintrue {
namespace {

using Kind = IniTokenKind;

constexpr int kMaxNesting = 1000;
constexpr std::size_t kMaxTextMade = std::size_t{64} << 20;
constexpr int kTightest = 10;  // the level of * / %

struct TooMuchText {};

// Levels of the binary operators, from the loosest, 1; 0 for other tokens.
int binary_level(Kind kind) {
  switch (kind) {
    case Kind::kLogicalOr:
      return 1;
    case Kind::kLogicalAnd:
      return 2;
    case Kind::kBitOr:
      return 3;
    case Kind::kBitXor:
      return 4;
    case Kind::kBitAnd:
      return 5;
    case Kind::kEqual:
    case Kind::kNotEqual:
      return 6;
    case Kind::kLess:
    case Kind::kLessEqual:
    case Kind::kGreater:
    case Kind::kGreaterEqual:
      return 7;
    case Kind::kShiftLeft:
    case Kind::kShiftRight:
      return 8;
    case Kind::kPlus:
    case Kind::kMinus:
      return 9;
    case Kind::kMultiply:
    case Kind::kDivide:
    case Kind::kModulo:
      return kTightest;
    default:
      return 0;
  }
}

class Evaluator {
 public:
  Evaluator(ini_store& store, const ini_token_list& tokens) : store_(store), tokens_(tokens) {}

  void run() {
    while (kind() != Kind::kEnd) {
      if (kind() == Kind::kSemicolon) {
        ++at_;
      } else if (kind() == Kind::kOpenBracket) {
        section_header();
      } else {
        assignment();
        if (kind() != Kind::kSemicolon) report("ERROR: Not found ';' after expression in {}.\n", line());
        if (kind() != Kind::kEnd) ++at_;
      }
    }
  }

 private:
  // One level of nesting, for as long as it is evaluated.
  class Level {
   public:
    explicit Level(int& depth) : depth_(depth) { ++depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
    ~Level() { --depth_; }
    bool too_deep() const { return depth_ > kMaxNesting + 1; }

   private:
    int& depth_;
  };

  struct Name {
    ini_item* item;
    std::size_t behind;  // place of the token behind the name
  };

  const ini_token& token() const { return tokens_[at_]; }
  Kind kind() const { return tokens_[at_].kind; }
  std::int32_t line() const { return tokens_[at_].line; }

  // Counts text that the file makes the load hold.
  void charge(const std::string& text) {
    text_made_ += text.size();
    if (text_made_ > kMaxTextMade) throw TooMuchText();
  }

  void section_header() {
    ++at_;
    if (kind() != Kind::kIdentifier) {
      report("ERROR: Illegal section name [{}] in {}.\n", token().text, line());
      return;
    }
    store_.current = &ini_open_section(store_, token().text);
    ++at_;
    if (kind() != Kind::kCloseBracket) {
      report("ERROR: Illegal section name '{}' in {}.\n", token().text, line());
      return;
    }
    ++at_;
  }

  // Looks at the name at the current token without consuming it. Naming an item makes it.
  std::optional<Name> name() {
    if (kind() != Kind::kIdentifier) return std::nullopt;
    ini_section* section = store_.current;
    std::size_t last = at_;
    if (tokens_[at_ + 1].kind == Kind::kDot) {
      last = at_ + 2;
      if (tokens_[last].kind != Kind::kIdentifier) {
        report("ERROR: Illegal item name '{}.{}' in {}.\n", token().text, tokens_[last].text,
               tokens_[last].line);
        return std::nullopt;
      }
      section = &ini_open_section(store_, token().text);
    }
    return Name{&ini_open_item(store_, *section, tokens_[last].text), last + 1};
  }

  ini_value assignment() {
    const Level level(depth_);
    if (level.too_deep()) return {};
    std::vector<ini_item*> targets;
    for (std::optional<Name> target = name(); target && tokens_[target->behind].kind == Kind::kAssign;
         target = name()) {
      targets.push_back(target->item);
      at_ = target->behind + 1;
    }
    ini_value value = conditional();
    while (!targets.empty()) {
      ini_item& item = *targets.back();
      targets.pop_back();
      item.type = value.type;
      item.used = 0;
      item.value = value_text(value, 30);
      charge(item.value);
    }
    return value;
  }

  // Both branches are evaluated: a print in the other one still prints.
  ini_value conditional() {
    ini_value condition = binary();
    if (kind() != Kind::kQuestion) return condition;
    ++at_;
    ini_value first = branch();
    if (kind() != Kind::kColon) {
      report("ERROR: operator '?:' without ':' in {}.\n", line());
      return condition;
    }
    ++at_;
    ini_value second = branch();
    return is_true(condition) ? std::move(first) : std::move(second);
  }

  ini_value branch() {
    const Level level(depth_);
    return level.too_deep() ? ini_value{} : conditional();
  }

  // The left side of a binary operator whose right side is being read.
  struct Pending {
    ini_value left;
    const ini_token* op;
    int level;    // of the operator
    int loosest;  // level that the side's own expression began with
  };

  // All binary levels. Each is a loop of its own: behind an operator only the same level and looser ones may
  // follow, and behind a type error only looser ones. A list of left sides stands for the recursion, because
  // ten calls for each parenthesis of a hostile file are too much for a small stack.
  ini_value binary() {
    std::vector<Pending> pending;
    int loosest = 1;
    int tightest = kTightest;
    ini_value value = unary();
    for (;;) {
      const int level = binary_level(kind());
      if (level >= loosest && level <= tightest) {
        pending.push_back({std::move(value), &token(), level, loosest});
        loosest = level + 1;
        tightest = kTightest;
        ++at_;
        value = unary();
      } else if (pending.empty()) {
        return value;
      } else {
        Pending left_side = std::move(pending.back());
        pending.pop_back();
        loosest = left_side.loosest;
        tightest = left_side.level;
        if (!combine(left_side.op->kind, left_side.left, value)) {
          type_error(*left_side.op);
          tightest = left_side.level - 1;
        }
        value = std::move(left_side.left);
      }
    }
  }

  // Puts the result into `left`. Returns false, and leaves it, if the types don't fit.
  bool combine(Kind op, ini_value& left, const ini_value& right) {
    switch (op) {
      case Kind::kPlus:
      case Kind::kMinus:
        if (both_are(kIniString, left, right)) {
          *left.text += *right.text;
          charge(*left.text);
          return true;
        }
        return arithmetic(op, left, right);
      case Kind::kMultiply:
      case Kind::kDivide:
      case Kind::kModulo:
        return arithmetic(op, left, right);
      case Kind::kEqual:
      case Kind::kNotEqual:
      case Kind::kLess:
      case Kind::kLessEqual:
      case Kind::kGreater:
      case Kind::kGreaterEqual:
        if (!is_number(left) || !is_number(right)) return false;
        left.integer = both_are(kIniInteger, left, right) ? compare(op, left.integer, right.integer)
                                                          : compare(op, as_double(left), as_double(right));
        left.type = kIniInteger;
        return true;
      default:
        if (!both_are(kIniInteger, left, right)) return false;
        left.integer = integer_arithmetic(op, left.integer, right.integer);
        return true;
    }
  }

  bool arithmetic(Kind op, ini_value& left, const ini_value& right) {
    if (!is_number(left) || !is_number(right)) return false;
    const bool divides = op == Kind::kDivide || op == Kind::kModulo;
    if (both_are(kIniInteger, left, right)) {
      if (divides && right.integer == 0) {
        report("ERROR: Divided by zero in {}.\n", line());
      } else {
        left.integer = integer_arithmetic(op, left.integer, right.integer);
      }
      return true;
    }
    const double a = as_double(left);
    const double b = as_double(right);
    left.type = kIniFloat;
    if (op == Kind::kModulo) {
      report("ERROR: Invalid type of operand on operator '%' in {}.\n", line());
      left.real = 0.0;
    } else if (divides && b == 0.0) {
      report("ERROR: Divided by zero in {}.\n", line());
    } else {
      left.real = float_arithmetic(op, a, b);
    }
    return true;
  }

  void type_error(const ini_token& op) {
    report("ERROR: Invalid type of operand on operator '{}' in {}.\n", op.text, line());
  }

  ini_value unary() {
    const std::size_t first = at_;
    while (kind() == Kind::kPlus || kind() == Kind::kMinus || kind() == Kind::kComplement ||
           kind() == Kind::kNot) {
      ++at_;
    }
    const std::size_t operand = at_;
    ini_value value = primary();
    for (std::size_t i = operand; i > first; --i) apply_unary(tokens_[i - 1], value);
    return value;
  }

  void apply_unary(const ini_token& op, ini_value& value) {
    if (value.type == kIniString || (value.type == kIniFloat && op.kind == Kind::kComplement)) {
      type_error(op);
    } else if (op.kind == Kind::kMinus) {
      value.integer = integer_arithmetic(Kind::kMinus, 0, value.integer);
      value.real = -value.real;
    } else if (op.kind == Kind::kComplement) {
      value.integer = ~value.integer;
    } else if (op.kind == Kind::kNot) {
      value.integer = value.integer == 0;
      value.real = value.real == 0.0 ? 1.0 : 0.0;
    }
  }

  ini_value primary() {
    ini_value value;
    switch (kind()) {
      case Kind::kInteger:
        value.type = kIniInteger;
        value.integer = literal_value(token().text);
        ++at_;
        break;
      case Kind::kFloat:
        // The conversion stops at the first underscore.
        value.type = kIniFloat;
        value.real = text_to_double(token().text);
        ++at_;
        break;
      case Kind::kString:
        value.type = kIniString;
        value.text = token().text;
        ++at_;
        break;
      case Kind::kIdentifier:
        if (const std::optional<Name> named = name()) {
          if (named->item->type == kIniNone) named->item->type = kIniInteger;
          value = value_of(*named->item);
          at_ = named->behind;
        }
        break;
      case Kind::kOpenParen:
        ++at_;
        value = assignment();
        close_paren();
        break;
      case Kind::kInt:
      case Kind::kHex:
      case Kind::kBin:
      case Kind::kStr:
      case Kind::kPrint:
        value = call();
        break;
      default:
        break;
    }
    if (kind() == Kind::kArrow) member(value);
    return value;
  }

  ini_value value_of(const ini_item& item) {
    charge(item.value);
    return {item.type, text_to_int64(item.value), text_to_double(item.value), item.value};
  }

  void close_paren() {
    if (kind() == Kind::kCloseParen) {
      ++at_;
    } else {
      report("ERROR: There is insufficient ')' in {}.\n", line());
    }
  }

  ini_value call() {
    const Kind function = kind();
    ++at_;
    if (kind() != Kind::kOpenParen) {
      report("ERROR: There is insufficient '(' in {}.\n", line());
      return {};
    }
    ++at_;
    ini_value value = assignment();
    const std::int32_t line_behind_argument = line();
    close_paren();
    switch (function) {
      case Kind::kInt:
        value.integer = as_integer(value);
        value.type = kIniInteger;
        break;
      case Kind::kHex:
        to_digits(value, "hex", line_behind_argument);
        break;
      case Kind::kBin:
        to_digits(value, "bin", line_behind_argument);
        break;
      case Kind::kStr:
        value.text = value_text(value, 10);
        value.type = kIniString;
        break;
      default:
        print(value);
        break;
    }
    return value;
  }

  static void print(const ini_value& value) {
    if (value.type == kIniString) {
      report("{}", *value.text);
    } else {
      report("{}\n",
             value.type == kIniFloat ? double_to_text(value.real, 10) : std::to_string(value.integer));
    }
  }

  static void to_digits(ini_value& value, std::string_view function, std::int32_t line) {
    if (value.type == kIniFloat || value.type == kIniString) {
      report("ERROR: Illegal parameter, \"{}( {} )\" in {}.\n", function,
             value.type == kIniFloat ? "FLOAT" : "STRING", line);
      return;
    }
    const auto bits = static_cast<std::uint64_t>(value.integer);
    value.text = function == "hex" ? fmt::format("{:X}", bits) : fmt::format("{:b}", bits);
    value.type = kIniString;
  }

  // `->` and the name behind it, of whatever kind that token is. The left side's string names the section.
  void member(ini_value& value) {
    ++at_;
    if (!value.text) {
      report("ERROR: Operator -> left operand is NULL in {}.\n", line());
      return;
    }
    ini_section* const section = ini_find_section(store_, *value.text);
    if (section == nullptr) {
      report("ERROR: Operator -> left operand is invalid section \"{}\" in {}.\n", *value.text, line());
      return;
    }
    const ini_item* const item = ini_find_item(store_, *section, token().text);
    value = item != nullptr ? value_of(*item) : ini_value{kIniInteger, 0, 0.0, std::nullopt};
    if (kind() != Kind::kEnd) ++at_;
  }

  ini_store& store_;
  const ini_token_list& tokens_;
  std::size_t at_ = 0;
  int depth_ = 0;
  std::size_t text_made_ = 0;
};

}  // namespace

bool evaluate_tokens(ini_store& store, const ini_token_list& tokens) {
  try {
    Evaluator(store, tokens).run();
  } catch (const TooMuchText&) {
    report("ERROR: Not enough memory.\n");
    return false;
  }
  return true;
}

}  // namespace twintrue
