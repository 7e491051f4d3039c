// tessaline-cli: the password-file core for scripts and headless use.

#include "Cli.h"

#include <QCoreApplication>

namespace {

const char kHelp[] = R"(usage: tessaline-cli COMMAND [ARGS]

Settings (the same store the Tessaline application uses):
  prefs [--json]                 list every setting, sorted by key, one "key = value" line
                                 each (values as JSON: strings quoted, arrays as lists);
                                 with --json, one JSON object
  prefs get KEY                  print the value (strings unquoted); exit 1 if absent
  prefs set KEY VALUE [--type string|int|bool|real]
                                 store a value (default type string; bool takes
                                 YES/NO/true/false/1/0)
  prefs delete KEY               remove a setting

Errors go to standard error, starting "tessaline-cli: ". Exit status: 0 success, 1 usage
or absent setting, 3 the settings file cannot be written.
)";

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("tessaline-cli"));
    QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args[0] == u"--help" || args[0] == u"-h" || args[0] == u"help") {
        std::fputs(kHelp, args.isEmpty() ? stderr : stdout);
        return args.isEmpty() ? tess::cli::ExitUsage : tess::cli::ExitOK;
    }
    const QString command = args.takeFirst();
    if (command == u"prefs")
        return tess::cli::runPrefs(args);
    tess::cli::error(QStringLiteral("unknown command \"%1\" (see --help)").arg(command));
    return tess::cli::ExitUsage;
}
