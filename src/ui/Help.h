#pragma once
// The help book: HTML pages installed with the program, shown in the user's browser at the
// topic a help button or menu item names.

#include <QString>
#include <QStringList>
#include <QUrl>

class QMenu;
class QPushButton;
class QWidget;

namespace tess {

// The topics that buttons and menu items open; each is an element id in one of the pages.
namespace HelpAnchor {
inline const QString Files = QStringLiteral("files");
inline const QString Entries = QStringLiteral("entries");
inline const QString Generator = QStringLiteral("generator");
inline const QString ChangePassword = QStringLiteral("change-password");
inline const QString LoggingIn = QStringLiteral("logging-in");
inline const QString HotKeys = QStringLiteral("hot-keys");
inline const QString Preferences = QStringLiteral("preferences");
inline const QString ImportExport = QStringLiteral("import-export");
inline const QString Import = QStringLiteral("import");
inline const QString CommandLine = QStringLiteral("command-line");
inline const QString Diagnostics = QStringLiteral("diagnostics");
QStringList all();
} // namespace HelpAnchor

// The folder holding index.html: "help" beside the binary in the build tree, else
// "../share/tessaline/help" of the install prefix, else the system's data folders.
QString helpBookDirectory(const QString &applicationDir);
// Where showHelp looks instead (empty: beside the application again).
void setHelpBookDirectory(const QString &directory);
// The page that holds the anchor (the contents page when none does), with the anchor.
QUrl helpURL(const QString &bookDirectory, const QString &anchor);
// showHelp: opens the book at the anchor (the contents for an empty one) in the browser.
void showHelp(const QString &anchor = QString());

// A panel's help button: named after its anchor (the identifier it asks the book for), it opens
// the book there. It takes no focus, so a panel's keyboard order stays as it was; F1 presses it.
QPushButton *helpButton(const QString &anchor, QWidget *parent = nullptr);

// The Help menu's items: the book, its main topics, and the support report.
void addHelpMenuItems(QMenu *help);

} // namespace tess
