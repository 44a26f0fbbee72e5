// JSON for programs: numbers are numbers, members stand in the order in which they were added.
#include "print/Json.h"

#include <cmath>

#include "print/Text.h"
#include "print/Time.h"

namespace kivmp4::cli {

std::string Dump(const Json& json) { return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n"; }

Json Seconds(int64_t ticks) {
    return std::round(static_cast<double>(ticks) / static_cast<double>(kTicksPerSecond) * 1e6) / 1e6;
}

void AddFile(Json& json, const std::string& name) {
    json["file"] = name;
    try {
        (void)json["file"].dump();
    } catch (const Json::type_error&) {
        json["file_bytes"] = Hex(reinterpret_cast<const uint8_t*>(name.data()), name.size());
    }
}

}  // namespace kivmp4::cli
