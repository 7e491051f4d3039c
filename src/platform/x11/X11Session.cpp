#include "X11Session.h"

#include <QGuiApplication>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <string>

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

bool X11Session::translucencyWorks()
{
    auto *x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    if (!x11 || !x11->connection())
        return true;
    xcb_connection_t *c = x11->connection();
    int screen = 0;
    char *host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) == 0)
        screen = 0;
    free(host);
    const std::string name = "_NET_WM_CM_S" + std::to_string(screen);
    xcb_intern_atom_reply_t *atom =
        xcb_intern_atom_reply(c, xcb_intern_atom(c, 1, uint16_t(name.size()), name.c_str()), nullptr);
    if (!atom)
        return false;
    const xcb_atom_t selection = atom->atom;
    free(atom);
    if (selection == XCB_ATOM_NONE)
        return false; // nobody ever claimed it
    xcb_get_selection_owner_reply_t *owner =
        xcb_get_selection_owner_reply(c, xcb_get_selection_owner(c, selection), nullptr);
    const bool running = owner && owner->owner != XCB_WINDOW_NONE;
    free(owner);
    return running;
}

} // namespace tess
