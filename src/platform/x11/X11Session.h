#pragma once
// Whether synthetic keystrokes can be posted: an X11 session (or XWayland) with XTest.

namespace tess {

struct X11Session {
    // Answers false, with a reason, when keystrokes cannot be posted to other windows.
    static bool canPostKeystrokes(const char **why = nullptr);
};

} // namespace tess
