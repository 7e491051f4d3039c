#pragma once
// The built-in browser of Ledgerton, as a document type: an untitled document whose
// operations are the hooks a login reaches. This system has no built-in browser, so each
// hook deliberately does nothing; the login sequences still call every one of them.
//
// Its two timers do what the login asks of them: half a second after being scheduled, and
// then every second, without limit, each looks whether a built-in browser window is key; once
// one is, the password timer types the password (and clears the browser's warning) and the
// next-page timer presses Return. Without a built-in browser they keep looking.

#include <QObject>
#include <QString>
#include <QTimer>

namespace tess {

class DVBrowser : public QObject {
    Q_OBJECT

public:
    static const QString kDocumentType; // "DVBrowser"
    static constexpr int kFirstLookMs = 500;
    static constexpr int kLookAgainMs = 1000;

    explicit DVBrowser(QObject *parent = nullptr);

    void showAutoWarning() {}
    void clearAutoWarning() {}
    void loadURLRequest(const QString &url, bool autoLogin) { Q_UNUSED(url); Q_UNUSED(autoLogin); }
    void setAutoLogin(int state) { Q_UNUSED(state); }

    // A hook by the name a login script gives it (KeyAction::BuiltInBrowser).
    void hook(const QString &name, int argument);

    // Whether the key window belongs to a built-in browser document (its window's
    // "documentType" property names kDocumentType).
    static bool keyWindowIsBuiltInBrowser();
    // The timers, for tests: scheduled and still looking.
    bool isLookingToPastePassword() const { return m_pastePassword.isActive(); }
    bool isLookingToPasteNextPage() const { return m_pasteNextPage.isActive(); }

Q_SIGNALS:
    // A built-in browser window is key: type the password / press Return.
    void pastePasswordFromTimer();
    void pasteNextPageFromTimer();

private:
    void look(QTimer *timer);

    QTimer m_pastePassword;
    QTimer m_pasteNextPage;
};

} // namespace tess
