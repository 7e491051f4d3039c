// Keyed archives: macOS-made samples, round trips, the structure Apple's unarchiver expects,
// and damaged input.

#include "core/archive/BinaryPlist.h"
#include "core/archive/KeyedArchive.h"
#include "support/ArchiveSupport.h"
#include "support/TestSupport.h"

#include <QRandomGenerator>
#include <QTest>

#include <plist/plist.h>

using namespace tess;
using namespace tess::archive;

class TestKeyedArchive : public QObject {
    Q_OBJECT

private:
    static qint64 i64(qint64 v) { return v; }

    // An archive of `levels` nested arrays, each holding the one below `fanout` times.
    static QByteArray nestedArchive(int levels, int fanout)
    {
        bplist::Document doc;
        bplist::parse(encodeKeyedArchive(QVariantList{QStringLiteral("a")}), &doc, nullptr);
        std::uint32_t objectsIndex = 0;
        for (std::uint32_t i = 0; i < doc.objects.size(); ++i) {
            const auto r = doc.refs(i);
            if (doc.objects[i].kind == bplist::Kind::Array && !r.empty() && doc.string(r[0]) == u"$null")
                objectsIndex = i;
        }
        // $objects: 0 $null, 1 root array {NS.objects, $class, [UID 2], UID(class)}, 2 "a", 3 class.
        std::vector<std::uint32_t> objects(doc.refs(objectsIndex).begin(), doc.refs(objectsIndex).end());
        const auto rootRefs = doc.refs(objects[1]);
        const std::vector<std::uint32_t> dictRefs(rootRefs.begin(), rootRefs.end());
        std::uint32_t below = 2;
        for (int level = 0; level < levels; ++level) {
            doc.objects.push_back(bplist::Object::makeUid(below));
            const std::uint32_t uidIndex = std::uint32_t(doc.objects.size() - 1);
            doc.objects.push_back(bplist::Object{bplist::Kind::Array});
            const std::uint32_t arrIndex = std::uint32_t(doc.objects.size() - 1);
            doc.setRefs(arrIndex, std::vector<std::uint32_t>(std::size_t(fanout), uidIndex));
            doc.objects.push_back(bplist::Object{bplist::Kind::Dict});
            const std::uint32_t dictIndex = std::uint32_t(doc.objects.size() - 1);
            doc.setRefs(dictIndex, {dictRefs[0], dictRefs[1], arrIndex, dictRefs[3]});
            objects.push_back(dictIndex);
            below = std::uint32_t(objects.size() - 1);
        }
        doc.setRefs(objectsIndex, objects);
        for (auto &o : doc.objects)
            if (o.kind == bplist::Kind::Uid && o.integer == 1)
                o.integer = below; // the root now names the top level
        return bplist::write(doc);
    }

private Q_SLOTS:
    void macSamples_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QVariant>("expected");
        QTest::addRow("plain string") << "mw_plainString.plist" << QVariant(QStringLiteral("Some string!"));
        QTest::addRow("array") << "mw_simpleArray.plist"
                               << QVariant(QVariantList{QStringLiteral("value1"), QStringLiteral("value2"),
                                                        QVariantList{QStringLiteral("innerValue3"), QStringLiteral("innerValue4")}});
        QTest::addRow("dictionary") << "mw_simpleDict.plist"
                                    << QVariant(QVariantMap{{QStringLiteral("First key"), QStringLiteral("First value")},
                                                            {QStringLiteral("Second key"), QStringLiteral("Second value")},
                                                            {QStringLiteral("Array key"), QVariantList{i64(1), i64(2), i64(3)}}});
        QTest::addRow("dictionary with mutable array") << "dp_dict.bplist"
                                    << QVariant(QVariantMap{{QStringLiteral("int"), i64(1)},
                                                            {QStringLiteral("string"), QStringLiteral("string")},
                                                            {QStringLiteral("array"), QVariantList{true, QStringLiteral("Hello, World!"), i64(42)}}});
        QTest::addRow("number") << "dp_primitives.bplist" << QVariant(i64(1));
    }
    void macSamples()
    {
        QFETCH(QString, file);
        QFETCH(QVariant, expected);
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        QString error;
        const QVariant v = decodeKeyedArchive(testsupport::readFile(dir + "/keyed/" + file), &error);
        QVERIFY2(v.isValid(), qPrintable(error));
        QCOMPARE(v, expected);
        if (file == u"dp_dict.bplist")
            QCOMPARE(v.toMap().value("array").toList().at(0).typeId(), QMetaType::Bool);
    }

    void macSampleWithRealsAndData()
    {
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        QString error;
        const QVariantList v = decodeKeyedArchive(testsupport::readFile(dir + "/keyed/dp_arrays.bplist"), &error).toList();
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QCOMPARE(v.size(), 12);
        QCOMPARE(v[2].toDouble(), 1.0);
        QCOMPARE(v[3].toDouble(), 1.5);
        QCOMPARE(v[4].toByteArray(), QByteArray("asdfasdfadsfadsf"));
        QCOMPARE(v[5].typeId(), QMetaType::Bool);
        QCOMPARE(v[11].toLongLong(), 42);
    }

    void macSamplesOfOtherClassesAreKept_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addRow("custom class") << "mw_note.plist";
        QTest::addRow("data, UUID, URL") << "imx_Game.plist";
        QTest::addRow("set") << "sandin_nsdictionary_setconfig.bplist";
    }
    void macSamplesOfOtherClassesAreKept()
    {
        QFETCH(QString, file);
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        QString error, where;
        const QVariant v = decodeKeyedArchive(testsupport::readFile(dir + "/keyed/" + file), &error);
        QVERIFY2(v.isValid(), qPrintable(error));
        const QByteArray again = encodeKeyedArchive(v, &error);
        QVERIFY2(!again.isEmpty(), qPrintable(error));
        QVERIFY2(testsupport::identical(decodeKeyedArchive(again), v, &where), qPrintable(where));
    }

    void valuesOfOtherKindsAreKeptExactly()
    {
        QString error, where;
        const QVariant v = decodeKeyedArchive(testsupport::entryListWithForeignObjects(), &error);
        QVERIFY2(v.isValid(), qPrintable(error));
        const QVariantList list = v.toList();
        QCOMPARE(list.size(), 3);
        const auto kept = [&](int entry, const char *key) { return list[entry].toMap().value(key).value<ArchivedObject>(); };
        QCOMPARE(kept(0, "created").className, QStringLiteral("NSDate"));
        QCOMPARE(list[0].toMap().value("Notes"), QVariant(QStringLiteral("shared \u00e9 text")));
        QCOMPARE(list[1].toMap().value("Path"), QVariant(QByteArray("Path as data")));
        QCOMPARE(kept(1, "id").className, QStringLiteral("NSUUID"));
        QCOMPARE(kept(2, "note").className, QStringLiteral("Note"));
        QCOMPARE(kept(2, "when").className, QStringLiteral("date"));
        QCOMPARE(list[2].toMap().value("big").typeId(), QMetaType::ULongLong);
        // Written back, each object reaches the same objects with the same kinds and values
        // (the kept form is made from what the file holds, so equal forms mean equal objects).
        const QByteArray again = encodeKeyedArchive(v, &error);
        QVERIFY2(!again.isEmpty(), qPrintable(error));
        QVERIFY2(testsupport::identical(decodeKeyedArchive(again), v, &where), qPrintable(where));
        // An edit elsewhere in the entry leaves the kept object as it was.
        QVariantList edited = list;
        QVariantMap e = edited[2].toMap();
        e.insert("Notes", "changed");
        edited[2] = e;
        QVERIFY(testsupport::identical(decodeKeyedArchive(encodeKeyedArchive(edited)).toList()[2].toMap().value("note"),
                                       list[2].toMap().value("note")));
    }

    void unsignedIntegersAreExact()
    {
        for (const quint64 v : {quint64(1) << 63, ~quint64(0), (quint64(1) << 63) + 12345}) {
            // Written as a 16-byte integer, as CoreFoundation does, and read back unsigned.
            const QByteArray bytes = encodeKeyedArchive(QVariantList{QVariant::fromValue(v)});
            QVERIFY(bytes.contains(QByteArray(QByteArray(1, '\x14') + QByteArray(8, '\0'))));
            const QVariant back = decodeKeyedArchive(bytes).toList().value(0);
            QCOMPARE(back.typeId(), QMetaType::ULongLong);
            QCOMPARE(back.toULongLong(), v);
            // An independent reader agrees on the value.
            plist_t p = nullptr;
            plist_from_bin(bytes.constData(), uint32_t(bytes.size()), &p);
            QVERIFY(p);
            plist_t objects = plist_dict_get_item(p, "$objects");
            bool found = false;
            for (uint32_t i = 0; i < plist_array_get_size(objects); ++i) {
                plist_t o = plist_array_get_item(objects, i);
                uint64_t u = 0;
                if (plist_get_node_type(o) == PLIST_UINT) {
                    plist_get_uint_val(o, &u);
                    found = found || u == v;
                }
            }
            plist_free(p);
            QVERIFY(found);
        }
        // Below 2^63 integers stay signed, and so does a 16-byte -1.
        QCOMPARE(decodeKeyedArchive(encodeKeyedArchive(QVariantList{QVariant::fromValue(quint64(5))})).toList()[0].typeId(),
                 QMetaType::LongLong);
        QByteArray minusOne = QByteArray("bplist00") + char(0x14) + QByteArray(16, '\xff');
        minusOne += char(8);                                       // offset table
        minusOne += QByteArray(6, '\0') + char(1) + char(1)         // sizes
                    + QByteArray(7, '\0') + char(1) + QByteArray(8, '\0') + QByteArray(7, '\0') + char(25);
        bplist::Document doc;
        QString why;
        QVERIFY2(bplist::parse(minusOne, &doc, &why), qPrintable(why));
        QCOMPARE(doc.objects[0].integer, qint64(-1));
        QVERIFY(!doc.objects[0].unsignedInt);
        minusOne[9] = 0; // the high half neither all zeros nor all ones
        QVERIFY(!bplist::parse(minusOne, &doc, &why));
    }

    void randomEntryListsRoundTripExactly()
    {
        const quint32 seed = testsupport::randomSeed(9);
        QRandomGenerator rng(seed);
        const int lists = testsupport::randomListCount(40);
        for (int i = 0; i < lists; ++i) {
            const QVariantList list = testsupport::randomEntryList(rng, 30);
            QString error, where;
            const QByteArray bytes = encodeKeyedArchive(list, &error);
            QVERIFY2(!bytes.isEmpty(), qPrintable(error));
            const QVariant back = decodeKeyedArchive(bytes, &error);
            QVERIFY2(back.isValid(), qPrintable(error));
            QVERIFY2(testsupport::identical(back, list, &where),
                     qPrintable(QStringLiteral("seed %1, list %2: %3").arg(seed).arg(i).arg(where)));
        }
    }

    void roundTripKeepsKinds()
    {
        QVariantMap e{{"Path", QStringLiteral("Bänk — 銀行 😀")},
                      {"Notes", QStringLiteral("line 1\nline 2\r\n")},
                      {"yes", true}, {"no", false},
                      {"zero", i64(0)}, {"one", i64(1)}, {"negative", i64(-5)}, {"big", i64(1) << 40},
                      {"max", std::numeric_limits<qint64>::max()}, {"min", std::numeric_limits<qint64>::min()},
                      {"u16", i64(65535)}, {"u32", i64(4294967295)},
                      {"double", 2.0}, {"pi", 3.14159}, {"float", QVariant(1.5f)},
                      {"empty", QString()}, {"long", QString(300, u'x')},
                      {"list", QVariantList{QStringLiteral("a"), QStringLiteral("a")}}};
        const QVariant root = QVariantList{e, e, QVariantMap{}};
        QString error;
        const QByteArray bytes = encodeKeyedArchive(root, &error);
        QVERIFY2(!bytes.isEmpty(), qPrintable(error));
        const QVariant back = decodeKeyedArchive(bytes, &error);
        QVERIFY2(back.isValid(), qPrintable(error));
        QCOMPARE(back, root);
        const QVariantMap m = back.toList().first().toMap();
        for (auto it = e.cbegin(); it != e.cend(); ++it) {
            const int expected = it.value().typeId() == QMetaType::QVariantList ? QMetaType::QVariantList : it.value().typeId();
            QVERIFY2(m.value(it.key()).typeId() == expected, qPrintable(it.key()));
        }
    }

    void writesWhatApplesUnarchiverExpects()
    {
        // Root array with two dictionaries {a: "x"}: numbering is pre-order, keys before values,
        // and a class takes the number after its first instance has finished.
        const QVariant root = QVariantList{QVariantMap{{"a", QStringLiteral("x")}}, QVariantMap{{"a", QStringLiteral("y")}}};
        const QByteArray bytes = encodeKeyedArchive(root);
        bplist::Document doc;
        QString error;
        QVERIFY2(bplist::parse(bytes, &doc, &error), qPrintable(error));
        auto obj = [&](std::uint32_t i) -> const bplist::Object & { return doc.objects[i]; };
        auto member = [&](const bplist::Object &d, const QString &key) -> const bplist::Object * {
            const auto r = doc.refs(d);
            const std::size_t n = r.size() / 2;
            for (std::size_t i = 0; i < n; ++i)
                if (doc.string(r[i]) == key)
                    return &obj(r[n + i]);
            return nullptr;
        };
        const bplist::Object &top = obj(doc.top);
        QCOMPARE(doc.string(*member(top, "$archiver")), QStringLiteral("NSKeyedArchiver"));
        QCOMPARE(member(top, "$version")->integer, 100000);
        QCOMPARE(member(*member(top, "$top"), "root")->integer, 1);
        const bplist::Object &objects = *member(top, "$objects");
        QCOMPARE(doc.string(doc.refs(objects)[0]), QStringLiteral("$null"));
        auto archived = [&](int n) -> const bplist::Object & { return obj(doc.refs(objects)[std::size_t(n)]); };
        // 1 root array, 2 first dict, 3 "a", 4 "x", 5 NSMutableDictionary class,
        // 6 second dict ("a" shared), 7 "y", 8 NSMutableArray class.
        QCOMPARE(objects.refCount, 9u);
        QCOMPARE(member(archived(1), "$class")->integer, 8);
        QCOMPARE(member(archived(2), "$class")->integer, 5);
        QCOMPARE(doc.string(archived(3)), QStringLiteral("a"));
        QCOMPARE(doc.string(archived(4)), QStringLiteral("x"));
        QCOMPARE(doc.string(*member(archived(5), "$classname")), QStringLiteral("NSMutableDictionary"));
        const bplist::Object &chain = *member(archived(5), "$classes");
        QCOMPARE(chain.refCount, 3u);
        QCOMPARE(doc.string(doc.refs(chain)[1]), QStringLiteral("NSDictionary"));
        QCOMPARE(doc.string(doc.refs(chain)[2]), QStringLiteral("NSObject"));
        QCOMPARE(doc.string(*member(archived(8), "$classname")), QStringLiteral("NSMutableArray"));
        QCOMPARE(doc.string(archived(7)), QStringLiteral("y"));
    }

    void independentPlistReaderAgrees()
    {
        const QVariant root = testsupport::sampleEntries(50);
        const QByteArray bytes = encodeKeyedArchive(root);
        plist_t p = nullptr;
        plist_from_bin(bytes.constData(), uint32_t(bytes.size()), &p);
        QVERIFY(p);
        plist_t archiver = plist_dict_get_item(p, "$archiver");
        char *s = nullptr;
        plist_get_string_val(archiver, &s);
        QCOMPARE(QByteArray(s), QByteArray("NSKeyedArchiver"));
        free(s);
        plist_t objects = plist_dict_get_item(p, "$objects");
        bplist::Document doc;
        QVERIFY(bplist::parse(bytes, &doc, nullptr));
        std::size_t ours = 0;
        for (const auto &o : doc.objects)
            if (o.kind == bplist::Kind::Array && o.refCount && doc.string(doc.refs(o)[0]) == u"$null")
                ours = o.refCount;
        QVERIFY(ours > 50);
        QCOMPARE(std::size_t(plist_array_get_size(objects)), ours);
        plist_free(p);
    }

    void largeListsUseWideReferences()
    {
        const QVariant root = testsupport::sampleEntries(7000); // over 65,535 objects
        QString error;
        const QVariant back = decodeKeyedArchive(encodeKeyedArchive(root), &error);
        QVERIFY2(back.isValid(), qPrintable(error));
        QCOMPARE(back, root);
    }

    void refusesWhatItCannotArchive()
    {
        QString error;
        QVERIFY(encodeKeyedArchive(QVariant(), &error).isEmpty());
        QVERIFY(encodeKeyedArchive(QVariantList{QVariant()}, &error).isEmpty());
        QVERIFY(encodeKeyedArchive(QVariant::fromValue(QPoint(1, 2)), &error).isEmpty());
        QVERIFY(!error.isEmpty());
    }

    void damagedInput_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        const QByteArray good = encodeKeyedArchive(QVariantList{QStringLiteral("a")});
        QTest::addRow("empty") << QByteArray() << "not a binary property list";
        QTest::addRow("text") << QByteArray("hello, this is not a plist at all.......") << "not a binary property list";
        QByteArray badTable = good;
        badTable[badTable.size() - 1] = char(0xFF); // offset table beyond the end
        QTest::addRow("offset table out of range") << badTable << "bad trailer";
        QByteArray hugeCount = good;
        hugeCount[hugeCount.size() - 32 + 8] = char(0x7F);
        QTest::addRow("object count larger than the file") << hugeCount << "bad trailer";

        auto archiveWith = [](const std::function<void(bplist::Document &)> &change) {
            bplist::Document doc;
            bplist::parse(encodeKeyedArchive(QVariantList{QStringLiteral("a")}), &doc, nullptr);
            change(doc);
            return bplist::write(doc);
        };
        QTest::addRow("wrong archiver") << archiveWith([](bplist::Document &d) {
            for (std::uint32_t i = 0; i < d.objects.size(); ++i)
                if (d.string(i) == u"NSKeyedArchiver")
                    d.setString(i, QStringLiteral("NSArchiver"));
        }) << "wrong $archiver";
        QTest::addRow("missing $top") << archiveWith([](bplist::Document &d) {
            for (std::uint32_t i = 0; i < d.objects.size(); ++i)
                if (d.string(i) == u"$top")
                    d.setString(i, QStringLiteral("$pot"));
        }) << "without $top";
        QTest::addRow("UID out of range") << archiveWith([](bplist::Document &d) {
            for (auto &o : d.objects)
                if (o.kind == bplist::Kind::Uid && o.integer == 2)
                    o.integer = 999;
        }) << "out of range";
        QTest::addRow("reference cycle") << archiveWith([](bplist::Document &d) {
            for (auto &o : d.objects)
                if (o.kind == bplist::Kind::Uid && o.integer == 2)
                    o.integer = 1; // the array contains itself
        }) << "circular reference";
    }
    void damagedInput()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QString error;
        QVERIFY(!decodeKeyedArchive(bytes, &error).isValid());
        QVERIFY2(error.contains(message), qPrintable(error));
    }

    void deepNestingIsRefused()
    {
        QVariant v = QStringLiteral("leaf");
        for (int i = 0; i < 400; ++i)
            v = QVariantList{v};
        QString error;
        QVERIFY(encodeKeyedArchive(v, &error).isEmpty());
        QVERIFY(error.contains("too deep"));

        QVERIFY(!decodeKeyedArchive(nestedArchive(5000, 1), &error).isValid());
        QVERIFY2(error.contains("too deep"), qPrintable(error));
        QVERIFY(decodeKeyedArchive(nestedArchive(100, 1), &error).isValid());
    }

    void sharedSubtreesDecodeOnce()
    {
        // 40 levels of arrays each holding the level below twice: 2^40 paths over 40 objects.
        QElapsedTimer t;
        t.start();
        const QVariant v = decodeKeyedArchive(nestedArchive(40, 2));
        QVERIFY(v.isValid());
        QVERIFY(t.elapsed() < 5000);
    }

    void survivesTruncationAndBitFlips()
    {
        const QByteArray good = encodeKeyedArchive(testsupport::sampleEntries(3));
        for (qsizetype n = 0; n < good.size(); ++n)
            QVERIFY(!decodeKeyedArchive(good.left(n)).isValid() || n == good.size());
        QRandomGenerator rng(1234);
        for (int i = 0; i < 3000; ++i) {
            QByteArray bad = good;
            const int flips = 1 + rng.bounded(4);
            for (int f = 0; f < flips; ++f)
                bad[rng.bounded(int(bad.size()))] = char(rng.bounded(256));
            decodeKeyedArchive(bad); // must return, whatever it answers
        }
    }
};

QTEST_GUILESS_MAIN(TestKeyedArchive)
#include "tst_keyedarchive.moc"
