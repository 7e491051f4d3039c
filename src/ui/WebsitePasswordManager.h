#pragma once
// Per document: logging in to the current entry (gWebsiteItem) through the application's
// login runner, and the recent-websites submenu over the document's list of titles.

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

    // Opens the current entry's website and, as its options say, logs in; the visit goes to
    // the top of the recent websites. Nothing happens without a current entry or an address.
    void goTo();
    // The hot keys' entry points: type the current entry's user ID (and password, as its
    // options say) or its password into the window that has the focus.
    void handleUserIDFromHotkey(bool fromHotkey);
    void pastePasswordFromHotkey(bool fromHotkey);

private:
    void rebuild();

    MyDocument *m_document;
    PasswordFile *m_file;
    QMenu *m_recentWebsiteMenu = nullptr;
};

} // namespace tess
