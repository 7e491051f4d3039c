#include "LoginScript.h"

#include "core/app/QWPrefs.h"

namespace tess {

namespace {

constexpr qint64 kOneSecond = 1000000;

KeyAction pause(qint64 micros)
{
    return {KeyAction::Pause, 0, 0, {}, std::max<qint64>(0, micros)};
}

KeyAction field(const QString &text)
{
    return {KeyAction::EnterString, 0, 0, text, 0};
}

KeyAction simple(KeyAction::Type type, const QString &text = {})
{
    return {type, 0, 0, text, 0};
}

KeyAction hook(const QString &name, int argument = 0)
{
    return {KeyAction::BuiltInBrowser, argument, 0, name, 0};
}

bool useDVBrowser(const Entry &entry)
{
    return plistBool(entry.value(EntryKey::UseDVBrowser));
}

qint64 passwordOption(const Entry &entry)
{
    return plistInteger(entry.value(EntryKey::PasswordOptions));
}

} // namespace

LoginSettings LoginSettings::fromPrefs()
{
    LoginSettings s;
    if (gPrefs)
        s.browserPageLoadDelay = gPrefs->integerForKey(Pref::BrowserPageLoadDelay);
    return s;
}

bool autoLogin(const Entry &entry)
{
    return plistInteger(entry.value(EntryKey::NewUserIDOptions)) != 0;
}

QString urlToOpen(const Entry &entry)
{
    QString url = entryString(entry, EntryKey::URL);
    if (url.isEmpty())
        return url;
    if (!url.startsWith(u"http://") && !url.startsWith(u"https://") && !url.startsWith(u"file://"))
        url.prepend(u"http://");
    return url;
}

KeyScript pasteUserIDFromHotkey(const Entry &entry, bool fromHotkey)
{
    const bool dv = useDVBrowser(entry);
    KeyScript s;
    if (!fromHotkey)
        s += doTABs(QStringLiteral("UserID"), entry);
    if (const QString id = entryString(entry, EntryKey::UserID); !id.isEmpty())
        s.append(field(id));
    if (const QString id2 = entryString(entry, EntryKey::UserID2); !id2.isEmpty()) {
        if (!dv)
            s.append(pause(kOneSecond));
        s += tab();
        s.append(field(id2));
    }
    if (!dv)
        s.append(pause(kOneSecond));
    if (plistBool(entry.value(EntryKey::UserIDReturnSwitch))) {
        // The built-in browser is told that the next page asks for the password.
        if (dv && passwordOption(entry) == 1)
            s.append(hook(QStringLiteral("setAutoLogin"), 2));
        s += nextPage();
    }
    return s;
}

KeyScript pastePasswordFromHotkey(const Entry &entry, bool fromHotkey, const LoginSettings &settings)
{
    const QString password = entryString(entry, EntryKey::Password);
    if (password.isEmpty())
        return {};
    const bool dv = useDVBrowser(entry);
    const qint64 option = passwordOption(entry);
    KeyScript s;
    if (option == 3) {
        s.append(simple(KeyAction::ShowFloatingPassword, password));
    } else {
        if (!fromHotkey) {
            if (option == 1 && !dv) {
                s.append(simple(KeyAction::ShowWarning));
                s.append(pause(settings.browserPageLoadDelay * kOneSecond));
            }
            s += doTABs(QStringLiteral("Password"), entry);
        }
        s.append(field(password));
        if (dv) {
            if (plistBool(entry.value(EntryKey::PasswordEnter)))
                s.append(hook(QStringLiteral("pasteNextPageFromTimer")));
        } else {
            s.append(pause(kOneSecond));
            if (plistBool(entry.value(EntryKey::PasswordEnter)))
                s += nextPage();
        }
    }
    s.append(simple(KeyAction::HideWarning));
    return s;
}

KeyScript handleUserIDFromHotkey(const Entry &entry, bool fromHotkey, const LoginSettings &settings)
{
    KeyScript s = pasteUserIDFromHotkey(entry, fromHotkey);
    if (passwordOption(entry) == 2)
        return s;
    if (useDVBrowser(entry)) {
        s.append(hook(QStringLiteral("showAutoWarning")));
        s.append(hook(QStringLiteral("pastePasswordFromTimer")));
        return s;
    }
    // Not from the hot key: the password's Tabs and page wait apply after the user-ID hot key.
    s += pastePasswordFromHotkey(entry, false, settings);
    return s;
}

KeyScript loginScript(const Entry &entry, LoginStart start, const LoginSettings &settings)
{
    switch (start) {
    case LoginStart::GoTo: {
        if (!autoLogin(entry))
            return {};
        KeyScript s{simple(KeyAction::ShowWarning), pause(settings.browserPageLoadDelay * kOneSecond)};
        s += handleUserIDFromHotkey(entry, false, settings);
        s.append(simple(KeyAction::HideWarning));
        return s;
    }
    case LoginStart::UserIDHotkey:
        return handleUserIDFromHotkey(entry, true, settings);
    case LoginStart::PasswordHotkey:
        return pastePasswordFromHotkey(entry, true, settings);
    }
    return {};
}

} // namespace tess
