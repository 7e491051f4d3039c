#pragma once
// Export: the save panel and the CSV file of the selected entries.

#include "core/entries/Entry.h"

#include <QList>
#include <QString>

class QFileDialog;
class QWidget;

namespace tess {

// The save panel of an export, set up but not yet shown.
QFileDialog *newExportPanel(QWidget *window);

// exportPasswordData: — asks where, then writes the selected rows (list order) as CSV and logs
// the outcome in gDebugInfo. Answers the path chosen, or an empty string when cancelled.
QString exportPasswordData(QWidget *window, const EntryList &list, const QList<int> &rows);

} // namespace tess
