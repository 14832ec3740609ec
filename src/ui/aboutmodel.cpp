#include "ui/aboutmodel.h"

#include "core/buildinfo.h"

using namespace Qt::StringLiterals;

AboutModel::AboutModel(QObject *parent)
    : AboutModel(QString::fromUtf8(BuildInfo::shortVersion), QString::fromUtf8(BuildInfo::buildNumber), parent)
{
}

AboutModel::AboutModel(const QString &appVersion, const QString &buildNumber, QObject *parent)
    : QObject(parent)
    , m_appVersion(appVersion.trimmed().isEmpty() ? u"1.0"_s : appVersion.trimmed())
    , m_buildNumber(buildNumber.trimmed().isEmpty() ? u"1"_s : buildNumber.trimmed())
{
}

QString AboutModel::versionText() const
{
    return u"Version "_s + m_appVersion + u" ("_s + m_buildNumber + u")"_s;
}
