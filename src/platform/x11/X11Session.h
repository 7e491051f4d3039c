#pragma once
// Whether synthetic keystrokes can be posted: an X11 session (or XWayland) with XTest; and
// whether translucent windows show what lies below them.

namespace tess {

struct X11Session {
    // Answers false, with a reason, when keystrokes cannot be posted to other windows.
    static bool canPostKeystrokes(const char **why = nullptr);
    // Whether the transparent parts of a translucent window show what lies below: always off
    // X11 (Wayland composites), and on X11 only while a compositing manager runs (someone
    // owns _NET_WM_CM_Sn). Without one (Openbox, i3 alone) they are black.
    static bool translucencyWorks();
};

} // namespace tess
