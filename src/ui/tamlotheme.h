#pragma once

#include <QColor>
#include <QObject>
#include <QtQml/qqmlregistration.h>

// The one table of colours: the product palette and close equivalents of the desktop's named
// system colours. Stateless; QML reads it as a singleton, C++ through the static functions.
class TamloTheme : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_PROPERTY(QColor brandDark READ brandDark CONSTANT)
    Q_PROPERTY(QColor brandGreen READ brandGreen CONSTANT)
    Q_PROPERTY(QColor brandLime READ brandLime CONSTANT)
    Q_PROPERTY(QColor brandBlue READ brandBlue CONSTANT)
    Q_PROPERTY(QColor brandText READ brandText CONSTANT)
    Q_PROPERTY(QColor brandBtnBorder READ brandBtnBorder CONSTANT)
    Q_PROPERTY(QColor surfaceWindow READ surfaceWindow CONSTANT)
    Q_PROPERTY(QColor surfaceControl READ surfaceControl CONSTANT)
    Q_PROPERTY(QColor surfaceField READ surfaceField CONSTANT)
    Q_PROPERTY(QColor blue READ blue CONSTANT)
    Q_PROPERTY(QColor orange READ orange CONSTANT)
    Q_PROPERTY(QColor purple READ purple CONSTANT)
    Q_PROPERTY(QColor teal READ teal CONSTANT)
    Q_PROPERTY(QColor pink READ pink CONSTANT)
    Q_PROPERTY(QColor cyan READ cyan CONSTANT)
    Q_PROPERTY(QColor gray READ gray CONSTANT)
    Q_PROPERTY(QColor indigo READ indigo CONSTANT)
    Q_PROPERTY(QColor green READ green CONSTANT)
    Q_PROPERTY(QColor red READ red CONSTANT)
    Q_PROPERTY(QColor accent READ accent CONSTANT)
    Q_PROPERTY(QColor primaryText READ primaryText CONSTANT)
    Q_PROPERTY(QColor secondary READ secondary CONSTANT)
    Q_PROPERTY(QColor tertiary READ tertiary CONSTANT)
    Q_PROPERTY(QColor divider READ divider CONSTANT)

public:
    using QObject::QObject;

    [[nodiscard]] static QColor brandDark() { return QColor(11, 18, 4); }
    [[nodiscard]] static QColor brandGreen() { return QColor(218, 243, 102); }
    [[nodiscard]] static QColor brandLime() { return QColor(243, 255, 192); }
    [[nodiscard]] static QColor brandBlue() { return QColor(215, 226, 248); }
    [[nodiscard]] static QColor brandText() { return QColor(56, 59, 38); }
    [[nodiscard]] static QColor brandBtnBorder() { return QColor(41, 46, 13); }
    [[nodiscard]] static QColor surfaceWindow() { return QColor(245, 245, 247); }
    [[nodiscard]] static QColor surfaceControl() { return QColor(255, 255, 255); }
    [[nodiscard]] static QColor surfaceField() { return QColor(255, 255, 255); }

    // The light-appearance values of the desktop colours the screens name.
    [[nodiscard]] static QColor blue() { return QColor(0, 122, 255); }
    [[nodiscard]] static QColor orange() { return QColor(255, 149, 0); }
    [[nodiscard]] static QColor purple() { return QColor(175, 82, 222); }
    [[nodiscard]] static QColor teal() { return QColor(48, 176, 199); }
    [[nodiscard]] static QColor pink() { return QColor(255, 45, 85); }
    [[nodiscard]] static QColor cyan() { return QColor(50, 173, 230); }
    [[nodiscard]] static QColor gray() { return QColor(142, 142, 147); }
    [[nodiscard]] static QColor indigo() { return QColor(88, 86, 214); }
    [[nodiscard]] static QColor green() { return QColor(52, 199, 89); }
    [[nodiscard]] static QColor red() { return QColor(255, 59, 48); }
    [[nodiscard]] static QColor accent() { return blue(); }
    [[nodiscard]] static QColor primaryText() { return QColor(29, 29, 31); }
    [[nodiscard]] static QColor secondary() { return QColor(60, 60, 67, 153); }
    [[nodiscard]] static QColor tertiary() { return QColor(60, 60, 67, 77); }
    [[nodiscard]] static QColor divider() { return QColor(60, 60, 67, 41); }

    // The primary button's fill opacity: pressed wins over disabled.
    Q_INVOKABLE static double primaryButtonOpacity(bool pressed, bool enabled);
    // A card's fill and outline; a plain card has a clear outline.
    Q_INVOKABLE static QColor cardFill(bool highlighted);
    Q_INVOKABLE static QColor cardOutline(bool highlighted);
    // The same colour at another opacity, for tinted backgrounds.
    Q_INVOKABLE static QColor withOpacity(const QColor &color, double opacity);
};
