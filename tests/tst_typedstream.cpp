// Typedstream archives: macOS-made samples with exact values, our writer's output, damage.

#include "core/archive/TypedStream.h"
#include "support/TestSupport.h"
#include "support/TypedStreamWriter.h"

#include <QRandomGenerator>
#include <QTest>

using namespace tess;
using namespace tess::archive;

class TestTypedStream : public QObject {
    Q_OBJECT

    static qint64 i64(qint64 v) { return v; }

private Q_SLOTS:
    void macSamples_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QVariant>("expected");
        QTest::addRow("NSString") << "NSString" << QVariant(QStringLiteral("Hello, world"));
        QTest::addRow("NSMutableString") << "NSMutableString" << QVariant(QStringLiteral("Hello, world"));
        QTest::addRow("BOOL") << "NumberBool" << QVariant(true);
        QTest::addRow("int") << "NumberInt" << QVariant(i64(42));
        QTest::addRow("int64") << "NumberInt64" << QVariant(i64(-9000000000));
        QTest::addRow("double") << "NumberDouble" << QVariant(100.5);
        QTest::addRow("float") << "NumberFloat" << QVariant(3.5f);
        QTest::addRow("NSArray") << "NSArray" << QVariant(QVariantList{QStringLiteral("a"), i64(1), QStringLiteral("b")});
        QTest::addRow("NSMutableArray") << "NSMutableArray" << QVariant(QVariantList{QStringLiteral("x"), i64(2)});
        QTest::addRow("empty NSArray") << "NSArrayEmpty" << QVariant(QVariantList{});
        QTest::addRow("NSDictionary") << "NSDictionary"
                                      << QVariant(QVariantMap{{"k1", i64(1)}, {"k2", QStringLiteral("v")}});
        QTest::addRow("NSMutableDictionary") << "NSMutableDictionary" << QVariant(QVariantMap{{"key", i64(9)}});
        QTest::addRow("nested strings") << "NestedStrings"
                                        << QVariant(QVariantList{QStringLiteral("imm"), QStringLiteral("mut")});
    }
    void macSamples()
    {
        QFETCH(QString, file);
        QFETCH(QVariant, expected);
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        QString error;
        const QVariant v = decodeTypedStream(testsupport::readFile(dir + "/typedstream/crabstep_" + file + ".typedstream"), &error);
        QVERIFY2(v.isValid(), qPrintable(error));
        QCOMPARE(v, expected);
        QCOMPARE(v.typeId(), expected.typeId());
    }

    void unsupportedSamples_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("message");
        QTest::addRow("attributed string") << "LongMessage" << "unsupported class NSMutableAttributedString";
        QTest::addRow("date") << "NSDate" << "unsupported class NSDate";
        QTest::addRow("set inside") << "NestedContainers" << "unsupported class NSSet";
    }
    void unsupportedSamples()
    {
        QFETCH(QString, file);
        QFETCH(QString, message);
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        QString error;
        QVERIFY(!decodeTypedStream(testsupport::readFile(dir + "/typedstream/crabstep_" + file + ".typedstream"), &error).isValid());
        QVERIFY2(error.contains(message), qPrintable(error));
    }

    void writerOutputReadsBack()
    {
        QVariantList list = testsupport::sampleEntries(300); // enough for two-byte references
        list.append(QVariantMap{{"Path", QStringLiteral("Ünïcødé 😀 銀行")}, {"n", i64(-200)}, {"big", i64(1) << 40},
                                {"d", 2.25}, {"whole", 3.0}, {"no", false}});
        QString error;
        const QVariant back = decodeTypedStream(testsupport::encodeTypedStream(list), &error);
        QVERIFY2(back.isValid(), qPrintable(error));
        QCOMPARE(back, QVariant(list));
        const QVariantMap last = back.toList().last().toMap();
        QCOMPARE(last.value("no").typeId(), QMetaType::Bool);
        QCOMPARE(last.value("n").typeId(), QMetaType::LongLong);
    }

    void matchesAppleBytes()
    {
        // The annotated NSMutableDictionary {key: 9}, written as Apple does.
        const QString dir = testsupport::fixturesDir();
        if (dir.isEmpty())
            QSKIP("../shared/fixtures is not present");
        const QByteArray apple = testsupport::readFile(dir + "/typedstream/crabstep_NSMutableDictionary.typedstream");
        QCOMPARE(testsupport::encodeTypedStream(QVariantMap{{"key", i64(9)}}), apple);
    }

    void damagedInput_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("message");
        const QByteArray good = testsupport::encodeTypedStream(QVariantList{QStringLiteral("abc"), i64(7)});
        QTest::addRow("empty") << QByteArray() << "not a typedstream";
        QTest::addRow("keyed archive") << QByteArray("bplist00\x01\x02\x03\x04\x05\x06\x07\x08") << "not a typedstream";
        QTest::addRow("big-endian") << QByteArray("\x04\x0btypedstream\x81\x03\xe8", 16) << "big-endian";
        QTest::addRow("truncated") << good.left(good.size() - 3) << "truncated";
        QByteArray hugeCount = good;
        hugeCount.replace(QByteArray("\x01i\x02", 3), QByteArray("\x01i\x82\xff\xff\xff\x7f", 7));
        QTest::addRow("count larger than the file") << hugeCount << "count larger";
        QByteArray badRef = good;
        badRef.replace(QByteArray("\x92\x84", 2), QByteArray("\x7f\x84", 2));
        QTest::addRow("reference out of range") << badRef << "out of range";
        QByteArray longString = good;
        longString.replace(QByteArray("\x03" "abc", 4), QByteArray("\x7f" "abc", 4));
        QTest::addRow("string longer than the file") << longString << "longer than";
    }
    void damagedInput()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, message);
        QString error;
        QVERIFY(!decodeTypedStream(bytes, &error).isValid());
        QVERIFY2(error.contains(message), qPrintable(error));
    }

    void deepNestingIsRefused()
    {
        QVariant v = QStringLiteral("leaf");
        for (int i = 0; i < 1000; ++i)
            v = QVariantList{v};
        QString error;
        QVERIFY(!decodeTypedStream(testsupport::encodeTypedStream(v), &error).isValid());
        QVERIFY(error.contains("too deep"));
    }

    void survivesTruncationAndBitFlips()
    {
        const QByteArray good = testsupport::encodeTypedStream(testsupport::sampleEntries(3));
        for (qsizetype n = 0; n < good.size(); ++n)
            QVERIFY(!decodeTypedStream(good.left(n)).isValid());
        QRandomGenerator rng(99);
        for (int i = 0; i < 3000; ++i) {
            QByteArray bad = good;
            for (int f = 0, flips = 1 + rng.bounded(4); f < flips; ++f)
                bad[rng.bounded(int(bad.size()))] = char(rng.bounded(256));
            decodeTypedStream(bad);
        }
    }
};

QTEST_GUILESS_MAIN(TestTypedStream)
#include "tst_typedstream.moc"
