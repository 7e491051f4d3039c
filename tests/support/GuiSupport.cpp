#include "GuiSupport.h"

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"
#include "support/FileSupport.h"
#include "ui/Controller.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QFileSystemModel>
#include <QLineEdit>
#include <QListView>
#include <QTreeView>
#include <QProcess>
#include <QTest>

namespace tess::testsupport {

ModalResponder::ModalResponder()
{
    qApp->installEventFilter(this);
    m_timer.setInterval(15);
    connect(&m_timer, &QTimer::timeout, this, [this] { poll(); });
    m_timer.start();
}

ModalResponder::~ModalResponder()
{
    qApp->removeEventFilter(this);
}

bool ModalResponder::eventFilter(QObject *o, QEvent *e)
{
    if (e->type() == QEvent::Show && o->isWidgetType()) {
        auto *w = static_cast<QWidget *>(o);
        if (w->isWindow() && w->isModal())
            m_shown.append(w);
    }
    return false;
}

void ModalResponder::setTimeLimit(int ms)
{
    m_deadline = QDeadlineTimer(ms);
}

namespace {
QList<QWidget *> modalWindowsShown()
{
    QList<QWidget *> out;
    for (QWidget *w : QApplication::topLevelWidgets())
        if (w->isVisible() && w->isModal())
            out.append(w);
    return out;
}
} // namespace

void ModalResponder::cancelAll()
{
    m_answers.clear();
    m_shown.clear();
    for (QWidget *w : modalWindowsShown())
        if (auto *dialog = qobject_cast<QDialog *>(w))
            dialog->reject();
        else
            w->close();
}

void ModalResponder::poll()
{
    // After a failed check every panel is cancelled: a panel left on screen would hold the
    // test in its modal loop until the watchdog kills the whole suite.
    if (QTest::currentTestFailed()) {
        cancelAll();
        return;
    }
    if (m_deadline.hasExpired() && (!done() || !modalWindowsShown().isEmpty())) {
        QStringList up;
        for (QWidget *w : modalWindowsShown())
            up.append(QStringLiteral("%1 \"%2\"").arg(QString::fromLatin1(w->metaObject()->className()), w->windowTitle()));
        const QString why = QStringLiteral("modal windows not answered in time (%1 answers due); on screen: %2")
                                .arg(m_answers.size())
                                .arg(up.isEmpty() ? QStringLiteral("none") : up.join(QStringLiteral(", ")));
        QTest::qFail(qPrintable(why), __FILE__, __LINE__);
        cancelAll();
        return;
    }
    while (!m_shown.isEmpty() && !m_answers.empty()) {
        QPointer<QWidget> w = m_shown.takeFirst();
        if (!w || !w->isVisible())
            continue;
        Answer a = std::move(m_answers.front());
        m_answers.pop_front();
        a(w);
        if (QTest::currentTestFailed() && w)
            m_shown.prepend(w); // cancelled on the next tick
        return;
    }
}

DocumentSuite::DocumentSuite() = default;
DocumentSuite::~DocumentSuite() = default;

void DocumentSuite::initTestCase()
{
    if (!qEnvironmentVariableIsSet("TESSALINE_TEST_SESSION"))
        QSKIP("needs the test session of `make test` (Xvfb, D-Bus, keyring)");
}

void DocumentSuite::init()
{
    m_home = std::make_unique<ScopedHome>();
    m_controller = std::make_unique<Controller>(&m_keychain);
    m_controller->awakeFromNib();
}

void DocumentSuite::cleanup()
{
    for (MyDocument *d : m_controller->documents())
        delete d;
    m_controller.reset();
    gPrefs = nullptr;
    m_home.reset();
}

MyDocument *DocumentSuite::open(const QString &path, const QString &password)
{
    return openDocument(m_controller.get(), path, password);
}

MyDocument *openDocument(Controller *controller, const QString &path, const QString &password)
{
    ModalResponder r;
    if (!password.isNull())
        r.then([password](QWidget *w) { typePassword(w, password); });
    controller->openFile(path);
    MyDocument *doc = controller->documentForPath(path);
    if (!doc)
        return nullptr;
    for (int i = 0; i < 300 && !doc->isOpen(); ++i)
        QTest::qWait(20);
    if (doc->isOpen())
        (void)QTest::qWaitForWindowActive(doc);
    return doc->isOpen() ? doc : nullptr;
}

bool activate(QWidget *w)
{
    for (int attempt = 0; attempt < 3; ++attempt) {
        w->raise();
        w->activateWindow();
        // QWindow::isActive also answers true for a dialog while its transient parent has the
        // focus: wait for the application to see the window active too, or keys go elsewhere.
        if (QTest::qWaitForWindowActive(w, 3000)
            && QTest::qWaitFor([w] { return QApplication::activeWindow() == w->window(); }, 3000))
            return true;
    }
    return false;
}

void selectByName(MyDocument *doc, const QString &name)
{
    doc->passwordTable->selectRowAlone(int(entryWithName(doc->file().passwordArray(), name)));
}

namespace {
void xdotool(const QStringList &args)
{
    QProcess p;
    p.start(QStringLiteral("xdotool"), args);
    // Keep handling events meanwhile: the keys go to our own windows.
    QTRY_VERIFY2(p.state() == QProcess::NotRunning, "xdotool did not end");
    QCOMPARE(p.exitCode(), 0);
    QTest::qWait(150);
}
} // namespace

void pressKeys(const QStringList &keys)
{
    xdotool(QStringList{QStringLiteral("key"), QStringLiteral("--delay"), QStringLiteral("40")} + keys);
}

void pressKeysHolding(const QString &held, const QStringList &keys)
{
    xdotool({QStringLiteral("keydown"), held});
    pressKeys(keys);
    xdotool({QStringLiteral("keyup"), held});
}

void typeText(const QString &text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("40"), text});
}

void moveMouse(const QPoint &global)
{
    xdotool({QStringLiteral("mousemove"), QString::number(global.x()), QString::number(global.y())});
}

void clickMouse(const QPoint &global)
{
    xdotool({QStringLiteral("mousemove"), QString::number(global.x()), QString::number(global.y()), QStringLiteral("click"),
             QStringLiteral("1")});
}

void typePassword(QWidget *w, const QString &password, QString *promptSeen)
{
    auto *panel = qobject_cast<PasswordPanel *>(w);
    QVERIFY2(panel, "expected the password panel");
    if (promptSeen)
        *promptSeen = panel->framisPrompt->text();
    panel->framisText->setText(password);
    panel->done(1);
}

QLineEdit *fileNameField(QWidget *panel)
{
    return panel ? panel->findChild<QLineEdit *>(QStringLiteral("fileNameEdit")) : nullptr;
}

void typeInFilePanel(QWidget *w, const QString &path)
{
    auto *dialog = qobject_cast<QFileDialog *>(w);
    QVERIFY2(dialog, "expected a file panel");
    QLineEdit *name = fileNameField(dialog);
    QVERIFY(name);
    const QFileInfo file(path);
    if (file.dir().exists()) {
        dialog->setDirectory(file.absolutePath());
        name->setText(file.fileName());
    } else {
        name->setText(file.absoluteFilePath()); // a folder that is not there: the whole path
    }
    // Queued: the panel may ask something of its own, and this answer must return first.
    QMetaObject::invokeMethod(dialog, "accept", Qt::QueuedConnection);
}

void doubleClickInFilePanel(QFileDialog *panel, const QString &path)
{
    QVERIFY(panel);
    // The list or the detailed view, whichever the panel shows.
    QAbstractItemView *view = panel->findChild<QListView *>(QStringLiteral("listView"));
    if (!view || !view->isVisible())
        view = panel->findChild<QAbstractItemView *>(QStringLiteral("treeView"));
    QVERIFY(view && view->isVisible());
    auto *model = qobject_cast<QFileSystemModel *>(view->model());
    QVERIFY(model);
    // The panel reads its folder in the background.
    QTRY_VERIFY(view->visualRect(model->index(path)).isValid());
    const QModelIndex index = model->index(path);
    view->scrollTo(index);
    // As the window system delivers a double click: press and release, then the double
    // click in place of the second press, and its release.
    const QPoint at = view->visualRect(index).center();
    QTest::mouseClick(view->viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(view->viewport(), Qt::LeftButton, {}, at);
    QTest::mouseRelease(view->viewport(), Qt::LeftButton, {}, at);
}

QVariantList bankList()
{
    return EntryList{Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://bank.example"}, {EntryKey::UserID, "me"}, {EntryKey::Button, ""}, {EntryKey::Notes, ""}},
                     Entry{{EntryKey::Path, "Mail"}, {EntryKey::Notes, "the bank sends mail here"}, {EntryKey::Button, ""}},
                     Entry{{EntryKey::Path, "Shop"}, {EntryKey::UserID2, "BANKER"}, {EntryKey::Button, ""}, {EntryKey::Notes, ""}}};
}


} // namespace tess::testsupport
