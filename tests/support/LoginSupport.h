#pragma once
// What the end-to-end login tests and the login benchmarks share: the login pages of
// tests/login_server.py on loopback, and Chromium as an entry's browser (a desktop file of the
// caller's own, a fresh profile, kept off the network).

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

namespace tess::testsupport {

// The login pages, served while the object lives; every posted form is recorded in `record`.
class LoginPages {
public:
    LoginPages() = default;
    ~LoginPages();
    LoginPages(const LoginPages &) = delete;
    LoginPages &operator=(const LoginPages &) = delete;

    bool start(const QString &record);
    QString url(const char *page) const;
    // The forms posted since the last call, once `count` of them have come (or timeoutMs passed).
    QList<QJsonObject> posted(int count, int timeoutMs = 20000);

private:
    QProcess m_server;
    QString m_record;
    int m_port = 0;
    qsizetype m_seen = 0;
};

// Writes a desktop file into $XDG_DATA_HOME/applications that handles http and https, and
// updates that folder's MIME cache.
bool installBrowserDesktopFile(const QString &desktopID, const QString &name, const QString &exec);
// The Chromium command line for a fresh profile in profileDir, kept off the network: the
// program and its arguments, and as one line for a desktop file.
QStringList chromiumArguments(const QString &profileDir);
QString chromiumCommand(const QString &profileDir);
// Starts that Chromium on the pages' "ready" page and waits until it has loaded it (a fresh
// profile's first start is slow, the more so on a busy machine); false when it did not in 60 s.
bool startChromium(const QString &profileDir, LoginPages &pages);
// Ends the Chromium processes of that profile (by process id), waiting up to 5 s.
void stopChromium(const QString &profileDir);

} // namespace tess::testsupport
