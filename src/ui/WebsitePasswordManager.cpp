#include "WebsitePasswordManager.h"

#include "core/login/LoginScript.h"
#include "core/storage/PasswordFile.h"
#include "ui/ApplicationLogin.h"
#include "ui/Controller.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"

#include <QMenu>

namespace tess {

const QString WebsitePasswordManager::kClearMenu = QStringLiteral("Clear Menu");

WebsitePasswordManager::WebsitePasswordManager(MyDocument *document, PasswordFile *file)
    : QObject(document), m_document(document), m_file(file)
{
}

void WebsitePasswordManager::setRecentWebsitesMenu(QMenu *menu, const QStringList &titles)
{
    m_recentWebsiteMenu = menu;
    if (!menu)
        return;
    menu->clear();
    QAction *clear = menu->addAction(kClearMenu);
    clear->setEnabled(!titles.isEmpty());
    if (titles.isEmpty())
        return;
    connect(clear, &QAction::triggered, this, &WebsitePasswordManager::clearRecentWebsiteMenu);
    QAction *separator = menu->insertSeparator(clear);
    QAction *before = separator;
    for (qsizetype i = titles.size() - 1; i >= 0; --i) {
        auto *item = new QAction(titles[i], menu);
        const QString title = titles[i];
        connect(item, &QAction::triggered, m_document, [this, title] { m_document->goToRecent(title); });
        menu->insertAction(before, item);
        before = item;
    }
}

void WebsitePasswordManager::initRecentWebsitesMenu(QMenu *menu, const QStringList &titles)
{
    setRecentWebsitesMenu(menu, titles);
}

void WebsitePasswordManager::resetRecentWebsitesMenu(QMenu *menu)
{
    setRecentWebsitesMenu(menu, m_file->recentWebsiteTitles());
}

QStringList WebsitePasswordManager::recentWebsiteTitles() const
{
    return m_file->recentWebsiteTitles();
}

void WebsitePasswordManager::rebuild()
{
    if (m_recentWebsiteMenu)
        setRecentWebsitesMenu(m_recentWebsiteMenu, m_file->recentWebsiteTitles());
}

void WebsitePasswordManager::addRecentWebsiteMenuItemWithTitle(const QString &title)
{
    m_file->addRecentWebsite(title);
    rebuild();
}

void WebsitePasswordManager::deleteRecentWebsiteMenuItemWithTitle(const QString &title)
{
    m_file->deleteRecentWebsite(title);
    rebuild();
}

void WebsitePasswordManager::renameRecentWebsiteTitle(const QString &from, const QString &to)
{
    m_file->renameRecentWebsite(from, to);
    rebuild();
}

void WebsitePasswordManager::clearRecentWebsiteMenu()
{
    m_file->clearRecentWebsites();
    rebuild();
}

void WebsitePasswordManager::goTo()
{
    if (!gWebsiteItem || !gController)
        return;
    // The entry as it is now, taken whole: nothing done to the list afterwards changes what
    // this login types.
    const Entry entry = *gWebsiteItem.get();
    if (urlToOpen(entry).isEmpty())
        return;
    addRecentWebsiteMenuItemWithTitle(entryString(entry, EntryKey::Path));
    gController->login()->goTo(m_document, entry);
}

void WebsitePasswordManager::handleUserIDFromHotkey(bool fromHotkey)
{
    if (gWebsiteItem && gController)
        gController->login()->handleUserIDFromHotkey(gWebsiteItem.document(), *gWebsiteItem.get(), fromHotkey);
}

void WebsitePasswordManager::pastePasswordFromHotkey(bool fromHotkey)
{
    if (gWebsiteItem && gController)
        gController->login()->pastePasswordFromHotkey(gWebsiteItem.document(), *gWebsiteItem.get(), fromHotkey);
}

} // namespace tess
