#include "Controller.h"

#include "core/app/QWPrefs.h"
#include "core/shortcuts/KeyNames.h"
#include "core/storage/PasswordFile.h"
#include "platform/x11/X11Session.h"
#include "ui/ApplicationLogin.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QTimer>

namespace tess {

const QString Controller::kBadPassword = QStringLiteral("Bad Password");
const QString Controller::kBadPasswordInfo =
    QStringLiteral("You need to enter the same password twice to create a password file.  Please try again.");
const QString Controller::kCreateTitle = QStringLiteral("Create Password File");
const QString Controller::kCreateMessage = QStringLiteral("Choose a name, location, and password to create a password file.");
const QString Controller::kAuthorizationNeeded = QStringLiteral("Authorization Needed");

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
    if (!gRecentWebsitesMenu) {
        gRecentWebsitesMenu = new QMenu(QStringLiteral("Go To Recent Website"));
        gRecentWebsitesMenu->addAction(QStringLiteral("Clear Menu"))->setEnabled(false);
    }
    PasswordFile::removeLeftoverScratchDirectories();
    m_login = std::make_unique<ApplicationLogin>();
    connect(qApp, &QCoreApplication::aboutToQuit, this, &Controller::applicationWillTerminate);
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
        if (!m_terminating)
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
    if (QFileInfo(path).suffix() == u"qvm")
        openDocument(path);
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
    for (;;) {
        QFileDialog dialog(nullptr, kCreateTitle, QDir::homePath());
        dialog.setOption(QFileDialog::DontUseNativeDialog);
        dialog.setAcceptMode(QFileDialog::AcceptSave);
        dialog.setFileMode(QFileDialog::AnyFile);
        dialog.setNameFilter(QStringLiteral("Password files (*.qvm)"));
        dialog.setDefaultSuffix(QStringLiteral("qvm"));
        dialog.setLabelText(QFileDialog::Accept, kCreateTitle);
        // The accessory view: the message and the password typed twice.
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
        if (auto *grid = qobject_cast<QGridLayout *>(dialog.layout()))
            grid->addWidget(framisView, grid->rowCount(), 0, 1, grid->columnCount());
        newFilePanel = &dialog;
        const bool accepted = dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty();
        const QString password1 = framis1->text(), password2 = framis2->text();
        framis1 = framis2 = nullptr;
        if (!accepted)
            return;
        QString path = dialog.selectedFiles().first();
        if (!path.endsWith(QStringLiteral(".qvm")))
            path += QStringLiteral(".qvm");
        if (!password1.isEmpty() && password1 == password2) {
            if (!PasswordFile::createPackage(path, password1)) {
                QMessageBox::warning(nullptr, kCreateTitle, QStringLiteral("%1 cannot be created.").arg(path));
                return;
            }
            openDocument(path);
            return;
        }
        QMessageBox box(QMessageBox::Warning, kBadPassword, kBadPassword);
        box.setInformativeText(kBadPasswordInfo);
        box.exec();
    }
}

void Controller::openDocumentWithDialog()
{
    // A password file is a folder ending in ".qvm".
    const QString path = QFileDialog::getExistingDirectory(nullptr, QStringLiteral("Open Password File"), QDir::homePath(),
                                                           QFileDialog::ShowDirsOnly);
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix() != u"qvm") {
        QMessageBox::warning(nullptr, QStringLiteral("Open Password File"),
                             QStringLiteral("%1 is not a password file (a folder whose name ends in \".qvm\").").arg(path));
        return;
    }
    openDocument(path);
}

void Controller::applicationWillTerminate()
{
    if (m_terminating || !gPrefs)
        return;
    m_terminating = true;
    // Nothing more is typed once the user has asked to quit.
    if (m_login)
        m_login->cancel();
    QVariantList paths;
    for (const auto &d : std::as_const(m_documents)) {
        if (!d)
            continue;
        if (d->isOpen())
            paths.append(d->filePath());
        d->close();
    }
    if (!paths.isEmpty())
        gPrefs->setObject(paths, Pref::LastPWFiles);
    else
        gPrefs->removeObjectForKey(Pref::LastPWFiles);
    gPrefs->synchronize();
}

void Controller::quit()
{
    applicationWillTerminate();
    QApplication::quit();
}

} // namespace tess
