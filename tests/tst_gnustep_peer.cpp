// GNUstep's NSKeyedUnarchiver reads what our keyed writer writes, with equal content.

#include "core/archive/KeyedArchive.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace tess;

namespace {

// The same canonical text the peer prints.
QString canonical(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::QString:
        return u's' + QString::fromLatin1(v.toString().toUtf8().toHex());
    case QMetaType::Bool:
        return v.toBool() ? QStringLiteral("b1") : QStringLiteral("b0");
    case QMetaType::Double:
    case QMetaType::Float:
        return u'r' + QString::number(v.toDouble(), 'g', 17);
    case QMetaType::QVariantList: {
        QString s = QStringLiteral("[");
        for (const QVariant &e : v.toList())
            s += canonical(e) + u',';
        return s + u']';
    }
    case QMetaType::QVariantMap: {
        const QVariantMap m = v.toMap();
        QString s = QStringLiteral("{");
        for (auto it = m.cbegin(); it != m.cend(); ++it)
            s += canonical(it.key()) + u':' + canonical(it.value()) + u',';
        return s + u'}';
    }
    default:
        return u'i' + QString::number(v.toLongLong());
    }
}

} // namespace

class TestGnustepPeer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void peerReadsOurArchives_data()
    {
        QTest::addColumn<QVariant>("root");
        QTest::addRow("entry list") << QVariant(testsupport::sampleEntries(300));
        QTest::addRow("settings") << QVariant(QVariantMap{{"Last PW Files", QVariantList{QStringLiteral("/home/u/a.qvm")}},
                                                          {"typeSpeed", qint64(0)}, {"hoverUserID", true},
                                                          {"big", qint64(1) << 40}, {"neg", qint64(-3)},
                                                          {"ratio", 0.25}, {"text", QStringLiteral("Ünïcødé 😀")}});
        QTest::addRow("recent titles") << QVariant(QVariantList{QStringLiteral("Bank"), QStringLiteral("Mail")});
    }
    void peerReadsOurArchives()
    {
        QFETCH(QVariant, root);
        QTemporaryDir dir;
        const QString path = dir.filePath("archive");
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(archive::encodeKeyedArchive(root));
        f.close();
        QProcess p;
        p.start(qEnvironmentVariable("TESSALINE_BUILD_DIR") + "/gnustep-peer", {"dump", path});
        QVERIFY(p.waitForFinished(60000));
        QVERIFY2(p.exitCode() == 0, p.readAllStandardError().constData());
        const QString theirs = QString::fromUtf8(p.readAllStandardOutput()).trimmed();
        QCOMPARE(theirs, canonical(root));
    }
};

QTEST_GUILESS_MAIN(TestGnustepPeer)
#include "tst_gnustep_peer.moc"
