#pragma once

#include "tour/Tour.h"

// The chapters, in the order in which they are told.

void holdHitsForConsent(Tour& tour);
void learnUserAgent(Tour& tour);
void startWithConsent(Tour& tour);
void tellFailuresApart(Tour& tour);
void blockHits(Tour& tour);
void followConfiguration(Tour& tour);
void loseNetwork(Tour& tour);
void waitForUserAgent(Tour& tour);
void restart(Tour& tour);
void stop(Tour& tour);

constexpr Chapter kChapters[] = {
    {"The consent module is here, so hits wait", holdHitsForConsent},
    {"The user agent becomes known", learnUserAgent},
    {"The person agrees: hits leave, in order", startWithConsent},
    {"Refused, failed, answered", tellFailuresApart},
    {"The debug switch blocks hits", blockHits},
    {"A configuration follows the collector", followConfiguration},
    {"The network goes away and comes back", loseNetwork},
    {"Hits that wait for the user agent", waitForUserAgent},
    {"The application ends, and starts again", restart},
    {"The person refuses", stop},
};
