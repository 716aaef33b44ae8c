#pragma once
// The tests of a file as the tools list them, {"tests": [{"path", "reason"}...], "total_count"},
// so that a check reads the ranking and the reasons together.

#include <string>

#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/tool_handlers/client_text.h"

inline orvane_tamsel::index::Json tests_answer(orvane_tamsel::index::Repository& repository,
                                               const std::string& path) {
  auto found = repository.get_tests_for(path);
  return {{"tests", orvane_tamsel::tool_handlers::test_rows(found)},
          {"total_count", found.total_count}};
}
