#pragma once
// Delivering the support report: as a new message in the user's mail program, or on the
// clipboard for web mail.

#include <QString>

class QWidget;

namespace tess {

inline const QString kDebuggingInformation = QStringLiteral("Debugging Information");
QString debuggingInformationQuestion();
QString debuggingInformationOnClipboard();

// emailTheAuthor: builds the report and asks how it is to be sent.
void emailTheAuthor(QWidget *parent);
// The delivery of a report already built; answers the button chosen.
enum class ReportDelivery { MailProgram, WebMail, Cancel };
ReportDelivery deliverReport(const QString &report, QWidget *parent);

} // namespace tess
