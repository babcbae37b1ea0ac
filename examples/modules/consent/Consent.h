#pragma once

// The consent module: asks the person who uses the application whether hits may be sent.
//
// An application may come with this module or without it, so it is loaded at run time (dlopen) and
// reached by these names (dlsym). Loaded before the core starts, it makes the core hold all hits
// until the person has answered. It must not be unloaded.

extern "C" {

/// The person agreed: hits go, those that wait with `text` appended to their body (or nullptr).
void consentAccept(const char* text);
/// The person refused, or changed their mind.
void consentRefuse();

}  // extern "C"
