#include "core/exchange/Export.h"

#include <QSaveFile>

#include <algorithm>

namespace tess {

QString exportCsv(const EntryList &list, const QList<qsizetype> &rows, qsizetype *count)
{
    // List order whatever the order of the selection.
    QList<qsizetype> sorted = rows;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());

    QString text = kCsvHeaderLine + u'\n';
    qsizetype written = 0;
    const QString quote = QStringLiteral("\"");
    const QString between = QStringLiteral("\",\"");
    for (qsizetype row : sorted) {
        if (row < 0 || row >= list.size())
            continue;
        const Entry e = list.at(row).toMap();
        text += quote + entryString(e, EntryKey::Path) + between + entryString(e, EntryKey::URL) + between
              + entryString(e, EntryKey::UserID) + between + entryString(e, EntryKey::Password) + between
              + entryString(e, EntryKey::Notes) + between + entryString(e, EntryKey::UserID2) + quote + u'\n';
        ++written;
    }
    if (count)
        *count = written;
    return text;
}

bool writeExportFile(const QString &path, const QString &text, QString *error)
{
    const QByteArray bytes = text.toUtf8();
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        && file.write(bytes) == bytes.size() && file.commit())
        return true;
    if (error)
        *error = file.errorString();
    return false;
}

QString exportDebugLine(qsizetype count, qsizetype characters, const QString &error)
{
    return QStringLiteral("Number exported=%1; Export size= %2; export error = %3\n")
        .arg(count)
        .arg(characters)
        .arg(error.isEmpty() ? QStringLiteral("(null)") : error);
}

QList<PrintRun> printItem(const Entry &entry)
{
    QList<PrintRun> runs{{PrintRun::EntryName, entryString(entry, EntryKey::Path)}};
    auto field = [&](const QString &label, const QString &value) {
        runs.append({PrintRun::Label, label});
        runs.append({PrintRun::Value, value});
    };
    const QString url = entryString(entry, EntryKey::URL);
    if (!url.isEmpty())
        field(QStringLiteral("\nWebsite: "), url);
    const QString userID = entryString(entry, EntryKey::UserID);
    if (!userID.isEmpty())
        field(QStringLiteral("\nUserID: "), userID + u' ' + entryString(entry, EntryKey::UserID2));
    const QString password = entryString(entry, EntryKey::Password);
    if (!password.isEmpty())
        field(QStringLiteral("\nPassword: "), password);
    const QString notes = entryString(entry, EntryKey::Notes);
    if (!notes.isEmpty())
        field(QStringLiteral("\nNotes: "), notes);
    runs.append({PrintRun::Value, QStringLiteral("\n\n")});
    return runs;
}

} // namespace tess
