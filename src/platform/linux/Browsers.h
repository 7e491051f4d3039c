#pragma once
// The desktop's browsers through GIO: the applications registered for https (a browser's
// identity is its desktop-file id, its title the application's name) and launching one.

#include "platform/Workspace.h"

#include <QHash>

namespace tess {

class GioWorkspace : public Workspace {
public:
    QList<BrowserInfo> browsers() override;
    LaunchResult openURLWithApplication(const QString &url, const QString &desktopID) override;
    LaunchResult openURLInDefaultBrowser(const QString &url) override;
    bool launchFailed(const LaunchResult &launch, QString *why) override;

    // browsersSort: by title, a plain case-sensitive comparison.
    static bool browsersSort(const BrowserInfo &a, const BrowserInfo &b);
};

} // namespace tess
