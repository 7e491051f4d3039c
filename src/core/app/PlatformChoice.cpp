#include "PlatformChoice.h"

namespace tess {

QByteArray preferredPlatformPlugin(const QProcessEnvironment &env, const QStringList &arguments)
{
    if (!env.value(QStringLiteral("QT_QPA_PLATFORM")).isEmpty())
        return {};
    for (const QString &a : arguments)
        if (a == u"-platform" || a == u"--platform" || a.startsWith(u"-platform=") || a.startsWith(u"--platform="))
            return {};
    const bool wayland = !env.value(QStringLiteral("WAYLAND_DISPLAY")).isEmpty() ||
                         env.value(QStringLiteral("XDG_SESSION_TYPE")) == u"wayland";
    if (!wayland || env.value(QStringLiteral("DISPLAY")).isEmpty())
        return {};
    return QByteArrayLiteral("xcb");
}

} // namespace tess
