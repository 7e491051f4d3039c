#include "DVBrowser.h"

#include <QGuiApplication>
#include <QWindow>

namespace tess {

const QString DVBrowser::kDocumentType = QStringLiteral("DVBrowser");

DVBrowser::DVBrowser(QObject *parent) : QObject(parent)
{
    for (QTimer *t : {&m_pastePassword, &m_pasteNextPage}) {
        t->setSingleShot(true);
        connect(t, &QTimer::timeout, this, [this, t] { look(t); });
    }
}

void DVBrowser::hook(const QString &name, int argument)
{
    if (name == u"showAutoWarning")
        showAutoWarning();
    else if (name == u"clearAutoWarning")
        clearAutoWarning();
    else if (name == u"setAutoLogin")
        setAutoLogin(argument);
    else if (name == u"pastePasswordFromTimer")
        m_pastePassword.start(kFirstLookMs);
    else if (name == u"pasteNextPageFromTimer")
        m_pasteNextPage.start(kFirstLookMs);
}

bool DVBrowser::keyWindowIsBuiltInBrowser()
{
    const QWindow *key = QGuiApplication::focusWindow();
    return key && key->property("documentType").toString() == kDocumentType;
}

void DVBrowser::look(QTimer *timer)
{
    if (!keyWindowIsBuiltInBrowser()) {
        timer->start(kLookAgainMs);
        return;
    }
    if (timer == &m_pastePassword) {
        Q_EMIT pastePasswordFromTimer();
        clearAutoWarning();
    } else {
        Q_EMIT pasteNextPageFromTimer();
    }
}

} // namespace tess
