#pragma once
// The desktop's applications for web addresses: which browsers there are, and opening an
// address in one of them or in the default browser.

#include <QList>
#include <QString>

namespace tess {

struct BrowserInfo {
    QString title;     // the application's name, shown in the browser pop-up
    QString desktopID; // its identity, stored as "websiteBrowserBundleID"
    bool operator==(const BrowserInfo &) const = default;
};

struct LaunchResult {
    enum Status {
        Started,
        NotFound, // no such application (uninstalled): the caller falls back to the default
        Failed,   // the application is there but could not be started
    };
    Status status = Failed;
    QString name;  // the application's name, for messages
    QString error; // what went wrong, for the user
    qint64 pid = 0;
};

class Workspace {
public:
    virtual ~Workspace() = default;
    // The applications that open https addresses, sorted by title.
    virtual QList<BrowserInfo> browsers() = 0;
    // Opens the address with the application of that desktop-file id, without waiting for it.
    virtual LaunchResult openURLWithApplication(const QString &url, const QString &desktopID) = 0;
    virtual LaunchResult openURLInDefaultBrowser(const QString &url) = 0;
    // Whether a started application has since ended in failure (a browser that exits at once
    // with an error); why, for the user.
    virtual bool launchFailed(const LaunchResult &launch, QString *why) { Q_UNUSED(launch); Q_UNUSED(why); return false; }
};

} // namespace tess
