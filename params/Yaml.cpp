#include "params/Yaml.h"

#include <fmt/format.h>

#include <deque>
#include <iterator>

namespace Yaml {
namespace {

constexpr std::string_view kBlanks = " \t";

enum class LineKind : std::uint8_t { kUnset = 0, kSequence = 1, kMap = 2, kScalar = 3 };

// Working form of one line. A source line that holds an entry and its value becomes two records.
struct LineRecord {
  std::string_view text;   // into the source, or into Parser::rewritten_
  std::int32_t number;     // of the source line, from 1
  std::int32_t offset;     // column of the first character of the text, from 0
  std::int32_t lines = 1;  // source lines that a record without text stands for
  LineKind kind = LineKind::kUnset;
};

// Lines with a text that a document may have, runs of blank lines counted as one. A tree takes hundreds of
// bytes for a line of three.
constexpr std::size_t kMaxLines = std::size_t{1} << 20;

std::string at_record(std::string_view message, const LineRecord& record) {
  return fmt::format("{} Line {}: {}", message, record.number, record.text);
}

std::string at_position(std::string_view message, const LineRecord& record, std::size_t position) {
  return fmt::format("{} Line {} column {}: {}", message, record.number, position + 1, record.text);
}

std::string at_column(std::string_view message, std::int32_t number, std::size_t column) {
  return fmt::format("{} Line {} column {}", message, number, column);
}

bool is_blank(std::string_view text) { return text.find_first_not_of(kBlanks) == std::string_view::npos; }

std::string_view without_trailing_blanks(std::string_view text) {
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// The next double quote at or behind `from` that does not follow a backslash.
std::size_t find_double_quote(std::string_view text, std::size_t from) {
  std::size_t at = text.find('"', from);
  while (at != std::string_view::npos && at > 0 && text[at - 1] == '\\') at = text.find('"', at + 1);
  return at;
}

struct Unquoted {
  std::size_t position = std::string_view::npos;
  int quoted_parts = 0;  // in front of the position
};

// Finds `wanted` outside double quotes. A position inside a quoted part moves on once for that part and is
// then only held against the parts that follow.
Unquoted find_unquoted(std::string_view text, char wanted) {
  Unquoted found{text.find(wanted), 0};
  std::size_t open = find_double_quote(text, 0);
  while (found.position != std::string_view::npos && open != std::string_view::npos &&
         open <= found.position) {
    const std::size_t close = find_double_quote(text, open + 1);
    if (close == std::string_view::npos) break;
    ++found.quoted_parts;
    if (found.position < close) found.position = text.find(wanted, found.position + 1);
    open = find_double_quote(text, close + 1);
  }
  return found;
}

bool starts_block_scalar(std::string_view text) {
  return !text.empty() && (text.front() == '|' || text.front() == '>');
}

// `text` starts a block scalar; what follows its first character must not make it something else.
void check_block_head(std::string_view text, const LineRecord& record) {
  if (text.size() == 1 || text[1] == '-' || text[1] == ' ' || text[1] == '\t') return;
  throw ParsingException(fmt::format("{} Line {}: {}", messages::kInvalidBlockScalar, record.number, text));
}

// Whether the quotes of a plain scalar are balanced. The character behind an opening quote isn't looked at,
// which is why an empty quoted text fails.
bool quotes_are_valid(std::string_view text) {
  if (text.empty()) return true;
  const bool quoted = text.front() == '"' || text.front() == '\'';
  if (quoted && text.size() == 1) return false;
  const char token = text.front();
  std::size_t position = quoted ? 1 : 0;
  while (position + 1 < text.size()) {
    position = text.find_first_of("\"'", position + 1);
    if (position == std::string_view::npos) break;
    if (text[position - 1] == '\\') continue;
    if (!quoted) return false;
    if (text[position] == token) return position + 1 == text.size();
  }
  return !quoted;
}

class Parser {
 public:
  explicit Parser(std::string_view source) : source_(source) {}

  void parse(Node& root) {
    root = Node();
    read_lines();
    classify();
    build(root);
  }

 private:
  // Splits the source into lines_, stripped of comments and indentation.
  void read_lines() {
    bool document_started = false;
    std::string_view rest = source_;
    for (std::int32_t number = 1; !rest.empty(); ++number) {
      const std::size_t newline = rest.find('\n');
      std::string_view line = rest.substr(0, newline);
      rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
      line = line.substr(0, find_unquoted(line, '#').position);
      if (line == "...") return;
      if (line == "---") {
        if (document_started) return;
        document_started = true;
        lines_.clear();
      } else {
        add_line(line, number);
      }
    }
  }

  void add_line(std::string_view line, std::int32_t number) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    for (std::size_t i = 0; i < line.size(); ++i) {
      const auto byte = static_cast<unsigned char>(line[i]);
      if (byte != '\t' && (byte < 32 || byte > 125)) {
        throw ParsingException(at_column(messages::kInvalidCharacter, number, i + 1));
      }
    }
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
      if (lines_.empty()) return;
      if (lines_.back().text.empty()) {
        ++lines_.back().lines;
      } else {
        lines_.push_back({{}, number, 0});
      }
      return;
    }
    if (lines_.size() >= kMaxLines)
      throw ParsingException(at_column(messages::kUnexpectedDocumentEnd, number, 1));
    const std::size_t tab = line.find('\t');
    if (tab < first) throw ParsingException(at_column(messages::kTabInOffset, number, tab));
    lines_.push_back({line.substr(first), number, static_cast<std::int32_t>(first)});
  }

  // Moves lines_ to records_, each with its kind, entries and values apart.
  void classify() {
    while (!lines_.empty()) {
      LineRecord record = lines_.front();
      lines_.pop_front();
      if (record.text == "-" || record.text.starts_with("- ")) {
        drop_empty_lines();
        record.kind = LineKind::kSequence;
        const std::size_t rest = record.text.find_first_not_of(kBlanks, 1);
        if (rest == std::string_view::npos) {
          records_.push_back(record);
          continue;
        }
        const LineRecord entry{{}, record.number, record.offset, 1, LineKind::kSequence};
        records_.push_back(entry);
        record = {record.text.substr(rest), record.number, record.offset + static_cast<std::int32_t>(rest)};
      }
      if (!classify_map_entry(record)) classify_scalar(record);
    }
    if (!records_.empty() && records_.back().kind != LineKind::kScalar) {
      throw ParsingException(at_record(messages::kUnexpectedDocumentEnd, records_.back()));
    }
  }

  // False if the record is no map entry.
  bool classify_map_entry(LineRecord record) {
    const Unquoted colon = find_unquoted(record.text, ':');
    if (colon.position == std::string_view::npos) return false;
    if (colon.quoted_parts > 1) throw ParsingException(at_record(messages::kIncorrectKey, record));
    const std::string_view key = read_key(record, colon);

    const std::size_t value_at = record.text.find_first_not_of(' ', colon.position + 1);
    const bool has_value = value_at != std::string_view::npos;
    const std::string_view value = has_value ? record.text.substr(value_at) : std::string_view();
    if (value == "-" || value.starts_with("- ")) {
      throw ParsingException(at_position(messages::kSequenceNotAllowed, record, value_at));
    }
    const bool block = starts_block_scalar(value);
    if (block) check_block_head(value, record);

    record.text = key;
    record.kind = LineKind::kMap;
    records_.push_back(record);
    drop_empty_lines();
    if (!has_value && !lines_.empty() && lines_.front().offset > record.offset) return true;
    const std::size_t distance = block ? 0 : has_value ? value_at : colon.position + 2;
    classify_scalar({value, record.number, record.offset + static_cast<std::int32_t>(distance)});
    return true;
  }

  std::string_view read_key(const LineRecord& record, const Unquoted& colon) {
    std::string_view key = without_trailing_blanks(record.text.substr(0, colon.position));
    if (key.empty()) throw ParsingException(at_record(messages::kMissingKey, record));
    if (colon.quoted_parts == 1) {
      if (key.size() < 2 || key.front() != '"' || key.back() != '"') {
        throw ParsingException(at_record(messages::kIncorrectKey, record));
      }
      key = key.substr(1, key.size() - 2);
    }
    if (key.find('\\') == std::string_view::npos) return key;
    std::string& unescaped = rewritten_.emplace_back();
    for (std::size_t i = 0; i < key.size(); ++i) {
      if (key[i] == '\\' && i + 1 < key.size()) ++i;
      unescaped.push_back(key[i]);
    }
    return unescaped;
  }

  // The record and the deeper lines behind it become one scalar.
  void classify_scalar(LineRecord record) {
    const std::int32_t parent_offset = records_.empty() ? record.offset : records_.back().offset;
    record.kind = LineKind::kScalar;
    records_.push_back(record);
    std::size_t end = records_.size();
    while (!lines_.empty() && (lines_.front().text.empty() || lines_.front().offset > parent_offset)) {
      records_.push_back(lines_.front());
      records_.back().kind = LineKind::kScalar;
      lines_.pop_front();
      if (!records_.back().text.empty()) end = records_.size();
    }
    while (records_.size() > end) records_.pop_back();
  }

  void drop_empty_lines() {
    while (!lines_.empty() && lines_.front().text.empty()) lines_.pop_front();
  }

  // A container whose entries are being read.
  struct Open {
    Node* node;
    LineKind kind;
    std::int32_t offset;
  };

  // Builds the tree of records_. A list of open containers stands for the recursion, because a hostile file
  // nests deeper than the stack of a host's thread may reach.
  void build(Node& root) {
    if (records_.empty()) return;
    std::vector<Open> open;
    Node* node = &root;
    for (;;) {
      while (records_[at_].kind != LineKind::kScalar) {
        if (open.size() == kMaxNesting) {
          throw ParsingException(at_record(messages::kIncorrectOffset, records_[at_]));
        }
        open.push_back({node, records_[at_].kind, records_[at_].offset});
        node = enter(open.back());
      }
      build_scalar(*node);
      while (!open.empty() && !continues(open.back())) open.pop_back();
      if (open.empty()) break;
      node = enter(open.back());
    }
    if (at_ < records_.size()) {
      throw InternalException(at_record(messages::kUnexpectedDocumentEnd, records_[at_]));
    }
  }

  // The child that the entry at_ names; at_ moves on to what the entry holds.
  Node* enter(const Open& container) {
    const LineRecord& entry = records_[at_];
    Node* const child = container.kind == LineKind::kSequence ? &container.node->push_back()
                                                              : &(*container.node)[std::string(entry.text)];
    ++at_;
    if (at_ == records_.size()) throw InternalException(at_record(messages::kUnexpectedDocumentEnd, entry));
    return child;
  }

  // Whether the record that follows is one more entry of that container.
  bool continues(const Open& container) const {
    if (at_ == records_.size() || records_[at_].offset < container.offset) return false;
    const LineRecord& next = records_[at_];
    if (next.offset > container.offset) throw ParsingException(at_record(messages::kIncorrectOffset, next));
    if (next.kind != container.kind) throw InternalException(at_record(messages::kDifferentEntry, next));
    return true;
  }

  bool at_scalar() const { return at_ < records_.size() && records_[at_].kind == LineKind::kScalar; }

  void build_scalar(Node& node) {
    const std::int32_t parent_offset = at_ == 0 ? 0 : records_[at_ - 1].offset;
    const LineRecord& head = records_[at_];
    std::string text;
    if (starts_block_scalar(head.text)) {
      check_block_head(head.text, head);
      ++at_;
      if (!at_scalar()) return;
      text = read_block(head.text, parent_offset);
    } else {
      text = read_plain(parent_offset);
    }
    if (!text.empty() && (text.front() == '"' || text.front() == '\'')) {
      text.pop_back();
      text.erase(0, 1);
    }
    node.make_scalar(std::move(text));
  }

  std::string read_plain(std::int32_t parent_offset) {
    const LineRecord& first = records_[at_];
    std::string text;
    for (;;) {
      const LineRecord& record = records_[at_];
      if (parent_offset != 0 && record.offset <= parent_offset) {
        throw ParsingException(at_record(messages::kIncorrectOffset, record));
      }
      // Only the value that an entry lacks starts a scalar with an empty text: it is no blank line.
      const bool missing = &record == &first && record.text.empty();
      if (is_blank(record.text) && !missing) {
        for (std::int32_t i = 1; i < record.lines; ++i) text += "\n ";
        text += '\n';
      } else {
        text += without_trailing_blanks(record.text);
      }
      ++at_;
      if (!at_scalar()) break;
      text += ' ';
    }
    if (!quotes_are_valid(text)) throw ParsingException(at_record(messages::kInvalidQuote, first));
    return text;
  }

  // The body of the block scalar with that head; at_ stands on its first record.
  std::string read_block(std::string_view head, std::int32_t parent_offset) {
    const bool folded = head.front() == '>';
    const std::int32_t body_offset = records_[at_].offset;
    if (body_offset <= parent_offset) {
      throw ParsingException(at_record(messages::kIncorrectOffset, records_[at_]));
    }
    std::string text;
    bool at_fold = false;  // the text ends with a blank that stands for a line end
    const auto end_line = [&] {
      if (at_fold) text.pop_back();
      text += '\n';
      at_fold = false;
    };
    while (at_scalar()) {
      const LineRecord& record = records_[at_];
      ++at_;
      if (is_blank(record.text)) {
        for (std::int32_t i = 0; i < record.lines; ++i) end_line();
        continue;
      }
      if (record.offset < body_offset) {
        throw ParsingException(at_record(messages::kIncorrectOffset, record));
      }
      if (folded && record.offset != body_offset) end_line();
      text.append(static_cast<std::size_t>(record.offset - body_offset), ' ');
      text += record.text;
      if (!at_scalar()) {
        if (head.size() == 1) text += '\n';
      } else {
        text += folded ? ' ' : '\n';
        at_fold = folded;
      }
    }
    return text;
  }

  std::string_view source_;
  std::deque<LineRecord> lines_;       // not classified yet
  std::deque<LineRecord> records_;     // classified
  std::deque<std::string> rewritten_;  // keys that differ from the source
  std::size_t at_ = 0;                 // the record of records_ that the tree is at
};

}  // namespace

Node::~Node() {
  while (std::unique_ptr<Node>* const last = last_child()) {
    std::unique_ptr<Node> node = std::move(*last);
    drop_last_child();
    take_apart(std::move(node));
  }
}

// Without recursion, for which a deep tree has too many levels, and without memory, which may have run out:
// on the way down a node's parent waits in the place of the child that is taken apart.
void Node::take_apart(std::unique_ptr<Node> node) {
  std::unique_ptr<Node> parent;
  while (node) {
    if (std::unique_ptr<Node>* const last = node->last_child()) {
      std::unique_ptr<Node> child = std::move(*last);
      *last = std::move(parent);
      parent = std::move(node);
      node = std::move(child);
      continue;
    }
    node = std::move(parent);
    if (!node) break;
    parent = std::move(*node->last_child());
    node->drop_last_child();
  }
}

std::unique_ptr<Node>* Node::last_child() {
  if (auto* sequence = std::get_if<Sequence>(&value_); sequence != nullptr && !sequence->empty()) {
    return &sequence->back();
  }
  if (auto* map = std::get_if<Map>(&value_); map != nullptr && !map->empty()) {
    return &std::prev(map->end())->second;
  }
  return nullptr;
}

void Node::drop_last_child() {
  if (auto* sequence = std::get_if<Sequence>(&value_)) sequence->pop_back();
  if (auto* map = std::get_if<Map>(&value_)) map->erase(std::prev(map->end()));
}

std::size_t Node::size() const {
  if (const auto* sequence = std::get_if<Sequence>(&value_)) return sequence->size();
  if (const auto* map = std::get_if<Map>(&value_)) return map->size();
  return 0;
}

const std::string& Node::text() const {
  static const std::string kEmpty;
  const auto* text = std::get_if<std::string>(&value_);
  return text != nullptr ? *text : kEmpty;
}

Node& Node::operator[](const std::string& key) {
  auto* map = std::get_if<Map>(&value_);
  if (map == nullptr) map = &value_.emplace<Map>();
  const auto place = map->lower_bound(key);
  if (place != map->end() && place->first == key) return *place->second;
  return *map->emplace_hint(place, key, std::make_unique<Node>())->second;
}

Node& Node::push_back() {
  auto* sequence = std::get_if<Sequence>(&value_);
  if (sequence == nullptr) sequence = &value_.emplace<Sequence>();
  return *sequence->emplace_back(std::make_unique<Node>());
}

Iterator Node::begin() {
  if (auto* sequence = std::get_if<Sequence>(&value_)) return Iterator(sequence->begin());
  if (auto* map = std::get_if<Map>(&value_)) return Iterator(map->begin());
  return {};
}

Iterator Node::end() {
  if (auto* sequence = std::get_if<Sequence>(&value_)) return Iterator(sequence->end());
  if (auto* map = std::get_if<Map>(&value_)) return Iterator(map->end());
  return {};
}

std::pair<const std::string&, Node&> Iterator::operator*() const {
  static const std::string kNoKey;
  if (const auto* place = std::get_if<SequencePlace>(&place_)) return {kNoKey, ***place};
  if (const auto* place = std::get_if<MapPlace>(&place_)) return {(*place)->first, *(*place)->second};
  throw std::logic_error("iterator over a node without children");
}

Iterator& Iterator::operator++() {
  if (auto* sequence_place = std::get_if<SequencePlace>(&place_)) ++*sequence_place;
  if (auto* map_place = std::get_if<MapPlace>(&place_)) ++*map_place;
  return *this;
}

Iterator Iterator::operator++(int) {
  Iterator before = *this;
  ++*this;
  return before;
}

bool Iterator::operator==(const Iterator& other) const {
  return place_.index() != 0 && place_ == other.place_;
}

void parse_text(Node& root, const char* text, std::size_t size) {
  Parser(std::string_view(text, size)).parse(root);
}

}  // namespace Yaml
