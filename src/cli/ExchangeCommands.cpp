// tessaline-cli's generator and the halves of export and import that need no password file.

#include "Exchange.h"

#include "core/exchange/Export.h"
#include "core/generator/GeneratePassword.h"

#include <QFile>

#include <algorithm>
#include <cstdio>

namespace tess::cli {

namespace {

bool takeNumber(QStringList &args, const QString &flag, qint64 *value, bool *bad)
{
    QString text;
    bool missing = false;
    if (!takeOption(args, flag, &text, &missing)) {
        *bad = *bad || missing;
        return false;
    }
    bool ok = false;
    *value = text.toLongLong(&ok);
    *bad = *bad || !ok;
    return ok;
}

} // namespace

int runGenerate(QStringList args)
{
    const bool noSpecials = takeFlag(args, QStringLiteral("--no-specials"));
    qint64 length = kDefaultPasswordLength, count = 1;
    bool bad = false;
    const bool hasLength = takeNumber(args, QStringLiteral("--length"), &length, &bad);
    takeNumber(args, QStringLiteral("--count"), &count, &bad);
    if (bad || !args.isEmpty() || count < 0) {
        error(QStringLiteral("usage: tessaline-cli generate [--length N] [--no-specials] [--count K]"));
        return ExitUsage;
    }
    const std::uint32_t used = clampPasswordLength(length, !noSpecials);
    if (hasLength && qint64(used) != length)
        error(QStringLiteral("length %1 is out of range; using %2 (from %3 to %4)")
                  .arg(length)
                  .arg(used)
                  .arg(minPasswordLength(!noSpecials))
                  .arg(kMaxPasswordLength));
    for (qint64 i = 0; i < count; ++i)
        out(GeneratePassword(used, !noSpecials));
    return ExitOK;
}

bool parseImportOptions(QStringList &args, ImportRequest *request)
{
    request->options.skipFirstLine = takeFlag(args, QStringLiteral("--skip-first-line"));
    QString value;
    bool missing = false;
    request->options.mode = SeparatorComma;
    if (takeOption(args, QStringLiteral("--separator"), &value, &missing)) {
        static const QHash<QString, int> modes = {
            {QStringLiteral("tab"), SeparatorTab}, {QStringLiteral("comma"), SeparatorComma},
            {QStringLiteral("semicolon"), SeparatorSemicolon}};
        if (!modes.contains(value)) {
            error(QStringLiteral("--separator takes tab, comma or semicolon"));
            return false;
        }
        request->options.mode = modes.value(value);
    }
    if (takeOption(args, QStringLiteral("--quotes"), &value, &missing)) {
        if (value != u"standard" && value != u"plain") {
            error(QStringLiteral("--quotes takes standard or plain"));
            return false;
        }
        request->options.standardQuotes = value == u"standard";
    }
    QString list = QStringLiteral("name,url,user1,password,notes");
    takeOption(args, QStringLiteral("--columns"), &list, &missing);
    if (missing) {
        error(QStringLiteral("an option needs a value"));
        return false;
    }
    static const QHash<QString, ImportField> fields = {
        {QStringLiteral("name"), ImportField::Name},         {QStringLiteral("url"), ImportField::URL},
        {QStringLiteral("user1"), ImportField::UserID1},     {QStringLiteral("user2"), ImportField::UserID2},
        {QStringLiteral("password"), ImportField::Password}, {QStringLiteral("notes"), ImportField::Notes},
        {QStringLiteral("skip"), ImportField::None}};
    const QStringList names = list.split(u',');
    if (names.size() > kImportColumnsMax) {
        error(QStringLiteral("--columns names at most %1 columns").arg(kImportColumnsMax));
        return false;
    }
    request->columns = ImportColumns::initial({});
    // More than nine columns named: that many fields are read (the dialog reads nine), so a
    // file whose password stands in the tenth column or later can still be imported.
    request->options.maxFields = std::max<int>(kImportColumns, int(names.size()));
    request->columns.fields.resize(request->options.maxFields, ImportField::None);
    request->columns.ticked.resize(request->options.maxFields, false);
    for (qsizetype i = 0; i < names.size(); ++i) {
        const QString name = names[i].trimmed();
        if (!fields.contains(name)) {
            error(QStringLiteral("--columns: \"%1\" is not one of name, url, user1, user2, password, notes, skip").arg(name));
            return false;
        }
        request->columns.fields[i] = fields.value(name);
        request->columns.ticked[i] = request->columns.fields[i] != ImportField::None;
    }
    if (!request->columns.fields.contains(ImportField::Name)) {
        error(QStringLiteral("--columns needs a name column"));
        return false;
    }
    return true;
}

int readImportFile(const QString &path, ImportRequest *request)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        error(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        return ExitCannotOpen;
    }
    QString text;
    if (!decodeImportFile(file.readAll(), &text)) {
        error(QStringLiteral("%1 is not UTF-8 text; nothing was imported").arg(path));
        return ExitCannotOpen;
    }
    request->records = parseImportRecords(text, request->options);
    return ExitOK;
}

int reportLeftOver(const ImportRequest &request, qsizetype imported)
{
    const QChar separator = request.options.mode == SeparatorTab     ? u'\t'
                            : request.options.mode == SeparatorComma ? u','
                                                                    : u';';
    for (const ImportRecord &record : request.records)
        out(record.join(separator));
    if (request.records.isEmpty())
        return ExitOK;
    error(QStringLiteral("imported %1; %2 records left over (above)").arg(imported).arg(request.records.size()));
    return ExitLeftOver;
}

int writeExport(const QString &path, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    if (path == u"-") {
        const bool ok = std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout) == size_t(bytes.size())
                        && std::fflush(stdout) == 0;
        return ok ? ExitOK : ExitCannotWrite;
    }
    QString why;
    if (!writeExportFile(path, text, &why)) {
        error(QStringLiteral("cannot write %1: %2").arg(path, why));
        return ExitCannotWrite;
    }
    return ExitOK;
}

} // namespace tess::cli
