#include "ui/modelchoice.h"

#include "core/buildinfo.h"

using namespace Qt::StringLiterals;

QString ModelChoice::detail(const QString &name)
{
    if (name == u"qwen3-vl:2b"_s) {
        return u"Recommended · ~2 GB RAM"_s;
    }
    if (name == u"qwen3-vl:4b"_s) {
        return u"16 GB+ RAM · a GPU helps · ~4 GB"_s;
    }
    return {};
}

QString ModelChoice::pickerLabel(const QString &name)
{
    const QString text = detail(name);
    return text.isEmpty() ? name : name + u" · "_s + text;
}

QString ModelChoice::pullCommand(const QString &name)
{
    return u"ollama pull "_s + name;
}

QUrl ModelChoice::installationDocsURL()
{
    static const QUrl url(QString::fromUtf8(BuildInfo::webOrigin) + u"/docs/installation"_s);
    return url;
}
