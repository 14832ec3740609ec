#pragma once

#include "monitoring/visiblewindowsource.h"

#include <QStringList>

class Settings;

// The windows the user does not want in a screenshot: applications by id, and words in titles.
class PrivacyExclusions
{
public:
    // Password managers packaged in Debian, by the ids their windows really carry: KeePassXC
    // (X11 class KeePassXC, Wayland org.keepassxc.KeePassXC), KeePass 2 (KeePass2) and GNOME's
    // Passwords and Keys (seahorse on both).
    static inline const QStringList defaultApplications {
        QStringLiteral("KeePassXC"), QStringLiteral("KeePass2"), QStringLiteral("seahorse")};
    // What private browser windows put in their titles.
    static inline const QStringList defaultTitleWords {
        QStringLiteral("Private Browsing"), QStringLiteral("Incognito"), QStringLiteral("InPrivate")};

    PrivacyExclusions(QStringList applications, QStringList titleWords);
    // The lists as the user left them; the defaults until the user edits them.
    [[nodiscard]] static PrivacyExclusions fromSettings(const Settings &settings);

    [[nodiscard]] bool isEmpty() const { return m_applications.isEmpty() && m_titleWords.isEmpty(); }
    [[nodiscard]] bool excludes(const VisibleWindow &window) const;
    [[nodiscard]] bool excludesAny(const QList<VisibleWindow> &windows) const;

private:
    QStringList m_applications;
    QStringList m_titleWords;
};
