#pragma once
// The world of the end-to-end login suites and the login benchmarks: login pages served on
// loopback (tests/login_server.py) recording every posted form, a browser desktop file of our
// own that starts Chromium with a fresh profile kept off the network, and one that cannot start.

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace tess::testsupport {

class LoginSite {
public:
    static const QString kBrowserID; // Chromium, as "E2E Chromium"
    static const QString kBrokenID;  // "Broken Browser", which exits at once

    // extraChromiumFlags go after the usual ones (the benchmarks' window size, for one).
    explicit LoginSite(QStringList extraChromiumFlags = {});
    ~LoginSite();
    LoginSite(const LoginSite &) = delete;
    LoginSite &operator=(const LoginSite &) = delete;

    // Starts the server and writes the desktop files into appsDir (a directory GIO reads).
    // Answers an error, or an empty string.
    QString start(const QString &appsDir);
    QString url(const char *page) const;
    // Chromium's first start with a fresh profile is slow, the more so on a busy machine:
    // starts it once and waits (up to 2 minutes) until it has shown a page, so that each login
    // then opens a tab in a running browser within the page-load delay.
    bool startBrowser();
    // The forms posted since the last call, once `count` of them have come (or timeoutMs
    // passed). Looks every 5 ms, with the event loop running.
    QList<QJsonObject> posted(int count, int timeoutMs = 20000);
    QString recordPath() const { return m_dir.filePath(QStringLiteral("posted.jsonl")); }
    // The CPU time, in seconds, that the Chromium of this site's profile has used so far, per
    // kind of process ("browser", "renderer", "gpu-process", "zygote", "utility", ...).
    QMap<QString, double> browserCpuSeconds() const;
    // Stops the server and the Chromium processes of this site's profile.
    void stop();

private:
    QStringList chromium() const;

    QStringList m_extraFlags;
    QTemporaryDir m_dir;
    QProcess m_server;
    int m_port = 0;
    qsizetype m_seen = 0;
};

} // namespace tess::testsupport
