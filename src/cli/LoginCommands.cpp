// tessaline-cli login and type: the application's go-to-website and hot-key logins for one
// entry, for desktop launchers and scripts.

#include "Cli.h"

#include "core/app/QWPrefs.h"
#include "core/entries/EntryList.h"
#include "core/login/LoginRunner.h"
#include "core/shortcuts/KeyNames.h"
#include "core/storage/PasswordFile.h"
#include "platform/linux/Browsers.h"
#include "platform/x11/XTestKeySink.h"
#include "platform/x11/XkbKeyboardLayout.h"

#include <QAbstractNativeEventFilter>
#include <QClipboard>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QTimer>

#include <xcb/xcb.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstring>

namespace tess::cli {
namespace {

// How long a pasted field stays on offer for the target to read it.
constexpr int kClipboardServeMs = 10000;

volatile std::sig_atomic_t gInterrupted = 0;

void interrupted(int)
{
    gInterrupted = 1;
}

// Notes when another client asks us for the clipboard's contents (not only for its types).
class ClipboardReadWatch : public QAbstractNativeEventFilter {
public:
    explicit ClipboardReadWatch(xcb_connection_t *c) : m_c(c)
    {
        m_targets = atom("TARGETS");
        m_clipboard = atom("CLIPBOARD");
    }
    bool nativeEventFilter(const QByteArray &type, void *message, qintptr *) override
    {
        if (type != "xcb_generic_event_t")
            return false;
        auto *e = static_cast<xcb_generic_event_t *>(message);
        if ((e->response_type & 0x7f) == XCB_SELECTION_REQUEST) {
            auto *r = reinterpret_cast<xcb_selection_request_event_t *>(e);
            if (r->selection == m_clipboard && r->target != m_targets)
                ++reads;
        }
        return false;
    }
    int reads = 0;

private:
    xcb_atom_t atom(const char *name)
    {
        xcb_intern_atom_reply_t *r =
            xcb_intern_atom_reply(m_c, xcb_intern_atom(m_c, 0, uint16_t(std::strlen(name)), name), nullptr);
        const xcb_atom_t a = r ? r->atom : XCB_NONE;
        free(r);
        return a;
    }
    xcb_connection_t *m_c;
    xcb_atom_t m_targets = XCB_NONE, m_clipboard = XCB_NONE;
};

void waitWhile(const std::function<bool()> &condition, int limitMs)
{
    QElapsedTimer t;
    t.start();
    while (condition() && t.elapsed() < limitMs) {
        QEventLoop loop;
        QTimer::singleShot(10, &loop, &QEventLoop::quit);
        loop.exec();
    }
}

int runLogin(const QString &command, const QStringList &positional, const Entry &entry)
{
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *c = x11->connection();
    XkbKeyboardLayout layout(c);
    SRKeyCodeTransformer::setKeyboardLayout(&layout);
    XTestKeySink sink(c, &layout);
    GioWorkspace workspace;
    LoginRunner runner(&sink, &workspace);
    const int pasteCode = keyCodeForKey(QStringLiteral("v"));
    runner.setPasteCode(pasteCode >= 0 ? pasteCode : 9);
    ClipboardReadWatch watch(c);
    qGuiApp->installNativeEventFilter(&watch);

    bool pasted = false, shownNotTyped = false;
    QString failure;
    bool done = false, cancelled = false;
    QObject::connect(&runner, &LoginRunner::finished, [&] { done = true; });
    QObject::connect(&runner, &LoginRunner::failed, [&](const QString &reason) { failure = reason, done = true; });
    QObject::connect(&runner, &LoginRunner::cancelled, [&] { cancelled = true, done = true; });
    QObject::connect(&runner, &LoginRunner::showFloatingPassword, [&] { shownNotTyped = true; });
    QObject::connect(&runner, &LoginRunner::openBuiltInBrowser, [&] {
        failure = QStringLiteral("the entry opens its website in the built-in browser, which tessaline-cli does not have");
    });
    QObject::connect(qGuiApp->clipboard(), &QClipboard::dataChanged, [&] { pasted = true; });

    std::signal(SIGINT, interrupted);
    std::signal(SIGTERM, interrupted);
    QTimer interruptWatch;
    QObject::connect(&interruptWatch, &QTimer::timeout, [&] {
        if (gInterrupted)
            runner.cancel();
    });
    interruptWatch.start(20);

    QString why;
    bool started;
    if (command == u"login")
        started = runner.goTo(entry, &why);
    else if (positional.value(2) == u"userid")
        started = runner.handleUserIDFromHotkey(entry, true, &why);
    else
        started = runner.pastePasswordFromHotkey(entry, true, &why);
    if (!started) {
        error(why.isEmpty() ? QStringLiteral("%1 has no website address").arg(positional[1]) : why);
        return why.isEmpty() ? ExitUsage : ExitLoginFailed;
    }
    waitWhile([&] { return !done; }, INT_MAX);
    // Every keystroke has reached the server before we say so.
    free(xcb_get_input_focus_reply(c, xcb_get_input_focus(c), nullptr));
    if (pasted && failure.isEmpty() && !cancelled) {
        const int before = watch.reads;
        waitWhile([&] { return watch.reads == before && !gInterrupted; }, kClipboardServeMs);
        waitWhile([] { return true; }, 100); // let the transfer end
    }
    // Bindings for unusual characters go when the receiver has read them, not at once.
    waitWhile([&] { return sink.spareKeycodesInUse() > 0 && !gInterrupted; }, 30000);
    qGuiApp->removeNativeEventFilter(&watch);
    if (cancelled) {
        error(QStringLiteral("cancelled: the login is incomplete"));
        return ExitLoginFailed;
    }
    if (!failure.isEmpty()) {
        error(failure);
        return ExitLoginFailed;
    }
    if (shownNotTyped)
        error(QStringLiteral("the password of %1 is to be read, not typed: it was not typed").arg(positional[1]));
    return ExitOK;
}

} // namespace

bool isLoginCommand(const QString &command)
{
    return command == u"login" || command == u"type";
}

int runLoginCommand(const QString &command, const QStringList &args)
{
    QStringList rest = args;
    const bool passwordStdin = takeFlag(rest, QStringLiteral("--password-stdin"));
    const bool noKeychain = takeFlag(rest, QStringLiteral("--no-keychain"));
    const bool login = command == u"login";
    const bool usable = login ? rest.size() == 2
                              : rest.size() == 3 && (rest[2] == u"userid" || rest[2] == u"password");
    if (!usable || std::any_of(rest.cbegin(), rest.cend(), [](const QString &a) { return a.startsWith(u"--"); })) {
        error(login ? QStringLiteral("usage: tessaline-cli login FILE.qvm NAME [--password-stdin] [--no-keychain]")
                    : QStringLiteral("usage: tessaline-cli type FILE.qvm NAME userid|password [--password-stdin] [--no-keychain]"));
        return ExitUsage;
    }
    if (!qGuiApp || !qGuiApp->nativeInterface<QNativeInterface::QX11Application>()) {
        error(QStringLiteral("%1 needs an X11 session (DISPLAY is not set or the X server cannot be reached)").arg(command));
        return ExitNoX11;
    }
    QWPrefs prefs(QWPrefs::applicationIDToLoad(), kApplicationID);
    gPrefs = &prefs;
    const int rc = withOpenFile(rest[0], passwordStdin, noKeychain, login, [&](PasswordFile &file) {
        const qsizetype row = entryWithName(file.passwordArray(), rest[1]);
        if (row < 0) {
            error(QStringLiteral("no entry named \"%1\"").arg(rest[1]));
            return int(ExitNoSuchEntry);
        }
        const Entry entry = file.passwordArray().at(row).toMap();
        if (login && !entry.value(EntryKey::URL).toString().isEmpty()) {
            // The visit goes to the top of the file's recent websites (saved), as in the application.
            file.addRecentWebsite(rest[1]);
        }
        return runLogin(command, rest, entry);
    });
    gPrefs = nullptr;
    return rc;
}

} // namespace tess::cli
