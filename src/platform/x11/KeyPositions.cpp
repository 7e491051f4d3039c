#include "KeyPositions.h"

#include <cstring>

namespace tess {

const char *xkbKeyNameForKeyCode(int keyCode)
{
    static const char *const names[128] = {
        // 0-9
        "AC01", "AC02", "AC03", "AC04", "AC06", "AC05", "AB01", "AB02", "AB03", "AB04",
        // 10-19
        "LSGT", "AB05", "AD01", "AD02", "AD03", "AD04", "AD06", "AD05", "AE01", "AE02",
        // 20-29
        "AE03", "AE04", "AE06", "AE05", "AE12", "AE09", "AE07", "AE11", "AE08", "AE10",
        // 30-39
        "AD12", "AD09", "AD07", "AD11", "AD08", "AD10", "RTRN", "AC09", "AC07", "AC11",
        // 40-49
        "AC08", "AC10", "BKSL", "AB08", "AB10", "AB06", "AB07", "AB09", "TAB", "SPCE",
        // 50-59
        "TLDE", "BKSP", nullptr, "ESC", "RWIN", "LWIN", "LFSH", "CAPS", "LALT", "LCTL",
        // 60-69
        "RTSH", "RALT", "RCTL", nullptr, "FK17", "KPDL", nullptr, "KPMU", nullptr, "KPAD",
        // 70-79
        nullptr, "NMLK", nullptr, nullptr, nullptr, "KPDV", "KPEN", nullptr, "KPSU", "FK18",
        // 80-89
        "FK19", "KPEQ", "KP0", "KP1", "KP2", "KP3", "KP4", "KP5", "KP6", "KP7",
        // 90-99
        "FK20", "KP8", "KP9", nullptr, nullptr, nullptr, "FK05", "FK06", "FK07", "FK03",
        // 100-109
        "FK08", "FK09", nullptr, "FK11", nullptr, "FK13", "FK16", "FK14", nullptr, "FK10",
        // 110-119
        nullptr, "FK12", nullptr, "FK15", "INS", "HOME", "PGUP", "DELE", "FK04", "END",
        // 120-127
        "FK02", "PGDN", "FK01", "LEFT", "RGHT", "DOWN", "UP", nullptr,
    };
    return keyCode >= 0 && keyCode < 128 ? names[keyCode] : nullptr;
}

int keyCodeForXkbKeyName(const char *name)
{
    if (!name)
        return -1;
    for (int code = 0; code < 128; ++code)
        if (const char *n = xkbKeyNameForKeyCode(code); n && std::strcmp(n, name) == 0)
            return code;
    return -1;
}

} // namespace tess
