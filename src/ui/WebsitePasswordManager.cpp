#include "WebsitePasswordManager.h"

#include "core/storage/PasswordFile.h"
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

void WebsitePasswordManager::handleUserIDFromHotkey(bool fromHotkey)
{
    Q_UNUSED(fromHotkey);
}

void WebsitePasswordManager::pastePasswordFromHotkey(bool fromHotkey)
{
    Q_UNUSED(fromHotkey);
}

} // namespace tess
