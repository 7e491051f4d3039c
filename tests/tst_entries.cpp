// The entry list's order and naming rules, conflict merging, search, and recent titles.

#include "core/entries/EntryList.h"
#include "core/entries/Search.h"
#include "core/login/RecentWebsites.h"

#include <QTest>

using namespace tess;

namespace {

EntryList named(const QStringList &names)
{
    EntryList list;
    for (const QString &n : names)
        list.append(Entry{{EntryKey::Path, n}});
    return list;
}

// "Name=password" for each entry: a list written the short way.
EntryList passwords(const QStringList &items)
{
    EntryList list;
    for (const QString &item : items) {
        const qsizetype eq = item.lastIndexOf(u'=');
        list.append(Entry{{EntryKey::Path, item.left(eq)}, {EntryKey::Password, item.mid(eq + 1)}});
    }
    return list;
}

QStringList asPasswords(const EntryList &list)
{
    QStringList out;
    for (const QVariant &e : list)
        out.append(entryName(e) + u'=' + e.toMap().value(EntryKey::Password).toString());
    return out;
}

QStringList names(const EntryList &list)
{
    QStringList out;
    for (const QVariant &e : list)
        out.append(entryName(e));
    return out;
}

} // namespace

class TestEntries : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void sortOrder_data()
    {
        QTest::addColumn<QStringList>("input");
        QTest::addColumn<QStringList>("sorted");
        QTest::addRow("case-sensitive") << QStringList{"apple", "Zeta", "Apple"} << QStringList{"Apple", "Zeta", "apple"};
        QTest::addRow("Bank before bank") << QStringList{"bank", "Bank"} << QStringList{"Bank", "bank"};
        QTest::addRow("prefix first") << QStringList{"Bank2", "Bank", "Bank copy"} << QStringList{"Bank", "Bank copy", "Bank2"};
        QTest::addRow("code points, not UTF-16 units")
            << QStringList{QString::fromUtf8("\U0001F600"), QString(QChar(0xFF01))}
            << QStringList{QString(QChar(0xFF01)), QString::fromUtf8("\U0001F600")};
        // Compared decomposed: é is e followed by a combining accent.
        QTest::addRow("accented beside its base letter") << QStringList{"é", "z", "e", "f"} << QStringList{"e", "é", "f", "z"};
    }
    void sortOrder()
    {
        QFETCH(QStringList, input);
        QFETCH(QStringList, sorted);
        EntryList list = named(input);
        sortEntries(list);
        QCOMPARE(names(list), sorted);
    }

    void canonicallyEquivalentNamesCompareEqual()
    {
        const QString composed = QStringLiteral("Caf\u00e9"), decomposed = QStringLiteral("Cafe\u0301");
        QCOMPARE(compareNames(composed, decomposed), 0);
        QVERIFY(compareNames(QStringLiteral("Cafe"), decomposed) < 0);
        // They are still two names: lookup is character for character.
        EntryList list = named({composed});
        QCOMPARE(entryWithName(list, decomposed), -1);
    }

    void sortKeepsOtherKeys()
    {
        EntryList list{Entry{{EntryKey::Path, "b"}, {EntryKey::Password, "2"}}, Entry{{EntryKey::Path, "a"}, {EntryKey::Password, "1"}}};
        sortEntries(list);
        QCOMPARE(list[0].toMap().value(EntryKey::Password).toString(), QStringLiteral("1"));
    }

    void uniqueNames()
    {
        EntryList list = named({"Bank", "Bank2"});
        QCOMPARE(uniqueNameForName(list, "Mail"), QStringLiteral("Mail"));
        QCOMPARE(uniqueNameForName(list, "Bank"), QStringLiteral("Bank3"));
        QCOMPARE(uniqueNameForName(list, "bank"), QStringLiteral("bank"));
        QCOMPARE(entryWithName(list, "Bank2"), 1);
        QCOMPARE(entryWithName(list, "bank2"), -1);
    }

    void duplicateNames()
    {
        EntryList list = named({"Bank", "Bank copy"});
        QCOMPARE(duplicateNameForName(list, "Bank"), QStringLiteral("Bank copy 2"));
        QCOMPARE(duplicateNameForName(named({"Bank", "bank copy"}), "Bank"), QStringLiteral("Bank copy"));
        QCOMPARE(duplicateNameForName(list, "Bank copy"), QStringLiteral("Bank copy copy"));
        list[0] = Entry{{EntryKey::Path, "Bank"}, {EntryKey::Password, "p"}, {EntryKey::UserIDTabSwitch, true}};
        const qsizetype row = duplicateEntry(list, 0);
        QCOMPARE(row, 2);
        const Entry copy = list[row].toMap();
        QCOMPARE(copy.value(EntryKey::Path).toString(), QStringLiteral("Bank copy 2"));
        QCOMPARE(copy.value(EntryKey::Password).toString(), QStringLiteral("p"));
        QCOMPARE(copy.value(EntryKey::UserIDTabSwitch).typeId(), QMetaType::Bool);
    }

    void newEntries()
    {
        const Entry added = newEntryFromAdd(QString());
        QCOMPARE(added, (Entry{{"Path", "(New)"}, {"websiteUserID", ""}, {"Button", ""}, {"Notes", ""}}));
        QCOMPARE(newEntryFromAdd("me@example.com").value(EntryKey::UserID).toString(), QStringLiteral("me@example.com"));

        EntryList list = named({"Imported"});
        const qsizetype row = newCategoryNamed(list, "Imported");
        const Entry e = list[row].toMap();
        QCOMPARE(e.value(EntryKey::Path).toString(), QStringLiteral("Imported2"));
        QCOMPARE(e.value(EntryKey::PasswordTabSwitch).typeId(), QMetaType::Bool);
        QCOMPARE(e.value(EntryKey::PasswordTabSwitch).toBool(), true);
        QCOMPARE(e.value(EntryKey::UserIDTabSwitch).toBool(), false);
        QCOMPARE(e.value(EntryKey::NewUserIDOptions).typeId(), QMetaType::LongLong);
        QCOMPARE(e.size(), 8);
    }

    void droppedNames()
    {
        QCOMPARE(droppedEntryName(named({"Mail"}), "folder/Bank"), QStringLiteral("Bank"));
        QCOMPARE(droppedEntryName(named({"Bank"}), "folder/Bank"), QStringLiteral("Bank2"));
        QCOMPARE(droppedEntryName(named({}), "Bank"), QStringLiteral("Bank"));
    }

    void mergingAConflictingCopy()
    {
        const Entry bank{{EntryKey::Path, "Bank"}, {EntryKey::Password, "old"}};
        EntryList list{bank, Entry{{EntryKey::Path, "Bank (CONFLICTED)"}}};
        const EntryList copy{bank, Entry{{EntryKey::Path, "Bank"}, {EntryKey::Password, "new"}},
                             Entry{{EntryKey::Path, "Mail"}}};
        QVERIFY(mergeConflictingEntries(list, copy));
        QCOMPARE(names(list), (QStringList{"Bank", "Bank (CONFLICTED)", "Bank (CONFLICTED)2", "Mail"}));
        QCOMPARE(list[2].toMap().value(EntryKey::Password).toString(), QStringLiteral("new"));
        // The same copy again: everything is already there.
        EntryList same{bank};
        QVERIFY(!mergeConflictingEntries(same, EntryList{bank}));
        QCOMPARE(same.size(), 1);
    }

    void mergingThreeWays_data()
    {
        QTest::addColumn<QStringList>("base");
        QTest::addColumn<QStringList>("ours");
        QTest::addColumn<QStringList>("theirs");
        QTest::addColumn<QStringList>("merged");
        QTest::addRow("added outside only") << QStringList{"A=1"} << QStringList{"A=1", "C=1"} << QStringList{"A=1", "B=1"}
                                            << QStringList{"A=1", "B=1", "C=1"};
        QTest::addRow("changed outside only") << QStringList{"A=1", "B=1"} << QStringList{"A=1", "B=1", "C=1"}
                                              << QStringList{"A=2", "B=1"} << QStringList{"A=2", "B=1", "C=1"};
        QTest::addRow("changed here only") << QStringList{"A=1", "B=1"} << QStringList{"A=2", "B=1"}
                                           << QStringList{"A=1", "B=1", "D=1"} << QStringList{"A=2", "B=1", "D=1"};
        QTest::addRow("deleted outside, untouched here goes") << QStringList{"A=1", "B=1"} << QStringList{"A=1", "B=1", "C=1"}
                                                              << QStringList{"A=1"} << QStringList{"A=1", "C=1"};
        QTest::addRow("deleted here stays deleted") << QStringList{"A=1", "B=1"} << QStringList{"A=1"}
                                                    << QStringList{"A=1", "B=1", "D=1"} << QStringList{"A=1", "D=1"};
        QTest::addRow("deleted outside, changed here stays") << QStringList{"A=1", "B=1"} << QStringList{"A=1", "B=2"}
                                                             << QStringList{"A=1"} << QStringList{"A=1", "B=2"};
        QTest::addRow("deleted here, changed outside stays") << QStringList{"A=1", "B=1"} << QStringList{"A=1"}
                                                             << QStringList{"A=1", "B=2"} << QStringList{"A=1", "B=2"};
        QTest::addRow("changed on both sides: kept twice") << QStringList{"A=1", "B=1"} << QStringList{"A=2", "B=1"}
                                                           << QStringList{"A=3"} << QStringList{"A (CONFLICTED)=3", "A=2"};
        QTest::addRow("added on both sides differently") << QStringList{} << QStringList{"A=1"} << QStringList{"A=2"}
                                                         << QStringList{"A (CONFLICTED)=2", "A=1"};
        QTest::addRow("conflict name already taken") << QStringList{"A=1", "A (CONFLICTED)=x"}
                                                     << QStringList{"A=2", "A (CONFLICTED)=x"}
                                                     << QStringList{"A=3", "A (CONFLICTED)=x"}
                                                     << QStringList{"A (CONFLICTED)2=3", "A (CONFLICTED)=x", "A=2"};
        QTest::addRow("identical on both sides") << QStringList{"A=1", "B=1"} << QStringList{"A=2", "C=1"}
                                                 << QStringList{"A=2", "C=1"} << QStringList{"A=2", "C=1"};
        QTest::addRow("same change on both sides among others") << QStringList{"A=1", "B=1"} << QStringList{"A=2", "B=1", "C=1"}
                                                                << QStringList{"A=2", "B=3"} << QStringList{"A=2", "B=3", "C=1"};
        QTest::addRow("renamed here, changed outside") << QStringList{"Bank=1"} << QStringList{"Checking=1"}
                                                       << QStringList{"Bank=2"} << QStringList{"Bank=2", "Checking=1"};
        QTest::addRow("a name held twice") << QStringList{"A=1", "A=2"} << QStringList{"A=1", "A=5"}
                                           << QStringList{"A=1", "A=2", "B=1"} << QStringList{"A=1", "A=5", "B=1"};
    }
    void mergingThreeWays()
    {
        QFETCH(QStringList, base);
        QFETCH(QStringList, ours);
        QFETCH(QStringList, theirs);
        QFETCH(QStringList, merged);
        QStringList got = asPasswords(mergeThreeWays(passwords(base), passwords(ours), passwords(theirs)));
        got.sort();
        QCOMPARE(got, merged);
        // Which side is "ours" only decides whose version keeps the name.
        got = asPasswords(mergeThreeWays(passwords(base), passwords(theirs), passwords(ours)));
        QCOMPARE(got.size(), merged.size());
    }

    void mergingWithNothingChangedHereTakesTheirListAsItIs()
    {
        // As a reload does: their order and every key, untouched.
        const EntryList theirs{Entry{{EntryKey::Path, "Zeta"}, {EntryKey::UserIDTabSwitch, true}}, Entry{{EntryKey::Path, "Bank"}}};
        QCOMPARE(mergeThreeWays(passwords({"A=1"}), passwords({"A=1"}), theirs), theirs);
    }

    void searchSteps_data()
    {
        QTest::addColumn<qsizetype>("selected");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("forward");
        QTest::addColumn<qsizetype>("found");
        // Rows: 0 Alpha, 1 Bank, 2 Credit (notes "bank card"), 3 Drive (user2 "BANKER"), 4 Email (password "xank").
        QTest::addRow("forward from Bank finds the next") << qsizetype(1) << "ank" << true << qsizetype(2);
        QTest::addRow("backward from Bank wraps") << qsizetype(1) << "ank" << false << qsizetype(4);
        QTest::addRow("only match is the selection") << qsizetype(0) << "alpha" << true << qsizetype(-1);
        QTest::addRow("second user ID, any case") << qsizetype(2) << "banker" << true << qsizetype(3);
        QTest::addRow("password is searched") << qsizetype(0) << "XANK" << true << qsizetype(4);
        QTest::addRow("no selection starts at the end") << qsizetype(-1) << "a" << true << qsizetype(0);
        QTest::addRow("no selection, backward skips the last row") << qsizetype(-1) << "xank" << false << qsizetype(-1);
        QTest::addRow("backward from row 0 continues at the end") << qsizetype(0) << "e" << false << qsizetype(4);
        QTest::addRow("empty text does nothing") << qsizetype(1) << "" << true << qsizetype(-1);
        QTest::addRow("not found") << qsizetype(1) << "zzz" << true << qsizetype(-1);
    }
    void searchSteps()
    {
        QFETCH(qsizetype, selected);
        QFETCH(QString, text);
        QFETCH(bool, forward);
        QFETCH(qsizetype, found);
        const EntryList list{Entry{{EntryKey::Path, "Alpha"}},
                             Entry{{EntryKey::Path, "Bank"}},
                             Entry{{EntryKey::Path, "Credit"}, {EntryKey::Notes, "bank card"}},
                             Entry{{EntryKey::Path, "Drive"}, {EntryKey::UserID2, "BANKER"}},
                             Entry{{EntryKey::Path, "Email"}, {EntryKey::Password, "xank"}}};
        QCOMPARE(searchStep(list, selected, text, forward), found);
    }

    void searchingNothing()
    {
        QCOMPARE(searchStep(EntryList{}, -1, "x", true), -1);
        QCOMPARE(searchStep(named({"Solo"}), -1, "solo", true), 0);
        QCOMPARE(searchStep(named({"Solo"}), 0, "solo", true), 0);
    }

    void recentTitles()
    {
        RecentWebsiteTitles r;
        for (int i = 1; i <= 21; ++i)
            r.add(QStringLiteral("Site %1").arg(i));
        QCOMPARE(r.titles().size(), 20);
        QCOMPARE(r.titles().first(), QStringLiteral("Site 21"));
        QCOMPARE(r.titles().last(), QStringLiteral("Site 2"));
        r.add("Site 10"); // moves to the top, drops nothing
        QCOMPARE(r.titles().size(), 20);
        QCOMPARE(r.titles().first(), QStringLiteral("Site 10"));
        QCOMPARE(r.titles().count("Site 10"), 1);
        QVERIFY(r.rename("Site 15", "Renamed"));
        QCOMPARE(r.titles().indexOf("Renamed"), 7);
        QVERIFY(!r.remove("site 3")); // exact comparison
        QVERIFY(r.remove("Site 3"));
        QCOMPARE(r.titles().size(), 19);
        r.clear();
        QVERIFY(r.titles().isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestEntries)
#include "tst_entries.moc"
