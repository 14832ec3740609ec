#pragma once

#include "accountfixture.h"
#include "ui/desktopactions.h"

#include <QList>
#include <QUrl>

// The browser, as far as the sign-in screen uses it: the pages it was asked to open.
class BrowserRecorder final : public DesktopActions
{
public:
    void openUrl(const QUrl &url) override { openedUrls.append(url); }
    [[nodiscard]] bool canOpenPrivacySettings() const override { return false; }
    void openPrivacySettings() override { }

    QList<QUrl> openedUrls;
};

// The account services the sign-in screens sit on, and the browser they open pages in.
class SignInFixture : public AccountFixture
{
protected:
    BrowserRecorder m_browser;
};
