#include "DVBrowser.h"

namespace tess {

const QString DVBrowser::kDocumentType = QStringLiteral("DVBrowser");

void DVBrowser::hook(const QString &name, int argument)
{
    if (name == u"showAutoWarning")
        showAutoWarning();
    else if (name == u"clearAutoWarning")
        clearAutoWarning();
    else if (name == u"setAutoLogin")
        setAutoLogin(argument);
}

} // namespace tess
