#include "ui/launchatloginmodel.h"

#include "ui/loginitem.h"

LaunchAtLoginModel::LaunchAtLoginModel(LoginItem *loginItem, bool compact, QObject *parent)
    : QObject(parent), m_loginItem(loginItem), m_compact(compact), m_launchAtLogin(loginItem->isEnabled())
{
}

void LaunchAtLoginModel::setLaunchAtLogin(bool value)
{
    if (m_launchAtLogin == value) {
        return;
    }
    assign(value);
    const bool done = value ? m_loginItem->registerItem() : m_loginItem->unregisterItem();
    if (!done) {
        assign(!value);
    }
}

void LaunchAtLoginModel::appear()
{
    assign(m_loginItem->isEnabled());
}

void LaunchAtLoginModel::assign(bool value)
{
    if (m_launchAtLogin == value) {
        return;
    }
    m_launchAtLogin = value;
    Q_EMIT launchAtLoginChanged();
}
