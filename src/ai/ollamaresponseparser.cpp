#include "ai/ollamaresponseparser.h"

#include "ai/jsonparseerror.h"
#include "ai/llmerror.h"

#include <QJsonValue>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>

#include <optional>

using namespace Qt::StringLiterals;

namespace {
// \s must mean Unicode white space, as the models write no-break and other exotic blanks.
QRegularExpression unicodeRegex(const QString &pattern)
{
    return QRegularExpression(pattern, QRegularExpression::UseUnicodePropertiesOption);
}

QString removeAll(QString text, const QRegularExpression &expression)
{
    if (expression.isValid()) {
        text.remove(expression);
    }
    return text;
}

// QString::trimmed() covers the Unicode white space and line ends.
QString stripMarkdownCodeFence(const QString &input)
{
    static const QRegularExpression opening = unicodeRegex(u"^```(?:json)?\\s*"_s);
    static const QRegularExpression closing = unicodeRegex(u"\\s*```$"_s);
    QString text = input.trimmed();
    if (text.startsWith(u"```"_s)) {
        text = removeAll(removeAll(text, opening), closing);
    }
    return text.trimmed();
}

QString stripThinkTags(const QString &input)
{
    static const QRegularExpression reasoning
        = unicodeRegex(u"(?is)"_s + QRegularExpression::escape(u"<redacted_reasoning>"_s) + u"[\\s\\S]*?"_s
            + QRegularExpression::escape(u"</redacted_reasoning>"_s));
    static const QRegularExpression think
        = unicodeRegex(u"(?is)<think\\s*>[\\s\\S]*?"_s + QRegularExpression::escape(u"</think>"_s));
    return removeAll(removeAll(input, reasoning), think).trimmed();
}

std::optional<QString> sliceBetweenBraces(const QString &text)
{
    const qsizetype open = text.indexOf(u'{');
    const qsizetype close = text.lastIndexOf(u'}');
    if (open >= 0 && close >= 0 && open < close) {
        return text.mid(open, close - open + 1);
    }
    return std::nullopt;
}

QStringList jsonCandidates(const QString &text)
{
    const QString t = text.trimmed();
    QStringList candidates {t};
    const QString f = stripMarkdownCodeFence(t);
    if (f != t) {
        candidates.append(f);
    }
    const QString k = stripThinkTags(t);
    if (k != t) {
        candidates.append(k);
    }
    const QString kf = stripMarkdownCodeFence(k);
    if (kf != k) {
        candidates.append(kf);
    }
    const QStringList readings = candidates;
    for (const QString &reading : readings) {
        if (const std::optional<QString> slice = sliceBetweenBraces(reading)) {
            candidates.append(*slice);
        }
    }
    // Duplicates go; the order of trial is not meaningful, so keep the first of each.
    candidates.removeDuplicates();
    return candidates;
}

std::optional<QString> stringValue(const QJsonValue &value)
{
    if (!value.isString()) {
        return std::nullopt;
    }
    const QString trimmed = value.toString().trimmed();
    if (trimmed.isEmpty()) {
        return std::nullopt;
    }
    return trimmed;
}

bool hasText(const QJsonValue &value)
{
    return value.isString() && !value.toString().trimmed().isEmpty();
}
} // namespace

QString OllamaResponseParser::extractAssistantContent(const QByteArray &body)
{
    const QJsonValue envelope = parseJsonValue(body);
    if (!envelope.isObject()) {
        throw LLMError::invalidResponse(u"Invalid Ollama response envelope"_s);
    }
    const QJsonValue message = envelope.toObject().value(u"message"_s);
    if (!message.isObject()) {
        throw LLMError::invalidResponse(u"Empty response from local model"_s);
    }
    const QJsonValue content = message.toObject().value(u"content"_s);
    if (hasText(content)) {
        return content.toString();
    }
    const QJsonValue thinking = message.toObject().value(u"thinking"_s);
    if (hasText(thinking)) {
        return thinking.toString();
    }
    throw LLMError::invalidResponse(u"Empty response from local model"_s);
}

QJsonObject OllamaResponseParser::parseJSONObject(const QString &text)
{
    const QStringList candidates = jsonCandidates(text);
    if (candidates.isEmpty()) {
        throw LLMError::invalidResponse(u"Day summary response not valid JSON"_s);
    }
    std::optional<QString> lastError;
    for (const QString &candidate : candidates) {
        try {
            const QJsonValue value = parseJsonValue(candidate.toUtf8());
            if (value.isObject()) {
                return value.toObject();
            }
            if (value.isString()) {
                // Some models answer with their object encoded once more as a JSON string.
                const QJsonValue inner = parseJsonValue(value.toString().toUtf8());
                if (inner.isObject()) {
                    return inner.toObject();
                }
            }
        } catch (const JsonParseError &error) {
            lastError = error.errorDescription();
        }
    }
    if (lastError) {
        throw LLMError::invalidResponse(u"Day summary response not valid JSON: "_s + *lastError);
    }
    throw LLMError::invalidResponse(u"Day summary response not valid JSON"_s);
}

QString OllamaResponseParser::parseSummary(const QJsonObject &object)
{
    std::optional<QString> summary = stringValue(object.value(u"summary"_s));
    if (!summary) {
        const QJsonValue analysis = object.value(u"analysis"_s);
        if (analysis.isObject()) {
            summary = stringValue(analysis.toObject().value(u"summary"_s));
        }
    }
    if (!summary) {
        return QString();
    }
    return normalizeSummaryText(*summary);
}

QString OllamaResponseParser::normalizeSummaryText(const QString &input)
{
    static const QRegularExpression blanks = unicodeRegex(u"\\s+"_s);
    static const QRegularExpression runTogether = unicodeRegex(u"([.!?])([A-Za-z])"_s);
    QString text = input;
    text.replace(QChar(0x00A0), u' ');
    text.replace(blanks, u" "_s);
    text = text.trimmed();
    text.replace(runTogether, u"\\1 \\2"_s);
    return text;
}
