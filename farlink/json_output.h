#pragma once

#include <nlohmann/json.hpp>

// Answers for programs.
namespace farlink {

// Keeps the order in which the fields are written, so that equal answers are equal text.
using Json = nlohmann::ordered_json;

// To standard output. Bytes that are no UTF-8 are replaced.
void PrintJson(const Json& value);      // over several lines, for one answer
void PrintJsonLine(const Json& value);  // in one line, for a stream

}  // namespace farlink
