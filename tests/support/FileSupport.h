#pragma once
// Password-file helpers for the tests and benchmarks: a scripted delegate and packages built
// byte by byte as other versions of the program write them.

#include "core/storage/PasswordFile.h"

#include <QStringList>
#include <QVariant>

namespace tess::testsupport {

// Answers password prompts from a queue (an empty queue cancels) and records everything.
class ScriptedDelegate : public PasswordFileDelegate {
public:
    QStringList passwords;
    QStringList newPasswords;
    QStringList prompts;
    QStringList messages;
    int entriesReplacedCount = 0;

    bool askPassword(const QString &prompt, QString *password) override
    {
        prompts.append(prompt);
        if (passwords.isEmpty())
            return false;
        *password = passwords.takeFirst();
        return true;
    }
    bool askNewPassword(QString *password) override
    {
        if (newPasswords.isEmpty())
            return false;
        *password = newPasswords.takeFirst();
        return true;
    }
    void showMessage(const QString &message) override { messages.append(message); }
    void entriesReplaced() override { ++entriesReplacedCount; }
};

// Encrypts bytes with a format's parameters and the password, as the program would.
QByteArray encryptForFile(const QByteArray &plain, const QString &password, bool pre20);
bool writeBytes(const QString &path, const QByteArray &bytes);

// A current-format package holding these entries and titles.
bool makePackage(const QString &path, const QString &password, const QVariantList &entries,
                 const QStringList &titles = {});

// The entries' names, in list order.
QStringList entryNames(const QVariantList &list);

// Runs tessaline-cli from the build folder, in a session of its own (no terminal to prompt
// on), with `input` on its standard input.
struct CliRun {
    int code; // -1 when it did not exit normally
    QByteArray out, err;
};
CliRun runCli(const QStringList &args, const QByteArray &input = "pw\n");

} // namespace tess::testsupport
