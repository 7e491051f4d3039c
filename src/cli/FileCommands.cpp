// tessaline-cli's password-file commands: the same opening and saving as the application.

#include "Cli.h"
#include "Exchange.h"

#include "core/app/QWPrefs.h"
#include "core/archive/Utf8.h"
#include "core/entries/EntryList.h"
#include "core/entries/Search.h"
#include "core/exchange/Export.h"
#include "core/storage/PasswordFile.h"
#include "platform/linux/SecretServiceKeychain.h"

#include <QFileInfo>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace tess::cli {

const QString kEmptyFilePassword = QStringLiteral("the file password cannot be empty");

namespace {

// Reads a line from the terminal without echo; false without a terminal or at its end.
bool readSecretFromTerminal(const QString &prompt, QString *out)
{
    const int fd = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return false;
    // Echo goes off (and what was typed ahead is dropped) before the prompt shows: whatever
    // is typed once it shows is kept, and never echoed.
    termios old{}, quiet{};
    const bool isTty = ::tcgetattr(fd, &old) == 0;
    if (isTty) {
        quiet = old;
        quiet.c_lflag &= ~tcflag_t(ECHO);
        ::tcsetattr(fd, TCSAFLUSH, &quiet);
    }
    const QByteArray p = prompt.toLocal8Bit() + ' ';
    if (::write(fd, p.constData(), size_t(p.size())) < 0) {
        if (isTty)
            ::tcsetattr(fd, TCSAFLUSH, &old);
        ::close(fd);
        return false;
    }
    QByteArray line;
    char c;
    bool gotLine = false;
    while (::read(fd, &c, 1) == 1) {
        if (c == '\n') {
            gotLine = true;
            break;
        }
        line.append(c);
    }
    if (isTty)
        ::tcsetattr(fd, TCSAFLUSH, &old);
    if (::write(fd, "\n", 1) < 0) {
    }
    ::close(fd);
    *out = utf8Exactly(line);
    line.fill('\0');
    return gotLine || !line.isEmpty();
}

class StdinLines {
public:
    bool next(QString *line)
    {
        QByteArray buf;
        int c;
        bool any = false;
        while ((c = std::fgetc(stdin)) != EOF) {
            any = true;
            if (c == '\n')
                break;
            buf.append(char(c));
        }
        if (!any)
            return false;
        if (buf.endsWith('\r'))
            buf.chop(1);
        *line = utf8Exactly(buf);
        buf.fill('\0');
        return true;
    }
};

// The prompts of the application, answered from standard input or the terminal.
class CliDelegate : public PasswordFileDelegate {
public:
    bool passwordFromStdin = false;
    QString currentPassword; // with --password-stdin
    QString newPassword;     // for passwd with --password-stdin
    bool wrongPassword = false;
    bool refuseEmptyNewPassword = false;
    bool refusedEmpty = false;
    QStringList messages;

    bool askPassword(const QString &prompt, QString *password) override
    {
        if (prompt.startsWith(PasswordFile::kPasswordIncorrect)) {
            wrongPassword = true;
            if (passwordFromStdin || ++m_wrongAttempts >= 3)
                return false;
        }
        if (passwordFromStdin) {
            *password = currentPassword;
            return true;
        }
        if (!readSecretFromTerminal(prompt, password)) {
            m_noTerminal = true;
            return false;
        }
        return true;
    }

    bool askNewPassword(QString *password) override
    {
        if (passwordFromStdin)
            *password = newPassword;
        else if (!askNewPasswordTwice(password))
            return false;
        if (refuseEmptyNewPassword && password->isEmpty()) {
            error(kEmptyFilePassword);
            refusedEmpty = true;
            return false;
        }
        return true;
    }

    bool askNewPasswordTwice(QString *password)
    {
        return askTwice(QStringLiteral("New password:"), QStringLiteral("New password again:"), password);
    }

    // A secret typed twice on the terminal, without echo.
    bool askTwice(const QString &prompt, const QString &again, QString *secret)
    {
        QString repeated;
        if (!readSecretFromTerminal(prompt, secret) || !readSecretFromTerminal(again, &repeated)) {
            m_noTerminal = true;
            return false;
        }
        if (*secret != repeated) {
            error(QStringLiteral("the two passwords differ"));
            return false;
        }
        return true;
    }

    void showMessage(const QString &message) override { messages.append(message); }
    bool noTerminal() const { return m_noTerminal; }

private:
    int m_wrongAttempts = 0;
    bool m_noTerminal = false;
};

struct Options {
    bool passwordStdin = false;
    bool passwordPrompt = false;
    bool noKeychain = false;
    bool json = false;
    bool reveal = false;
    QString name, url, user, user2, password, notes;
    bool hasName = false, hasURL = false, hasUser = false, hasUser2 = false, hasPassword = false, hasNotes = false;
    QStringList positional;
};

// Options and operands in any order, read left to right; "--" ends the options, so that
// what follows it (an entry named "--json") is an operand. An option's value is the next
// argument whatever it looks like, or follows "=".
bool parseOptions(const QStringList &args, bool withFields, Options *o)
{
    const QList<QPair<QString, bool *>> flags = {
        {QStringLiteral("--password-stdin"), &o->passwordStdin}, {QStringLiteral("--no-keychain"), &o->noKeychain},
        {QStringLiteral("--json"), &o->json}, {QStringLiteral("--reveal"), &o->reveal},
        {QStringLiteral("--password-prompt"), withFields ? &o->passwordPrompt : nullptr}};
    struct Field {
        QString flag;
        QString *value;
        bool *has;
    };
    const QList<Field> fields = {{QStringLiteral("--name"), &o->name, &o->hasName},
                                 {QStringLiteral("--url"), &o->url, &o->hasURL},
                                 {QStringLiteral("--user"), &o->user, &o->hasUser},
                                 {QStringLiteral("--user2"), &o->user2, &o->hasUser2},
                                 {QStringLiteral("--password"), &o->password, &o->hasPassword},
                                 {QStringLiteral("--notes"), &o->notes, &o->hasNotes}};
    bool optionsEnded = false;
    for (qsizetype i = 0; i < args.size(); ++i) {
        const QString &a = args[i];
        if (optionsEnded || !a.startsWith(u"--")) {
            o->positional.append(a);
            continue;
        }
        if (a == u"--") {
            optionsEnded = true;
            continue;
        }
        const auto flag = std::find_if(flags.cbegin(), flags.cend(), [&](const auto &f) { return f.first == a && f.second; });
        if (flag != flags.cend()) {
            *flag->second = true;
            continue;
        }
        const QString key = a.section(u'=', 0, 0);
        const auto field = withFields ? std::find_if(fields.cbegin(), fields.cend(), [&](const Field &f) { return f.flag == key; })
                                      : fields.cend();
        if (field == fields.cend()) {
            error(QStringLiteral("unknown option %1").arg(a));
            return false;
        }
        if (key.size() < a.size()) {
            *field->value = a.mid(key.size() + 1);
        } else if (i + 1 < args.size()) {
            *field->value = args[++i];
        } else {
            error(QStringLiteral("%1 needs a value").arg(a));
            return false;
        }
        *field->has = true;
    }
    if (o->passwordPrompt && o->hasPassword) {
        error(QStringLiteral("--password and --password-prompt do not go together"));
        return false;
    }
    return true;
}

QString packagePath(const QString &arg)
{
    return QFileInfo(arg).absoluteFilePath();
}

// An open password file for the life of a command; closing removes the scratch directory.
class Session {
public:
    Session(const QString &path, const Options &o)
        : m_keychain(o.noKeychain ? nullptr : new SecretServiceKeychain), m_file(path, m_keychain.get(), &m_delegate),
          m_options(o)
    {
        m_delegate.passwordFromStdin = o.passwordStdin;
    }

    CliDelegate &delegate() { return m_delegate; }
    PasswordFile &file() { return m_file; }

    // Answers 0 when open, else the exit code (the reason already said). With --password-stdin
    // the first line is the file password, and with `newPasswordFollows` the second line the
    // new one.
    int open(bool newPasswordFollows, PasswordFile::Writes writes)
    {
        if (!QFileInfo(m_file.packagePath()).isDir()) {
            error(QStringLiteral("%1: no such password file").arg(m_file.packagePath()));
            return ExitCannotOpen;
        }
        if (m_options.passwordStdin) {
            StdinLines in;
            if (!in.next(&m_delegate.currentPassword)) {
                error(QStringLiteral("--password-stdin: no password on standard input"));
                return ExitUsage;
            }
            m_delegate.newPassword = QString();
            m_hasSecondLine = newPasswordFollows && in.next(&m_delegate.newPassword);
        }
        const auto use = m_options.noKeychain    ? PasswordFile::KeychainUse::Never
                         : m_options.passwordStdin ? PasswordFile::KeychainUse::StatusOnly
                                                   : PasswordFile::KeychainUse::Password;
        switch (m_file.open(use, writes)) {
        case PasswordFile::OpenResult::Opened:
            return reportMessages() ? 0 : ExitCannotWrite;
        case PasswordFile::OpenResult::NotAPasswordFile:
            error(QStringLiteral("%1: not a Tessaline password file").arg(m_file.packagePath()));
            return ExitCannotOpen;
        case PasswordFile::OpenResult::NoScratchDirectory:
            reportMessages();
            return ExitCannotOpen;
        case PasswordFile::OpenResult::Damaged:
            m_delegate.messages.clear();
            error(QStringLiteral("%1: the file's entry list is damaged (%2); nothing was changed")
                      .arg(m_file.packagePath(), m_file.damageReason()));
            return ExitCannotOpen;
        case PasswordFile::OpenResult::Cancelled:
            if (m_delegate.wrongPassword)
                error(QStringLiteral("wrong password or damaged file"));
            else if (m_delegate.noTerminal())
                error(QStringLiteral("no password given (use --password-stdin, or run in a terminal)"));
            else
                error(QStringLiteral("no password given"));
            return ExitCannotOpen;
        }
        return ExitCannotOpen;
    }

    bool hasSecondLine() const { return m_hasSecondLine; }

    // --password-prompt: the entry's password from the line after the file password, or typed
    // twice on the terminal. Never on the command line, where every user can read it.
    bool askEntryPassword(const QString &name, QString *password)
    {
        if (m_options.passwordStdin) {
            if (StdinLines().next(password))
                return true;
            error(QStringLiteral("--password-prompt: give the entry's password on the line after the file password"));
            return false;
        }
        if (m_delegate.askTwice(QStringLiteral("Password for \"%1\":").arg(name), QStringLiteral("Password again:"), password))
            return true;
        if (m_delegate.noTerminal())
            error(QStringLiteral("no password given (use --password-stdin, or run in a terminal)"));
        return false;
    }

    // Says what the file operations said; false when a save failed.
    bool reportMessages()
    {
        bool ok = true;
        for (const QString &m : std::as_const(m_delegate.messages)) {
            if (m == PasswordFile::kSaveFailed) {
                error(QStringLiteral("cannot write %1").arg(m_file.packagePath()));
                ok = false;
            } else {
                error(m);
            }
        }
        m_delegate.messages.clear();
        return ok;
    }

    int save()
    {
        const bool saved = m_file.save();
        reportMessages();
        return saved ? ExitOK : ExitCannotWrite;
    }

private:
    std::unique_ptr<Keychain> m_keychain;
    CliDelegate m_delegate;
    PasswordFile m_file;
    Options m_options;
    bool m_hasSecondLine = false;
};

int runCreate(const Options &o)
{
    if (o.positional.size() != 1) {
        error(QStringLiteral("usage: tessaline-cli create FILE.qvm"));
        return ExitUsage;
    }
    const QString path = packagePath(o.positional[0]);
    if (QFileInfo::exists(path)) {
        error(QStringLiteral("%1 already exists").arg(path));
        return ExitCannotWrite;
    }
    QString password;
    CliDelegate asker;
    if (o.passwordStdin) {
        if (!StdinLines().next(&password)) {
            error(QStringLiteral("--password-stdin: no password on standard input"));
            return ExitUsage;
        }
    } else if (!asker.askNewPasswordTwice(&password)) {
        if (asker.noTerminal())
            error(QStringLiteral("no password given (use --password-stdin, or run in a terminal)"));
        return ExitUsage;
    }
    if (password.isEmpty()) {
        error(kEmptyFilePassword);
        return ExitUsage;
    }
    if (!PasswordFile::createPackage(path, password)) {
        error(QStringLiteral("cannot create %1").arg(path));
        return ExitCannotWrite;
    }
    CliDelegate delegate;
    delegate.passwordFromStdin = true; // the first opening asks once more: answer it
    delegate.currentPassword = password;
    PasswordFile file(path, nullptr, &delegate);
    const bool opened = file.open(PasswordFile::KeychainUse::Never) == PasswordFile::OpenResult::Opened;
    password.fill(u'\0');
    file.close();
    if (!opened) {
        error(QStringLiteral("cannot create %1").arg(path));
        return ExitCannotWrite;
    }
    return ExitOK;
}

QString displayText(const QString &key, const QVariant &v, bool reveal)
{
    if (key == EntryKey::Password && !reveal)
        return QStringLiteral("********");
    return jsonText(v);
}

int withEntryName(const Options &o, const char *usage, int minNames = 1)
{
    if (o.positional.size() < 1 + minNames) {
        error(QStringLiteral("usage: tessaline-cli %1").arg(QLatin1String(usage)));
        return ExitUsage;
    }
    return 0;
}

int noSuchEntry(const QString &name)
{
    error(QStringLiteral("no entry named \"%1\"").arg(name));
    return ExitNoSuchEntry;
}

} // namespace

int runFileCommand(const QString &command, const QStringList &args)
{
    const bool fields = command == u"add" || command == u"edit";
    QStringList rest = args;
    ImportRequest importRequest;
    if (command == u"import" && !parseImportOptions(rest, &importRequest))
        return ExitUsage;
    Options o;
    if (!parseOptions(rest, fields, &o))
        return ExitUsage;
    if (command == u"create")
        return runCreate(o);

    static const QHash<QString, QPair<int, const char *>> usages = {
        {QStringLiteral("ls"), {0, "ls FILE.qvm [--json]"}},
        {QStringLiteral("show"), {1, "show FILE.qvm NAME [--json] [--reveal]"}},
        {QStringLiteral("add"), {1, "add FILE.qvm NAME [--url U] [--user ID] [--user2 ID] [--password-prompt | --password P] [--notes TEXT]"}},
        {QStringLiteral("edit"), {1, "edit FILE.qvm NAME [--name NEW] [--url U] [--user ID] [--user2 ID] [--password-prompt | --password P] [--notes TEXT]"}},
        {QStringLiteral("rm"), {1, "rm FILE.qvm NAME..."}},
        {QStringLiteral("find"), {1, "find FILE.qvm TEXT [--json]"}},
        {QStringLiteral("passwd"), {0, "passwd FILE.qvm"}},
        {QStringLiteral("keychain"), {1, "keychain FILE.qvm on|off"}},
        {QStringLiteral("export"), {1, "export FILE.qvm OUT.csv|- [NAME...]"}},
        {QStringLiteral("import"), {1, "import FILE.qvm IN.csv [--separator tab|comma|semicolon] [--columns LIST] [--skip-first-line] [--quotes standard]"}},
    };
    const auto usage = usages.value(command);
    if (int rc = withEntryName(o, usage.second, usage.first))
        return rc;
    const bool exactCount = command != u"rm" && command != u"export";
    if (exactCount && o.positional.size() != 1 + usage.first) {
        error(QStringLiteral("usage: tessaline-cli %1").arg(QLatin1String(usage.second)));
        return ExitUsage;
    }
    if (command == u"keychain" && o.positional[1] != u"on" && o.positional[1] != u"off") {
        error(QStringLiteral("usage: tessaline-cli keychain FILE.qvm on|off"));
        return ExitUsage;
    }
    if (command == u"keychain" && o.noKeychain) {
        error(QStringLiteral("keychain and --no-keychain do not go together"));
        return ExitUsage;
    }

    // The file to import is read first: a file that cannot be read asks for no password.
    if (command == u"import") {
        if (int rc = readImportFile(o.positional[1], &importRequest))
            return rc;
    }

    QWPrefs prefs(QWPrefs::applicationIDToLoad(), kApplicationID);
    Session session(packagePath(o.positional[0]), o);
    // Nothing is written at opening: a reading command leaves the package as it was, and a
    // changing one does the pre-2.0 upgrade and the conflict-copy merge in its one save.
    if (int rc = session.open(command == u"passwd", PasswordFile::Writes::AtFirstSave))
        return rc;
    PasswordFile &file = session.file();
    EntryList &list = file.passwordArray();
    const QString name = o.positional.value(1);

    if (command == u"ls" || command == u"find") {
        QStringList names;
        for (const QVariant &e : list)
            if (command == u"ls" || entryMatches(e.toMap(), name))
                names.append(entryName(e));
        if (o.json)
            out(jsonText(names));
        else
            for (const QString &n : std::as_const(names))
                out(n);
        return ExitOK;
    }

    if (command == u"show") {
        const qsizetype row = entryWithName(list, name);
        if (row < 0)
            return noSuchEntry(name);
        const Entry e = list[row].toMap();
        if (o.json) {
            Entry shown = e;
            if (!o.reveal)
                shown.remove(EntryKey::Password);
            out(jsonObjectText(shown));
        } else {
            for (auto it = e.cbegin(); it != e.cend(); ++it)
                out(it.key() + QStringLiteral(" = ") + displayText(it.key(), it.value(), o.reveal));
        }
        return ExitOK;
    }

    if (command == u"export") {
        QList<qsizetype> rows;
        for (const QString &n : o.positional.mid(2)) {
            const qsizetype row = entryWithName(list, n);
            if (row < 0)
                return noSuchEntry(n);
            rows.append(row);
        }
        if (o.positional.size() == 2)
            for (qsizetype i = 0; i < list.size(); ++i)
                rows.append(i);
        return writeExport(o.positional[1], exportCsv(list, rows));
    }

    if (!file.PWFileWriteable() && command != u"keychain") {
        error(QStringLiteral("%1 is read-only").arg(file.packagePath()));
        return ExitCannotWrite;
    }

    // Asked before the package is locked (typing takes a while), and only for a command that
    // goes ahead: a taken or missing name is refused before any typing.
    auto goesAhead = [&] { return command == u"add" ? !name.isEmpty() && entryWithName(list, name) < 0 : entryWithName(list, name) >= 0; };
    if (o.passwordPrompt && goesAhead()) {
        if (!session.askEntryPassword(name, &o.password))
            return ExitUsage;
        o.hasPassword = true;
    }

    // The read-change-write holds the package lock from here to the save, and changes what the
    // file holds now: another writer may have saved since it was opened.
    std::optional<PasswordFile::Locked> lock;
    if (command == u"add" || command == u"edit" || command == u"rm" || command == u"import") {
        lock.emplace(file);
        if (!lock->ok()) {
            error(QStringLiteral("%1 is being written by another program; try again").arg(file.packagePath()));
            return ExitCannotWrite;
        }
        if (file.mergeOutsideChanges().unreadable) {
            error(QStringLiteral("%1 changed meanwhile and cannot be read; nothing was written").arg(file.packagePath()));
            return ExitCannotWrite;
        }
        if (o.passwordPrompt && !o.hasPassword && goesAhead()) {
            error(QStringLiteral("%1 changed meanwhile; try again").arg(file.packagePath()));
            return ExitUsage;
        }
    }

    if (command == u"add") {
        if (name.isEmpty() || entryWithName(list, name) >= 0) {
            error(name.isEmpty() ? QStringLiteral("an entry needs a name")
                                 : QStringLiteral("an entry named \"%1\" already exists").arg(name));
            return ExitUsage;
        }
        Entry e = newEntryFromAdd(prefs.objectForKey(Pref::DefaultUserID).toString());
        e.insert(EntryKey::Path, name);
        if (o.hasURL)
            e.insert(EntryKey::URL, o.url);
        if (o.hasUser)
            e.insert(EntryKey::UserID, o.user);
        if (o.hasUser2 && !o.user2.isEmpty())
            e.insert(EntryKey::UserID2, o.user2);
        if (o.hasPassword)
            e.insert(EntryKey::Password, o.password);
        if (o.hasNotes)
            e.insert(EntryKey::Notes, o.notes);
        list.append(e);
        return session.save();
    }

    if (command == u"edit") {
        const qsizetype row = entryWithName(list, name);
        if (row < 0)
            return noSuchEntry(name);
        const Entry original = list[row].toMap();
        Entry e = original;
        if (o.hasName) {
            if (o.name.isEmpty() || (o.name != name && entryWithName(list, o.name) >= 0)) {
                error(o.name.isEmpty() ? QStringLiteral("an entry needs a name")
                                       : QStringLiteral("an entry named \"%1\" already exists").arg(o.name));
                return ExitUsage;
            }
            e.insert(EntryKey::Path, o.name);
        }
        if (o.hasURL)
            e.insert(EntryKey::URL, o.url);
        if (o.hasUser)
            e.insert(EntryKey::UserID, o.user);
        if (o.hasUser2) {
            if (o.user2.isEmpty())
                e.remove(EntryKey::UserID2);
            else
                e.insert(EntryKey::UserID2, o.user2);
        }
        if (o.hasPassword)
            e.insert(EntryKey::Password, o.password);
        if (o.hasNotes)
            e.insert(EntryKey::Notes, o.notes);
        if (e == original)
            return ExitOK; // nothing changed, nothing to save
        if (o.hasName && o.name != name)
            file.renameRecentWebsite(name, o.name);
        list[row] = e;
        return session.save();
    }

    if (command == u"rm") {
        const QStringList names = o.positional.mid(1);
        for (const QString &n : names)
            if (entryWithName(list, n) < 0)
                return noSuchEntry(n);
        for (const QString &n : names) {
            file.deleteRecentWebsite(n);
            list.removeAt(entryWithName(list, n));
        }
        return session.save();
    }

    if (command == u"import") {
        // One save: the file ends up with all of the import or, when the save fails, none.
        const qsizetype imported = importRecords(list, importRequest.records, importRequest.columns);
        if (imported > 0) {
            if (int rc = session.save())
                return rc;
        }
        return reportLeftOver(importRequest, imported);
    }

    if (command == u"passwd") {
        if (o.passwordStdin && !session.hasSecondLine()) {
            error(QStringLiteral("--password-stdin: give the current password, then the new one, one a line"));
            return ExitUsage;
        }
        session.delegate().refuseEmptyNewPassword = true;
        const bool changed = file.changePassword();
        if (session.delegate().refusedEmpty) {
            session.delegate().messages.removeAll(PasswordFile::kPasswordNotChanged);
            return ExitUsage;
        }
        const bool ok = session.reportMessages();
        if (!ok)
            return ExitCannotWrite;
        return changed ? ExitOK : ExitCannotOpen;
    }

    if (command == u"keychain") {
        const bool on = name == u"on";
        if (on && !SecretServiceKeychain::serviceRunning()) {
            error(QStringLiteral("no Secret Service (keyring) is running"));
            return ExitCannotWrite;
        }
        if (on && file.passwordInKeychain())
            return ExitOK;
        file.toggleSavePWInKeychain(!on); // the menu item's check mark: shown when kept
        session.reportMessages();
        // What opening left to the first save (the pre-2.0 upgrade, conflict copies) is done
        // here too, as by every command that changes the file.
        if (file.hasPendingWrites())
            return session.save();
        return ExitOK;
    }

    error(QStringLiteral("unknown command \"%1\" (see --help)").arg(command));
    return ExitUsage;
}

int withOpenFile(const QString &path, bool passwordStdin, bool noKeychain, bool writes,
                 const std::function<int(PasswordFile &)> &body)
{
    Options o;
    o.passwordStdin = passwordStdin;
    o.noKeychain = noKeychain;
    Session session(packagePath(path), o);
    // A login records the visit, so it opens as the application does; typing only reads.
    if (int rc = session.open(false, writes ? PasswordFile::Writes::AtOpening : PasswordFile::Writes::AtFirstSave))
        return rc;
    const int rc = body(session.file());
    session.reportMessages();
    return rc;
}

} // namespace tess::cli
