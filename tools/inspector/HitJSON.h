#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "inspector/Hit.h"

// A hit as one line of JSON: what the page is sent, what is recorded, and what is exported as JSON
// lines. A second line with the sequence, and without a URL, tells what has changed since.

/// Without line breaks, and without one at its end.
std::string jsonOf(const Hit& hit);
/// The outcome and the pin alone.
std::string changeOf(const Hit& hit);

/// Null if it is none: without a URL, a method or a time, or with members of other types.
std::optional<Hit> hitOf(const nlohmann::json& json);
/// A member that is a number from 0 to a billion; 0 if it is none.
int smallNumber(const nlohmann::json& json, const char* name);
/// Sets what the change tells. Does nothing with what is none.
void apply(const nlohmann::json& change, Hit& hit);
