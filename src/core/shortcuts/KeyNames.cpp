#include "KeyNames.h"

#include "platform/KeyboardLayout.h"

#include <QLocale>

#include <cmath>
#include <numbers>

namespace tess {

namespace {

const KeyboardLayout *gLayout = nullptr;
QHash<QString, int> gStringToKeyCode;

constexpr int kPadKeys[] = {65, 67, 69, 75, 78, 81, 82, 83, 84, 85, 86, 87, 88, 89, 91, 92};

QHash<int, QString> buildFixedNames()
{
    QHash<int, QString> d;
    const int fkeys[] = {122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111, 105, 107, 113, 106, 64, 79, 80};
    for (int i = 0; i < 19; ++i)
        d.insert(fkeys[i], QStringLiteral("F%1").arg(i + 1));
    d.insert(49, SRLocalizedString(QStringLiteral("Space")));
    // The other named keys by their symbols, shown through the string table.
    const std::pair<int, char16_t> symbols[] = {
        {51, 0x232B},  {117, 0x2326}, {71, 0x2327},  {123, 0x2190}, {124, 0x2192}, {126, 0x2191},
        {125, 0x2193}, {119, 0x2198}, {115, 0x2196}, {53, 0x238B},  {121, 0x21DF}, {116, 0x21DE},
        {36, 0x21A9},  {76, 0x2305},  {48, 0x21E5},  {114, u'?'},
    };
    for (const auto &[code, symbol] : symbols)
        d.insert(code, SRLocalizedString(QString(QChar(symbol))));
    return d;
}

} // namespace

namespace {
// Each modifier's bit in the two conventions; every other bit is dropped by the conversions.
constexpr std::pair<quint32, quint64> kMaskPairs[] = {
    {CarbonMask::Command, CocoaMask::Command}, {CarbonMask::Shift, CocoaMask::Shift},
    {CarbonMask::Option, CocoaMask::Option},   {CarbonMask::Control, CocoaMask::Control},
    {CarbonMask::Function, CocoaMask::Function},
};
} // namespace

quint64 SRCarbonToCocoaFlags(quint32 carbon)
{
    quint64 cocoa = 0;
    for (const auto &[c, k] : kMaskPairs)
        if (carbon & c)
            cocoa |= k;
    return cocoa;
}

quint32 SRCocoaToCarbonFlags(quint64 cocoa)
{
    quint32 carbon = 0;
    for (const auto &[c, k] : kMaskPairs)
        if (cocoa & k)
            carbon |= c;
    return carbon;
}

QString SRLocalizedString(const QString &key)
{
    // This platform's names. Modifiers: Command is Ctrl, Option is Alt, Control is Super, in
    // symbols and in readable texts. Named keys: the names Linux desktops (and Qt's menus) use.
    static const QHash<QString, QString> table = {
        {QStringLiteral("Pad %@"), QStringLiteral("Pad %1")},
        {QStringLiteral("Command + "), QStringLiteral("Ctrl + ")},
        {QStringLiteral("Option + "), QStringLiteral("Alt + ")},
        {QStringLiteral("Control + "), QStringLiteral("Super + ")},
        {QStringLiteral("Shift + "), QStringLiteral("Shift + ")},
        {QStringLiteral("\u2318"), QStringLiteral("Ctrl+")},
        {QStringLiteral("\u2325"), QStringLiteral("Alt+")},
        {QStringLiteral("\u2303"), QStringLiteral("Super+")},
        {QStringLiteral("\u21E7"), QStringLiteral("Shift+")},
        {QStringLiteral("\u232B"), QStringLiteral("Backspace")},
        {QStringLiteral("\u2326"), QStringLiteral("Del")},
        {QStringLiteral("\u2327"), QStringLiteral("NumLock")},
        {QStringLiteral("\u2190"), QStringLiteral("Left")},
        {QStringLiteral("\u2192"), QStringLiteral("Right")},
        {QStringLiteral("\u2191"), QStringLiteral("Up")},
        {QStringLiteral("\u2193"), QStringLiteral("Down")},
        {QStringLiteral("\u2198"), QStringLiteral("End")},
        {QStringLiteral("\u2196"), QStringLiteral("Home")},
        {QStringLiteral("\u238B"), QStringLiteral("Esc")},
        {QStringLiteral("\u21DF"), QStringLiteral("PgDown")},
        {QStringLiteral("\u21DE"), QStringLiteral("PgUp")},
        {QStringLiteral("\u21A9"), QStringLiteral("Return")},
        {QStringLiteral("\u2305"), QStringLiteral("Enter")},
        {QStringLiteral("\u21E5"), QStringLiteral("Tab")},
        {QStringLiteral("?"), QStringLiteral("Ins")},
    };
    return table.value(key, key);
}

const QHash<int, QString> &SRKeyCodeTransformer::keyCodeToStringDict()
{
    static const QHash<int, QString> d = buildFixedNames();
    return d;
}

bool SRKeyCodeTransformer::isPadKey(int keyCode)
{
    return std::find(std::begin(kPadKeys), std::end(kPadKeys), keyCode) != std::end(kPadKeys);
}

void SRKeyCodeTransformer::setKeyboardLayout(const KeyboardLayout *layout)
{
    gLayout = layout;
    regenerateStringToKeyCodeMapping();
}

const KeyboardLayout *SRKeyCodeTransformer::keyboardLayout()
{
    return gLayout;
}

QVariant SRKeyCodeTransformer::transformedValue(const QVariant &value) const
{
    bool ok = false;
    const int raw = value.toInt(&ok);
    if (!ok || !value.canConvert<int>() || value.typeId() == QMetaType::QString)
        return {};
    const qint16 code = qint16(raw);
    if (code < 0)
        return {};
    const auto &fixed = keyCodeToStringDict();
    auto it = fixed.constFind(code);
    if (it != fixed.constEnd())
        return *it;
    if (!gLayout)
        return {};
    const QString text = gLayout->characterForKeyCode(code, false, false);
    if (text.isEmpty())
        return {};
    const QString name = QString(text.at(0)).toUpper();
    if (isPadKey(code))
        return SRLocalizedString(QStringLiteral("Pad %@")).arg(name);
    return name;
}

QVariant SRKeyCodeTransformer::reverseTransformedValue(const QVariant &value) const
{
    if (value.typeId() != QMetaType::QString)
        return {};
    auto it = gStringToKeyCode.constFind(value.toString());
    if (it == gStringToKeyCode.constEnd())
        return {};
    return *it;
}

void SRKeyCodeTransformer::regenerateStringToKeyCodeMapping()
{
    gStringToKeyCode.clear();
    SRKeyCodeTransformer t;
    for (int code = 0; code < 128; ++code) {
        const QString name = t.transformedValue(code).toString();
        if (!name.isEmpty())
            gStringToKeyCode.insert(name, code); // a later code wins
    }
}

QString SRStringForKeyCode(int keyCode)
{
    static const SRKeyCodeTransformer shared;
    return shared.transformedValue(keyCode).toString();
}

QString SRStringForCocoaModifierFlags(quint64 flags)
{
    // In the order this platform's menus write them (Qt's): Ctrl, Alt, Shift, Super.
    static const std::pair<quint64, char16_t> symbols[] = {
        {CocoaMask::Command, 0x2318}, {CocoaMask::Option, 0x2325}, {CocoaMask::Shift, 0x21E7}, {CocoaMask::Control, 0x2303}};
    QString s;
    for (const auto &[mask, symbol] : symbols)
        if (flags & mask)
            s += SRLocalizedString(QString(QChar(symbol)));
    return s;
}

QString SRStringForCarbonModifierFlags(quint32 flags)
{
    return SRStringForCocoaModifierFlags(SRCarbonToCocoaFlags(flags));
}

QString SRStringForCocoaModifierFlagsAndKeyCode(quint64 flags, int keyCode)
{
    return SRStringForCocoaModifierFlags(flags) + SRStringForKeyCode(keyCode);
}

QString SRStringForCarbonModifierFlagsAndKeyCode(quint32 flags, int keyCode)
{
    return SRStringForCarbonModifierFlags(flags) + SRStringForKeyCode(keyCode);
}

QString SRReadableStringForCocoaModifierFlagsAndKeyCode(quint64 flags, int keyCode)
{
    QString s;
    if (flags & CocoaMask::Command)
        s += SRLocalizedString(QStringLiteral("Command + "));
    if (flags & CocoaMask::Option)
        s += SRLocalizedString(QStringLiteral("Option + "));
    if (flags & CocoaMask::Control)
        s += SRLocalizedString(QStringLiteral("Control + "));
    if (flags & CocoaMask::Shift)
        s += SRLocalizedString(QStringLiteral("Shift + "));
    return s + SRStringForKeyCode(keyCode);
}

QString SRReadableStringForCarbonModifierFlagsAndKeyCode(quint32 flags, int keyCode)
{
    return SRReadableStringForCocoaModifierFlagsAndKeyCode(SRCarbonToCocoaFlags(flags), keyCode);
}

QString SRCharacterForKeyCodeAndCocoaFlags(int keyCode, quint64 flags)
{
    // Only the Shift and Option bits reach the layout, in their Carbon positions.
    const quint64 state = (flags >> 8) & 0xA00;
    const QString text = gLayout ? gLayout->characterForKeyCode(keyCode, state & 0x200, state & 0x800) : QString();
    if (text.isEmpty())
        return SRStringForKeyCode(keyCode);
    return QLocale().toUpper(QString(text.at(0)));
}

QString SRCharacterForKeyCodeAndCarbonFlags(int keyCode, quint32 flags)
{
    return SRCharacterForKeyCodeAndCocoaFlags(keyCode, SRCarbonToCocoaFlags(flags));
}

double SRAnimationEaseInOut(double t)
{
    return (std::sin(t * std::numbers::pi - std::numbers::pi / 2) + 1) / 2;
}

int keyCodeForKey(const QString &key)
{
    for (int code = 0; code < 256; ++code)
        if (SRStringForKeyCode(code).toLower() == key && !SRStringForKeyCode(code).isEmpty())
            return code;
    return -1;
}

} // namespace tess
