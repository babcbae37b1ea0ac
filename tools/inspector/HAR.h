#pragma once

#include <functional>
#include <string>

#include "inspector/Hit.h"

// HTTP Archive 1.2. What a hit has beyond it is in members that begin with an underscore.

/// What stands before the entries, which are separated by commas, and behind them.
std::string harHead();
std::string harTail();
std::string harEntryOf(const Hit& hit);

/// Hands over the hit of each entry that can be read. False if the text is no archive.
bool readHAR(const std::string& text, const std::function<void(Hit)>& onHit);
