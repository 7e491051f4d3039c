#include "LoginRunner.h"

#include "core/app/QWPrefs.h"
#include "platform/KeySink.h"

#include <QElapsedTimer>

namespace tess {

namespace {
// How often a freshly started browser is checked for having died at once.
constexpr int kBrowserWatchMs = 100;
} // namespace

LoginRunner::LoginRunner(KeySink *sink, Workspace *workspace, QObject *parent)
    : QObject(parent), m_workspace(workspace), m_player(new KeyScriptPlayer(sink, this)),
      m_settings(&LoginSettings::fromPrefs)
{
    m_hidePassword.setSingleShot(true);
    m_hidePassword.setInterval(kFloatingPasswordMs);
    connect(&m_hidePassword, &QTimer::timeout, this, &LoginRunner::hideFloatingPassword);
    m_browserWatch.setInterval(kBrowserWatchMs);
    connect(&m_browserWatch, &QTimer::timeout, this, &LoginRunner::checkBrowser);

    connect(m_player, &KeyScriptPlayer::notice, this, &LoginRunner::onNotice);
    connect(m_player, &KeyScriptPlayer::finished, this, [this] {
        m_browserWatch.stop();
        Q_EMIT finished();
    });
    connect(m_player, &KeyScriptPlayer::failed, this, [this](const QString &reason) {
        m_browserWatch.stop();
        Q_EMIT hideFloatingWarning();
        Q_EMIT failed(reason);
    });
    connect(m_player, &KeyScriptPlayer::cancelled, this, [this] {
        m_browserWatch.stop();
        Q_EMIT hideFloatingWarning();
        Q_EMIT cancelled();
    });
}

void LoginRunner::setPasteCode(int pasteCode)
{
    m_player->setPasteCode(pasteCode);
}

void LoginRunner::setTypeSpeedSource(std::function<qint64()> source)
{
    m_player->setTypeSpeedSource(std::move(source));
}

bool LoginRunner::isRunning() const
{
    return m_player->isPlaying();
}

bool LoginRunner::goTo(const Entry &entry, QString *whyNot)
{
    if (whyNot)
        whyNot->clear();
    if (isRunning()) {
        if (whyNot)
            *whyNot = kBusy;
        return false;
    }
    const QString url = urlToOpen(entry);
    if (url.isEmpty())
        return false;
    const bool login = autoLogin(entry);
    if (plistBool(entry.value(EntryKey::UseDVBrowser))) {
        Q_EMIT openBuiltInBrowser(url, login);
        Q_EMIT finished();
        return true;
    }
    const QString desktopID = entryString(entry, EntryKey::BrowserBundleID);
    QElapsedTimer requested;
    requested.start();
    LaunchResult launch;
    if (!desktopID.isEmpty())
        launch = m_workspace->openURLWithApplication(url, desktopID);
    // An uninstalled browser falls back to the default one; one that is there but does not
    // start is the user's to know about.
    if (desktopID.isEmpty() || launch.status == LaunchResult::NotFound)
        launch = m_workspace->openURLInDefaultBrowser(url);
    if (launch.status != LaunchResult::Started) {
        if (whyNot) {
            *whyNot = launch.name.isEmpty()
                          ? QStringLiteral("No browser could be started: %1").arg(launch.error)
                          : QStringLiteral("The browser \u201c%1\u201d could not be started: %2").arg(launch.name, launch.error);
        }
        return false;
    }
    if (!login) {
        Q_EMIT finished();
        return true;
    }
    m_launch = launch;
    // The page-load delay runs from the request to open the page: the browser is loading it
    // while it starts.
    if (whyNot)
        whyNot->clear();
    if (!m_player->play(loginScript(entry, LoginStart::GoTo, m_settings()), whyNot, requested.nsecsElapsed() / 1000))
        return false;
    if (m_player->isPlaying())
        m_browserWatch.start();
    return true;
}

bool LoginRunner::handleUserIDFromHotkey(const Entry &entry, bool fromHotkey, QString *whyNot)
{
    return start(tess::handleUserIDFromHotkey(entry, fromHotkey, m_settings()), whyNot);
}

bool LoginRunner::pastePasswordFromHotkey(const Entry &entry, bool fromHotkey, QString *whyNot)
{
    return start(tess::pastePasswordFromHotkey(entry, fromHotkey, m_settings()), whyNot);
}

bool LoginRunner::pressReturn(QString *whyNot)
{
    return start(nextPage(), whyNot);
}

bool LoginRunner::start(const KeyScript &script, QString *whyNot)
{
    if (whyNot)
        whyNot->clear();
    return m_player->play(script, whyNot);
}

void LoginRunner::cancel()
{
    m_browserWatch.stop();
    if (m_hidePassword.isActive()) {
        m_hidePassword.stop();
        Q_EMIT hideFloatingPassword();
    }
    m_player->cancel();
}

void LoginRunner::onNotice(const KeyAction &action)
{
    switch (action.type) {
    case KeyAction::ShowWarning:
        Q_EMIT showFloatingWarning();
        break;
    case KeyAction::HideWarning:
        Q_EMIT hideFloatingWarning();
        break;
    case KeyAction::ShowFloatingPassword:
        Q_EMIT showFloatingPassword(action.text);
        m_hidePassword.start();
        break;
    case KeyAction::BuiltInBrowser:
        Q_EMIT builtInBrowserHook(action.text, action.keyCode);
        break;
    default:
        break;
    }
}

void LoginRunner::checkBrowser()
{
    QString why;
    if (!m_workspace->launchFailed(m_launch, &why))
        return;
    // Nothing more is typed into whatever window has the focus instead.
    m_browserWatch.stop();
    const QString reason = QStringLiteral("The browser \u201c%1\u201d could not be started: %2").arg(m_launch.name, why);
    m_player->blockSignals(true);
    m_player->cancel();
    m_player->blockSignals(false);
    Q_EMIT hideFloatingWarning();
    Q_EMIT failed(reason);
}

} // namespace tess
