#pragma once
// tessaline-cli's export, import and generate, around the exchange core.

#include "Cli.h"

#include "core/exchange/Import.h"

namespace tess::cli {

struct ImportRequest {
    ImportParseOptions options;
    ImportColumns columns;
    QList<ImportRecord> records;
};

int runGenerate(QStringList args);
// Takes --separator, --columns, --skip-first-line and --quotes; false (said why) when wrong.
bool parseImportOptions(QStringList &args, ImportRequest *request);
// Reads and parses the file to import; 0, or the exit code with the reason said.
int readImportFile(const QString &path, ImportRequest *request);
// Prints the records left over, one a line; 0 when none, else ExitLeftOver.
int reportLeftOver(const ImportRequest &request, qsizetype imported);
// Writes the export to a file (owner-only, replaced atomically) or, for "-", standard output.
int writeExport(const QString &path, const QString &text);

} // namespace tess::cli
