// Entries in and out: the CSV export and print text, and the import parser and mapping with
// the quirks that files written for it rely on.

#include "core/entries/EntryList.h"
#include "core/exchange/Export.h"
#include "core/exchange/Import.h"

#include <QTest>

using namespace tess;

namespace {

ImportParseOptions mode(int m)
{
    ImportParseOptions o;
    o.mode = m;
    return o;
}

ImportColumns columns(const QList<ImportField> &fields, const QList<int> &ticked)
{
    ImportColumns c = ImportColumns::initial(fields);
    for (int i : ticked)
        c.ticked[i] = true;
    return c;
}

const QList<ImportField> kUsual = {ImportField::Name, ImportField::URL, ImportField::UserID1, ImportField::Password,
                                   ImportField::Notes};

} // namespace

class TestExchange : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void exportWritesSixQuotedFieldsInListOrder()
    {
        const EntryList list = {
            Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://bank.example"}, {EntryKey::UserID, "me"},
                  {EntryKey::Password, "pw"}},
            Entry{{EntryKey::Path, "Mail"}, {EntryKey::Notes, "line one\nsay \"hi\""}, {EntryKey::UserID2, "two"}},
            Entry{{EntryKey::Path, "Skipped"}},
        };
        qsizetype count = -1;
        // Selection order does not matter; rows are written in list order.
        const QString csv = exportCsv(list, {1, 0}, &count);
        QCOMPARE(count, qsizetype(2));
        QCOMPARE(csv, QStringLiteral("Title,URL,Username,Password,Notes\n"
                                     "\"Bank\",\"https://bank.example\",\"me\",\"pw\",\"\",\"\"\n"
                                     "\"Mail\",\"\",\"\",\"\",\"line one\nsay \"hi\"\",\"two\"\n"));
        QCOMPARE(exportDebugLine(2, csv.size(), {}),
                 QStringLiteral("Number exported=2; Export size= %1; export error = (null)\n").arg(csv.size()));
    }

    void printItemLayout()
    {
        using R = PrintRun;
        QCOMPARE(printItem(Entry{{EntryKey::Path, "Only"}}), (QList<R>{{R::EntryName, "Only"}, {R::Value, "\n\n"}}));
        const Entry full{{EntryKey::Path, "Bank"}, {EntryKey::URL, "u"}, {EntryKey::UserID, "me"},
                         {EntryKey::Password, "pw"}, {EntryKey::Notes, "n"}};
        QCOMPARE(printItem(full), (QList<R>{{R::EntryName, "Bank"},
                                            {R::Label, "\nWebsite: "}, {R::Value, "u"},
                                            {R::Label, "\nUserID: "}, {R::Value, "me "},
                                            {R::Label, "\nPassword: "}, {R::Value, "pw"},
                                            {R::Label, "\nNotes: "}, {R::Value, "n"},
                                            {R::Value, "\n\n"}}));
        Entry two = full;
        two.insert(EntryKey::UserID2, "you");
        QCOMPARE(printItem(two).at(4), (R{R::Value, "me you"}));
    }

    void splittingIntoLines_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("mode");
        QTest::addColumn<QStringList>("lines");
        QTest::addRow("empty") << "" << 1 << QStringList{""};
        QTest::addRow("no last empty line") << "a\nb\n" << 1 << QStringList{"a", "b"};
        QTest::addRow("crlf gives an empty line") << "a\r\nb" << 1 << QStringList{"a", "", "b"};
        QTest::addRow("quoted break kept") << "\"x\ny\",z\nw" << 1 << QStringList{"\"x\ny\",z", "w"};
        QTest::addRow("tab mode ignores quotes") << "\"x\ny\"" << 0 << QStringList{"\"x", "y\""};
        QTest::addRow("unbalanced quote swallows the rest") << "a\"b\nc\nd" << 2 << QStringList{"a\"b\nc\nd"};
    }
    void splittingIntoLines()
    {
        QFETCH(QString, text);
        QFETCH(int, mode);
        QFETCH(QStringList, lines);
        QCOMPARE(splitTextIntoLines(text, mode), lines);
    }

    void fieldRules_data()
    {
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("standard");
        QTest::addColumn<QStringList>("fields");
        QTest::addRow("quoted comma") << "\"Smith, J.\",x" << 1 << false << QStringList{"Smith, J.", "x"};
        QTest::addRow("same line in tab mode") << "\"Smith, J.\",x" << 0 << false << QStringList{"\"Smith, J.\",x"};
        QTest::addRow("semicolons") << "a;b,c;d" << 2 << false << QStringList{"a", "b,c", "d"};
        QTest::addRow("other tag reads as semicolon") << "a;b" << 7 << false << QStringList{"a", "b"};
        QTest::addRow("spaces") << "  a   b  ,c" << 1 << false << QStringList{"a b ", "c"};
        QTest::addRow("trailing separator") << "a,b," << 1 << false << QStringList{"a", "b", ""};
        // Its comma separates; then, the spaces skipped, the first and last characters go as quotes.
        QTest::addRow("space then quote is not quoted") << " \"a,b\"" << 1 << false << QStringList{"", "b\""};
        QTest::addRow("doubled quote quirk") << "a\"\"b" << 1 << false << QStringList{"a\"bb"};
        QTest::addRow("doubled quote quirk quoted") << "\"a\"\"b\",c" << 1 << false << QStringList{"a\"bb", "c"};
        QTest::addRow("standard quotes") << "\"a\"\"b\",c" << 1 << true << QStringList{"a\"b", "c"};
        QTest::addRow("standard: unquoted kept") << "a\"\"b" << 1 << true << QStringList{"a\"\"b"};
        QTest::addRow("unclosed quote ends at line end") << "\"a,b" << 1 << false << QStringList{"a,"};
        QTest::addRow("tenth field ignored") << "1,2,3,4,5,6,7,8,9,10" << 1 << false
                                            << QStringList{"1", "2", "3", "4", "5", "6", "7", "8", "9"};
        QTest::addRow("tabs") << "a\tb\t\tc" << 0 << false << QStringList{"a", "b", "", "c"};
    }
    void fieldRules()
    {
        QFETCH(QString, line);
        QFETCH(int, mode);
        QFETCH(bool, standard);
        QFETCH(QStringList, fields);
        ImportParseOptions options = ImportParseOptions{mode, false, standard};
        QCOMPARE(parseImportLine(line, options), fields);
    }

    void longFieldsAreCut()
    {
        const QString longField(10000, u'x');
        const ImportRecord r = parseImportLine(longField + ",y", mode(SeparatorComma));
        QCOMPARE(r.size(), 2);
        QCOMPARE(r[0].size(), kImportFieldMax);
        QCOMPARE(r[1], QStringLiteral("y"));
    }

    void headerLineAndEmptyLinesAreSkipped()
    {
        const QString text = "Title,URL,Username,Password,Notes\r\nA,u\r\n\r\nB,v\r\n";
        QCOMPARE(parseImportRecords(text, mode(SeparatorComma)), (QList<ImportRecord>{{"A", "u"}, {"B", "v"}}));
        // Also in tab mode (the whole line is then one field, exactly the header).
        QCOMPARE(parseImportRecords("Title,URL,Username,Password,Notes\nA\tu", mode(SeparatorTab)),
                 (QList<ImportRecord>{{"A", "u"}}));
        ImportParseOptions skip = mode(SeparatorComma);
        skip.skipFirstLine = true;
        QCOMPARE(parseImportRecords("name,url\nA,u", skip), (QList<ImportRecord>{{"A", "u"}}));
        QCOMPARE(parseImportRecords("name,url\nA,u", mode(SeparatorComma)).size(), 2);
    }

    void standardQuotesSpanLines()
    {
        ImportParseOptions o = mode(SeparatorComma);
        o.standardQuotes = true;
        QCOMPARE(parseImportRecords("\"Bank\",\"p\"\"w\",\"two\nlines\"\n", o),
                 (QList<ImportRecord>{{"Bank", "p\"w", "two\nlines"}}));
    }

    void utf8IsReadExactlyAndOtherBytesRefused()
    {
        QString text;
        QVERIFY(decodeImportFile(QByteArray("\xEF\xBB\xBF") + "Caf\xC3\xA9,\xE5\xAF\x86,\xF0\x9F\x94\x91", &text));
        QCOMPARE(text, QStringLiteral("Café,密,🔑"));
        QString untouched = "kept";
        QVERIFY(!decodeImportFile("Caf\xE9,x", &untouched));
        QCOMPARE(untouched, QStringLiteral("kept"));
        QVERIFY(!decodeImportFile("\xC3", &untouched));
    }

    void importMakesUniqueCleanedEntries()
    {
        EntryList list = {Entry{{EntryKey::Path, "hidden-site"}}};
        QList<ImportRecord> records = {{".hidden/site", "u", "me", "pw", "n"}, {"hidden-site", "v", "", "", ""}};
        QCOMPARE(importRecords(list, records, columns(kUsual, {1, 2, 3, 4})), qsizetype(2));
        QVERIFY(records.isEmpty());
        QCOMPARE(list.size(), 3);
        const Entry first = list[1].toMap();
        QCOMPARE(entryName(first), QStringLiteral("hidden-site2"));
        QCOMPARE(first.value(EntryKey::URL).toString(), QStringLiteral("u"));
        QCOMPARE(first.value(EntryKey::UserID).toString(), QStringLiteral("me"));
        QCOMPARE(first.value(EntryKey::Password).toString(), QStringLiteral("pw"));
        QCOMPARE(first.value(EntryKey::Notes).toString(), QStringLiteral("n"));
        QVERIFY(!first.contains(EntryKey::UserID2));
        // The default options of a new entry.
        QCOMPARE(first.value(EntryKey::PasswordTabSwitch), QVariant(true));
        QCOMPARE(entryName(list[2]), QStringLiteral("hidden-site3"));
        // Empty values are stored too.
        QCOMPARE(list[2].toMap().value(EntryKey::UserID), QVariant(QString()));
    }

    void leftOverRecords()
    {
        EntryList list;
        // Name and two other columns ticked: three fields are needed.
        QList<ImportRecord> records = {{"a", "b"}, {"", ""}, {"", "u", "me"}, {"ok", "u", "me"}};
        QCOMPARE(importRecords(list, records, columns(kUsual, {1, 2})), qsizetype(1));
        QCOMPARE(records, (QList<ImportRecord>{{"a", "b"}, {"", "u", "me"}}));
        QCOMPARE(entryName(list[0]), QStringLiteral("ok"));
    }

    void ticksAreTiedToPositions()
    {
        // The name column dragged to position 2: the last ticked "Name" position names entries,
        // and unticked positions feed nothing.
        const QList<ImportField> moved = {ImportField::URL, ImportField::Password, ImportField::Name};
        ImportColumns c = ImportColumns::initial(moved);
        c.ticked[2] = true;
        EntryList list;
        QList<ImportRecord> records = {{"https://x", "secret", "X"}};
        QCOMPARE(importRecords(list, records, c), qsizetype(1));
        const Entry e = list[0].toMap();
        QCOMPARE(entryName(e), QStringLiteral("X"));
        QCOMPARE(e.value(EntryKey::URL).toString(), QStringLiteral("https://x"));
        QVERIFY(!e.contains(EntryKey::Password));
    }

    void exportImportsBack()
    {
        const EntryList list = {Entry{{EntryKey::Path, "Bank"}, {EntryKey::URL, "https://b"}, {EntryKey::UserID, "me"},
                                      {EntryKey::Password, "p;w €"}, {EntryKey::Notes, "n"}}};
        QList<ImportRecord> records = parseImportRecords(exportCsv(list, {0}), mode(SeparatorComma));
        EntryList imported;
        QCOMPARE(importRecords(imported, records, columns(kUsual, {1, 2, 3, 4})), qsizetype(1));
        for (const QString &key : {EntryKey::Path, EntryKey::URL, EntryKey::UserID, EntryKey::Password, EntryKey::Notes})
            QCOMPARE(imported[0].toMap().value(key).toString(), list[0].toMap().value(key).toString());
    }
};

QTEST_GUILESS_MAIN(TestExchange)
#include "tst_exchange.moc"
