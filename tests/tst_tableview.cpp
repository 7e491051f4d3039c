// The table over an array: sorted insertion, uniqueness markers, NOCHANGE, blank rows, the
// deletion rule and the delegate hooks; and the panel placement and start-up rules of the
// windows around it.

#include "core/entries/EntryList.h"
#include "ui/Controller.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTest>

using namespace tess;

class TestTableView : public QObject {
    Q_OBJECT

    struct Fixture {
        QWCellTableViewArray table;
        QLabel error;
        QPushButton deleteButton;
        QVariantList array;
        int changes = 0;
        Fixture(const QList<QPair<QString, QString>> &columns, const QVariantList &initial, const QStringList &keys,
                QWCellTableViewArray::Delegate d = {})
        {
            table.setColumns(columns);
            table.setErrorMessageField(&error);
            table.setDeleteButton(&deleteButton);
            array = initial;
            if (!d.changed)
                d.changed = [this](QWCellTableViewArray *) { ++changes; };
            table.initWithArray(&array, d, keys);
        }
    };

    static QVariantList strings(const QStringList &l)
    {
        QVariantList out;
        for (const QString &s : l)
            out.append(s);
        return out;
    }

private Q_SLOTS:
    void sortedInsertion()
    {
        Fixture f({{"Name", "Name"}}, strings({"a", "C"}), {});
        QCOMPARE(f.table.addEntryToArray(QString("b")), 1);
        QCOMPARE(f.array, strings({"a", "b", "C"}));
        QCOMPARE(f.table.addEntryToArray(QString("b")), 2); // equal values go after
        QCOMPARE(f.table.addEntryToArray(QString("")), 4);   // blanks always at the end
        Fixture n({{"NameNonalphabetized", "Name"}}, strings({"z"}), {});
        QCOMPARE(n.table.addEntryToArray(QString("a")), 1);
    }

    void uniquenessMarkers()
    {
        Fixture ci({{"UniqueI", "Name"}}, strings({"abc", "xyz"}), {});
        ci.table.setObjectValue(QString("ABC"), 0, 0);
        QCOMPARE(ci.table.errorMessage(), QWCellTableViewArray::kEntryExistsIgnoringCase);
        QCOMPARE(ci.array, strings({"abc", "xyz"}));
        QCOMPARE(ci.changes, 0);
        Fixture cs({{"Unique", "Name"}}, strings({"abc", "xyz"}), {});
        cs.table.setObjectValue(QString("ABC"), 0, 0);
        QVERIFY(cs.table.errorMessage().isEmpty());
        QCOMPARE(cs.array, strings({"ABC", "xyz"}));
        cs.table.setObjectValue(QString("xyz"), 0, 0);
        QCOMPARE(cs.table.errorMessage(), QWCellTableViewArray::kEntryExists);
        cs.table.setObjectValue(QString(""), 0, 0); // empty passes the check
        QVERIFY(cs.table.errorMessage().isEmpty());
        QCOMPARE(cs.changes, 2);
    }

    void keyedEditsAndNoChange()
    {
        QWCellTableViewArray::Delegate d;
        QVariant edited;
        d.editedEntry = [&](QWCellTableViewArray *, const QVariant &, const QVariant &n) { edited = n; };
        d.editEntryError = [](QWCellTableViewArray *, const QVariant &n, const QVariant &) {
            return n.toMap().value("Name").toString() == u"bad" ? QString("Delegate says no") : QString();
        };
        Fixture f({{"Name", "Name"}, {"NOCHANGE", "Info"}, {"Other", "Other"}},
                  {QVariantMap{{"Name", "b"}, {"Info", "i"}, {"Other", "o"}}, QVariantMap{{"Name", "c"}, {"Info", "j"}, {"Other", "p"}}},
                  {"Name", "Info", "Other"}, d);
        f.table.setObjectValue(QString("changed"), 1, 0);
        QCOMPARE(f.array[0].toMap().value("Info").toString(), QString("i"));
        f.table.setObjectValue(QString("bad"), 0, 0);
        QCOMPARE(f.table.errorMessage(), QString("Delegate says no"));
        f.table.setObjectValue(QString("z"), 0, 0); // the ordering key: moves to its place
        QCOMPARE(f.array[1].toMap().value("Name").toString(), QString("z"));
        QCOMPARE(f.table.selectedRows(), QList<int>{1});
        QCOMPARE(edited.toMap().value("Name").toString(), QString("z"));
        f.table.setObjectValue(QString("q"), 2, 0); // another key: stays in place
        QCOMPARE(f.array[0].toMap().value("Other").toString(), QString("q"));
    }

    void blankRowsAreRemovedByTheNextEdit()
    {
        Fixture f({{"Name", "Name"}}, strings({"a", "b", "", ""}), {});
        f.table.setObjectValue(QString("c"), 0, 0);
        QCOMPARE(f.array, strings({"b", "c"}));
    }

    void deletionSelectsTheRowThatFollowed()
    {
        Fixture f({{"Name", "Name"}}, strings({"r0", "r1", "r2", "r3", "r4", "r5"}), {});
        f.table.selectionModel()->select(f.table.model()->index(2, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        f.table.selectionModel()->select(f.table.model()->index(4, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
        QVERIFY(f.deleteButton.isEnabled());
        f.table.deleteSelectedEntriesFromTable();
        QCOMPARE(f.array, strings({"r0", "r1", "r3", "r5"}));
        QCOMPARE(f.table.selectedRows(), QList<int>{2});
        QCOMPARE(f.changes, 1);
    }

    void deletionStopsAtARefusal()
    {
        QWCellTableViewArray::Delegate d;
        d.editEntryError = [](QWCellTableViewArray *, const QVariant &, const QVariant &old) {
            return old.toString() == u"keep" ? QString("Cannot delete") : QString();
        };
        int changes = 0;
        d.changed = [&](QWCellTableViewArray *) { ++changes; };
        Fixture f({{"Name", "Name"}}, strings({"keep", "a", "b"}), {}, d);
        f.table.selectAll();
        f.table.deleteSelectedEntriesFromTable();
        QCOMPARE(f.array, strings({"keep"}));
        QCOMPARE(f.table.errorMessage(), QString("Cannot delete"));
        QCOMPARE(changes, 0);
    }

    void addWithAndWithoutTheDelegate()
    {
        Fixture plain({{"Name", "Name"}}, strings({"a"}), {});
        plain.table.addEntryToTable();
        QCOMPARE(plain.array, strings({"a", ""}));
        QWCellTableViewArray::Delegate d;
        d.addEntry = [](QWCellTableViewArray *t) {
            t->array()->append(QString("from delegate"));
            return true;
        };
        Fixture delegated({{"Name", "Name"}}, strings({"a"}), {}, d);
        delegated.table.addEntryToTable();
        QCOMPARE(delegated.array, strings({"a", "from delegate"}));
        QCOMPARE(delegated.table.ok(), 1);
        QCOMPARE(delegated.array.size(), 2); // blanks kept: the delegate adds rows itself
    }

    void cancelRestoresTheOriginal()
    {
        Fixture f({{"Name", "Name"}}, strings({"a"}), {});
        f.table.setObjectValue(QString("b"), 0, 0);
        QCOMPARE(f.table.cancel(), 0);
        QCOMPARE(f.array, strings({"a"}));
    }

    void panelPlacement()
    {
        // Centred over the window; pushed back onto the screen horizontally only.
        QCOMPARE(panelPosition(QRect(100, 100, 400, 300), QSize(200, 100), 1280), QPoint(200, 200));
        QCOMPARE(panelPosition(QRect(1100, 100, 400, 300), QSize(200, 100), 1280), QPoint(1080, 200));
        QCOMPARE(panelPosition(QRect(-300, -50, 100, 100), QSize(200, 100), 1280), QPoint(0, -50));
    }

    void generatedPasswordLengthNormalisation_data()
    {
        QTest::addColumn<qint64>("stored");
        QTest::addColumn<qint64>("normalised");
        QTest::addRow("absent") << qint64(0) << qint64(20);
        QTest::addRow("5") << qint64(5) << qint64(8);
        QTest::addRow("8") << qint64(8) << qint64(12);
        QTest::addRow("16") << qint64(16) << qint64(20);
        QTest::addRow("23") << qint64(23) << qint64(24);
        QTest::addRow("24") << qint64(24) << qint64(24);
        QTest::addRow("30") << qint64(30) << qint64(30);
    }
    void generatedPasswordLengthNormalisation()
    {
        QFETCH(qint64, stored);
        QFETCH(qint64, normalised);
        QCOMPARE(normalizedGeneratedPasswordLength(stored), normalised);
    }

    void hoverText()
    {
        const Entry e{{"websiteUserID", "me"}, {"websiteUserID2", "you"}, {"websitePassword", "pw"},
                      {"websiteURL", "https://x"}, {"Notes", "n"}};
        QCOMPARE(entryToolTip(e, true, false, false, false), QString("User ID: me you"));
        QCOMPARE(entryToolTip(e, true, true, true, true), QString("User ID: me you\nPassword: pw\nURL: https://x\nNotes: n"));
        QCOMPARE(entryToolTip(e, false, true, false, false), QString("\nPassword: pw")); // kept as it always was
        QCOMPARE(entryToolTip(Entry{{"websiteURL", "u"}}, true, true, true, false), QString("URL: u"));
        QCOMPARE(entryToolTip(Entry{}, true, true, true, true), QString());
    }
};

QTEST_MAIN(TestTableView)
#include "tst_tableview.moc"
