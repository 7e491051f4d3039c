#pragma once
// The support report: the settings, the program's own debug log, the user journal's lines
// about the program and the heads of its crash reports, as one plain text for e-mail.

#include <QString>
#include <QStringList>
#include <QUrl>

namespace tess {

class QWPrefs;

inline const QString kSupportAddress = QStringLiteral("support@tessaline.org");

namespace Diagnostics {

// The report, in its fixed order of sections.
QString report(const QWPrefs &prefs, const QString &debugInfo, const QString &osVersion);
// Kernel and distribution, as shown in the report's introduction.
QString osVersion();

// Lines of the user journal (`journalctl --user`) that name the program, each followed by a
// carriage return; empty where there is no journal.
QString journalLines();
// The program's crash records from systemd-coredump (`coredumpctl`), each cut before the
// stack of its second thread; none where the service is absent.
QStringList crashReports();

// "mailto:" with the address, the subject and the report as the body, percent-encoded.
QUrl mailtoURL(const QString &report);

} // namespace Diagnostics
} // namespace tess
