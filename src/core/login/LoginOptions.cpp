#include "LoginOptions.h"

namespace tess::loginoptions {

bool convertOlderOptions(Entry &entry)
{
    if (entry.contains(EntryKey::NewUserIDOptions))
        return false;
    entry.insert(EntryKey::UserIDTabSwitch, false);
    entry.insert(EntryKey::UserIDTabCount, 0);
    const int u = entry.value(EntryKey::UserIDOptions).toInt();
    int option = u;
    if (u == 2) {
        option = 1;
        entry.insert(EntryKey::UserIDTabSwitch, true);
    }
    entry.insert(EntryKey::NewUserIDOptions, option);
    const int p = entry.value(EntryKey::PasswordOptions).toInt();
    bool passwordTabs = false;
    if (p == 0)
        passwordTabs = true;
    else if (p == 3)
        entry.remove(EntryKey::PasswordEnter);
    else if (p == 1)
        entry.insert(EntryKey::UserIDReturnSwitch, true);
    entry.insert(EntryKey::PasswordTabSwitch, passwordTabs);
    entry.insert(EntryKey::PasswordTabCount, 0);
    return true;
}

bool storeField(Entry &entry, const QString &key, const QString &text)
{
    if (text.isEmpty()) {
        if (!entry.contains(key))
            return false;
        entry.remove(key);
    } else if (entry.value(key).toString() != text || !entry.contains(key)) {
        entry.insert(key, text);
    }
    return true;
}

UserIDOptionDisplay displayUserIDOption(int option, bool tabSwitchChecked)
{
    if (option == 0)
        return {false, false, false, 0};
    return {true, tabSwitchChecked, std::nullopt, std::nullopt};
}

void userIDOptionChanged(Entry &entry, int index)
{
    if (index == 0)
        entry.insert(EntryKey::UserIDTabSwitch, false);
    entry.insert(EntryKey::NewUserIDOptions, index);
}

void tabChanged(Entry &entry, bool userID, bool switchOn, int countIndex)
{
    const QString &switchKey = userID ? EntryKey::UserIDTabSwitch : EntryKey::PasswordTabSwitch;
    const QString &countKey = userID ? EntryKey::UserIDTabCount : EntryKey::PasswordTabCount;
    if (switchOn) {
        entry.insert(switchKey, true);
    } else {
        countIndex = 0;
        entry.remove(switchKey);
    }
    entry.insert(countKey, countIndex);
}

namespace {
void storeSwitch(Entry &entry, const QString &key, bool checked)
{
    if (checked)
        entry.insert(key, true);
    else
        entry.remove(key);
}
} // namespace

void userIDReturnChanged(Entry &entry, bool checked)
{
    storeSwitch(entry, EntryKey::UserIDReturnSwitch, checked);
}

void passwordReturnChanged(Entry &entry, bool checked)
{
    storeSwitch(entry, EntryKey::PasswordEnter, checked);
}

PasswordOptionDisplay displayPasswordOption(Entry &entry, int o)
{
    PasswordOptionDisplay d{};
    d.passwordTabSwitchEnabled = o == 1;
    d.passwordTabsEnabled = unsigned(o) < 2;
    if (o == 3) {
        d.passwordTabSwitchChecked = false;
        entry.insert(EntryKey::PasswordTabSwitch, false);
        d.passwordTabsIndex = 0;
        entry.insert(EntryKey::PasswordTabCount, 0);
    } else if (o == 2) {
        d.passwordTabSwitchChecked = false;
        entry.insert(EntryKey::PasswordTabSwitch, false);
    } else if (o == 0) {
        d.passwordTabSwitchChecked = true;
        entry.insert(EntryKey::PasswordTabSwitch, true);
        d.passwordTabsIndex = entry.value(EntryKey::PasswordTabCount).toInt();
    }
    d.passwordReturnSwitchEnabled = o != 3;
    if (o == 3) {
        d.passwordReturnSwitchChecked = false;
        // The checkbox's own key, "websitePasswordEnter", is deliberately left alone.
        entry.insert(EntryKey::PasswordReturnSwitch, false);
    }
    d.userIDReturnSwitchEnabled = !(o == 0 || o == 1);
    if (o == 1) {
        // A two-page login always submits the user ID with Return.
        d.userIDReturnSwitchChecked = true;
        entry.insert(EntryKey::UserIDReturnSwitch, true);
    } else if (o == 0) {
        d.userIDReturnSwitchChecked = false;
        entry.remove(EntryKey::UserIDReturnSwitch);
    }
    return d;
}

PasswordOptionDisplay passwordOptionChanged(Entry &entry, int index)
{
    if (index == 0) {
        entry.remove(EntryKey::PasswordOptions);
        entry.remove(EntryKey::PasswordReturnSwitch);
        return displayPasswordOption(entry, 0);
    }
    entry.insert(EntryKey::PasswordOptions, index);
    PasswordOptionDisplay d = displayPasswordOption(entry, index);
    if (index == 1)
        d.passwordTabSwitchChecked = false; // shown unchecked; the stored switch stays as it was
    return d;
}

void browserChanged(Entry &entry, const QString &title, const QString &browserID)
{
    if (title == kBuiltInBrowser) {
        entry.insert(EntryKey::UseDVBrowser, true);
        return;
    }
    entry.remove(EntryKey::UseDVBrowser);
    if (title == kDefaultBrowser) {
        entry.remove(EntryKey::Browser);
        entry.remove(EntryKey::BrowserBundleID);
    } else {
        entry.insert(EntryKey::Browser, title);
        entry.insert(EntryKey::BrowserBundleID, browserID);
    }
}

} // namespace tess::loginoptions
