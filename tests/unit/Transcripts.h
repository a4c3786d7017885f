#pragma once

#include <string>

// Holds the transcript of a run against the file of that name in tests/unit/transcripts/. With CRD_RENEW in the
// environment the file is written anew, and the test fails all the same, so that nobody renews unseen.
void ExpectTranscript(const std::string& name, const std::string& transcript);
