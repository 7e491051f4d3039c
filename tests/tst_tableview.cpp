// The table over an array: sorted insertion, uniqueness markers, NOCHANGE, blank rows, the
// deletion rule and the delegate hooks; and the placement of windows and panels and the
// start-up rules around them.

#include "core/app/PlatformChoice.h"
#include "core/entries/EntryList.h"
#include "ui/Controller.h"
#include "ui/Panels.h"
#include "ui/QWCellTableViewArray.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QRegularExpression>
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

    void editingABlankThatIsNotLastTouchesNoOtherRow()
    {
        // Two Adds, then a name typed into the first blank, as a user does it.
        QWidget window; // outlives the table it holds
        Fixture f({{"Name", "Name"}}, strings({"a", "b"}), {});
        QPushButton add("Add", &window);
        connect(&add, &QPushButton::clicked, &f.table, &QWCellTableViewArray::addEntryToTable);
        f.table.setParent(&window);
        f.table.move(0, 30);
        window.show();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        add.click();
        add.click();
        QCOMPARE(f.array, strings({"a", "b", "", ""}));
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape); // leave the second blank
        f.table.setFocus();
        f.table.selectRowAlone(2);
        QTest::keyClick(&f.table, Qt::Key_F2);
        QTRY_VERIFY(QApplication::focusWidget() != &f.table);
        QTest::keyClicks(QApplication::focusWidget(), "x");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QTRY_COMPARE(f.array, strings({"a", "b", "x"})); // the editor commits on the next pass
        QCOMPARE(f.table.selectedRows(), QList<int>{2});

        // Kept in order without sorting, a blank above the edited row moves it up by one.
        Fixture n({{"NameNonalphabetized", "Name"}}, strings({"", "b", "c", ""}), {});
        n.table.setObjectValue(QString("B"), 0, 1);
        QCOMPARE(n.array, strings({"B", "c"}));
        // With keys, a blank edited in another column stays where it is.
        Fixture k({{"Name", "Name"}, {"Value", "Value"}},
                  {QVariantMap{{"Name", "a"}, {"Value", "1"}}, QVariantMap{{"Name", ""}, {"Value", ""}}, QVariantMap{{"Name", ""}, {"Value", ""}}},
                  {"Name", "Value"});
        k.table.setObjectValue(QString("2"), 1, 1);
        QCOMPARE(k.array, (QVariantList{QVariantMap{{"Name", "a"}, {"Value", "1"}}, QVariantMap{{"Name", ""}, {"Value", "2"}}}));
    }

    void anInCellEditClosesItsOwnEditor()
    {
        // Storing an edit moves the row to its sorted place; the editor that typed it must
        // still be the view's when the view closes it.
        QTest::failOnWarning(QRegularExpression("closeEditor called with an editor that does not belong to this view"));
        QWidget window;
        Fixture f({{"Name", "Name"}}, strings({"b", "d"}), {});
        f.table.setParent(&window);
        window.show();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        f.table.setFocus();
        f.table.selectRowAlone(1);
        QTest::keyClick(&f.table, Qt::Key_F2);
        QTRY_VERIFY(QApplication::focusWidget() != &f.table);
        QWidget *editor = QApplication::focusWidget();
        QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(editor, "a");
        QTest::keyClick(editor, Qt::Key_Return);
        QTRY_COMPARE(f.array, strings({"a", "b"}));
        QTRY_COMPARE(QApplication::focusWidget(), &f.table); // the editor is gone
        QCOMPARE(f.table.selectedRows(), QList<int>{0});
        QCOMPARE(f.changes, 1);
        // Escape drops what was typed.
        QTest::keyClick(&f.table, Qt::Key_F2);
        QTRY_VERIFY(QApplication::focusWidget() != &f.table);
        QTest::keyClicks(QApplication::focusWidget(), "zzz");
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QTRY_COMPARE(QApplication::focusWidget(), &f.table);
        QTest::qWait(50);
        QCOMPARE(f.array, strings({"a", "b"}));
        QCOMPARE(f.changes, 1);

        // Add while a cell is being typed in: the typing is kept, and the new row's editor
        // stays open for its name.
        f.table.selectRowAlone(1);
        QTest::keyClick(&f.table, Qt::Key_F2);
        QTRY_VERIFY(QApplication::focusWidget() != &f.table);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(QApplication::focusWidget(), "c");
        f.table.addEntryToTable();
        QTest::qWait(50);
        QCOMPARE(f.array, strings({"a", "c", ""}));
        QCOMPARE(f.table.selectedRows(), QList<int>{2});
        QWidget *newRowEditor = QApplication::focusWidget();
        QVERIFY(newRowEditor && newRowEditor != &f.table);
        QTest::keyClicks(newRowEditor, "d");
        QTest::keyClick(newRowEditor, Qt::Key_Return);
        QTRY_COMPARE(f.array, strings({"a", "c", "d"}));
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
        // Centred over the window, kept inside the available area of the window's screen.
        const QRect one(0, 0, 1280, 1024);
        QCOMPARE(panelPosition(QRect(100, 100, 400, 300), QSize(200, 100), one), QPoint(200, 200));
        QCOMPARE(panelPosition(QRect(1100, 100, 400, 300), QSize(200, 100), one), QPoint(1080, 200));
        QCOMPARE(panelPosition(QRect(-300, -50, 100, 100), QSize(200, 100), one), QPoint(0, 0));
        QCOMPARE(panelPosition(QRect(500, 950, 400, 300), QSize(200, 100), one), QPoint(600, 924));
        // The right-hand monitor of two: the panel stays on it, not on the left one.
        const QRect right(1280, 0, 1280, 1024);
        QCOMPARE(panelPosition(QRect(1300, 100, 100, 300), QSize(200, 100), right), QPoint(1280, 200));
        QCOMPARE(panelPosition(QRect(2400, 100, 400, 300), QSize(200, 100), right), QPoint(2360, 200));
        // A top panel of 30 pixels: nothing goes under it.
        QCOMPARE(panelPosition(QRect(100, 0, 400, 100), QSize(200, 200), QRect(0, 30, 1280, 994)), QPoint(200, 30));
    }

    void documentWindowPlacement()
    {
        const QRect screen(1280, 30, 1280, 994);
        const QSize frame(470, 550);
        // The first centred; the next a step down and right of the one before.
        const QPoint first = documentWindowPosition(frame, screen, QRect());
        QCOMPARE(first, QPoint(1280 + (1280 - 470) / 2, 30 + (994 - 550) / 2));
        QCOMPARE(documentWindowPosition(frame, screen, QRect(first, frame)), first + QPoint(28, 28));
        // A step that would leave the screen starts again at its top-left corner.
        QCOMPARE(documentWindowPosition(frame, screen, QRect(QPoint(2000, 450), frame)), QPoint(1280, 30));
        // A window larger than the screen is kept at its top-left corner.
        QCOMPARE(documentWindowPosition(QSize(2000, 1200), screen, QRect()), QPoint(1280, 30));
    }

    void runsOnXWaylandUnlessAPlatformWasChosen_data()
    {
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("platform");
        const QStringList wayland{"WAYLAND_DISPLAY=wayland-0", "DISPLAY=:0"};
        QTest::addRow("wayland with xwayland") << wayland << QStringList{} << QByteArray("xcb");
        QTest::addRow("wayland session type") << QStringList{"XDG_SESSION_TYPE=wayland", "DISPLAY=:1"} << QStringList{} << QByteArray("xcb");
        QTest::addRow("no xwayland") << QStringList{"WAYLAND_DISPLAY=wayland-0"} << QStringList{} << QByteArray();
        QTest::addRow("x11 session") << QStringList{"DISPLAY=:0", "XDG_SESSION_TYPE=x11"} << QStringList{} << QByteArray();
        QTest::addRow("QT_QPA_PLATFORM chosen") << (wayland + QStringList{"QT_QPA_PLATFORM=wayland"}) << QStringList{} << QByteArray();
        QTest::addRow("-platform chosen") << wayland << QStringList{"-platform", "wayland"} << QByteArray();
        QTest::addRow("--platform chosen") << wayland << QStringList{"--platform", "offscreen"} << QByteArray();
        QTest::addRow("a file named like it") << wayland << QStringList{"platform.qvm"} << QByteArray("xcb");
    }
    void runsOnXWaylandUnlessAPlatformWasChosen()
    {
        QFETCH(QStringList, environment);
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, platform);
        QProcessEnvironment env;
        for (const QString &v : environment)
            env.insert(v.section('=', 0, 0), v.section('=', 1));
        QCOMPARE(preferredPlatformPlugin(env, QStringList{"tessaline"} + arguments), platform);
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
