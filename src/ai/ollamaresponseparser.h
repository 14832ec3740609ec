#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

// Reads the narrative out of a day-summary reply, whatever fences, reasoning or prose the model
// wrapped around its JSON.
namespace OllamaResponseParser {
// The assistant's text: "content", or "thinking" when "content" is blank. Raises JsonParseError
// or LLMError::invalidResponse.
[[nodiscard]] QString extractAssistantContent(const QByteArray &body);
// The first reading of the text that decodes to an object; raises LLMError::invalidResponse.
[[nodiscard]] QJsonObject parseJSONObject(const QString &text);
// "summary", else "analysis"."summary", normalised; empty when neither holds text.
[[nodiscard]] QString parseSummary(const QJsonObject &object);
// One line, single blanks, and a blank after a sentence end run into the next word.
[[nodiscard]] QString normalizeSummaryText(const QString &text);
} // namespace OllamaResponseParser
