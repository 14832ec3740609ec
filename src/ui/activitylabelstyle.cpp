#include "ui/activitylabelstyle.h"

#include "ui/tamlotheme.h"

#include <QStringList>

#include <array>

using namespace Qt::StringLiterals;

namespace {
struct KeywordGroup
{
    QStringList keywords;
    QColor (*color)();
};
} // namespace

QColor ActivityLabelStyle::color(const QString &label)
{
    // Order matters: the first group with a hit decides, so "Development research" is blue.
    static const std::array<KeywordGroup, 9> groups = {{
        {{u"coding"_s, u"development"_s}, &TamloTheme::blue},
        {{u"browsing"_s, u"research"_s}, &TamloTheme::orange},
        {{u"multimedia"_s, u"entertainment"_s}, &TamloTheme::purple},
        {{u"data"_s, u"docs"_s, u"reading"_s}, &TamloTheme::teal},
        {{u"social"_s}, &TamloTheme::pink},
        {{u"content creation"_s, u"writing"_s}, &TamloTheme::cyan},
        {{u"system"_s, u"infra"_s}, &TamloTheme::gray},
        {{u"ai"_s}, &TamloTheme::indigo},
        {{u"communication"_s, u"messaging"_s}, &TamloTheme::green},
    }};
    const QString lower = label.toLower();
    for (const KeywordGroup &group : groups) {
        for (const QString &keyword : group.keywords) {
            if (lower.contains(keyword)) {
                return group.color();
            }
        }
    }
    return TamloTheme::secondary();
}
