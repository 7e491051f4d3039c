#pragma once
// Carries out logins: opens an entry's website in its browser and plays the login script of
// LoginScript.h through a KeySink. One login at a time; the GUI and tessaline-cli both use it.
//
// The entry is taken when a login starts: later edits of the entry do not change a login that
// is already running.

#include "core/login/LoginScript.h"
#include "platform/Workspace.h"

#include <QObject>
#include <QTimer>

#include <functional>

namespace tess {

class KeySink;

class LoginRunner : public QObject {
    Q_OBJECT

public:
    LoginRunner(KeySink *sink, Workspace *workspace, QObject *parent = nullptr);

    // The key code of "v" for pasting (gPasteCode).
    void setPasteCode(int pasteCode);
    // Where the settings come from when a login starts (default LoginSettings::fromPrefs) and
    // the typing speed when a field is reached (default "typeSpeed" of gPrefs).
    void setSettingsSource(std::function<LoginSettings()> source) { m_settings = std::move(source); }
    void setTypeSpeedSource(std::function<qint64()> source);

    // goTo: opens the entry's website ("http://" rule) in the entry's browser
    // ("websiteBrowserBundleID", falling back to the default browser when it is not installed)
    // and, when the entry logs in automatically, waits for the page and types the login.
    // Answers false with a reason when nothing was started: no URL (empty reason), a login
    // already running (kBusy), a browser that could not be started (named; nothing typed).
    // A started login ends with finished(), failed() or cancelled().
    bool goTo(const Entry &entry, QString *whyNot = nullptr);
    // The user-ID hot key (fromHotkey true) and what goTo types (false).
    bool handleUserIDFromHotkey(const Entry &entry, bool fromHotkey, QString *whyNot = nullptr);
    // The password hot key.
    bool pastePasswordFromHotkey(const Entry &entry, bool fromHotkey, QString *whyNot = nullptr);
    // Return alone (the built-in browser's next page).
    bool pressReturn(QString *whyNot = nullptr);

    // Stops a running login at once (document closed or locked, quit, Escape): nothing more is
    // typed, keys are released, Caps Lock and the keymap put back, the warning hidden.
    void cancel();
    bool isRunning() const;

    // The same text as the player's refusal.
    static inline const QString &kBusy = KeyScriptPlayer::kBusy;
    // How long the floating password stays up.
    static constexpr int kFloatingPasswordMs = 10000;

Q_SIGNALS:
    void showFloatingWarning();
    void hideFloatingWarning();
    void showFloatingPassword(const QString &password);
    void hideFloatingPassword();
    // The entry asks for the built-in browser ("websiteUseDVBrowser"): the GUI opens it.
    void openBuiltInBrowser(const QString &url, bool autoLogin);
    // A hook of the built-in browser reached by a script (see KeyAction::BuiltInBrowser).
    void builtInBrowserHook(const QString &name, int argument);
    void finished();
    void failed(const QString &reason);
    void cancelled();

private:
    bool start(const KeyScript &script, QString *whyNot);
    void onNotice(const KeyAction &action);
    void checkBrowser();

    Workspace *m_workspace;
    KeyScriptPlayer *m_player;
    std::function<LoginSettings()> m_settings;
    QTimer m_hidePassword;
    QTimer m_browserWatch;
    LaunchResult m_launch;
};

} // namespace tess
