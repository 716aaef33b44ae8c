#pragma once
// The keys of a JSON object in their order, as the checks of an answer's shape compare them.

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace test_json {

inline std::vector<std::string> keys(const nlohmann::ordered_json& map) {
  std::vector<std::string> out;
  for (const auto& [k, v] : map.items()) out.push_back(k);
  return out;
}

}  // namespace test_json
