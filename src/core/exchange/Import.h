#pragma once
// Entries in: the text-file import's parser and its mapping of columns onto entry fields,
// shared by the import dialog and tessaline-cli.

#include "core/entries/Entry.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace tess {

// Separator modes, as the dialog's radio buttons tag them; any other value reads as semicolon.
enum ImportSeparator { SeparatorTab = 0, SeparatorComma = 1, SeparatorSemicolon = 2 };

constexpr int kImportColumns = 9;
// The most columns tessaline-cli's --columns may name, for files with more than nine.
constexpr int kImportColumnsMax = 64;
constexpr qsizetype kImportFieldMax = 8191;

using ImportRecord = QStringList;

struct ImportParseOptions {
    int mode = SeparatorTab;
    // Skip the first line whatever it holds (files with a header line of their own).
    bool skipFirstLine = false;
    // Quoted fields as RFC 4180 reads them: a doubled quote inside is one quote.
    bool standardQuotes = false;
    // Fields kept per record; the dialog keeps nine, the command line as many as it names.
    int maxFields = kImportColumns;
};

// The file's text: UTF-8, a leading byte-order mark dropped. False (and nothing set) when
// the bytes are not valid UTF-8.
bool decodeImportFile(const QByteArray &bytes, QString *text);

// splitTextIntoLines:separator: — outside quotes (modes 1 and above), CR or LF ends a line.
QStringList splitTextIntoLines(const QString &text, int mode);
// findField: where the field starting at pos ends (its separator, or the end of the line).
qsizetype findField(const QString &line, qsizetype pos, int mode);
// One line's fields (at most options.maxFields, nine unless asked).
ImportRecord parseImportLine(const QString &line, const ImportParseOptions &options);
// The records of a whole file: the export's header line and empty lines skipped.
QList<ImportRecord> parseImportRecords(const QString &text, const ImportParseOptions &options);

// What a column feeds, by the header title over it.
enum class ImportField { None, Name, URL, UserID1, UserID2, Password, Notes };
ImportField importFieldForTitle(const QString &title);
QString importTitleForField(ImportField field);

struct ImportColumns {
    // Per position: the field named by the header over it, and whether it is ticked.
    QList<ImportField> fields;
    QList<bool> ticked;
    // The dialog's start: the given titles, only the first position ticked.
    static ImportColumns initial(const QList<ImportField> &fields);
};

// Imports the records into the list, in order: each that has at least as many fields as
// ticked positions and a name becomes a new entry under a unique name; the rest stay in
// records (short ones only when they hold something). progress(done, total) is called after
// each record. Answers the number of entries made.
qsizetype importRecords(EntryList &list, QList<ImportRecord> &records, const ImportColumns &columns,
                        const std::function<void(qsizetype, qsizetype)> &progress = {});

} // namespace tess
