#pragma once
// Which Qt platform plugin the application asks for. Typing logins (XTest) and the global hot
// keys (key grabs) need X11: on a Wayland session that has XWayland the application runs there.

#include <QByteArray>
#include <QProcessEnvironment>
#include <QStringList>

namespace tess {

// "xcb" on a Wayland session (WAYLAND_DISPLAY or XDG_SESSION_TYPE=wayland) with an X server
// (DISPLAY), unless the user chose a platform (QT_QPA_PLATFORM, or -platform among the
// arguments); else empty: Qt's own choice stands.
QByteArray preferredPlatformPlugin(const QProcessEnvironment &env, const QStringList &arguments);

} // namespace tess
