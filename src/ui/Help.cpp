#include "Help.h"

#include "ui/Controller.h"
#include "ui/Globals.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMenu>
#include <QPushButton>
#include <QStandardPaths>

namespace tess {

QStringList HelpAnchor::all()
{
    return {Files, ChangePassword, Entries, Generator, LoggingIn, HotKeys, Preferences, ImportExport, Import, CommandLine, Diagnostics};
}

QString helpBookDirectory(const QString &applicationDir)
{
    const QDir here(applicationDir);
    for (const QString &candidate : {here.filePath(QStringLiteral("help")), here.filePath(QStringLiteral("../share/tessaline/help"))})
        if (QFile::exists(candidate + QStringLiteral("/index.html")))
            return QDir::cleanPath(candidate);
    const QString installed = QStandardPaths::locate(QStandardPaths::GenericDataLocation, QStringLiteral("tessaline/help/index.html"));
    return installed.isEmpty() ? QString() : QFileInfo(installed).absolutePath();
}

namespace {
QString &chosenBookDirectory()
{
    static QString directory;
    return directory;
}
} // namespace

void setHelpBookDirectory(const QString &directory)
{
    chosenBookDirectory() = directory;
}

QUrl helpURL(const QString &bookDirectory, const QString &anchor)
{
    const QDir book(bookDirectory);
    QString page = book.filePath(QStringLiteral("index.html"));
    if (!anchor.isEmpty()) {
        const QByteArray id = "id=\"" + anchor.toUtf8() + '"';
        for (const QString &name : book.entryList({QStringLiteral("*.html")}, QDir::Files, QDir::Name)) {
            QFile f(book.filePath(name));
            if (f.open(QIODevice::ReadOnly) && f.readAll().contains(id)) {
                page = book.filePath(name);
                break;
            }
        }
    }
    QUrl url = QUrl::fromLocalFile(page);
    if (!anchor.isEmpty())
        url.setFragment(anchor);
    return url;
}

void showHelp(const QString &anchor)
{
    const QString book =
        chosenBookDirectory().isEmpty() ? helpBookDirectory(QCoreApplication::applicationDirPath()) : chosenBookDirectory();
    if (book.isEmpty()) {
        gDebugInfo += QStringLiteral("Help book not found beside %1\n").arg(QCoreApplication::applicationDirPath());
        return;
    }
    QDesktopServices::openUrl(helpURL(book, anchor));
}

QPushButton *helpButton(const QString &anchor, QWidget *parent)
{
    auto *button = new QPushButton(QIcon::fromTheme(QStringLiteral("help-contents")), QStringLiteral("Help"), parent);
    button->setObjectName(anchor);
    button->setProperty("helpAnchor", anchor);
    button->setAutoDefault(false);
    button->setFocusPolicy(Qt::NoFocus);
    button->setShortcut(QKeySequence::HelpContents); // F1 in the panel, as a keyboard user expects
    button->setToolTip(QStringLiteral("Opens Tessaline Help on this topic (%1)").arg(button->shortcut().toString(QKeySequence::NativeText)));
    QObject::connect(button, &QPushButton::clicked, button, [anchor] { showHelp(anchor); });
    return button;
}

void addHelpMenuItems(QMenu *help)
{
    QAction *book = help->addAction(QStringLiteral("Tessaline Help"));
    book->setShortcut(QKeySequence::HelpContents);
    QObject::connect(book, &QAction::triggered, help, [] { showHelp(); });
    const QList<std::pair<QString, QString>> topics = {
        {QStringLiteral("Password Files"), HelpAnchor::Files},       {QStringLiteral("Entries"), HelpAnchor::Entries},
        {QStringLiteral("Logging In"), HelpAnchor::LoggingIn},       {QStringLiteral("Hot Keys"), HelpAnchor::HotKeys},
        {QStringLiteral("Import and Export"), HelpAnchor::ImportExport}, {QStringLiteral("Command Line"), HelpAnchor::CommandLine},
    };
    QMenu *topicMenu = help->addMenu(QStringLiteral("Help Topics"));
    for (const auto &[title, anchor] : topics) {
        QAction *item = topicMenu->addAction(title);
        item->setProperty("helpAnchor", anchor);
        QObject::connect(item, &QAction::triggered, help, [anchor] { showHelp(anchor); });
    }
    help->addSeparator();
    QObject::connect(help->addAction(QStringLiteral("Send Debugging Information…")), &QAction::triggered, help, [] {
        if (gController)
            gController->emailTheAuthor();
    });
}

} // namespace tess
