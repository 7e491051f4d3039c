#pragma once
// Shared plumbing of tessaline-cli: argument access, messages and exit codes.

#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

namespace tess {
class PasswordFile;
}

namespace tess::cli {

enum ExitCode {
    ExitOK = 0,
    ExitUsage = 1,
    ExitCannotOpen = 2,
    ExitCannotWrite = 3,
    ExitNoSuchEntry = 4,
    ExitLeftOver = 5,    // import: some records were not imported
    ExitNoX11 = 6,
    ExitLoginFailed = 7, // a keystroke could not be sent, the browser did not start, cancelled
};

// Writes "tessaline-cli: <message>" to standard error.
void error(const QString &message);
void out(const QString &text);

// A value as JSON text, for listings and scripts (the types as --help gives them).
QString jsonText(const QVariant &value);
// A dictionary as an indented JSON object, one key a line, sorted by key.
QString jsonObjectText(const QVariantMap &map);

// The file password for a new file, or a new one for a file, cannot be empty.
extern const QString kEmptyFilePassword;

// Removes "--name" from args; answers whether it was there.
bool takeFlag(QStringList &args, const QString &name);
// Removes "--name VALUE" (or "--name=VALUE"); answers whether it was there. A missing value
// sets *missing.
bool takeOption(QStringList &args, const QString &name, QString *value, bool *missing);

int runPrefs(QStringList args);
int runFileCommand(const QString &command, const QStringList &args);
// login and type: need a QGuiApplication on X11 (main makes one for them).
int runLoginCommand(const QString &command, const QStringList &args);
bool isLoginCommand(const QString &command);

// Opens the password file with the file-password options of the file commands
// (--password-stdin, --no-keychain) and runs body on the open file's entry list; answers the
// opening's exit code when it fails, else body's.
// With writes, opening does what it leaves to the first save otherwise (a login records the
// visit); without, nothing is written.
int withOpenFile(const QString &path, bool passwordStdin, bool noKeychain, bool writes,
                 const std::function<int(PasswordFile &)> &body);

} // namespace tess::cli
