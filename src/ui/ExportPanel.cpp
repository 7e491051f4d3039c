#include "ExportPanel.h"

#include "core/exchange/Export.h"
#include "ui/Globals.h"

#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>

namespace tess {

QFileDialog *newExportPanel(QWidget *window)
{
    auto *panel = new QFileDialog(window, QStringLiteral("Export Password Data"), QDir::homePath());
    // Qt's own panel, the same on every desktop, so that it can carry the message.
    panel->setOption(QFileDialog::DontUseNativeDialog);
    panel->setAcceptMode(QFileDialog::AcceptSave);
    panel->setFileMode(QFileDialog::AnyFile);
    panel->setLabelText(QFileDialog::Accept, QStringLiteral("Export Password Data"));
    panel->setNameFilter(QStringLiteral("CSV files (*.csv)"));
    panel->setDefaultSuffix(QStringLiteral("csv"));
    auto *message = new QLabel(QStringLiteral("Choose a name, location to export selected password data as a .csv file."));
    message->setObjectName(QStringLiteral("exportMessage"));
    if (auto *grid = qobject_cast<QGridLayout *>(panel->layout()))
        grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
    return panel;
}

QString exportPasswordData(QWidget *window, const EntryList &list, const QList<int> &rows)
{
    QFileDialog *panel = newExportPanel(window);
    const bool chosen = panel->exec() == QDialog::Accepted && !panel->selectedFiles().isEmpty();
    const QString path = chosen ? panel->selectedFiles().constFirst() : QString();
    delete panel;
    if (!chosen)
        return QString();

    qsizetype count = 0;
    const QString text = exportCsv(list, QList<qsizetype>(rows.cbegin(), rows.cend()), &count);
    QString error;
    writeExportFile(path, text, &error);
    // A failed write is not shown, only kept for the diagnostics report.
    gDebugInfo += exportDebugLine(count, text.size(), error);
    return path;
}

} // namespace tess
