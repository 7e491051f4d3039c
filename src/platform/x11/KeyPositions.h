#pragma once
// Virtual key codes to XKB key names, by the key's position on the keyboard. Names, not
// keycodes: the X server's keycodes are resolved through its keymap at run time.

namespace tess {

// The XKB name ("AC01"...) of a virtual key code, or nullptr for a code with no key here.
const char *xkbKeyNameForKeyCode(int keyCode);

} // namespace tess

namespace tess {

// The virtual key code of an XKB key name, or -1.
int keyCodeForXkbKeyName(const char *name);

} // namespace tess
