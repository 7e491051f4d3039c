#pragma once
// Whether a key combination is already taken system-wide, by another program or the desktop.

#include <QtGlobal>

namespace tess {

class SystemShortcuts {
public:
    enum class Answer { Free, Taken, Unknown };
    virtual ~SystemShortcuts() = default;
    // keyCode is a virtual key code, carbonFlags a Carbon mask. Unknown when the system could
    // not be asked (no connection, a key with no keycode on this keyboard).
    virtual Answer isTaken(int keyCode, quint32 carbonFlags) = 0;
};

} // namespace tess
