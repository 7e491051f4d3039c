// A receiver of keystrokes in a process of its own, slower than the typing engine's estimate of
// any receiver, and translating as Chromium does through GTK: with the keymap a second
// connection reloads as soon as the server announces a change, whatever keys are still queued
// on the first. It handles each key press after a pause, reports it in _NET_WM_USER_TIME as
// browsers and toolkits do, and writes what it typed to standard output on Return.
// Usage: tessaline_slowreceiver MILLISECONDS_PER_KEY

#include <xcb/xcb.h>
// xcb/xkb.h names a field "explicit".
#define explicit explicit_
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

namespace {

std::mutex gLock;
xkb_context *gContext = nullptr;
xkb_keymap *gKeymap = nullptr;

void loadKeymap(xcb_connection_t *c, int32_t device)
{
    xkb_keymap *keymap = xkb_x11_keymap_new_from_device(gContext, c, device, XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap)
        return;
    std::lock_guard<std::mutex> hold(gLock);
    xkb_keymap_unref(gKeymap);
    gKeymap = keymap;
}

xcb_atom_t atom(xcb_connection_t *c, const char *name)
{
    xcb_intern_atom_reply_t *r = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, uint16_t(std::strlen(name)), name), nullptr);
    const xcb_atom_t a = r ? r->atom : XCB_ATOM_NONE;
    free(r);
    return a;
}

} // namespace

int main(int argc, char **argv)
{
    const int pauseMs = argc > 1 ? std::atoi(argv[1]) : 10;
    gContext = xkb_context_new(XKB_CONTEXT_NO_FLAGS);

    // The keymap's own connection: reloads at every notice, at once.
    xcb_connection_t *maps = xcb_connect(nullptr, nullptr);
    uint8_t event = 0;
    if (!xkb_x11_setup_xkb_extension(maps, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, &event, nullptr))
        return 2;
    const int32_t device = xkb_x11_get_core_keyboard_device_id(maps);
    const uint16_t notices = XCB_XKB_EVENT_TYPE_NEW_KEYBOARD_NOTIFY | XCB_XKB_EVENT_TYPE_MAP_NOTIFY;
    xcb_xkb_select_events(maps, uint16_t(device), notices, 0, notices, 0xff, 0xff, nullptr);
    loadKeymap(maps, device);
    std::thread([maps, device, event] {
        while (xcb_generic_event_t *e = xcb_wait_for_event(maps)) {
            if ((e->response_type & 0x7f) == event || (e->response_type & 0x7f) == XCB_MAPPING_NOTIFY)
                loadKeymap(maps, device);
            free(e);
        }
    }).detach();

    // The window that takes the keys.
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(c)).data;
    const xcb_window_t window = xcb_generate_id(c);
    const uint32_t mask = XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_create_window(c, XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 400, 100, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT,
                      screen->root_visual, XCB_CW_EVENT_MASK, &mask);
    const xcb_atom_t userTime = atom(c, "_NET_WM_USER_TIME");
    const uint32_t zero = 0;
    xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, userTime, XCB_ATOM_CARDINAL, 32, 1, &zero);
    xcb_map_window(c, window);
    xcb_flush(c);

    std::string typed;
    bool ready = false;
    while (xcb_generic_event_t *e = xcb_wait_for_event(c)) {
        const uint8_t type = e->response_type & 0x7f;
        if (type == XCB_MAP_NOTIFY || (!ready && type == XCB_CONFIGURE_NOTIFY)) {
            xcb_set_input_focus(c, XCB_INPUT_FOCUS_POINTER_ROOT, window, XCB_CURRENT_TIME);
            xcb_get_input_focus_reply_t *focus = xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr);
            if (focus && focus->focus == window && !ready) {
                ready = true;
                std::fputs("ready\n", stderr);
                std::fflush(stderr);
            }
            free(focus);
        } else if (type == XCB_KEY_PRESS) {
            const auto *key = reinterpret_cast<const xcb_key_press_event_t *>(e);
            std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
            xkb_keysym_t sym = XKB_KEY_NoSymbol;
            char text[16] = {};
            {
                std::lock_guard<std::mutex> hold(gLock);
                xkb_state *state = xkb_state_new(gKeymap);
                xkb_state_update_mask(state, key->state & 0xff & ~XCB_MOD_MASK_LOCK, 0, key->state & XCB_MOD_MASK_LOCK, 0, 0,
                                      (key->state >> 13) & 3);
                sym = xkb_state_key_get_one_sym(state, key->detail);
                xkb_state_key_get_utf8(state, key->detail, text, sizeof text);
                xkb_state_unref(state);
            }
            const uint32_t time = key->time;
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, window, userTime, XCB_ATOM_CARDINAL, 32, 1, &time);
            xcb_flush(c);
            if (sym == XKB_KEY_Return) {
                std::fputs(typed.c_str(), stdout);
                std::fflush(stdout);
                free(e);
                return 0;
            }
            if (static_cast<unsigned char>(text[0]) >= 0x20)
                typed += text;
        }
        free(e);
    }
    return 1;
}
