#include "core/exchange/Import.h"

#include "core/entries/EntryList.h"
#include "core/exchange/Export.h"

#include <QStringDecoder>

namespace tess {

namespace {

QChar separatorChar(int mode)
{
    return mode == SeparatorTab ? u'\t' : mode == SeparatorComma ? u',' : u';';
}

// The field's text between its opening quote and the matching closing one, a doubled quote
// read as one; what follows the closing quote is kept as it is.
QString unquoteStandard(const QString &field)
{
    QString value;
    value.reserve(field.size());
    qsizetype i = 1;
    for (; i < field.size(); ++i) {
        if (field[i] == u'"') {
            if (i + 1 < field.size() && field[i + 1] == u'"') {
                value += u'"';
                ++i;
                continue;
            }
            ++i;
            break;
        }
        value += field[i];
    }
    return value + field.mid(i);
}

// Doubled quotes collapse by shifting the rest left while the value keeps its length, so each
// collapsed pair repeats the last character: a""b reads as a"bb. Files written for this rule
// depend on it.
void collapseDoubledQuotes(QString &value)
{
    const qsizetype n = value.size();
    for (qsizetype i = 0; i + 1 < n; ++i) {
        if (value[i] == u'"' && value[i + 1] == u'"') {
            for (qsizetype j = i; j + 1 < n; ++j)
                value[j] = value[j + 1];
        }
    }
}

} // namespace

bool decodeImportFile(const QByteArray &bytes, QString *text)
{
    // Stateless: bytes cut off in the middle of a character are an error, not pending input.
    QStringDecoder decoder(QStringDecoder::Utf8, QStringConverter::Flag::Stateless);
    QString decoded = decoder.decode(bytes);
    if (decoder.hasError())
        return false;
    *text = std::move(decoded);
    return true;
}

QStringList splitTextIntoLines(const QString &text, int mode)
{
    QStringList lines;
    bool inQuotes = false;
    qsizetype start = 0;
    bool endedAtBreak = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        endedAtBreak = false;
        if (c == u'"' && mode != SeparatorTab) {
            inQuotes = !inQuotes;
        } else if (!inQuotes && (c == u'\r' || c == u'\n')) {
            lines.append(text.mid(start, i - start));
            start = i + 1;
            endedAtBreak = true;
        }
    }
    if (!endedAtBreak || text.isEmpty())
        lines.append(text.mid(start));
    return lines;
}

qsizetype findField(const QString &line, qsizetype pos, int mode)
{
    const qsizetype n = line.size();
    const QChar separator = separatorChar(mode);
    if (mode != SeparatorTab && pos < n && line[pos] == u'"') {
        qsizetype i = pos;
        // A run of quoted parts: a doubled quote never ends the field.
        while (i < n && line[i] == u'"') {
            const qsizetype close = line.indexOf(u'"', i + 1);
            if (close < 0)
                return n;
            i = close + 1;
        }
        pos = i;
    }
    const qsizetype end = line.indexOf(separator, pos);
    return end < 0 ? n : end;
}

ImportRecord parseImportLine(const QString &line, const ImportParseOptions &options)
{
    const int mode = options.mode;
    const QChar separator = separatorChar(mode);
    ImportRecord fields;
    qsizetype pos = 0;
    while (fields.size() < options.maxFields) {
        const qsizetype end = findField(line, pos, mode);
        qsizetype i = pos;
        while (i < end && line[i] == u' ')
            ++i;
        QString value;
        value.reserve(std::min(end - i, kImportFieldMax));
        for (; i < end && value.size() < kImportFieldMax; ++i) {
            if (line[i] == u' ' && !value.isEmpty() && value.back() == u' ')
                continue;
            value += line[i];
        }
        if (mode != SeparatorTab) {
            if (!value.isEmpty() && value.back() == separator)
                value.chop(1);
            if (options.standardQuotes) {
                if (value.startsWith(u'"'))
                    value = unquoteStandard(value);
            } else {
                if (value.startsWith(u'"'))
                    value = value.mid(1, value.size() - 2);
                collapseDoubledQuotes(value);
            }
        }
        fields.append(value);
        if (end >= line.size())
            break;
        pos = end + 1;
    }
    return fields;
}

QList<ImportRecord> parseImportRecords(const QString &text, const ImportParseOptions &options)
{
    const QStringList lines = splitTextIntoLines(text, options.mode);
    QList<ImportRecord> records;
    qsizetype first = 0;
    if (!lines.isEmpty() && (options.skipFirstLine || lines.first() == kCsvHeaderLine))
        first = 1;
    for (qsizetype i = first; i < lines.size(); ++i) {
        if (!lines[i].isEmpty())
            records.append(parseImportLine(lines[i], options));
    }
    return records;
}

ImportField importFieldForTitle(const QString &title)
{
    static const QList<std::pair<QString, ImportField>> titles = {
        {QStringLiteral("Name"), ImportField::Name},          {QStringLiteral("URL"), ImportField::URL},
        {QStringLiteral("User ID 1"), ImportField::UserID1},  {QStringLiteral("User ID 2"), ImportField::UserID2},
        {QStringLiteral("Password"), ImportField::Password}, {QStringLiteral("Notes"), ImportField::Notes},
    };
    for (const auto &[t, f] : titles)
        if (t == title)
            return f;
    return ImportField::None;
}

QString importTitleForField(ImportField field)
{
    switch (field) {
    case ImportField::Name: return QStringLiteral("Name");
    case ImportField::URL: return QStringLiteral("URL");
    case ImportField::UserID1: return QStringLiteral("User ID 1");
    case ImportField::UserID2: return QStringLiteral("User ID 2");
    case ImportField::Password: return QStringLiteral("Password");
    case ImportField::Notes: return QStringLiteral("Notes");
    case ImportField::None: break;
    }
    return QString();
}

ImportColumns ImportColumns::initial(const QList<ImportField> &fields)
{
    ImportColumns columns;
    columns.fields = fields;
    columns.fields.resize(kImportColumns, ImportField::None);
    columns.ticked = QList<bool>(kImportColumns, false);
    columns.ticked[0] = true;
    return columns;
}

qsizetype importRecords(EntryList &list, QList<ImportRecord> &records, const ImportColumns &columns,
                        const std::function<void(qsizetype, qsizetype)> &progress)
{
    qsizetype ticked = 0;
    qsizetype namePosition = 0;
    for (qsizetype i = 0; i < columns.ticked.size(); ++i) {
        if (!columns.ticked[i])
            continue;
        ++ticked;
        if (columns.fields.value(i) == ImportField::Name)
            namePosition = i;
    }
    static const QHash<ImportField, QString> keys = {
        {ImportField::URL, EntryKey::URL},           {ImportField::UserID1, EntryKey::UserID},
        {ImportField::UserID2, EntryKey::UserID2},   {ImportField::Password, EntryKey::Password},
        {ImportField::Notes, EntryKey::Notes},
    };

    QSet<QString> names = entryNameSet(list);
    QList<ImportRecord> leftOver;
    qsizetype made = 0;
    const qsizetype total = records.size();
    for (qsizetype r = 0; r < total; ++r) {
        const ImportRecord &record = records[r];
        if (record.size() >= ticked) {
            QString name = record.value(namePosition);
            if (name.isEmpty()) {
                leftOver.append(record);
            } else {
                if (name.startsWith(u'.'))
                    name.remove(0, 1);
                name.replace(u'/', u'-');
                const QString unique = uniqueNameForName(names, name);
                names.insert(unique);
                Entry entry = newCategoryEntry(unique);
                for (qsizetype i = 0; i < record.size() && i < columns.ticked.size(); ++i) {
                    const auto key = keys.constFind(columns.fields.value(i));
                    if (columns.ticked[i] && key != keys.cend())
                        entry.insert(*key, record[i]);
                }
                list.append(entry);
                ++made;
            }
        } else {
            bool empty = true;
            for (const QString &field : record)
                empty = empty && field.isEmpty();
            if (!empty)
                leftOver.append(record);
        }
        if (progress)
            progress(r + 1, total);
    }
    records = std::move(leftOver);
    return made;
}

} // namespace tess
