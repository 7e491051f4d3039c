#pragma once
// The per-entry login options as the entry editor changes them: what each control stores in
// the entry, what the password option forces on the controls that depend on it, and the
// one-time conversion of entries written with the older user-ID option.

#include "core/entries/Entry.h"

#include <optional>

namespace tess::loginoptions {

inline const QString kDefaultBrowser = QStringLiteral("Default Browser");
inline const QString kBuiltInBrowser = QStringLiteral("Ledgerton");

// An entry without "websiteNewUserIDOptions" gets the current scheme. Answers whether it did.
bool convertOlderOptions(Entry &entry);

// fieldChanged: stores a text field's value under its key, removing the key when emptied.
// Answers whether the change is to be marked (not when an absent key stays absent).
bool storeField(Entry &entry, const QString &key, const QString &text);

// What the user-ID option leaves enabled.
struct UserIDOptionDisplay {
    bool tabSwitchEnabled;
    bool tabsEnabled;
    std::optional<bool> tabSwitchChecked; // set: the switch shows this
    std::optional<int> tabsIndex;
};
UserIDOptionDisplay displayUserIDOption(int option, bool tabSwitchChecked);
void userIDOptionChanged(Entry &entry, int index);

// A Tab switch and its count: userID true for the user-ID pair, false for the password pair.
void tabChanged(Entry &entry, bool userID, bool switchOn, int countIndex);
void userIDReturnChanged(Entry &entry, bool checked);
void passwordReturnChanged(Entry &entry, bool checked);

// What the password option makes of its dependent controls, and stores in the entry.
struct PasswordOptionDisplay {
    bool passwordTabSwitchEnabled;
    bool passwordTabsEnabled;
    bool passwordReturnSwitchEnabled;
    bool userIDReturnSwitchEnabled;
    std::optional<bool> passwordTabSwitchChecked;
    std::optional<int> passwordTabsIndex;
    std::optional<bool> passwordReturnSwitchChecked;
    std::optional<bool> userIDReturnSwitchChecked;
};
PasswordOptionDisplay displayPasswordOption(Entry &entry, int option);
// passwordOptionsChanged: stores the index, then applies displayPasswordOption.
PasswordOptionDisplay passwordOptionChanged(Entry &entry, int index);

// browserChanged: the chosen item's title and the browser's identity (desktop-file id).
void browserChanged(Entry &entry, const QString &title, const QString &browserID);

} // namespace tess::loginoptions
