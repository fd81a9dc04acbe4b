#include "apps/cli/report/RunInputs.h"

#include <fmt/format.h>
#include <nettle/sha2.h>

#include <array>
#include <fstream>
#include <map>
#include <optional>

#include "apps/cli/Preset.h"
#include "apps/cli/report/Markup.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {
namespace {

class Sha256 {
 public:
  Sha256() { sha256_init(&state_); }
  void add(std::string_view bytes) {
    sha256_update(&state_, bytes.size(), reinterpret_cast<const std::uint8_t*>(bytes.data()));
  }
  std::string hexadecimal() {
    std::array<std::uint8_t, SHA256_DIGEST_SIZE> digest{};
    sha256_digest(&state_, digest.size(), digest.data());
    std::string text;
    for (const std::uint8_t byte : digest) text += fmt::format("{:02x}", byte);
    return text;
  }

 private:
  sha256_ctx state_;
};

using Keys = std::map<std::string, std::string>;

// All values of a tree by where they stand. The reader bounds how deep a tree is.
void list_keys(const std::string& at, const Yaml::Node& node, Keys& keys) {
  if (node.kind() == Yaml::Kind::kScalar) {
    keys[at] = node.text();
    return;
  }
  std::size_t index = 0;
  node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
    const std::string name = node.kind() == Yaml::Kind::kSequence ? fmt::format("[{}]", index++) : key;
    const bool joins = at.empty() || name.starts_with("[");
    list_keys(at + (joins ? "" : ".") + name, child, keys);
  });
}

Keys keys_of(const std::string& settings) {
  Keys keys;
  try {
    ParamDocument document;
    if (param_document_open(document, settings)) list_keys("", document.root, keys);
  } catch (const std::exception&) {
    keys.clear();  // it was read a moment ago; what has become of it is no matter of the result
  }
  return keys;
}

std::vector<KeyDifference> differences(const Keys& here, const Keys& there) {
  std::vector<KeyDifference> found;
  for (const auto& [key, value] : here) {
    const auto other = there.find(key);
    if (other == there.end()) {
      found.push_back({key, value, ""});
    } else if (other->second != value) {
      found.push_back({key, value, other->second});
    }
  }
  for (const auto& [key, value] : there) {
    if (here.find(key) == here.end()) found.push_back({key, "", value});
  }
  return found;
}

}  // namespace

InputFact fact_of_file(const std::string& what, const std::string& path) {
  InputFact fact{what, path, -1, ""};
  std::ifstream file(path, std::ios::binary);
  if (!file) return fact;
  Sha256 hash;
  std::int64_t size = 0;
  std::vector<char> bytes(std::size_t{1} << 20);
  while (file) {
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const auto count = static_cast<std::size_t>(file.gcount());
    hash.add({bytes.data(), count});
    size += static_cast<std::int64_t>(count);
  }
  if (file.bad()) return fact;
  fact.bytes = size;
  fact.sha256 = hash.hexadecimal();
  return fact;
}

InputFact fact_of_text(const std::string& what, std::string_view text) {
  Sha256 hash;
  hash.add(text);
  return {what, "", static_cast<std::int64_t>(text.size()), hash.hexadecimal()};
}

NearestPreset nearest_preset(const std::string& settings) {
  const Keys here = keys_of(settings);
  std::optional<NearestPreset> nearest;
  for (const Preset& preset : presets()) {
    std::vector<KeyDifference> found = differences(here, keys_of(preset.text));
    if (!nearest || found.size() < nearest->differences.size()) nearest = {preset.name, std::move(found)};
  }
  return nearest.value_or(NearestPreset{});
}

std::string shell_quoted(std::string_view word) {
  constexpr std::string_view kPlain =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-./:=,+@%";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string_view::npos) return std::string(word);
  std::string quoted;
  if (printable(word) == word) {
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return fmt::format("'{}'", quoted);
  }
  for (const char c : word) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\'' || c == '\\') {
      quoted += fmt::format("\\{}", c);
    } else {
      quoted += byte >= 0x20 && byte < 0x7f ? std::string(1, c) : fmt::format("\\x{:02x}", byte);
    }
  }
  return fmt::format("$'{}'", quoted);
}

}  // namespace twintrue::cli
