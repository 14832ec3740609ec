#pragma once

#include <QString>
#include <QUrl>

// Texts that describe the two model options, shared by the settings tab and the setup.
namespace ModelChoice {
inline const QString recommendedModel = QStringLiteral("qwen3-vl:2b");
// The detail line of an option; empty for a name outside the two options.
[[nodiscard]] QString detail(const QString &name);
// The name, then " · " and the detail when there is one.
[[nodiscard]] QString pickerLabel(const QString &name);
[[nodiscard]] QString pullCommand(const QString &name);
// The product site's installation guide.
[[nodiscard]] QUrl installationDocsURL();
} // namespace ModelChoice
