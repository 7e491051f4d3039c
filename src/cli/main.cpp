// tessaline-cli: the password-file core for scripts and headless use.

#include "Cli.h"
#include "Exchange.h"

#include "core/archive/Utf8.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <memory>

#include <xcb/xcb.h>

namespace {

const char kHelp[] = R"(usage: tessaline-cli COMMAND [ARGS]

Password files (FILE.qvm is the package folder):
  create FILE.qvm                make a new, empty password file
  ls FILE.qvm [--json]           entry names in list order, one a line
  show FILE.qvm NAME [--json] [--reveal]
                                 every key of the entry; the password as ******** unless
                                 --reveal (with --json, only with --reveal)
  add FILE.qvm NAME [--url U] [--user ID] [--user2 ID] [--password-prompt | --password P]
                [--notes TEXT]   a new entry, as the Add button and the editor make it
  edit FILE.qvm NAME [--name NEW] [--url U] [--user ID] [--user2 ID]
                [--password-prompt | --password P] [--notes TEXT]
                                 change only the fields given; an empty --user2 removes it
  rm FILE.qvm NAME...            delete entries
  find FILE.qvm TEXT [--json]    names of the entries whose name, URL, notes, user IDs or
                                 password contain TEXT, ignoring case
  passwd FILE.qvm                change the file password
  keychain FILE.qvm on|off       keep the file password in the keyring, or not
  export FILE.qvm OUT.csv [NAME...]
                                 write the entries (all, or those named) as CSV: a header
                                 line, then six quoted fields per entry (name, URL, user ID,
                                 password, notes, second user ID), nothing escaped. The file
                                 holds the passwords in the clear (made readable by you
                                 only); OUT.csv "-" writes to standard output
  import FILE.qvm IN.csv [--separator tab|comma|semicolon] [--columns LIST]
                [--skip-first-line] [--quotes standard]
                                 add one entry per line of a UTF-8 text file. The separator
                                 is comma unless given: export writes commas, so a file
                                 from export imports back as it is (the dialog starts on
                                 tab, as text copied from a spreadsheet is). LIST names the
                                 field of each column, in order: name, url, user1, user2,
                                 password, notes or skip (default name,url,user1,password,
                                 notes; an export's sixth column, the second user ID, needs
                                 name,url,user1,password,notes,user2). Nine columns are
                                 read, as in the dialog, unless LIST names more (up to 64).
                                 The line "Title,URL,Username,Password,Notes" is skipped;
                                 --skip-first-line skips the first line whatever it holds.
                                 Fields in double quotes may hold the separator and line
                                 breaks; a doubled quote inside is read as this program's
                                 dialog reads it (a""b gives a"bb) unless --quotes standard
                                 (a""b gives a"b, as other programs write it). Runs of
                                 spaces become one space; fields are cut at 8191 characters.
                                 Taken names get a number. Records that cannot be imported
                                 (no name, too few fields) are printed; all or nothing is
                                 saved. Other programs' files, for example:
                                   a browser's: --skip-first-line --quotes standard
                                   Bitwarden's (the password in the tenth column):
                                   --skip-first-line --quotes standard --columns
                                   skip,skip,skip,name,notes,skip,skip,url,user1,password
  generate [--length N] [--no-specials] [--count K]
                                 print K (default 1) random passwords of N characters
                                 (default 8, from 4 to 47; 3 to 47 with --no-specials)

  ls, show and find only read: they leave every byte of the package as it is. The commands
  that change the file also bring a pre-2.0 file to the current format and merge the copies
  a synchronisation service left, in the same save. Options and operands may come in any
  order; "--" ends the options (rm FILE.qvm -- --json removes the entry named "--json").

Logging in (need an X11 session; the settings "browserPageLoadDelay" and "typeSpeed" apply):
  login FILE.qvm NAME            open the entry's website in its browser and, if the entry
                                 logs in automatically, type its login there
  type FILE.qvm NAME userid|password
                                 type into the focused window as the user-ID or password
                                 hot key would; returns when the last key has been sent (after
                                 a paste, once the target has read the clipboard, at most 10 s)

  The file password: with --password-stdin, the first line of standard input (passwd: the
  current password, then the new one; create: the new one). A line ends at "\n"; a "\r"
  just before it belongs to the line end, as in files from Windows, so a password read this
  way cannot end in "\r". Every other character is kept, a leading U+FEFF too. Otherwise
  the keyring item the application uses, then a prompt on the terminal (twice for a new
  password). --no-keychain skips the keyring. A file password cannot be empty.

  The entry's password: --password-prompt is the safe way. It asks on the terminal without
  echo (twice), or with --password-stdin reads the line after the file password.
  --password P puts the password on the command line, where every user of the machine can
  read it (ps, /proc) and where your shell's history keeps it.

JSON (--json): ls and find print an array of entry names (strings). show prints an object
  of the entry's keys, sorted, with each value as its kind in the file:
    text                 a string
    integer              a number without a decimal point, exact to 64 bits (unsigned
                         values up to 18446744073709551615, negative ones down to -2^63)
    real (double/float)  a number that always has a decimal point or an exponent (2.0,
                         -0.0, 1e+300), the shortest that reads back as the same value; the
                         non-finite ones as the strings "NaN", "Infinity" and "-Infinity"
    boolean              true or false
    data                 {"data": "BASE64"}
    list, dictionary     an array, an object of these values
    anything else        {"archived": "CLASS"}: kept in the file exactly as it is
  Without --json, show prints "KEY = VALUE" lines with the values in the same notation.

Settings (the same store the Tessaline application uses):
  prefs [--json]                 list every setting, sorted by key, one "key = value" line
                                 each (values as JSON: strings quoted, arrays as lists);
                                 with --json, one JSON object
  prefs get KEY                  print the value (strings unquoted); exit 1 if absent
  prefs set KEY VALUE [--type string|int|bool|real]
                                 store a value (default type string; bool takes
                                 YES/NO/true/false/1/0)
  prefs delete KEY               remove a setting

Errors go to standard error, starting "tessaline-cli: ". Exit status: 0 success; 1 usage
(or an absent setting); 2 the file cannot be opened (not a password file, wrong password,
damaged; or the file to import cannot be read or is not UTF-8); 3 the file cannot be
written (read-only, disk full); 4 no such entry; 5 import: some records were left over;
6 no X11 session (login, type); 7 the login could not be completed (a browser that does not
start, a key that could not be sent, interrupted).
)";

} // namespace

namespace {

// Whether an X server is there to type into; Qt would abort without one.
bool x11Reachable()
{
    if (qEnvironmentVariableIsEmpty("DISPLAY"))
        return false;
    xcb_connection_t *c = xcb_connect(nullptr, nullptr);
    const bool ok = !xcb_connection_has_error(c);
    xcb_disconnect(c);
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    // Logging in types through the X server and serves the clipboard: a GUI application on X11.
    std::unique_ptr<QCoreApplication> application;
    if (argc > 1 && tess::cli::isLoginCommand(QString::fromLocal8Bit(argv[1])) && x11Reachable()) {
        qputenv("QT_QPA_PLATFORM", "xcb");
        application = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        application = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("tessaline-cli"));
    // Decoded here rather than by QCoreApplication, which drops a leading U+FEFF of each.
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(tess::utf8Exactly(argv[i]));
    if (args.isEmpty() || args[0] == u"--help" || args[0] == u"-h" || args[0] == u"help") {
        std::fputs(kHelp, args.isEmpty() ? stderr : stdout);
        return args.isEmpty() ? tess::cli::ExitUsage : tess::cli::ExitOK;
    }
    const QString command = args.takeFirst();
    if (command == u"prefs")
        return tess::cli::runPrefs(args);
    if (command == u"generate")
        return tess::cli::runGenerate(args);
    if (tess::cli::isLoginCommand(command))
        return tess::cli::runLoginCommand(command, args);
    static const QStringList fileCommands = {"create", "ls", "show", "add", "edit", "rm", "find", "passwd", "keychain",
                                             "export", "import"};
    if (fileCommands.contains(command))
        return tess::cli::runFileCommand(command, args);
    tess::cli::error(QStringLiteral("unknown command \"%1\" (see --help)").arg(command));
    return tess::cli::ExitUsage;
}
