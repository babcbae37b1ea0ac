#pragma once

#include <functional>
#include <string>

#include "inspector/Hit.h"

// Hits as commands of curl, each below a comment with its time and what became of it.

/// Ends without a line break.
std::string curlOf(const Hit& hit);

/// Hands over the hit of each command. Reads what curlOf() writes, and such commands as browsers
/// copy; options that curlOf() does not use are passed over. False, and no hit, if a quote has no
/// end.
bool readCurl(const std::string& text, const std::function<void(Hit)>& onHit);
