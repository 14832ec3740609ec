#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

class FakeClock;
class LogManager;
class Settings;

// What every entry point shares across inputs: a scratch folder, a clock, settings and an event log.
// The objects live for the whole process, as they do in the application.
namespace FuzzEnvironment {
// A folder of its own below the process's scratch folder, emptied on each call.
[[nodiscard]] QString freshDirectory(const QString &name);
[[nodiscard]] FakeClock *clock();
// Users' lists are set, so label normalisation has something to match.
[[nodiscard]] Settings *settings();
[[nodiscard]] LogManager *logManager();
// Runs queued work (deferred log entries) so nothing piles up between inputs.
void drainEvents();
[[nodiscard]] QByteArray bytes(const uint8_t *data, size_t size);
// Aborts with the reason, so the fuzzer keeps the input and the replay test fails.
[[noreturn]] void fail(const char *what);
inline void require(bool condition, const char *what)
{
    if (!condition) {
        fail(what);
    }
}
} // namespace FuzzEnvironment
