#pragma once
// Entries out: the CSV export and the text of a printout, without widgets.

#include "core/entries/Entry.h"

#include <QList>
#include <QString>

namespace tess {

// The header line every export starts with (and that the import skips).
inline const QString kCsvHeaderLine = QStringLiteral("Title,URL,Username,Password,Notes");

// The export text: the header line, then for each of the rows, in list order, six quoted
// fields (name, URL, user ID, password, notes, second user ID) with nothing escaped. Rows
// out of range are ignored. Answers the number of rows written in *count.
QString exportCsv(const EntryList &list, const QList<qsizetype> &rows, qsizetype *count = nullptr);

// Writes the export text atomically in UTF-8, readable by its owner only: it holds every
// secret in the clear. False, with *error describing why, when it could not be written.
bool writeExportFile(const QString &path, const QString &text, QString *error = nullptr);

// The line the diagnostics report keeps about an export; error empty when the write succeeded.
QString exportDebugLine(qsizetype count, qsizetype characters, const QString &error);

// One entry of a printout as styled runs.
struct PrintRun {
    enum Style { EntryName, Label, Value };
    Style style;
    QString text;
    bool operator==(const PrintRun &) const = default;
};
QList<PrintRun> printItem(const Entry &entry);

} // namespace tess
