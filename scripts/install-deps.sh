#!/usr/bin/env bash
# Installs every Debian package Tamlo needs to build, test and run. Safe to run again:
# it asks apt only for what is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build ccache pkg-config clang-format
    qt6-base-dev qt6-base-dev-tools qt6-declarative-dev qt6-httpserver-dev qt6-websockets-dev
    qcoro-qt6-dev libplist-dev libpng-dev zlib1g-dev
    libqt6sql6-sqlite libqt6sql6-psql libqt6svg6
    qml6-module-qtquick qml6-module-qtquick-controls qml6-module-qtquick-layouts
    qml6-module-qtquick-window qml6-module-qtquick-dialogs qml6-module-qtquick-templates
    qml6-module-qtquick-shapes qml6-module-qtqml-workerscript qml6-module-qtcore
    qml6-module-qt-labs-folderlistmodel
    qt6-qpa-plugins qt6-wayland
    fonts-material-design-icons-iconfont fonts-dejavu-core
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    xvfb xauth x11-utils x11-apps xdotool dbus dbus-x11 at-spi2-core iproute2
    postgresql
    clang libclang-rt-14-dev
    libcurl4-openssl-dev python3-aiosmtpd python3-selenium chromium chromium-driver
    # The end-to-end tests' screenshots of the X display
    python3-pil
    # A system tray on Xvfb for the tests of a desktop with one.
    trayer
    # GNOME's interface font, whose digits differ in width: figures must line up all the same.
    fonts-cantarell
    # The window list on X11 is read through xcb, which Tamlo links directly.
    libxcb1-dev
    # An EWMH window manager for the tests of which windows are on screen.
    openbox
    # Wayland capture: the screencopy client, and sway with the real portal for its tests
    libwayland-dev libwayland-bin
    sway swaybg grim xdg-desktop-portal xdg-desktop-portal-wlr xdg-desktop-portal-gtk pipewire
    # make package: the .deb files, the icon sizes rendered from the SVG, and the checks of the metadata
    dpkg-dev fakeroot file librsvg2-bin lintian appstream desktop-file-utils
    # Input idle time on X11 (the screen saver extension)
    libxss-dev
    # Windows under sway for the tests of what it shows: Xwayland clients, and a native one with a settable app_id
    xwayland foot
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

sudo=()
if [ "$(id -u)" -ne 0 ]; then
    sudo=(sudo)
fi

echo "Installing: ${missing[*]}"
# Another apt run (an update, a second checkout installing at once) holds the lock for a while.
lock=(-o DPkg::Lock::Timeout=900)
"${sudo[@]}" apt-get "${lock[@]}" update -qq
DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get "${lock[@]}" install -y -qq --no-install-recommends "${missing[@]}"
