#pragma once
// Shared plumbing of tessaline-cli: argument access, messages and exit codes.

#include <QString>
#include <QStringList>
#include <QVariant>

namespace tess::cli {

enum ExitCode {
    ExitOK = 0,
    ExitUsage = 1,
    ExitCannotOpen = 2,
    ExitCannotWrite = 3,
    ExitNoSuchEntry = 4,
    ExitLeftOver = 5, // import: some records were not imported
};

// Writes "tessaline-cli: <message>" to standard error.
void error(const QString &message);
void out(const QString &text);

// A value as JSON text (strings quoted), for listings.
QString jsonText(const QVariant &value);

// Removes "--name" from args; answers whether it was there.
bool takeFlag(QStringList &args, const QString &name);
// Removes "--name VALUE" (or "--name=VALUE"); answers whether it was there. A missing value
// sets *missing.
bool takeOption(QStringList &args, const QString &name, QString *value, bool *missing);

int runPrefs(QStringList args);
int runFileCommand(const QString &command, const QStringList &args);

} // namespace tess::cli
