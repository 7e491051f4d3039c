#include "SRValidator.h"

#include "platform/SystemShortcuts.h"

namespace tess {

namespace {

SystemShortcuts *gSystemShortcuts = nullptr;
std::function<QList<SRMenuItem>()> gMainMenu;

constexpr quint32 kComparedCarbon = CarbonMask::Command | CarbonMask::Shift | CarbonMask::Option | CarbonMask::Control;

// The texts go through the same table as the key names, with %@ filled in order.
QString format(const char *key, const QStringList &args)
{
    QString text = SRLocalizedString(QString::fromUtf8(key));
    for (const QString &a : args) {
        const qsizetype at = text.indexOf(QStringLiteral("%@"));
        if (at < 0)
            break;
        text.replace(at, 2, a);
    }
    return text;
}

void fill(SRError *error, const QString &symbols, const char *suggestion, const QStringList &args)
{
    if (!error)
        return;
    error->localizedDescription = format("The key combination %@ can't be used!", {symbols});
    error->localizedRecoverySuggestion = format(suggestion, args);
    error->localizedRecoveryOptions = {SRLocalizedString(QStringLiteral("OK"))};
}

bool cocoaAgreesWithCarbon(quint64 cocoa, quint32 carbon)
{
    return (SRCocoaToCarbonFlags(cocoa) & kComparedCarbon) == (carbon & kComparedCarbon);
}

} // namespace

void SRValidator::setSystemShortcuts(SystemShortcuts *source)
{
    gSystemShortcuts = source;
}

SystemShortcuts *SRValidator::systemShortcuts()
{
    return gSystemShortcuts;
}

void SRValidator::setMainMenuSource(std::function<QList<SRMenuItem>()> source)
{
    gMainMenu = std::move(source);
}

bool SRValidator::isKeyCodeAndFlagsTaken(int keyCode, quint32 carbonFlags, SRError *error) const
{
    const quint16 code = quint16(keyCode);
    if (m_delegate) {
        QString reason;
        if (m_delegate->shortcutValidatorIsKeyCodeAndFlagsTaken(const_cast<SRValidator *>(this), code,
                                                                 SRCarbonToCocoaFlags(carbonFlags), &reason)) {
            if (error) {
                const QString why = reason.isEmpty() ? SRLocalizedString(QStringLiteral("it's already used")) : reason;
                fill(error, SRStringForCarbonModifierFlagsAndKeyCode(carbonFlags, code),
                     "The key combination \"%@\" can't be used because %@.",
                     {SRReadableStringForCarbonModifierFlagsAndKeyCode(carbonFlags, code), why});
            }
            return true;
        }
    }
    if (gSystemShortcuts) {
        const SystemShortcuts::Answer answer = gSystemShortcuts->isTaken(code, carbonFlags & kComparedCarbon);
        // Not knowing is taken, without a message: a cautious answer.
        if (answer == SystemShortcuts::Answer::Unknown)
            return true;
        if (SRStringForKeyCode(code).isEmpty())
            return true;
        if (answer == SystemShortcuts::Answer::Taken) {
            fill(error, SRStringForCarbonModifierFlagsAndKeyCode(carbonFlags, code),
                 "The key combination \"%@\" can't be used because it's already used by a system-wide keyboard shortcut.",
                 {SRReadableStringForCarbonModifierFlagsAndKeyCode(carbonFlags, code)});
            return true;
        }
    }
    return isKeyCodeAndFlagsTakenInMenu(code, carbonFlags, gMainMenu ? gMainMenu() : QList<SRMenuItem>(), error);
}

bool SRValidator::isKeyCodeAndFlagsTakenInMenu(int keyCode, quint32 carbonFlags, const QList<SRMenuItem> &menu, SRError *error)
{
    for (const SRMenuItem &item : menu) {
        if (!item.submenu.isEmpty() && isKeyCodeAndFlagsTakenInMenu(keyCode, carbonFlags, item.submenu, error))
            return true;
        if (item.keyEquivalent.isEmpty())
            continue;
        // Upper-cased on both sides: named keys (Del, PgUp) are written like Qt's menus write them.
        if (item.keyEquivalent.toUpper() == SRStringForKeyCode(keyCode).toUpper()
            && cocoaAgreesWithCarbon(item.modifierFlags, carbonFlags)) {
            fill(error, SRStringForCarbonModifierFlagsAndKeyCode(carbonFlags, keyCode),
                 "The key combination \"%@\" can't be used because it's already used by the menu item \"%@\".",
                 {SRReadableStringForCocoaModifierFlagsAndKeyCode(item.modifierFlags, keyCode), item.title});
            return true;
        }
    }
    return false;
}

} // namespace tess
