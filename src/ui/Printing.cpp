#include "Printing.h"

#include "core/exchange/Export.h"

#include <QFile>
#include <QFileInfo>
#include <QAbstractTextDocumentLayout>
#include <QPageSetupDialog>
#include <QPainter>
#include <QPrintDialog>
#include <QPrinter>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>

namespace tess {

namespace {

QTextCharFormat styleFor(PrintRun::Style style)
{
    // Helvetica where it is installed, else the desktop's sans serif of the same weight.
    QFont font(QStringLiteral("Helvetica"));
    font.setStyleHint(QFont::SansSerif);
    font.setPointSize(style == PrintRun::EntryName ? 16 : 12);
    font.setBold(style != PrintRun::Value);
    QTextCharFormat format;
    format.setFont(font);
    return format;
}

} // namespace

QPrinter *sharedPrinter()
{
    static QPrinter *printer = new QPrinter(QPrinter::HighResolution);
    return printer;
}

void printInfoFit(QPrinter *printer)
{
    printer->setPageMargins(QMarginsF(72, 72, 72, 72), QPageLayout::Point);
}

QString printJobTitle(const QString &printPath)
{
    return QFileInfo(printPath).completeBaseName();
}

std::unique_ptr<QTextDocument> printText(const EntryList &list, const QList<int> &selectedRows)
{
    QList<int> rows = selectedRows;
    if (rows.isEmpty()) {
        for (int r = 0; r < list.size(); ++r)
            rows.append(r);
    }
    std::sort(rows.begin(), rows.end());
    const QTextCharFormat styles[] = {styleFor(PrintRun::EntryName), styleFor(PrintRun::Label), styleFor(PrintRun::Value)};

    auto text = std::make_unique<QTextDocument>();
    QTextCursor cursor(text.get());
    for (int row : rows) {
        if (row < 0 || row >= list.size())
            continue;
        for (const PrintRun &run : printItem(list.at(row).toMap()))
            cursor.insertText(run.text, styles[run.style]);
    }
    return text;
}

void printEntries(QPrinter *printer, const EntryList &list, const QList<int> &selectedRows, const QString &printPath)
{
    printInfoFit(printer);
    if (!printPath.isEmpty())
        printer->setDocName(printJobTitle(printPath));
    std::unique_ptr<QTextDocument> text = printText(list, selectedRows);
    if (printer->outputFormat() == QPrinter::PdfFormat && !printer->outputFileName().isEmpty()) {
        // The printout holds the passwords in the clear: a file of it is readable by its
        // owner only, as an export is, made so before anything is written into it.
        constexpr QFileDevice::Permissions kOwnerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        QFile out(printer->outputFileName());
        if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate, kOwnerOnly) || !out.setPermissions(kOwnerOnly))
            return;
    }
    QPainter painter;
    if (!painter.begin(printer))
        return;
    // Laid out on the printer's page within the margins, page after page, and nothing else
    // on the page (QTextDocument::print would add page numbers).
    text->documentLayout()->setPaintDevice(printer);
    text->setDocumentMargin(0);
    const QSizeF page = printer->pageLayout().paintRectPixels(printer->resolution()).size();
    text->setPageSize(page);
    for (int p = 0; p < text->pageCount(); ++p) {
        if (p > 0)
            printer->newPage();
        painter.save();
        painter.translate(0, -p * page.height());
        text->drawContents(&painter, QRectF(QPointF(0, p * page.height()), page));
        painter.restore();
    }
    painter.end();
}

void runPageLayout(QWidget *window)
{
    QPrinter *printer = sharedPrinter();
    printInfoFit(printer);
    QPageSetupDialog dialog(printer, window);
    dialog.exec();
}

void printDocument(QWidget *window, const EntryList &list, const QList<int> &selectedRows, const QString &printPath)
{
    QPrinter *printer = sharedPrinter();
    printInfoFit(printer);
    if (!printPath.isEmpty())
        printer->setDocName(printJobTitle(printPath));
    QPrintDialog dialog(printer, window);
    dialog.setWindowTitle(QStringLiteral("Print"));
    if (dialog.exec() != QDialog::Accepted)
        return;
    printEntries(printer, list, selectedRows, printPath);
}

} // namespace tess
