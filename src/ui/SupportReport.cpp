#include "SupportReport.h"

#include "core/app/Diagnostics.h"
#include "core/app/QWPrefs.h"
#include "ui/Globals.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>

namespace tess {

namespace {
// The texts were written with carriage returns as line breaks; a label here breaks at "\n".
QString shown(QString text)
{
    return text.replace(QLatin1Char('\r'), QLatin1Char('\n'));
}
} // namespace

QString debuggingInformationQuestion()
{
    return QStringLiteral("This function produces debugging information to be emailed to the author.  If you use a mail program this "
                          "will produce an email message in your program.  If you use web browser-based mail, this will put the "
                          "debugging information in the clipboard so you can paste it into an email to ") +
           kSupportAddress + QStringLiteral(".\r\rWhich do you use?");
}

QString debuggingInformationOnClipboard()
{
    return QStringLiteral("The debugging information is on your clipboard.  Please paste it into an email to ") + kSupportAddress;
}

ReportDelivery deliverReport(const QString &report, QWidget *parent)
{
    QMessageBox ask(QMessageBox::Information, kDebuggingInformation, kDebuggingInformation, QMessageBox::NoButton, parent);
    ask.setObjectName(QStringLiteral("debuggingInformationAlert"));
    ask.setInformativeText(shown(debuggingInformationQuestion()));
    QPushButton *mail = ask.addButton(QStringLiteral("Mail Program"), QMessageBox::AcceptRole);
    QPushButton *web = ask.addButton(QStringLiteral("Web Mail"), QMessageBox::ActionRole);
    QPushButton *cancel = ask.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    ask.setDefaultButton(mail);
    ask.setEscapeButton(cancel);
    ask.exec();
    if (ask.clickedButton() == mail) {
        QDesktopServices::openUrl(Diagnostics::mailtoURL(report));
        return ReportDelivery::MailProgram;
    }
    if (ask.clickedButton() == web) {
        QClipboard *clipboard = QApplication::clipboard();
        clipboard->clear();
        clipboard->setText(report);
        QMessageBox done(QMessageBox::Information, kDebuggingInformation, kDebuggingInformation, QMessageBox::Ok, parent);
        done.setObjectName(QStringLiteral("debuggingInformationOnClipboard"));
        done.setInformativeText(debuggingInformationOnClipboard());
        done.exec();
        return ReportDelivery::WebMail;
    }
    return ReportDelivery::Cancel;
}

void emailTheAuthor(QWidget *parent)
{
    deliverReport(Diagnostics::report(*gPrefs, gDebugInfo, Diagnostics::osVersion()), parent);
}

} // namespace tess
