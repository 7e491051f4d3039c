// Key derivation, HMAC, the cipher with its two parameter sets, the keychain paths, secure
// deletion and atomic writes.

#include "core/storage/Crypto.h"
#include "core/storage/QWCrypt.h"
#include "platform/fake/MapKeychain.h"
#include "support/TestSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace tess;
using tess::testsupport::FileSizeLimit;

namespace {

QByteArray pbkdf2(const QByteArray &password, const QByteArray &salt, unsigned rounds, int length)
{
    QByteArray out(length, '\0');
    pkcs5_pbkdf2(password.constData(), std::size_t(password.size()), reinterpret_cast<const unsigned char *>(salt.constData()),
                 std::size_t(salt.size()), reinterpret_cast<unsigned char *>(out.data()), std::size_t(length), rounds);
    return out;
}

QByteArray hmac(const QByteArray &key, const QByteArray &text)
{
    unsigned char d[20];
    hmac_sha1(reinterpret_cast<const unsigned char *>(text.constData()), std::size_t(text.size()),
              reinterpret_cast<const unsigned char *>(key.constData()), std::size_t(key.size()), d);
    return QByteArray(reinterpret_cast<const char *>(d), 20);
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

} // namespace

class TestCrypto : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pbkdf2Vectors_data()
    {
        // RFC 6070.
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QByteArray>("salt");
        QTest::addColumn<uint>("rounds");
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("1 round") << QByteArray("password") << QByteArray("salt") << 1u
                                 << QByteArray::fromHex("0c60c80f961f0e71f3a9b524af6012062fe037a6");
        QTest::addRow("2 rounds") << QByteArray("password") << QByteArray("salt") << 2u
                                  << QByteArray::fromHex("ea6c014dc72d6f8ccd1ed92ace1d41f0d8de8957");
        QTest::addRow("4096 rounds") << QByteArray("password") << QByteArray("salt") << 4096u
                                     << QByteArray::fromHex("4b007901b765489abead49d926f721d065a429c1");
        QTest::addRow("25 bytes, two blocks") << QByteArray("passwordPASSWORDpassword")
                                              << QByteArray("saltSALTsaltSALTsaltSALTsaltSALTsalt") << 4096u
                                              << QByteArray::fromHex("3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038");
        QTest::addRow("embedded NUL") << QByteArray("pass\0word", 9) << QByteArray("sa\0lt", 5) << 4096u
                                      << QByteArray::fromHex("56fa6aa75548099dcc37d7f03425e0c3");
        // The file format's own parameters, checked against an independent implementation.
        QTest::addRow("current salt") << QByteArray("password") << QByteArray("mxtaBQR5") << 1000u
                                      << QByteArray::fromHex("84dc9ba28620dd72199e76436ea15a90ebda0f9b31e6c56638aaad1952e3b2be");
        QTest::addRow("pre-2.0 salt") << QByteArray("password") << QByteArray("plumTart") << 1000u
                                      << QByteArray::fromHex("3af80d8062a23469d69b9382fa62e0816dcd745f2fd16dbab1d5f33146b89407");
        // Passwords at the HMAC block size: 64 bytes are used as they are, 65 are hashed first.
        // Known answers from Python's hashlib.pbkdf2_hmac("sha1", ..., b"mxtaBQR5", 1000, 32).
        const QByteArray sixteen("0123456789abcdef");
        QTest::addRow("63-byte password") << sixteen.repeated(4).left(63) << QByteArray("mxtaBQR5") << 1000u
                                          << QByteArray::fromHex("6091b4b0f4b83bb7755d8fc557a830047a5a10616d1361dda2d5f150f406a856");
        QTest::addRow("64-byte password") << sixteen.repeated(4) << QByteArray("mxtaBQR5") << 1000u
                                          << QByteArray::fromHex("bd9b9170ba9eceb367e21a5ef8b7ab55c3ebd66594978f965f7c5a2a4a7899cb");
        QTest::addRow("65-byte password") << sixteen.repeated(5).left(65) << QByteArray("mxtaBQR5") << 1000u
                                          << QByteArray::fromHex("95c4ec744119956e753034ce12f752afdf1d3fcfbdb54597dc9c6200e78b860e");
    }
    void pbkdf2Vectors()
    {
        QFETCH(QByteArray, password);
        QFETCH(QByteArray, salt);
        QFETCH(uint, rounds);
        QFETCH(QByteArray, expected);
        QCOMPARE(pbkdf2(password, salt, rounds, int(expected.size())).toHex(), expected.toHex());
    }

    void pbkdf2RefusesEmptyWork()
    {
        unsigned char out[4];
        QCOMPARE(pkcs5_pbkdf2("p", 1, reinterpret_cast<const unsigned char *>("s"), 1, out, 0, 1000), -1);
        QCOMPARE(pkcs5_pbkdf2("p", 1, reinterpret_cast<const unsigned char *>("s"), 1, out, 4, 0), -1);
    }

    void hmacVectors_data()
    {
        // RFC 2202.
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("1") << QByteArray(20, '\x0b') << QByteArray("Hi There")
                           << QByteArray::fromHex("b617318655057264e28bc0b6fb378c8ef146be00");
        QTest::addRow("2") << QByteArray("Jefe") << QByteArray("what do ya want for nothing?")
                           << QByteArray::fromHex("effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
        QTest::addRow("3") << QByteArray(20, '\xaa') << QByteArray(50, '\xdd')
                           << QByteArray::fromHex("125d7342b9ac11cd91a39af48aa17b4f63f175d3");
        QTest::addRow("4") << QByteArray::fromHex("0102030405060708090a0b0c0d0e0f10111213141516171819") << QByteArray(50, '\xcd')
                           << QByteArray::fromHex("4c9007f4026250c6bc8414f9bf50c86c2d7235da");
        QTest::addRow("5") << QByteArray(20, '\x0c') << QByteArray("Test With Truncation")
                           << QByteArray::fromHex("4c1a03424b55e07fe7f27be1d58bb9324a9a5a04");
        QTest::addRow("6, 80-byte key") << QByteArray(80, '\xaa') << QByteArray("Test Using Larger Than Block-Size Key - Hash Key First")
                                        << QByteArray::fromHex("aa4ae5e15272d00e95705637ce8a3b55ed402112");
        QTest::addRow("7, 80-byte key") << QByteArray(80, '\xaa')
                                        << QByteArray("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data")
                                        << QByteArray::fromHex("e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
    }
    void hmacVectors()
    {
        QFETCH(QByteArray, key);
        QFETCH(QByteArray, text);
        QFETCH(QByteArray, expected);
        QCOMPARE(hmac(key, text).toHex(), expected.toHex());
    }

    void hmacKeyLengthEdges()
    {
        // 64 bytes are used as they are; 65 are hashed down to 20 first.
        const QByteArray k64(64, 'k'), k65(65, 'k');
        QVERIFY(hmac(k64, "text") != hmac(QCryptographicHash::hash(k64, QCryptographicHash::Sha1), "text"));
        QCOMPARE(hmac(k65, "text"), hmac(QCryptographicHash::hash(k65, QCryptographicHash::Sha1), "text"));
        // And PBKDF2 (which prepares its pads once) agrees with hmac_sha1 for long passwords.
        QByteArray u1 = hmac(k65, QByteArray("salt") + QByteArray::fromHex("00000001"));
        QCOMPARE(pbkdf2(k65, "salt", 1, 20), u1);
    }

    void cipherKnownAnswers()
    {
        QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("t"), nullptr);
        crypt.setCurrentParameters();
        crypt.setKeyFrom(QStringLiteral("password"), true);
        QCOMPARE(crypt.doCrypt("Tessaline known answer", true).toHex(),
                 QByteArray("402eaac00d77eb4552f2dbc8e735db5f4f44ffda38a33ba9f1d4680d23cef955"));
        crypt.setPre20Parameters();
        crypt.setKeyFrom(QStringLiteral("password"), true);
        QCOMPARE(crypt.doCrypt("Tessaline known answer", true).toHex(),
                 QByteArray("5a02ded8e6de9f028e53aa5ceea8562f444f7385a1d799f70cf351cdaf6cbe8b"));
    }

    void cipherPaddingAndWrongKeys()
    {
        QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("t"), nullptr);
        crypt.setCurrentParameters();
        crypt.setKeyFrom(QStringLiteral("right"), true);
        crypt.setKeyFrom(QStringLiteral("right"), false);
        const QByteArray empty = crypt.doCrypt(QByteArray(), true);
        QCOMPARE(empty.size(), 16);
        const QByteArray back = crypt.doCrypt(empty, false);
        QVERIFY(!back.isNull());
        QCOMPARE(back.size(), 0);
        QCOMPARE(crypt.doCrypt(QByteArray(16, 'x'), true).size(), 32);
        const QByteArray c = crypt.doCrypt("some entries", true);
        QCOMPARE(crypt.doCrypt(c, false), QByteArray("some entries"));

        // The other key, or the other salt, fails: the cipher is the password check.
        crypt.setKeyFrom(QStringLiteral("wrong"), false);
        QVERIFY(crypt.doCrypt(c, false).isNull());
        crypt.setPre20Parameters();
        crypt.setKeyFrom(QStringLiteral("right"), false);
        QVERIFY(crypt.doCrypt(c, false).isNull());
        QVERIFY(crypt.doCrypt(c.left(20), false).isNull()); // not whole blocks
    }

    void decryptFailureWritesNothing()
    {
        QTemporaryDir dir;
        QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("t"), nullptr);
        crypt.setCurrentParameters();
        crypt.setKeyFrom(QStringLiteral("a"), true);
        QVERIFY(crypt.encrypt("plain", dir.filePath("c")));
        crypt.setKeyFrom(QStringLiteral("b"), false);
        QVERIFY(!crypt.decrypt(dir.filePath("c"), dir.filePath("p"), true));
        QVERIFY(!QFile::exists(dir.filePath("p")));
        QVERIFY(QFile::exists(dir.filePath("c")));
        crypt.setKeyFrom(QStringLiteral("a"), false);
        QVERIFY(crypt.decrypt(dir.filePath("c"), dir.filePath("p"), true));
        QCOMPARE(readAll(dir.filePath("p")), QByteArray("plain"));
        QVERIFY(!QFile::exists(dir.filePath("c"))); // andDelete
    }

    void keychainPathsMeasurePasswordsDifferently_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("sameKey");
        QTest::addRow("ASCII") << QStringLiteral("secret") << true;
        QTest::addRow("accented") << QStringLiteral("pässword") << false;
    }
    void keychainPathsMeasurePasswordsDifferently()
    {
        QFETCH(QString, password);
        QFETCH(bool, sameKey);
        MapKeychain keychain;
        QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("Bank"), &keychain);
        crypt.setCurrentParameters();
        crypt.setKeyFrom(password, true);
        const QByteArray c = crypt.doCrypt("entries", true);
        QVERIFY(crypt.savePasswordInKeychain(password));
        QCOMPARE(keychain.items.value({QStringLiteral("Bank"), QStringLiteral("Tessaline")}), password.toUtf8());
        QCOMPARE(crypt.getPasswordFromKeychain(), 0);
        QCOMPARE(crypt.theFramis(), password);
        QCOMPARE(!crypt.doCrypt(c, false).isNull(), sameKey);
        QVERIFY(crypt.passwordIsInKeychain(password));
        QVERIFY(!crypt.passwordIsInKeychain(QStringLiteral("other")));
    }

    void keychainStatuses()
    {
        MapKeychain keychain;
        QWCrypt crypt(QStringLiteral("Tessaline"), QStringLiteral("Bank"), &keychain);
        QCOMPARE(crypt.getPasswordFromKeychain(), -25300);
        keychain.refuseAccess = true;
        QCOMPARE(crypt.getPasswordFromKeychain(), -25293);
        keychain.refuseAccess = false;
        QVERIFY(!crypt.savePasswordInKeychain(QString()));
        keychain.failAdds = true;
        QVERIFY(!crypt.savePasswordInKeychain(QStringLiteral("x")));
        keychain.failAdds = false;
        QVERIFY(crypt.savePasswordInKeychain(QStringLiteral("x")));
        crypt.deletePasswordFromKeychain();
        QVERIFY(keychain.items.isEmpty());
    }

    void secureDeleteOverwritesBeforeUnlinking()
    {
        QTemporaryDir dir;
        // Quotes and blanks in the name are nothing special: no shell is involved.
        const QString path = dir.filePath("it's a \"plain\" file; rm -rf ~");
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write("SECRET-PLAINTEXT");
        f.close();
        // A second link to the same bytes shows what happened to them.
        QVERIFY(::link(QFile::encodeName(path).constData(), QFile::encodeName(dir.filePath("witness")).constData()) == 0);
        secureDelete(path);
        QVERIFY(!QFile::exists(path));
        QCOMPARE(readAll(dir.filePath("witness")), QByteArray(16, '\0'));
        secureDelete(dir.filePath("no such file")); // harmless
    }

    void atomicWriteKeepsTheOldFileWhenTheDiskIsFull()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("Data.qvmi");
        QVERIFY(writeFileAtomically(path, QByteArray(100, 'a')));
        // A file-size limit makes the write fail as a full disk would.
        bool ok;
        {
            const FileSizeLimit full(1000);
            ok = writeFileAtomically(path, QByteArray(5000, 'b'));
        }
        QVERIFY(!ok);
        QCOMPARE(readAll(path), QByteArray(100, 'a'));
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{"Data.qvmi"});
    }
};

QTEST_GUILESS_MAIN(TestCrypto)
#include "tst_crypto.moc"
