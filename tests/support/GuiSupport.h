#pragma once
// Helpers of the GUI suites: opening documents, answering modal panels as a user would.

#include <QDeadlineTimer>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <deque>
#include <functional>

#include <memory>

#include "platform/linux/SecretServiceKeychain.h"
#include "support/TestSupport.h"

class QFileDialog;
class QLineEdit;

namespace tess {
class Controller;
class MyDocument;
} // namespace tess

namespace tess::testsupport {

// Answers modal windows as they come up, one answer each, in order. Every showing counts:
// a panel shown again (a retry) is a new question.
class ModalResponder : public QObject {
public:
    using Answer = std::function<void(QWidget *)>;
    ModalResponder();
    ~ModalResponder() override;
    void then(Answer a) { m_answers.push_back(std::move(a)); }
    bool done() const { return m_answers.empty(); }
    // No waiting for ever: `ms` from now, if answers are still due or a modal window is still
    // up, the test fails, naming the windows on screen, and every modal window is cancelled
    // (so that the code that opened them returns).
    void setTimeLimit(int ms);

protected:
    bool eventFilter(QObject *o, QEvent *e) override;

private:
    void poll();
    void cancelAll();
    QTimer m_timer;
    QDeadlineTimer m_deadline = QDeadlineTimer::Forever;
    std::deque<Answer> m_answers;
    QList<QPointer<QWidget>> m_shown;
};

// The fixture of a suite of whole windows: each test gets a fresh HOME and a controller that
// has run its start-up there, on the test session's X server and keyring; at its end every
// window is closed.
class DocumentSuite : public QObject {
    Q_OBJECT

protected:
    DocumentSuite();
    ~DocumentSuite() override;
    QString pkg(const QString &name) const { return m_home->path() + QStringLiteral("/") + name; }
    MyDocument *open(const QString &path, const QString &password = QStringLiteral("pw"));

    std::unique_ptr<ScopedHome> m_home;
    SecretServiceKeychain m_keychain;
    std::unique_ptr<Controller> m_controller;

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
};

// Opens the file as application:openFile: does, typing the password when asked (a null
// password: expect no prompt). The open document, its window active, or null.
MyDocument *openDocument(Controller *controller, const QString &path, const QString &password = QStringLiteral("pw"));
// Makes the window the active one, as a click on it would.
bool activate(QWidget *w);
void selectByName(MyDocument *doc, const QString &name);

// The keyboard and mouse through the X server (XTest, by xdotool), into whatever window has
// the focus, as a user's would be; each returns once the events have been handled here.
// Keys are xdotool's names: "ctrl+f", "Tab", "shift+Tab", "Return".
void pressKeys(const QStringList &keys);
// The keys pressed while `held` (a modifier: "ctrl") is held down, then `held` let go.
void pressKeysHolding(const QString &held, const QStringList &keys);
void typeText(const QString &text);
void moveMouse(const QPoint &global);
void clickMouse(const QPoint &global);

// Types the password into the document's password panel and presses OK.
void typePassword(QWidget *w, const QString &password, QString *promptSeen = nullptr);

// In a file panel (File > New or File > Open): goes to the path's folder, types its name into
// the name field and presses the panel's button, as a user would (the whole path when its
// folder does not exist). Never select the file with
// QFileDialog::selectFile on a panel on screen: once the name field has the focus (which the
// window manager gives it at a moment of its choosing), selectFile leaves the field as it is,
// and the panel then goes into the folder instead of closing.
void typeInFilePanel(QWidget *w, const QString &path);
// The name field of a file panel.
QLineEdit *fileNameField(QWidget *panel);
// Double-clicks the item of the panel's list, once the panel shows it.
void doubleClickInFilePanel(QFileDialog *panel, const QString &path);

// Three entries that "bank" finds in three ways (name, notes, second user ID).
QVariantList bankList();

} // namespace tess::testsupport
