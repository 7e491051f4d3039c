// The per-entry login options: conversion of older entries, what each option forces, and
// what the editor's controls store.

#include "core/archive/KeyedArchive.h"
#include "core/login/LoginOptions.h"

#include <QTest>

using namespace tess;
using namespace tess::loginoptions;

class TestLoginOptions : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void olderEntriesAreConvertedOnce_data()
    {
        QTest::addColumn<Entry>("old");
        QTest::addColumn<Entry>("converted");
        QTest::addRow("tabbed login, same page")
            << Entry{{EntryKey::UserIDOptions, 2}}
            << Entry{{EntryKey::UserIDOptions, 2}, {EntryKey::NewUserIDOptions, 1}, {EntryKey::UserIDTabSwitch, true}, {EntryKey::UserIDTabCount, 0},
                     {EntryKey::PasswordTabSwitch, true}, {EntryKey::PasswordTabCount, 0}};
        QTest::addRow("tabbed login, next page")
            << Entry{{EntryKey::UserIDOptions, 2}, {EntryKey::PasswordOptions, 1}}
            << Entry{{EntryKey::UserIDOptions, 2}, {EntryKey::PasswordOptions, 1}, {EntryKey::NewUserIDOptions, 1}, {EntryKey::UserIDTabSwitch, true},
                     {EntryKey::UserIDTabCount, 0}, {EntryKey::UserIDReturnSwitch, true}, {EntryKey::PasswordTabSwitch, false},
                     {EntryKey::PasswordTabCount, 0}};
        QTest::addRow("shown password drops its Return")
            << Entry{{EntryKey::UserIDOptions, 1}, {EntryKey::PasswordOptions, 3}, {EntryKey::PasswordEnter, true}}
            << Entry{{EntryKey::UserIDOptions, 1}, {EntryKey::PasswordOptions, 3}, {EntryKey::NewUserIDOptions, 1}, {EntryKey::UserIDTabSwitch, false},
                     {EntryKey::UserIDTabCount, 0}, {EntryKey::PasswordTabSwitch, false}, {EntryKey::PasswordTabCount, 0}};
        QTest::addRow("open only, user ID only")
            << Entry{{EntryKey::PasswordOptions, 2}, {EntryKey::PasswordEnter, true}}
            << Entry{{EntryKey::PasswordOptions, 2}, {EntryKey::PasswordEnter, true}, {EntryKey::NewUserIDOptions, 0}, {EntryKey::UserIDTabSwitch, false},
                     {EntryKey::UserIDTabCount, 0}, {EntryKey::PasswordTabSwitch, false}, {EntryKey::PasswordTabCount, 0}};
    }
    void olderEntriesAreConvertedOnce()
    {
        QFETCH(Entry, old);
        QFETCH(Entry, converted);
        Entry e = old;
        QVERIFY(convertOlderOptions(e));
        QCOMPARE(e, converted);
        // Converted entries are left alone: the new option's presence marks them.
        e.insert(EntryKey::UserIDTabCount, 3);
        const Entry again = e;
        QVERIFY(!convertOlderOptions(e));
        QCOMPARE(e, again);
    }

    void anEntryReadFromAFileIsNotChangedByDisplayingIt()
    {
        // Values come back from an archive as the file's number types; showing the options of
        // a converted entry must not make it differ (which would offer to save it).
        Entry e{{EntryKey::Path, "Bank"}};
        convertOlderOptions(e);
        const Entry read = archive::decodeKeyedArchive(archive::encodeKeyedArchive(QVariantList{e})).toList().value(0).toMap();
        Entry shown = read;
        QVERIFY(!convertOlderOptions(shown));
        displayPasswordOption(shown, shown.value(EntryKey::PasswordOptions).toInt());
        QCOMPARE(shown, read);
    }

    void emptyingAFieldRemovesItsKey()
    {
        Entry e;
        QVERIFY(!storeField(e, EntryKey::URL, "")); // never stored: nothing to mark
        QVERIFY(e.isEmpty());
        QVERIFY(storeField(e, EntryKey::URL, "bank.example"));
        QCOMPARE(e.value(EntryKey::URL).toString(), QString("bank.example"));
        QVERIFY(storeField(e, EntryKey::URL, "bank.example")); // marked also when equal
        QVERIFY(storeField(e, EntryKey::URL, ""));
        QVERIFY(!e.contains(EntryKey::URL));
    }

    void passwordOptionsForceTheirControls()
    {
        Entry e{{EntryKey::PasswordTabSwitch, true}, {EntryKey::PasswordTabCount, 2}, {EntryKey::PasswordEnter, true}};

        // Next page: the user ID is always submitted with Return; the stored Tab switch stays.
        PasswordOptionDisplay d = passwordOptionChanged(e, 1);
        QCOMPARE(e.value(EntryKey::PasswordOptions).toInt(), 1);
        QVERIFY(!d.userIDReturnSwitchEnabled);
        QCOMPARE(d.userIDReturnSwitchChecked, std::optional<bool>(true));
        QVERIFY(e.value(EntryKey::UserIDReturnSwitch).toBool());
        QCOMPARE(d.passwordTabSwitchChecked, std::optional<bool>(false));
        QVERIFY(e.value(EntryKey::PasswordTabSwitch).toBool());
        QVERIFY(d.passwordTabSwitchEnabled && d.passwordTabsEnabled && d.passwordReturnSwitchEnabled);

        // Shown, not typed: no Tabs, no Return, and the Return checkbox's own key untouched.
        d = passwordOptionChanged(e, 3);
        QCOMPARE(e.value(EntryKey::PasswordTabCount).toInt(), 0);
        QCOMPARE(e.value(EntryKey::PasswordTabSwitch), QVariant(false));
        QCOMPARE(e.value(EntryKey::PasswordReturnSwitch), QVariant(false));
        QVERIFY(e.value(EntryKey::PasswordEnter).toBool());
        QVERIFY(!d.passwordReturnSwitchEnabled && !d.passwordTabsEnabled && !d.passwordTabSwitchEnabled);
        QVERIFY(d.userIDReturnSwitchEnabled); // released as it was
        QVERIFY(!d.userIDReturnSwitchChecked);
        QVERIFY(e.value(EntryKey::UserIDReturnSwitch).toBool());

        // User ID only: released too; the Tab count is kept.
        e.insert(EntryKey::PasswordTabCount, 4);
        d = passwordOptionChanged(e, 2);
        QCOMPARE(e.value(EntryKey::PasswordTabCount).toInt(), 4);
        QVERIFY(d.userIDReturnSwitchEnabled && !d.passwordTabsEnabled && d.passwordReturnSwitchEnabled);

        // Same page: at least one Tab, never Return after the user ID.
        d = passwordOptionChanged(e, 0);
        QVERIFY(!e.contains(EntryKey::PasswordOptions));
        QVERIFY(!e.contains(EntryKey::PasswordReturnSwitch));
        QVERIFY(!e.contains(EntryKey::UserIDReturnSwitch));
        QCOMPARE(e.value(EntryKey::PasswordTabSwitch), QVariant(true));
        QCOMPARE(d.passwordTabsIndex, std::optional<int>(4));
        QVERIFY(!d.passwordTabSwitchEnabled && d.passwordTabsEnabled && !d.userIDReturnSwitchEnabled);
    }

    void userIDOptionAndTabs()
    {
        Entry e{{EntryKey::UserIDTabSwitch, true}, {EntryKey::UserIDTabCount, 2}};
        userIDOptionChanged(e, 0);
        QCOMPARE(e.value(EntryKey::UserIDTabSwitch), QVariant(false));
        QCOMPARE(e.value(EntryKey::UserIDTabCount).toInt(), 2); // the count is left
        const UserIDOptionDisplay off = displayUserIDOption(0, true);
        QVERIFY(!off.tabSwitchEnabled && !off.tabsEnabled);
        QVERIFY(displayUserIDOption(1, true).tabsEnabled);
        QVERIFY(!displayUserIDOption(1, false).tabsEnabled);

        tabChanged(e, true, true, 3);
        QCOMPARE(e.value(EntryKey::UserIDTabSwitch), QVariant(true));
        QCOMPARE(e.value(EntryKey::UserIDTabCount).toInt(), 3);
        tabChanged(e, false, false, 3);
        QVERIFY(!e.contains(EntryKey::PasswordTabSwitch));
        QCOMPARE(e.value(EntryKey::PasswordTabCount).toInt(), 0);
    }

    void theBuiltInBrowserKeepsTheChosenOne()
    {
        Entry e;
        browserChanged(e, "Chromium", "chromium.desktop");
        QCOMPARE(e.value(EntryKey::BrowserBundleID).toString(), QString("chromium.desktop"));
        browserChanged(e, kBuiltInBrowser, QString());
        QVERIFY(e.value(EntryKey::UseDVBrowser).toBool());
        QCOMPARE(e.value(EntryKey::Browser).toString(), QString("Chromium"));
        QCOMPARE(e.value(EntryKey::BrowserBundleID).toString(), QString("chromium.desktop"));
        browserChanged(e, kDefaultBrowser, QString());
        QVERIFY(e.isEmpty());
    }
};

QTEST_MAIN(TestLoginOptions)
#include "tst_loginoptions.moc"
