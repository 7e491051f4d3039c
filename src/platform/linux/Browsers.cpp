#include "Browsers.h"

#include <QHash>

#include <algorithm>

#include <fcntl.h>
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

namespace tess {

namespace {

// Exit statuses of the browsers we started, by process id, as GLib reaps them.
QHash<qint64, int> &exitStatuses()
{
    static QHash<qint64, int> statuses;
    return statuses;
}

void childExited(GPid pid, gint status, gpointer)
{
    exitStatuses().insert(qint64(pid), status);
    g_spawn_close_pid(pid);
}

void rememberPid(GDesktopAppInfo *, GPid pid, gpointer data)
{
    *static_cast<GPid *>(data) = pid;
}

QString applicationName(GAppInfo *info)
{
    return QString::fromUtf8(g_app_info_get_name(info));
}

LaunchResult launch(GAppInfo *info, const QString &url)
{
    LaunchResult r;
    r.name = applicationName(info);
    const QByteArray uri = url.toUtf8();
    GList uris{const_cast<char *>(uri.constData()), nullptr, nullptr};
    GError *error = nullptr;
    gboolean ok;
    GPid pid = 0;
    if (G_IS_DESKTOP_APP_INFO(info)) {
        // The browser must not inherit our standard output: a caller reading it to its end
        // would wait for the browser to quit.
        const int devnull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        ok = g_desktop_app_info_launch_uris_as_manager_with_fds(
            G_DESKTOP_APP_INFO(info), &uris, nullptr, GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD),
            nullptr, nullptr, rememberPid, &pid, devnull, devnull, devnull, &error);
        if (devnull >= 0)
            ::close(devnull);
        if (ok && pid > 0)
            g_child_watch_add(pid, childExited, nullptr);
    } else {
        ok = g_app_info_launch_uris(info, &uris, nullptr, &error);
    }
    if (!ok) {
        r.status = LaunchResult::Failed;
        r.error = error ? QString::fromUtf8(error->message) : QStringLiteral("unknown error");
        if (error)
            g_error_free(error);
        return r;
    }
    r.status = LaunchResult::Started;
    r.pid = pid;
    return r;
}

} // namespace

bool GioWorkspace::browsersSort(const BrowserInfo &a, const BrowserInfo &b)
{
    return a.title < b.title;
}

QList<BrowserInfo> GioWorkspace::browsers()
{
    QList<BrowserInfo> list;
    GList *apps = g_app_info_get_all_for_type("x-scheme-handler/https");
    for (GList *i = apps; i; i = i->next) {
        auto *info = static_cast<GAppInfo *>(i->data);
        const char *id = g_app_info_get_id(info);
        // Hidden entries are helpers, not browsers a user would pick.
        if (id && g_app_info_should_show(info))
            list.append({applicationName(info), QString::fromUtf8(id)});
    }
    g_list_free_full(apps, g_object_unref);
    std::stable_sort(list.begin(), list.end(), browsersSort);
    return list;
}

LaunchResult GioWorkspace::openURLWithApplication(const QString &url, const QString &desktopID)
{
    GDesktopAppInfo *info = g_desktop_app_info_new(desktopID.toUtf8().constData());
    if (!info) {
        LaunchResult r;
        r.status = LaunchResult::NotFound;
        r.error = QStringLiteral("%1 is not installed").arg(desktopID);
        return r;
    }
    LaunchResult r = launch(G_APP_INFO(info), url);
    g_object_unref(info);
    return r;
}

LaunchResult GioWorkspace::openURLInDefaultBrowser(const QString &url)
{
    GAppInfo *info = g_app_info_get_default_for_uri_scheme("https");
    if (!info)
        info = g_app_info_get_default_for_uri_scheme("http");
    if (!info) {
        LaunchResult r;
        r.status = LaunchResult::Failed;
        r.error = QStringLiteral("no default browser is set");
        return r;
    }
    LaunchResult r = launch(info, url);
    g_object_unref(info);
    return r;
}

bool GioWorkspace::launchFailed(const LaunchResult &launch, QString *why)
{
    if (launch.pid <= 0)
        return false;
    // GLib reaps the child from the event loop (Qt's runs GLib's main context here).
    const auto it = exitStatuses().constFind(launch.pid);
    if (it == exitStatuses().constEnd())
        return false;
    // A browser handing the address to one already running ends at once, successfully.
    GError *error = nullptr;
    if (g_spawn_check_wait_status(*it, &error))
        return false;
    if (why)
        *why = error ? QString::fromUtf8(error->message) : QStringLiteral("it ended at once");
    if (error)
        g_error_free(error);
    return true;
}

} // namespace tess
