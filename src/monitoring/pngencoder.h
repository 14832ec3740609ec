#pragma once

#include <QByteArray>
#include <QImage>

#include <optional>

// PNG for the model, written for speed: one fixed row filter and run-length deflate at level 1.
// A writer that tries every filter on every row spends twice the time on a screen of text for a
// file a quarter smaller, and the file is sent once over loopback and dropped. Lossless; any
// transparency is dropped, since a screen has none.
namespace PngEncoder {
[[nodiscard]] std::optional<QByteArray> encode(const QImage &image);
} // namespace PngEncoder
