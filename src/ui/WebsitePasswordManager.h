#pragma once
// Per document: the recent-websites submenu over the document's list of titles. (Logging in,
// the login options and the generator join it as they are built.)

#include <QObject>
#include <QStringList>

class QMenu;

namespace tess {

class MyDocument;
class PasswordFile;

class WebsitePasswordManager : public QObject {
    Q_OBJECT

public:
    WebsitePasswordManager(MyDocument *document, PasswordFile *file);

    static const QString kClearMenu; // "Clear Menu"

    void setRecentWebsitesMenu(QMenu *menu, const QStringList &titles);
    // initRecentWebsitesMenu:withTitles: — the file's titles become the shown list.
    void initRecentWebsitesMenu(QMenu *menu, const QStringList &titles);
    void resetRecentWebsitesMenu(QMenu *menu);
    QStringList recentWebsiteTitles() const;
    void addRecentWebsiteMenuItemWithTitle(const QString &title);
    void deleteRecentWebsiteMenuItemWithTitle(const QString &title);
    void renameRecentWebsiteTitle(const QString &from, const QString &to);
    void clearRecentWebsiteMenu();

    // The hot keys: type the current entry's user ID, or its password, into the window in front.
    void handleUserIDFromHotkey(bool fromHotkey);
    void pastePasswordFromHotkey(bool fromHotkey);

private:
    void rebuild();

    MyDocument *m_document;
    PasswordFile *m_file;
    QMenu *m_recentWebsiteMenu = nullptr;
};

} // namespace tess
