#include "GuiSupport.h"

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "ui/Controller.h"
#include "ui/MyDocument.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QEvent>
#include <QLabel>
#include <QLineEdit>
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

void ModalResponder::poll()
{
    while (!m_shown.isEmpty() && !m_answers.empty()) {
        QPointer<QWidget> w = m_shown.takeFirst();
        if (!w || !w->isVisible())
            continue;
        Answer a = std::move(m_answers.front());
        m_answers.pop_front();
        a(w);
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
        if (QTest::qWaitForWindowActive(w, 3000))
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

void typeText(const QString &text)
{
    xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("40"), text});
}

void moveMouse(const QPoint &global)
{
    xdotool({QStringLiteral("mousemove"), QString::number(global.x()), QString::number(global.y())});
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

} // namespace tess::testsupport
