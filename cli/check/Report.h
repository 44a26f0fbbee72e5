// Writes findings as text for people and as JSON for programs.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "check/Check.h"

namespace kivmp4::check {

/// One line for each finding, each hint once, and a line that counts. `name` is escaped.
std::string Text(const std::string& name, const std::vector<Finding>& findings);

/// One element of "files" in schema kivmp4.check/1. `name` is valid UTF-8.
nlohmann::ordered_json Json(const std::string& name, const std::vector<Finding>& findings);

/// The table of rules.
std::string RulesText();
nlohmann::ordered_json RulesJson();

/// @return whether the findings make the command end with 1: errors, with `strict` warnings too
bool Fails(const std::vector<Finding>& findings, bool strict);

}  // namespace kivmp4::check
