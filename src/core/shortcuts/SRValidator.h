#pragma once
// Whether a proposed shortcut is already taken: by the delegate's own rule, by a system-wide
// shortcut, or by an item of the application's menus. A taken combination comes with an error
// whose texts say why.

#include "core/shortcuts/KeyNames.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace tess {

class SystemShortcuts;
class SRValidator;

// What the recorder shows in its critical alert.
struct SRError {
    QString localizedDescription;
    QString localizedRecoverySuggestion;
    QStringList localizedRecoveryOptions;
};

// An item of a menu as the menu search sees it: its title, key equivalent ("q", "F5"), Cocoa
// modifier mask, and submenu.
struct SRMenuItem {
    QString title;
    QString keyEquivalent;
    quint64 modifierFlags = 0;
    QList<SRMenuItem> submenu;
};

class SRValidatorDelegate {
public:
    virtual ~SRValidatorDelegate() = default;
    // flags is a Cocoa mask; a refusal may give a reason ("it's the other hot key").
    virtual bool shortcutValidatorIsKeyCodeAndFlagsTaken(SRValidator *validator, int keyCode, quint64 flags, QString *reason)
    {
        Q_UNUSED(validator);
        Q_UNUSED(keyCode);
        Q_UNUSED(flags);
        Q_UNUSED(reason);
        return false;
    }
};

class SRValidator {
public:
    explicit SRValidator(SRValidatorDelegate *delegate = nullptr) : m_delegate(delegate) {}

    SRValidatorDelegate *delegate() const { return m_delegate; }
    void setDelegate(SRValidatorDelegate *delegate) { m_delegate = delegate; }

    // isKeyCode:andFlagsTaken:error: — carbonFlags a Carbon mask; error may be null.
    bool isKeyCodeAndFlagsTaken(int keyCode, quint32 carbonFlags, SRError *error) const;
    // isKeyCode:andFlags:takenInMenu:error: — depth first, submenus before their item.
    static bool isKeyCodeAndFlagsTakenInMenu(int keyCode, quint32 carbonFlags, const QList<SRMenuItem> &menu, SRError *error);

    // Where the system-wide test and the application's menus come from, process-wide. With no
    // system source nothing is taken system-wide; a source that cannot answer means taken.
    static void setSystemShortcuts(SystemShortcuts *source);
    static SystemShortcuts *systemShortcuts();
    static void setMainMenuSource(std::function<QList<SRMenuItem>()> source);

private:
    SRValidatorDelegate *m_delegate;
};

} // namespace tess
