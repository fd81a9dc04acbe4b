#include "lens/LensEvaluator.h"

#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "lens/LensNumbers.h"
#include "lens/LensOperators.h"
#include "lens/LensReport.h"
#include "lens/LensValue.h"

namespace twintrue {
namespace {

using Kind = IniTokenKind;

constexpr int kMaxNesting = 1000;
constexpr std::size_t kMaxTextMade = std::size_t{64} << 20;
constexpr int kDigitsOfItems = 30;  // behind the point

struct TooMuchText {};

// What waits for a value: the part of an expression around the part that is being read. A list of these
// stands for the recursion, because a hostile file nests deeper than the stack of a host's thread may reach.
struct Waiting {
  enum class For {
    kAssigned,     // the right side of assignments, or of none
    kFirstBranch,  // of ?:
    kSecondBranch,
    kRightSide,  // of a binary operator
    kInside,     // of parentheses, those of a call included
  };

  explicit Waiting(For purpose) : what(purpose) {}

  For what;
  std::vector<ini_item*> targets = {};  // kAssigned
  ini_value left = {};                  // kFirstBranch: the condition; kSecondBranch: the first branch
  bool takes_first = false;             // kSecondBranch
  std::size_t place = 0;                // of the binary operator, or of the parenthesis or function
  std::size_t first_unary = 0;  // kInside: place of the first unary operator in front; `place` if none
  // Levels of binary operators that may go on behind the value: the range in which the part around began.
  int loosest = 0;
  int tightest = 0;
};

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
        expression();
        if (kind() != Kind::kSemicolon) report("ERROR: Not found ';' after expression in {}.\n", line());
        if (kind() != Kind::kEnd) ++at_;
      }
    }
  }

 private:
  // What comes next. The value that was read, or is complete, is in value_.
  enum class Step {
    kOperand,      // an operand is to be read, with the unary operators in front of it
    kOperandRead,  // binary operators may follow
    kBinaryRead,   // ?: may follow
    kConditionalRead,
    kAssignmentRead,
    kDone,
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
    return Name{&ini_open_item(*section, tokens_[last].text), last + 1};
  }

  void expression() {
    Step step = begin_assignment();
    while (step != Step::kDone) {
      switch (step) {
        case Step::kOperand:
          step = operand();
          break;
        case Step::kOperandRead:
          step = binary();
          break;
        case Step::kBinaryRead:
          step = question();
          break;
        case Step::kConditionalRead:
          step = end_conditional();
          break;
        default:
          step = end_assignment();
          break;
      }
    }
  }

  // One level deeper. Beyond the last one nothing is read, which makes a value of no type.
  Step begin_conditional() {
    if (++depth_ > kMaxNesting + 1) {
      value_ = {};
      return Step::kConditionalRead;
    }
    loosest_ = 1;
    tightest_ = kTightestLevel;
    return Step::kOperand;
  }

  Step begin_assignment() {
    Waiting& waiting = waiting_.emplace_back(Waiting::For::kAssigned);
    if (depth_ > kMaxNesting) return begin_conditional();
    for (std::optional<Name> target = name(); target && tokens_[target->behind].kind == Kind::kAssign;
         target = name()) {
      waiting.targets.push_back(target->item);
      at_ = target->behind + 1;
    }
    return begin_conditional();
  }

  Step end_assignment() {
    if (waiting_.empty()) return Step::kDone;
    const Waiting inside = take_waiting();
    const std::int32_t line_behind = line();
    close_paren();
    const Kind function = tokens_[inside.place].kind;
    if (function != Kind::kOpenParen) apply_function(function, value_, line_behind);
    loosest_ = inside.loosest;
    tightest_ = inside.tightest;
    return end_operand(inside.first_unary, inside.place);
  }

  void assign(std::vector<ini_item*>& targets) {
    for (; !targets.empty(); targets.pop_back()) {
      ini_item& item = *targets.back();
      item.type = value_.type;
      item.value = value_text(value_, kDigitsOfItems);
      charge(item.value);
    }
  }

  Step question() {
    if (kind() != Kind::kQuestion) return Step::kConditionalRead;
    ++at_;
    waiting_.emplace_back(Waiting::For::kFirstBranch).left = std::move(value_);
    return begin_conditional();
  }

  // Both branches are evaluated: a print in the other one still prints.
  Step end_conditional() {
    --depth_;
    Waiting waiting = take_waiting();
    switch (waiting.what) {
      case Waiting::For::kAssigned:
        assign(waiting.targets);
        return Step::kAssignmentRead;
      case Waiting::For::kFirstBranch: {
        if (kind() != Kind::kColon) {
          report("ERROR: operator '?:' without ':' in {}.\n", line());
          value_ = std::move(waiting.left);
          return Step::kConditionalRead;
        }
        ++at_;
        Waiting& second = waiting_.emplace_back(Waiting::For::kSecondBranch);
        second.takes_first = is_true(waiting.left);
        second.left = std::move(value_);
        return begin_conditional();
      }
      default:
        if (waiting.takes_first) value_ = std::move(waiting.left);
        return Step::kConditionalRead;
    }
  }

  // All binary levels. Each is a loop of its own: behind an operator only the same level and looser ones may
  // follow, and behind a type error only looser ones.
  Step binary() {
    const int level = binary_level(kind());
    if (level >= loosest_ && level <= tightest_) {
      Waiting& right_side = wait_for(Waiting::For::kRightSide);
      right_side.left = std::move(value_);
      right_side.place = at_;
      loosest_ = level + 1;
      tightest_ = kTightestLevel;
      ++at_;
      return Step::kOperand;
    }
    if (waiting_.back().what != Waiting::For::kRightSide) return Step::kBinaryRead;
    Waiting right_side = take_waiting();
    const ini_token& op = tokens_[right_side.place];
    loosest_ = right_side.loosest;
    tightest_ = binary_level(op.kind);
    if (!combine(op, right_side.left, value_, line())) {
      --tightest_;
    } else if (right_side.left.type == kIniString) {
      charge(*right_side.left.text);
    }
    value_ = std::move(right_side.left);
    return Step::kOperandRead;
  }

  Waiting& wait_for(Waiting::For what) {
    Waiting& waiting = waiting_.emplace_back(what);
    waiting.loosest = loosest_;
    waiting.tightest = tightest_;
    return waiting;
  }

  Waiting take_waiting() {
    Waiting waiting = std::move(waiting_.back());
    waiting_.pop_back();
    return waiting;
  }

  Step operand() {
    const std::size_t first = at_;
    while (kind() == Kind::kPlus || kind() == Kind::kMinus || kind() == Kind::kComplement ||
           kind() == Kind::kNot) {
      ++at_;
    }
    const std::size_t operand = at_;
    switch (kind()) {
      case Kind::kInt:
      case Kind::kHex:
      case Kind::kBin:
      case Kind::kStr:
      case Kind::kPrint:
        ++at_;
        if (kind() != Kind::kOpenParen) {
          report("ERROR: There is insufficient '(' in {}.\n", line());
          value_ = {};
          break;
        }
        [[fallthrough]];
      case Kind::kOpenParen: {
        ++at_;
        Waiting& inside = wait_for(Waiting::For::kInside);
        inside.place = operand;
        inside.first_unary = first;
        return begin_assignment();
      }
      default:
        value_ = simple_operand();
        break;
    }
    return end_operand(first, operand);
  }

  // The value of an operand is there: what stands behind and in front of it is left to do.
  Step end_operand(std::size_t first, std::size_t operand) {
    if (kind() == Kind::kArrow) member(value_);
    for (std::size_t i = operand; i > first; --i) apply_unary(tokens_[i - 1], value_, line());
    return Step::kOperandRead;
  }

  // A literal or the value of an item; of no type, and nothing consumed, if there is neither.
  ini_value simple_operand() {
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
      default:
        break;
    }
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
    const ini_item* const item = ini_find_item(*section, token().text);
    value = item != nullptr ? value_of(*item) : ini_value{kIniInteger, 0, 0.0, std::nullopt};
    if (kind() != Kind::kEnd) ++at_;
  }

  ini_store& store_;
  const ini_token_list& tokens_;
  std::size_t at_ = 0;
  std::vector<Waiting> waiting_;  // the innermost last
  ini_value value_;
  int loosest_ = 0;  // levels of binary operators that may follow
  int tightest_ = 0;
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
