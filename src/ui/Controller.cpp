#include "Controller.h"

#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "core/storage/PasswordFile.h"
#include "platform/x11/HotKeys.h"
#include "platform/x11/X11Session.h"
#include "ui/ApplicationLogin.h"
#include "ui/FilePanels.h"
#include "ui/Help.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/PreferencesDialog.h"
#include "ui/SupportReport.h"
#include "ui/ShortcutRecorder.h"
#include "ui/WebsitePasswordManager.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>

namespace tess {

const QString Controller::kBadPassword = QStringLiteral("Bad Password");
const QString Controller::kBadPasswordInfo =
    QStringLiteral("You need to enter the same password twice to create a password file.  Please try again.");
const QString Controller::kCreateTitle = QStringLiteral("Create Password File");
const QString Controller::kCreateMessage = QStringLiteral("Choose a name, location, and password to create a password file.");
const QString Controller::kAuthorizationNeeded = QStringLiteral("Authorization Needed");
const QString Controller::kEmptyPasswordInfo =
    QStringLiteral("The password is empty. Type the same password twice to create a password file.");
const QString Controller::kOpenTitle = QStringLiteral("Open Password File");

namespace {
constexpr quint32 kCommandOption = 2304;

// The key that gives this letter on the user's layout; its US position when none does.
int keyCodeOr(const QString &letter, int usPosition)
{
    const int code = keyCodeForKey(letter);
    return code >= 0 ? code : usPosition;
}
} // namespace

qint64 normalizedGeneratedPasswordLength(qint64 stored)
{
    const qint64 n = stored == 0 ? 16 : stored;
    if (n < 8)
        return 8;
    if (n < 12)
        return 12;
    if (n < 16)
        return 16;
    if (n < 20)
        return 20;
    if (n < 24)
        return 24;
    return n;
}

Controller::Controller(Keychain *keychain, QObject *parent) : QObject(parent), m_keychain(keychain)
{
}

Controller::~Controller()
{
    if (gController == this)
        gController = nullptr;
}

void Controller::awakeFromNib()
{
    // No location check on this platform: packages install where the system puts them.
    gController = this;
    gPasteCode = keyCodeOr(QStringLiteral("v"), 9);
    gDebugInfo.reserve(255);
    static std::unique_ptr<QWPrefs> prefs;
    prefs = std::make_unique<QWPrefs>(QWPrefs::applicationIDToLoad(), kApplicationID);
    gPrefs = prefs.get();
    warnAuthorization();
    gPrefs->setBool(true, Pref::ApplePersistenceIgnoreState);
    if (!gPrefs->objectForKey(Pref::HotkeyCodeUserID).isValid()) {
        const QString oldUser = gPrefs->objectForKey(Pref::HotkeyUserID).toString();
        if (!oldUser.isEmpty()) {
            // Older settings kept the hot keys as characters; their modifiers stay unset.
            auto code = [](const QString &c) { return qint64(keyCodeForKey(c)); };
            gPrefs->setInteger(code(oldUser), Pref::HotkeyCodeUserID);
            gPrefs->setInteger(code(gPrefs->objectForKey(Pref::HotkeyPassword).toString()), Pref::HotkeyCodePassword);
            gPrefs->removeObjectForKey(Pref::HotkeyUserID);
            gPrefs->removeObjectForKey(Pref::HotkeyPassword);
        } else {
            gPrefs->setInteger(keyCodeOr(QStringLiteral("u"), 32), Pref::HotkeyCodeUserID);
            gPrefs->setUInt32(kCommandOption, Pref::HotkeyUserIDModifierFlags);
            gPrefs->setInteger(keyCodeOr(QStringLiteral("p"), 35), Pref::HotkeyCodePassword);
            gPrefs->setUInt32(kCommandOption, Pref::HotkeyPasswordModifierFlags);
        }
    }
    if (!gPrefs->objectForKey(Pref::Version12).isValid()) {
        gPrefs->setBool(true, Pref::Version12);
        gPrefs->setBool(true, Pref::HoverUserID);
    }
    if (!gPrefs->objectForKey(Pref::ConfirmDelete).isValid())
        gPrefs->setBool(true, Pref::ConfirmDelete);
    gPrefs->setInteger(normalizedGeneratedPasswordLength(gPrefs->integerForKey(Pref::GeneratedPasswordLength)),
                       Pref::GeneratedPasswordLength);
    gPrefs->synchronize();
    if (!m_hotKeys && (m_hotKeys = HotKeys::createForApplication(this))) {
        connect(m_hotKeys, &HotKeys::hotKeyPressed, this, &Controller::hotKeyHandler);
        SRValidator::setSystemShortcuts(m_hotKeys);
    }
    SRValidator::setMainMenuSource(&ShortcutRecorder::applicationMenus);
    registerHotKeys();
    if (!gRecentWebsitesMenu) {
        gRecentWebsitesMenu = new QMenu(QStringLiteral("Go To Recent Website"));
        gRecentWebsitesMenu->addAction(QStringLiteral("Clear Menu"))->setEnabled(false);
    }
    gPrefs->watchForOutsideChanges();
    PasswordFile::removeLeftoverScratchDirectories();
    m_login = std::make_unique<ApplicationLogin>();
    connect(qApp, &QCoreApplication::aboutToQuit, this, &Controller::applicationWillTerminate);
}

void Controller::registerHotKeys()
{
    if (!m_hotKeys)
        return;
    m_hotKeys->registerHotKey(1, gPrefs->uInt32ForKey(Pref::HotkeyCodeUserID), gPrefs->uInt32ForKey(Pref::HotkeyUserIDModifierFlags));
    m_hotKeys->registerHotKey(2, gPrefs->uInt32ForKey(Pref::HotkeyCodePassword), gPrefs->uInt32ForKey(Pref::HotkeyPasswordModifierFlags));
}

void Controller::unRegisterHotKeys()
{
    if (!m_hotKeys)
        return;
    m_hotKeys->unregisterHotKey(1);
    m_hotKeys->unregisterHotKey(2);
}

bool Controller::hotKeyHandler(quint32 id)
{
    // The current document gates, the current manager types: a re-locked document clears only
    // the former, which silences both keys until its password is entered again.
    if (!gWebsiteDocument || !gWPM)
        return false;
    if (id == 1)
        gWPM->handleUserIDFromHotkey(true);
    else if (id == 2)
        gWPM->pastePasswordFromHotkey(true);
    else
        return false;
    return true;
}

void Controller::warnAuthorization()
{
    const char *why = nullptr;
    if (X11Session::canPostKeystrokes(&why))
        return;
    if (qEnvironmentVariable("QT_QPA_PLATFORM") == u"offscreen")
        return; // headless test runs have no desktop to type into
    const QString name = QApplication::applicationName();
    QMessageBox box(QMessageBox::Warning, kAuthorizationNeeded,
                    QStringLiteral("%1 cannot type your logins: %2.").arg(name, QString::fromLatin1(why)));
    box.setInformativeText(QStringLiteral(
        "%1 types user IDs and passwords by sending keystrokes through the X server's XTest extension.\n\n"
        "1. Log in to an X11 session (on GNOME or KDE, choose the \"on Xorg\" session at the login screen), or run %1 "
        "under XWayland.\n\n2. Make sure the X server offers XTest (Xorg does unless it was turned off).\n\n"
        "%1 will go on without typing until then.").arg(name));
    box.exec();
}

MyDocument *Controller::documentForPath(const QString &path) const
{
    const QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    for (const auto &d : m_documents)
        if (d && d->filePath() == clean)
            return d;
    return nullptr;
}

QList<MyDocument *> Controller::documents() const
{
    QList<MyDocument *> out;
    for (const auto &d : m_documents)
        if (d)
            out.append(d);
    return out;
}

MyDocument *Controller::openDocument(const QString &path)
{
    if (MyDocument *open = documentForPath(path)) {
        open->raise();
        open->activateWindow();
        return open;
    }
    auto *doc = new MyDocument(path, m_keychain);
    const QList<MyDocument *> others = documents();
    placeDocumentWindow(doc, others.isEmpty() ? nullptr : others.last());
    m_documents.append(doc);
    connect(doc, &MyDocument::closed, this, [this](MyDocument *d) {
        if (m_terminating)
            return;
        // Closing the last window ends the application: the files to reopen are taken now,
        // while this one is still open.
        const QList<MyDocument *> open = openDocuments();
        if (open == QList<MyDocument *>{d})
            rememberOpenFiles(open);
        m_documents.removeAll(d);
    });
    doc->show();
    // The window is on screen before any prompt.
    QTimer::singleShot(0, doc, [this, doc] {
        doc->openDatabase();
        if (doc->isOpen())
            Q_EMIT documentOpened(doc);
    });
    return doc;
}

bool Controller::openFile(const QString &path)
{
    // Shell completion ends a package's name with a slash.
    const QString clean = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (QFileInfo(clean).suffix() == u"qvm") {
        openDocument(clean);
        return true;
    }
    QMessageBox box(QMessageBox::Warning, QApplication::applicationName(), PasswordFile::kNotAPasswordFile);
    box.setInformativeText(QDir::toNativeSeparators(path));
    box.exec();
    return true;
}

void Controller::openFilesHandedOver(const QStringList &paths)
{
    for (const QString &p : paths)
        openFile(p);
    // A launch without files brings the windows forward.
    const QList<MyDocument *> docs = documents();
    if (paths.isEmpty() && !docs.isEmpty()) {
        docs.last()->raise();
        docs.last()->activateWindow();
    }
}

bool Controller::quitIfNothingOpen()
{
    for (QWidget *w : QApplication::topLevelWidgets())
        if (w->isVisible())
            return false;
    QCoreApplication::quit();
    return true;
}

bool Controller::applicationOpenUntitledFile()
{
    const QVariant files = gPrefs->objectForKey(Pref::LastPWFiles);
    if (files.isValid()) {
        int opened = 0;
        for (const QVariant &p : files.toList()) {
            if (QFileInfo::exists(p.toString())) {
                openDocument(p.toString());
                ++opened;
            }
        }
        if (opened)
            return true;
    } else {
        const QString last = gPrefs->objectForKey(Pref::LastPWFile).toString();
        if (!last.isEmpty() && QFileInfo::exists(last)) {
            openDocument(last);
            return true;
        }
    }
    newDocument();
    return true;
}

void Controller::newDocument()
{
    QString chosen = QDir::homePath() + QStringLiteral("/");
    for (;;) {
        // The panel comes back after a mistake with the name as it was.
        PackageFileDialog dialog(PackageFileDialog::Purpose::Create, kCreateTitle, QFileInfo(chosen).absolutePath());
        if (!QFileInfo(chosen).fileName().isEmpty())
            dialog.selectFile(QFileInfo(chosen).fileName());
        dialog.setLabelText(QFileDialog::Accept, kCreateTitle);
        // The accessory view: the message and the password typed twice, and a way to an
        // existing file instead (the first-run panel is often the first thing a user sees).
        auto *framisView = new QWidget;
        auto *form = new QFormLayout(framisView);
        form->addRow(new QLabel(kCreateMessage));
        framis1 = new QLineEdit;
        framis2 = new QLineEdit;
        framis1->setObjectName(QStringLiteral("framis1"));
        framis2->setObjectName(QStringLiteral("framis2"));
        framis1->setEchoMode(QLineEdit::Password);
        framis2->setEchoMode(QLineEdit::Password);
        form->addRow(QStringLiteral("Password:"), framis1);
        form->addRow(QStringLiteral("Again:"), framis2);
        auto *openInstead = new QPushButton(QStringLiteral("&Open Existing File…"));
        openInstead->setObjectName(QStringLiteral("openExistingButton"));
        openInstead->setAutoDefault(false);
        bool wantsOpen = false;
        connect(openInstead, &QPushButton::clicked, &dialog, [&] {
            wantsOpen = true;
            dialog.reject();
        });
        auto *row = new QHBoxLayout;
        row->addWidget(openInstead);
        row->addStretch();
        row->addWidget(helpButton(HelpAnchor::Files));
        form->addRow(QString(), row);
        if (auto *grid = qobject_cast<QGridLayout *>(dialog.layout()))
            grid->addWidget(framisView, grid->rowCount(), 0, 1, grid->columnCount());
        newFilePanel = &dialog;
        const bool accepted = dialog.exec() == QDialog::Accepted && !dialog.chosenPackage().isEmpty();
        const QString password1 = framis1->text(), password2 = framis2->text();
        framis1 = framis2 = nullptr;
        if (wantsOpen) {
            if (openDocumentWithDialog())
                return;
            continue; // back to the choice
        }
        if (!accepted)
            return;
        chosen = dialog.chosenPackage();
        if (password1.isEmpty() || password1 != password2) {
            QMessageBox box(QMessageBox::Warning, kBadPassword, kBadPassword);
            box.setInformativeText(password1.isEmpty() && password2.isEmpty() ? kEmptyPasswordInfo : kBadPasswordInfo);
            box.exec();
            continue;
        }
        if (dialog.replaceExisting() && !moveAsideForReplacing(chosen))
            return;
        if (!PasswordFile::createPackage(chosen, password1)) {
            QMessageBox::warning(nullptr, kCreateTitle, QStringLiteral("%1 cannot be created.").arg(chosen));
            return;
        }
        openDocument(chosen);
        return;
    }
}

bool Controller::moveAsideForReplacing(const QString &path)
{
    QString why;
    if (documentForPath(path))
        why = QStringLiteral("It is open: close its window first.");
    else if (!QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
             || !QFile::moveToTrash(path)) // the trash goes inside the data folder, which must exist
        why = QStringLiteral("It could not be moved to the trash.");
    if (why.isEmpty())
        return true;
    QMessageBox box(QMessageBox::Warning, kCreateTitle, QStringLiteral("%1 was not replaced.").arg(QFileInfo(path).fileName()));
    box.setInformativeText(why);
    box.exec();
    return false;
}

bool Controller::openDocumentWithDialog()
{
    PackageFileDialog dialog(PackageFileDialog::Purpose::Open, kOpenTitle, QDir::homePath());
    openFilePanel = &dialog;
    if (dialog.exec() != QDialog::Accepted || dialog.chosenPackage().isEmpty())
        return false;
    openFile(dialog.chosenPackage());
    return documentForPath(dialog.chosenPackage()) != nullptr;
}

QList<MyDocument *> Controller::openDocuments() const
{
    QList<MyDocument *> out;
    for (MyDocument *d : documents())
        if (d->isOpen())
            out.append(d);
    return out;
}

void Controller::rememberOpenFiles(const QList<MyDocument *> &docs)
{
    QVariantList paths;
    for (MyDocument *d : docs)
        paths.append(d->filePath());
    if (!paths.isEmpty())
        gPrefs->setObject(paths, Pref::LastPWFiles);
    else
        gPrefs->removeObjectForKey(Pref::LastPWFiles);
    gPrefs->synchronize();
    m_remembered = true;
}

void Controller::applicationWillTerminate()
{
    if (m_terminating || !gPrefs)
        return;
    m_terminating = true;
    // Nothing more is typed once the user has asked to quit.
    if (m_login)
        m_login->cancel();
    const QList<MyDocument *> open = openDocuments();
    for (MyDocument *d : documents())
        d->close();
    // With no window left, what was open when the last one closed stands.
    if (!open.isEmpty() || !m_remembered)
        rememberOpenFiles(open);
    else
        gPrefs->synchronize();
}

void Controller::quit()
{
    applicationWillTerminate();
    QApplication::quit();
}

void Controller::preferences()
{
    PreferencesDialog panel(QApplication::activeWindow());
    panel.unRegisterHotKeys = [this] { unRegisterHotKeys(); };
    panel.registerHotKeys = [this] { registerHotKeys(); };
    panel.runPreferences();
}

void Controller::emailTheAuthor()
{
    tess::emailTheAuthor(QApplication::activeWindow());
}

} // namespace tess
