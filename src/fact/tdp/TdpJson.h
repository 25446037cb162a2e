#pragma once
// JSON helpers shared by the telemetry producer's classes: one way to parse
// outside text (never recursive, so arbitrarily deep input cannot exhaust the
// stack) and the ASCII upper-casing used for signal names.
//
// Stateless; callable from any thread.

#include <rapidjson/document.h>

#include <string>

namespace fact {
namespace tdp {

// Parses `text` into a DOM whose parse stack starts at 1024 bytes. Check
// HasParseError() on the result.
rapidjson::Document parseJson(const std::string& text);

// The text with ASCII letters upper-cased byte by byte; other bytes unchanged.
std::string upperCase(std::string text);

// The compact JSON text of a value.
std::string writeJson(const rapidjson::Value& value);

}  // namespace tdp
}  // namespace fact
