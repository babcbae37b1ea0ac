#pragma once

#include <string>
#include <vector>

#include "soak/History.h"

/// The number of the hit that a URL of the soak stands for; 0 for any other text.
HitID hitOf(std::string_view url);

/// The hits in the core's offline hits file, and in one that a restore has put aside, below a
/// container directory.
std::vector<HitID> hitsOnFile(const std::string& container);
