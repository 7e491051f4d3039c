#include "ApplicationLogin.h"

#include "core/login/LoginRunner.h"
#include "core/shortcuts/KeyNames.h"
#include "platform/KeySink.h"
#include "platform/linux/Browsers.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"
#include "ui/DVBrowser.h"
#include "ui/Globals.h"
#include "ui/MyDocument.h"
#include "ui/WebsitePasswordManager.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QWindow>

#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon.h>

namespace tess {

const QString ApplicationLogin::kWarning =
    QStringLiteral("Tessaline is logging you in. Please wait, or press Escape to stop.");
const QString ApplicationLogin::kCannotLogIn = QStringLiteral("Cannot Log In");

namespace {

// Without an X server nothing can be typed; a login says so instead of typing nowhere.
class NoKeySink : public KeySink {
public:
    void keyEvent(int, quint64, bool, const QString &) override {}
    void setClipboard(const QString &) override {}
    qint64 prepare(QStringView) override { return -1; }
    QString failureReason() const override
    {
        return QStringLiteral("Tessaline can type logins only in an X11 session.");
    }
};

xcb_connection_t *x11Connection()
{
    auto *x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t rootWindow(xcb_connection_t *c)
{
    return xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
}

// The key of the layout that gives Escape.
int escapeKeyCode(xkb_keymap *keymap)
{
    if (!keymap)
        return 0;
    for (xkb_keycode_t k = xkb_keymap_min_keycode(keymap); k <= xkb_keymap_max_keycode(keymap); ++k) {
        const xkb_keysym_t *syms = nullptr;
        const int n = xkb_keymap_key_get_syms_by_level(keymap, k, 0, 0, &syms);
        for (int i = 0; i < n; ++i)
            if (syms[i] == XKB_KEY_Escape)
                return int(k);
    }
    return 0;
}

bool isUserInput(QEvent::Type t)
{
    switch (t) {
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::ShortcutOverride:
    case QEvent::Shortcut:
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::Wheel:
    case QEvent::ContextMenu:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::InputMethod:
    case QEvent::Drop:
        return true;
    default:
        return false;
    }
}

QWidget *floatingPanel()
{
    // Above every window, the browser's included, and never taking the keyboard from it.
    auto *panel = new QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                           Qt::WindowDoesNotAcceptFocus);
    panel->setAttribute(Qt::WA_ShowWithoutActivating);
    panel->setAttribute(Qt::WA_X11NetWmWindowTypeNotification);
    panel->setAutoFillBackground(true);
    return panel;
}

} // namespace

ApplicationLogin::ApplicationLogin(QObject *parent) : QObject(parent), m_workspace(std::make_unique<GioWorkspace>())
{
    if (xcb_connection_t *c = x11Connection()) {
        m_layout = std::make_unique<XkbKeyboardLayout>(c);
        if (m_layout->isValid()) {
            qApp->installNativeEventFilter(m_layout.get());
            auto sink = std::make_unique<XTestKeySink>(c, m_layout.get());
            sink->setRefuseOwnFocus(true);
            m_sink = std::move(sink);
            m_escapeCode = escapeKeyCode(m_layout->keymap());
        }
    }
    if (!m_sink)
        m_sink = std::make_unique<NoKeySink>();
    m_runner = new LoginRunner(m_sink.get(), m_workspace.get(), this);
    const int pasteCode = keyCodeForKey(QStringLiteral("v"));
    m_runner->setPasteCode(pasteCode >= 0 ? pasteCode : 9);
    m_dvBrowser = new DVBrowser(this);

    floatingWarningPanel = floatingPanel();
    floatingWarningPanel->setObjectName(QStringLiteral("floatingWarningPanel"));
    auto *warningRow = new QHBoxLayout(floatingWarningPanel);
    auto *warningText = new QLabel(kWarning);
    warningText->setStyleSheet(QStringLiteral("font-weight: bold"));
    floatingWarningCancel = new QPushButton(QStringLiteral("Cancel"));
    floatingWarningCancel->setFocusPolicy(Qt::NoFocus);
    warningRow->addWidget(warningText);
    warningRow->addWidget(floatingWarningCancel);
    connect(floatingWarningCancel, &QPushButton::clicked, this, &ApplicationLogin::cancel);

    floatingPasswordPanel = floatingPanel();
    floatingPasswordPanel->setObjectName(QStringLiteral("floatingPasswordPanel"));
    auto *passwordRow = new QHBoxLayout(floatingPasswordPanel);
    floatingPassword = new QLineEdit;
    floatingPassword->setObjectName(QStringLiteral("floatingPassword"));
    floatingPassword->setReadOnly(true);
    floatingPassword->setMinimumWidth(260);
    passwordRow->addWidget(new QLabel(QStringLiteral("Password:")));
    passwordRow->addWidget(floatingPassword);

    connect(m_runner, &LoginRunner::showFloatingWarning, this, &ApplicationLogin::showFloatingWarning);
    connect(m_runner, &LoginRunner::hideFloatingWarning, this, &ApplicationLogin::hideFloatingWarning);
    connect(m_runner, &LoginRunner::showFloatingPassword, this, &ApplicationLogin::showFloatingPassword);
    connect(m_runner, &LoginRunner::hideFloatingPassword, floatingPasswordPanel, &QWidget::hide);
    connect(m_runner, &LoginRunner::failed, this, &ApplicationLogin::report);
    // Whatever way a login ends, the warning goes and Escape is the user's again.
    for (auto end : {&LoginRunner::finished, &LoginRunner::cancelled})
        connect(m_runner, end, this, &ApplicationLogin::hideFloatingWarning);
    connect(m_runner, &LoginRunner::openBuiltInBrowser, m_dvBrowser, &DVBrowser::loadURLRequest);
    connect(m_runner, &LoginRunner::builtInBrowserHook, m_dvBrowser, &DVBrowser::hook);
    // The built-in browser's timers, once one of its windows is key.
    connect(m_dvBrowser, &DVBrowser::pastePasswordFromTimer, this, [] {
        if (gWPM)
            gWPM->pastePasswordFromHotkey(false);
    });
    connect(m_dvBrowser, &DVBrowser::pasteNextPageFromTimer, this, [this] { m_runner->pressReturn(); });

    qApp->installEventFilter(this);
    qApp->installNativeEventFilter(this);
}

ApplicationLogin::~ApplicationLogin()
{
    qApp->removeNativeEventFilter(this);
    if (m_layout && m_layout->isValid())
        qApp->removeNativeEventFilter(m_layout.get());
    m_runner->cancel();
    grabEscape(false);
    delete floatingWarningPanel;
    delete floatingPasswordPanel;
    delete m_runner; // before the sink it types through
    m_runner = nullptr;
}

bool ApplicationLogin::goTo(MyDocument *document, const Entry &entry)
{
    return start(document, [&](QString *why) { return m_runner->goTo(entry, why); });
}

bool ApplicationLogin::handleUserIDFromHotkey(MyDocument *document, const Entry &entry, bool fromHotkey)
{
    return start(document, [&](QString *why) { return m_runner->handleUserIDFromHotkey(entry, fromHotkey, why); });
}

bool ApplicationLogin::pastePasswordFromHotkey(MyDocument *document, const Entry &entry, bool fromHotkey)
{
    return start(document, [&](QString *why) { return m_runner->pastePasswordFromHotkey(entry, fromHotkey, why); });
}

bool ApplicationLogin::start(MyDocument *document, const std::function<bool(QString *)> &login)
{
    if (!m_runner->isRunning())
        m_document = document;
    QString whyNot;
    if (login(&whyNot))
        return true;
    // A second request while one runs is simply not taken: the user is already being logged in.
    if (!whyNot.isEmpty() && whyNot != LoginRunner::kBusy)
        report(whyNot);
    return false;
}

void ApplicationLogin::report(const QString &reason)
{
    auto *box = new QMessageBox(QMessageBox::Warning, kCannotLogIn, reason, QMessageBox::Ok, m_document);
    box->setAttribute(Qt::WA_DeleteOnClose);
    failureMessage = box;
    box->open();
}

void ApplicationLogin::cancel()
{
    m_runner->cancel();
    hideFloatingWarning();
}

void ApplicationLogin::cancelFor(const MyDocument *document)
{
    if (m_runner->isRunning() && m_document == document)
        cancel();
    // A password on show belongs to the document too.
    if (m_document == document)
        hideFloatingPassword();
}

void ApplicationLogin::hideFloatingPassword()
{
    floatingPasswordPanel->hide();
}

void ApplicationLogin::showPanel(QWidget *panel)
{
    QScreen *screen = m_document ? m_document->screen() : QGuiApplication::primaryScreen();
    const QRect area = screen->availableGeometry();
    panel->adjustSize();
    panel->move(area.center().x() - panel->width() / 2, area.top() + area.height() / 8);
    panel->show();
    panel->raise();
}

void ApplicationLogin::showFloatingWarning()
{
    showPanel(floatingWarningPanel);
    grabEscape(true);
}

void ApplicationLogin::hideFloatingWarning()
{
    grabEscape(false);
    floatingWarningPanel->hide();
}

void ApplicationLogin::showFloatingPassword(const QString &taken)
{
    Q_UNUSED(taken);
    // The panel shows the current entry's password as it is when the panel comes up (the
    // editor's field, when the entry is open in it), not the one the login took at its start:
    // the page-load delay gives time to change it. No current entry or no password: no panel.
    const Entry *entry = gWebsiteItem.get();
    const QString password = entry ? entryString(*entry, EntryKey::Password) : QString();
    if (password.isEmpty())
        return;
    floatingPassword->setText(password);
    showPanel(floatingPasswordPanel);
}

// Escape is taken with a passive grab on the root window: the browser keeps the focus, and
// only that key comes to us while the warning shows. Not with any modifier (window managers
// bind Alt+Escape): plain, and with Caps Lock or Num Lock on.
void ApplicationLogin::grabEscape(bool on)
{
    xcb_connection_t *c = x11Connection();
    if (!c || !m_escapeCode || on == m_escapeGrabbed)
        return;
    const xcb_window_t root = rootWindow(c);
    const uint16_t masks[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
    if (!on) {
        for (uint16_t mask : masks)
            xcb_ungrab_key(c, xcb_keycode_t(m_escapeCode), root, mask);
        xcb_flush(c);
        m_escapeGrabbed = false;
        return;
    }
    for (uint16_t mask : masks) {
        xcb_void_cookie_t cookie = xcb_grab_key_checked(c, 0, root, mask, xcb_keycode_t(m_escapeCode),
                                                        XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
        // Another program holding Escape leaves the Cancel button.
        if (xcb_generic_error_t *error = xcb_request_check(c, cookie))
            free(error);
        else
            m_escapeGrabbed = true;
    }
}

bool ApplicationLogin::nativeEventFilter(const QByteArray &type, void *message, qintptr *)
{
    if (!m_escapeGrabbed || type != "xcb_generic_event_t")
        return false;
    auto *e = static_cast<xcb_generic_event_t *>(message);
    if ((e->response_type & 0x7f) != XCB_KEY_PRESS && (e->response_type & 0x7f) != XCB_KEY_RELEASE)
        return false;
    auto *key = reinterpret_cast<xcb_key_press_event_t *>(e);
    if (key->detail != m_escapeCode || key->event != rootWindow(x11Connection()))
        return false;
    if ((e->response_type & 0x7f) == XCB_KEY_PRESS)
        cancel();
    return true;
}

bool ApplicationLogin::eventFilter(QObject *watched, QEvent *event)
{
    // While a login types, nothing the user does in our windows may come between its keys;
    // only the warning's Cancel button answers.
    if (!m_runner || !m_runner->isRunning() || !isUserInput(event->type()))
        return false;
    // Caught at the window already: a click would move the focus before reaching a widget.
    if (watched->isWindowType())
        return watched != floatingWarningPanel->windowHandle();
    auto *widget = qobject_cast<QWidget *>(watched);
    return widget && widget->window() != floatingWarningPanel;
}

} // namespace tess
