#pragma once
// The login sequences as scripts: pure functions of the entry, the settings they read and how
// the login started, answering the keystrokes, pauses and panels in the order they happen.
// The typing speed is not an input: each field reads it when the player reaches it.

#include "core/login/Typing.h"

namespace tess {

// How a login started: Go To URL (or a recent website), or one of the two hot keys. A hot key
// means the user has put the cursor into the field already: no Tabs before it.
enum class LoginStart { GoTo, UserIDHotkey, PasswordHotkey };

struct LoginSettings {
    qint64 browserPageLoadDelay = 0; // seconds
    // From gPrefs ("browserPageLoadDelay"); zeros without a store.
    static LoginSettings fromPrefs();
};

// The whole sequence for a start: for GoTo the page-load wait and the login (empty when the
// entry does not log in automatically), for a hot key the fields it types.
KeyScript loginScript(const Entry &entry, LoginStart start, const LoginSettings &settings);

// The steps, as the login sequences call them.
KeyScript handleUserIDFromHotkey(const Entry &entry, bool fromHotkey, const LoginSettings &settings);
KeyScript pasteUserIDFromHotkey(const Entry &entry, bool fromHotkey);
KeyScript pastePasswordFromHotkey(const Entry &entry, bool fromHotkey, const LoginSettings &settings);

// Any non-zero "websiteNewUserIDOptions" logs in after opening the website.
bool autoLogin(const Entry &entry);
// The address opened: "http://" in front unless it begins with "http://", "https://" or
// "file://" (case-sensitive); empty when the entry has none.
QString urlToOpen(const Entry &entry);

} // namespace tess
