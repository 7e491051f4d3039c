#pragma once
// The user's current keyboard layout, as key names need it: the character a key (given by its
// virtual key code) produces with or without Shift and Option.

#include <QString>

namespace tess {

class KeyboardLayout {
public:
    virtual ~KeyboardLayout() = default;
    // The text the key produces, or an empty string when it produces none.
    virtual QString characterForKeyCode(int keyCode, bool shift, bool option) const = 0;
};

} // namespace tess
