#pragma once
// Password-file helpers for the tests and benchmarks: a scripted delegate and packages built
// byte by byte as other versions of the program write them.

#include "core/entries/EntryList.h"
#include "core/storage/PasswordFile.h"

#include <QProcess>

#include <functional>
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
QByteArray readBytes(const QString &path); // empty when it cannot be read

// A current-format package holding these entries and titles.
bool makePackage(const QString &path, const QString &password, const QVariantList &entries,
                 const QStringList &titles = {});

// A digest of everything a package holds: every name below it and every file's bytes.
QByteArray packageDigest(const QString &path);
// The entry list in the package as another program would read it now; empty if it cannot.
QVariantList listOnDisk(const QString &path, const QString &password = QStringLiteral("pw"));

// The scratch directories in the home folder (".QVM.*").
QStringList scratchDirectories();

// Another program changes the entries of the file (password "pw") and saves it.
bool changeOutside(const QString &path, const std::function<void(EntryList &)> &change);

// The files below the roots (hidden ones too) whose bytes contain `marker`.
QStringList filesHolding(const QByteArray &marker, const QStringList &roots);

// The entries' names, in list order.
QStringList entryNames(const QVariantList &list);

// Runs tessaline-cli from the build folder, in a session of its own (no terminal to prompt
// on), with `input` on its standard input.
struct CliRun {
    int code; // -1 when it did not exit normally
    QByteArray out, err;
};
CliRun runCli(const QStringList &args, const QByteArray &input = "pw\n");

// tessaline-cli on a terminal of its own (a pseudo-terminal that becomes its controlling
// terminal), to answer its prompts as a user at the keyboard would.
class CliOnTerminal {
public:
    explicit CliOnTerminal(const QStringList &args, const QByteArray &input = {});
    ~CliOnTerminal();
    // Waits until the terminal has shown `text` (since the last wait); false on timeout.
    bool waitForScreen(const QByteArray &text, int ms = 20000);
    void type(const QByteArray &keys);
    // Answers each prompt, in order, with its line; false when one does not come.
    bool answer(const QList<QPair<QByteArray, QByteArray>> &promptsAndLines);
    // Waits for the end; the exit code, or -1 when it was killed or did not end.
    int finish(int ms = 60000);
    qint64 pid() const { return m_process.processId(); }
    // Everything the terminal showed.
    QByteArray screen() const { return m_screen; }
    QProcess &process() { return m_process; }

private:
    void drain();
    QProcess m_process;
    int m_master = -1;
    QByteArray m_screen;
    qsizetype m_seen = 0;
};

} // namespace tess::testsupport
