#pragma once

#include <cstddef>
#include <cstdint>

// One function per kind of outside input, shared by the libFuzzer executables and the replay test
// that runs every kept input through the same code. Each returns 0; a broken promise aborts.
namespace FuzzEntry {
// snapshots.json as found on disk.
int snapshotsFile(const uint8_t *data, size_t size);
// daily-reports.json as found on disk.
int dailyReportsFile(const uint8_t *data, size_t size);
// credentials.plist as found on disk, through the stored session it restores.
int credentialsFile(const uint8_t *data, size_t size);
// A day-summary reply body.
int ollamaResponseParser(const uint8_t *data, size_t size);
// A reply to a screenshot analysis, served over HTTP. The first byte picks the status.
int screenshotReply(const uint8_t *data, size_t size);
// A backend reply, served over HTTP. The first byte picks the request (sign-in, status, upload),
// the second the status.
int backendReply(const uint8_t *data, size_t size);
// An opened URL, as the desktop hands it to the running instance.
int urlRouting(const uint8_t *data, size_t size);

struct Target
{
    const char *name; // the folder of its corpus under fuzz/corpus
    int (*run)(const uint8_t *data, size_t size);
};

inline constexpr Target targets[] = {
    {"snapshots_file", snapshotsFile},
    {"daily_reports_file", dailyReportsFile},
    {"credentials_file", credentialsFile},
    {"ollama_response_parser", ollamaResponseParser},
    {"screenshot_reply", screenshotReply},
    {"backend_reply", backendReply},
    {"url_routing", urlRouting},
};
} // namespace FuzzEntry
