#pragma once
// The end-to-end login suites' world: login pages served on loopback (tests/login_server.py)
// recording every posted form, a browser desktop file of the test's own that starts Chromium
// with a fresh profile kept off the network, and one that cannot start.

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace tess::testsupport {

class LoginSite {
public:
    static const QString kBrowserID; // Chromium, as "E2E Chromium"
    static const QString kBrokenID;  // "Broken Browser", which exits at once

    ~LoginSite();
    // Starts the server and writes the desktop files into appsDir (a directory GIO reads).
    // Answers an error, or an empty string.
    QString start(const QString &appsDir);
    QString url(const char *page) const;
    // Chromium's first start with a fresh profile is slow, the more so on a busy machine:
    // starts it once and waits until it has shown a page, so that each login then opens a tab
    // in a running browser within the page-load delay.
    bool startBrowser();
    // The forms posted since the last call, once `count` of them have come (or 20 s passed).
    QList<QJsonObject> posted(int count);
    QString recordPath() const { return m_dir.filePath(QStringLiteral("posted.jsonl")); }
    // Stops the server and the Chromium processes of this site's profile.
    void stop();

private:
    QStringList chromium() const;

    QTemporaryDir m_dir;
    QProcess m_server;
    int m_port = 0;
    qsizetype m_seen = 0;
};

} // namespace tess::testsupport
