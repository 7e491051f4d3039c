#pragma once
// The application's logins: the one LoginRunner (typing through XTest, browsers through GIO),
// the floating warning and password panels, and what keeps the user out of a running login:
// no input reaches our windows, and Escape (or the warning's Cancel button) stops it.

#include "core/entries/Entry.h"
#include "platform/Workspace.h"

#include <QAbstractNativeEventFilter>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class QLabel;
class QLineEdit;
class QPushButton;
class QWidget;

namespace tess {

class DVBrowser;
class KeySink;
class LoginRunner;
class MyDocument;
class XkbKeyboardLayout;

class ApplicationLogin : public QObject, public QAbstractNativeEventFilter {
    Q_OBJECT

public:
    explicit ApplicationLogin(QObject *parent = nullptr);
    ~ApplicationLogin() override;

    static const QString kWarning;      // the warning panel's text
    static const QString kCannotLogIn;  // the title of a failure's message

    LoginRunner *runner() const { return m_runner; }
    QList<BrowserInfo> browsers() { return m_workspace->browsers(); }
    DVBrowser *builtInBrowser() const { return m_dvBrowser; }

    // A login for the document's window (its screen shows the panels; closing or locking it
    // stops the login). What cannot start is told to the user; answers whether it started.
    bool goTo(MyDocument *document, const Entry &entry);
    bool handleUserIDFromHotkey(MyDocument *document, const Entry &entry, bool fromHotkey);
    bool pastePasswordFromHotkey(MyDocument *document, const Entry &entry, bool fromHotkey);

    // Stops the running login; cancelFor only the document's.
    void cancel();
    void cancelFor(const MyDocument *document);
    void hideFloatingPassword();

    QWidget *floatingWarningPanel;
    QPushButton *floatingWarningCancel;
    QWidget *floatingPasswordPanel;
    QLineEdit *floatingPassword;
    // The last failure's message box, for tests.
    QPointer<QWidget> failureMessage;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *result) override;

private:
    bool start(MyDocument *document, const std::function<bool(QString *)> &login);
    void report(const QString &reason);
    void showPanel(QWidget *panel);
    void showFloatingWarning();
    void hideFloatingWarning();
    void showFloatingPassword(const QString &taken);
    void grabEscape(bool on);

    std::unique_ptr<XkbKeyboardLayout> m_layout;
    std::unique_ptr<KeySink> m_sink;
    std::unique_ptr<Workspace> m_workspace;
    LoginRunner *m_runner;
    DVBrowser *m_dvBrowser;
    QPointer<MyDocument> m_document;
    int m_escapeCode = 0;
    bool m_escapeGrabbed = false;
};

} // namespace tess
