#pragma once

#include <string>

#include "soak/History.h"

/// A number that looks random and is the same for the same arguments.
std::uint64_t scatter(std::uint64_t seed, std::uint64_t a, std::uint64_t b);

/// What to do about a hit that comes for the nth time, from 0.
Deed chooseDeed(std::uint64_t seed, HitID hit, unsigned time, bool isLast);
/// Whether to reset a new connection before anything is read from it.
bool isUnwelcome(std::uint64_t seed, unsigned connection);

/// The answer to a hit, entire, with what the deed puts behind it at once.
std::string answerTo(HitID hit, Deed deed);
/// A configuration, as an answer.
std::string configurationWith(unsigned version);
/// What is sent behind it later, when nobody asked; empty where the connection ends instead.
std::string lateBytes(Deed deed);
