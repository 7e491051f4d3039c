#include "X11Session.h"

#include <QGuiApplication>

#include <xcb/xcb.h>

#include <cstring>

namespace tess {

bool X11Session::canPostKeystrokes(const char **why)
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection()) {
        if (why)
            *why = "not an X11 session";
        return false;
    }
    xcb_connection_t *c = x11->connection();
    const char *name = "XTEST";
    xcb_query_extension_reply_t *reply =
        xcb_query_extension_reply(c, xcb_query_extension(c, uint16_t(std::strlen(name)), name), nullptr);
    const bool present = reply && reply->present;
    free(reply);
    if (!present && why)
        *why = "the X server has no XTest extension";
    return present;
}

} // namespace tess
