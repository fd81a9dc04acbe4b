#pragma once

// A strict, line-oriented reader of a small subset of YAML: block maps, block sequences, scalars, block
// scalars, comments, one document. What lies outside the subset (flow maps, anchors, tags, sequences nested
// on one line) reads as plain text.
//
// Thread-safety: a tree belongs to one thread at a time; different trees are independent.

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace Yaml {

class Exception : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// An invariant of the reader broke: lines that the classification let through form no tree.
class InternalException : public Exception {
 public:
  using Exception::Exception;
};

// The input is wrong.
class ParsingException : public Exception {
 public:
  using Exception::Exception;
};

// How the texts of the exceptions begin; where they arose follows.
namespace messages {
inline constexpr std::string_view kInvalidCharacter = "Invalid character found.";
inline constexpr std::string_view kMissingKey = "Missing key.";
inline constexpr std::string_view kIncorrectKey = "Incorrect key.";
inline constexpr std::string_view kTabInOffset = "Tab found in offset.";
inline constexpr std::string_view kSequenceNotAllowed = "Sequence entries are not allowed in this context.";
inline constexpr std::string_view kInvalidBlockScalar = "Invalid block scalar.";
inline constexpr std::string_view kInvalidQuote = "Invalid quote.";
inline constexpr std::string_view kIncorrectOffset = "Incorrect offset.";
inline constexpr std::string_view kUnexpectedDocumentEnd = "Unexpected document end.";
inline constexpr std::string_view kDifferentEntry = "Different entry is not allowed in this context.";
}  // namespace messages

enum class Kind : std::int32_t { kNone = 0, kSequence = 1, kMap = 2, kScalar = 3 };

// Containers (maps and sequences) inside one another, the root counted. Deeper documents are refused, so
// recursion over a parsed tree is bounded. Reading a document and taking its tree apart don't recurse.
inline constexpr int kMaxNesting = 1000;

class Iterator;

// One node of the tree; owns its children. A reference to a child stays valid until its parent changes kind
// or goes.
class Node {
 public:
  Node() = default;
  Node(Node&&) noexcept = default;
  Node& operator=(Node&&) noexcept = default;
  ~Node();

  Kind kind() const { return static_cast<Kind>(value_.index()); }
  // Children of a Sequence or a Map, else 0.
  std::size_t size() const;

  // Empty for every kind but Scalar.
  const std::string& text() const;
  // Whatever the node held goes; it becomes a Scalar.
  void make_scalar(std::string text) { value_.emplace<std::string>(std::move(text)); }

  // The child of that key; an absent key becomes a child of kind None. A node that is no Map becomes an empty
  // one first.
  Node& operator[](const std::string& key);
  // Appends a child of kind None. A node that is no Sequence becomes an empty one first.
  Node& push_back();

  // Children in order: by index, or by key in byte order. See Iterator for Scalar and None.
  Iterator begin();
  Iterator end();

  // Calls visit(const std::string& key, const Node& child) for each child in order; the key is empty in a
  // Sequence. Does nothing for Scalar and None.
  template <typename Visit>
  void for_each_child(Visit&& visit) const {
    if (const auto* sequence = std::get_if<Sequence>(&value_)) {
      for (const auto& child : *sequence) visit(std::string(), static_cast<const Node&>(*child));
    } else if (const auto* map = std::get_if<Map>(&value_)) {
      for (const auto& [key, child] : *map) visit(key, static_cast<const Node&>(*child));
    }
  }

 private:
  friend class Iterator;
  using Sequence = std::vector<std::unique_ptr<Node>>;
  using Map = std::map<std::string, std::unique_ptr<Node>>;

  static void take_apart(std::unique_ptr<Node> node);
  // Null if there is none.
  std::unique_ptr<Node>* last_child();
  void drop_last_child();

  std::variant<std::monostate, Sequence, Map, std::string> value_;  // alternatives in the order of Kind
};

// Walks the children of a Sequence or a Map. Iterators over anything else never compare equal, so a loop over
// such a node would not end: test the kind first. Dereferencing one throws std::logic_error.
class Iterator {
 public:
  Iterator() = default;

  std::pair<const std::string&, Node&> operator*() const;
  Iterator& operator++();
  Iterator operator++(int);
  bool operator==(const Iterator& other) const;

 private:
  friend class Node;
  using SequencePlace = Node::Sequence::iterator;
  using MapPlace = Node::Map::iterator;
  using Place = std::variant<std::monostate, SequencePlace, MapPlace>;
  explicit Iterator(Place place) : place_(place) {}

  Place place_;
};

// Parses the first document of the text into `root`, which is emptied first. What follows the document is not
// looked at. Throws ParsingException or InternalException; `root` then keeps what was built by then. More
// than 2^20 lines with a text are refused.
void parse_text(Node& root, const char* text, std::size_t size);

}  // namespace Yaml
