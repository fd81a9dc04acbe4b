#include "apps/cli/commands/InspectParams.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/RunOptions.h"
#include "apps/cli/commands/InspectJson.h"
#include "apps/cli/commands/InspectOutput.h"
#include "apps/cli/commands/InspectSource.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {
namespace {

Json tree_of(const Yaml::Node& node) {
  switch (node.kind()) {
    case Yaml::Kind::kScalar:
      return Json(text_of_bytes(node.text()));
    case Yaml::Kind::kSequence: {
      Json array = Json::array();
      node.for_each_child(
          [&](const std::string&, const Yaml::Node& child) { array.push_back(tree_of(child)); });
      return array;
    }
    case Yaml::Kind::kMap: {
      Json object = Json::object();
      // Appended without a look for an older key: there is none, and the look would take long in large maps.
      auto& fields = object.get_ref<Json::object_t&>();
      node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
        fields.push_back({text_of_bytes(key), tree_of(child)});
      });
      return object;
    }
    case Yaml::Kind::kNone:
      break;
  }
  return Json(nullptr);
}

}  // namespace

void inspect_params(const ParamsArguments& arguments) {
  std::vector<NamedPath> inputs;
  add_input(inputs, "SOURCE", arguments.source);
  DocumentTarget target(arguments.out, inputs);
  const InspectSource source(arguments.source);
  ParamDocument document;
  std::optional<DocumentError> error;
  {
    const MessagesToErrors redirected;
    error = open_document(source, document);
  }
  Json json;
  json["loaded"] = document.loaded;
  json["error"] = nullptr;
  if (error) json["error"] = {{"class", error->type}, {"message", text_of_bytes(error->message)}};
  json["tree"] = document.loaded ? tree_of(document.root) : Json(nullptr);
  target.write(write_json(json));
}

}  // namespace twintrue::cli
