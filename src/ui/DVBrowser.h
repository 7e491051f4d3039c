#pragma once
// The built-in browser of Ledgerton, as a document type: an untitled document whose
// operations are the hooks a login reaches. This system has no built-in browser, so each
// hook deliberately does nothing; the login sequences still call every one of them.

#include <QObject>
#include <QString>

namespace tess {

class DVBrowser : public QObject {
    Q_OBJECT

public:
    static const QString kDocumentType; // "DVBrowser"

    explicit DVBrowser(QObject *parent = nullptr) : QObject(parent) {}

    void showAutoWarning() {}
    void clearAutoWarning() {}
    void loadURLRequest(const QString &url, bool autoLogin) { Q_UNUSED(url); Q_UNUSED(autoLogin); }
    void setAutoLogin(int state) { Q_UNUSED(state); }

    // A hook by the name a login script gives it (KeyAction::BuiltInBrowser).
    void hook(const QString &name, int argument);
};

} // namespace tess
