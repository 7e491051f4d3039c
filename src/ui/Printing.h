#pragma once
// Printing entries as formatted text, and the page set-up, over Qt's print dialogs.

#include "core/entries/Entry.h"

#include <QList>
#include <QString>

#include <memory>

class QPrinter;
class QTextDocument;
class QWidget;

namespace tess {

// The print settings every document shares: the page set-up and the last print's choices.
QPrinter *sharedPrinter();

// printInfoFit: all four margins 72 points, the text fitted to the page width.
void printInfoFit(QPrinter *printer);

// printJobTitle: the file name of printPath without its extension.
QString printJobTitle(const QString &printPath);

// The printout: the selected rows, or every entry when none is selected, in list order, each
// laid out by printItem: names in bold sans 16 pt, labels in bold 12 pt, values in 12 pt.
std::unique_ptr<QTextDocument> printText(const EntryList &list, const QList<int> &selectedRows);

// Prints without asking, on the printer as it is set up (a PDF file included).
void printEntries(QPrinter *printer, const EntryList &list, const QList<int> &selectedRows, const QString &printPath);

// runPageLayout: — the page set-up dialog over the window.
void runPageLayout(QWidget *window);
// printDocument: — the print dialog over the window; on Print, the printout.
void printDocument(QWidget *window, const EntryList &list, const QList<int> &selectedRows, const QString &printPath);

} // namespace tess
