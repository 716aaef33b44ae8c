#pragma once
// Whether the folder given to the server can be served at all.

#include <filesystem>
#include <string>

namespace orvane_tamsel::server {

// Why `root` cannot be served, in a sentence naming the path; empty when it can.
std::string repository_problem(const std::filesystem::path& root);

}  // namespace orvane_tamsel::server
