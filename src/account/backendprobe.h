#pragma once

#include <QCoroTask>
#include <QUrl>

#include <chrono>

// Whether anything accepts a connection at an http:// URL's host and port: enough to tell a
// server that runs from one that was never started. On this machine a closed port refuses at
// once; the time-out bounds a host that does not answer at all.
namespace BackendProbe {
[[nodiscard]] QCoro::Task<bool> acceptsConnections(QUrl url, std::chrono::milliseconds timeout);
} // namespace BackendProbe
