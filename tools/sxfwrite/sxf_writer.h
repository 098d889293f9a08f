// Builds swatch exchange files from a JSON description, including files with
// deliberate faults, for samples, tests, fuzz seeds and benchmarks.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace sxfwrite {

// The JSON shape, as the tool's --help shows it.
extern const char kDescriptionHelp[];

// Encodes `description` into *out; false with a message in *error when the
// description does not have the documented shape.
bool BuildSxf(const nlohmann::json& description, std::string* out, std::string* error);

}  // namespace sxfwrite
