// The type of JSON documents by name alone, for headers: its definition takes a compiler seconds.
#pragma once

#include <nlohmann/json_fwd.hpp>

namespace kivmp4::cli {

using Json = nlohmann::ordered_json;

}  // namespace kivmp4::cli
