#pragma once
// Names of keys and modifier combinations: the short forms (Ctrl+Shift+F5) and readable forms
// (Ctrl + Alt + U) shown to the user, the two modifier-mask conventions and the conversions
// between them, and the reverse lookup from a key's name to its virtual key code. Character
// keys are named after the current keyboard layout.
//
// Key codes are the virtual key codes stored in the settings; masks are the stored Carbon
// masks and their Cocoa counterparts.

#include <QHash>
#include <QString>
#include <QVariant>

namespace tess {

class KeyboardLayout;

namespace CarbonMask {
constexpr quint32 Command = 0x0100;
constexpr quint32 Shift = 0x0200;
constexpr quint32 Option = 0x0800;
constexpr quint32 Control = 0x1000;
constexpr quint32 Function = 0x800000;
} // namespace CarbonMask

namespace CocoaMask {
constexpr quint64 CapsLock = 0x010000;
constexpr quint64 Shift = 0x020000;
constexpr quint64 Control = 0x040000;
constexpr quint64 Option = 0x080000;
constexpr quint64 Command = 0x100000;
constexpr quint64 Function = 0x800000;
} // namespace CocoaMask

// Virtual key codes the program uses by position.
namespace KeyCode {
constexpr int Tab = 48;
constexpr int Return = 36;
constexpr int TypedCharacter = 1; // the placeholder key that carries a typed character
} // namespace KeyCode

// A key combination: a Cocoa modifier mask and a virtual key code, -1 for no key.
struct KeyCombo {
    quint64 flags = 0;
    qint64 code = -1;
    friend bool operator==(const KeyCombo &, const KeyCombo &) = default;
};

quint64 SRCarbonToCocoaFlags(quint32 carbon);
quint32 SRCocoaToCarbonFlags(quint64 cocoa);

// The texts shown for keys and modifiers, localised for this platform: "Space", "Pad %1", and
// the readable modifier names (Command = Ctrl, Option = Alt, Control = Super, Shift).
QString SRLocalizedString(const QString &key);

QString SRStringForKeyCode(int keyCode);
QString SRStringForCarbonModifierFlags(quint32 flags);
QString SRStringForCocoaModifierFlags(quint64 flags);
QString SRStringForCarbonModifierFlagsAndKeyCode(quint32 flags, int keyCode);
QString SRStringForCocoaModifierFlagsAndKeyCode(quint64 flags, int keyCode);
QString SRReadableStringForCarbonModifierFlagsAndKeyCode(quint32 flags, int keyCode);
QString SRReadableStringForCocoaModifierFlagsAndKeyCode(quint64 flags, int keyCode);
QString SRCharacterForKeyCodeAndCocoaFlags(int keyCode, quint64 flags);
QString SRCharacterForKeyCodeAndCarbonFlags(int keyCode, quint32 flags);
double SRAnimationEaseInOut(double t);

// The code, 0 to 255, of the first key whose name lower-cased equals `key` exactly; -1 if none.
int keyCodeForKey(const QString &key);

// Key code to name and back. The fixed names and the keypad list never change; the reverse
// table follows the keyboard layout and is rebuilt whenever it changes.
class SRKeyCodeTransformer {
public:
    // The layout names come from (the platform's, or a test's). Rebuilds the reverse table.
    static void setKeyboardLayout(const KeyboardLayout *layout);
    static const KeyboardLayout *keyboardLayout();

    QVariant transformedValue(const QVariant &value) const;
    QVariant reverseTransformedValue(const QVariant &value) const;
    static void regenerateStringToKeyCodeMapping();
    static bool allowsReverseTransformation() { return true; }

    static const QHash<int, QString> &keyCodeToStringDict();
    static bool isPadKey(int keyCode);
};

} // namespace tess
