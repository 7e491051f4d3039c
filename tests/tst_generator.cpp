// The password generator: its algorithm step by step on scripted random numbers, its promises
// over many real passwords, and its distribution against the algorithm's own.

#include "core/generator/GeneratePassword.h"

#include <QSet>
#include <QTest>

#include <array>
#include <cmath>
#include <random>

using namespace tess;

namespace {

// Answers the scripted numbers in order, then fails the test if asked for more.
RandomSource scripted(QList<std::uint32_t> numbers)
{
    auto queue = std::make_shared<QList<std::uint32_t>>(std::move(numbers));
    return [queue]() -> std::uint32_t {
        if (queue->isEmpty()) {
            qWarning("random source exhausted");
            return 0;
        }
        return queue->takeFirst();
    };
}

const QString kLower = QStringLiteral("abcdefghijklmnopqrstuvwxyz");
const QString kUpper = QStringLiteral("ABCDEFGHJKLMNPQRSTVWXYZ");
const QString kDigits = QStringLiteral("1234567890");
const QString kSpecials = QStringLiteral("!-#$%+&()*[]");

// Counts of each alphabet character at each position over `samples` passwords.
QList<double> positionCounts(std::uint32_t length, bool specials, int samples, const RandomSource *random)
{
    const QString alphabet = QString::fromLatin1(pwChars);
    QList<double> counts(qsizetype(length) * 71, 0.0);
    for (int s = 0; s < samples; ++s) {
        const QString p = random ? GeneratePassword(length, specials, *random) : GeneratePassword(length, specials);
        for (qsizetype i = 0; i < p.size(); ++i)
            counts[i * 71 + alphabet.indexOf(p[i])] += 1;
    }
    return counts;
}

} // namespace

class TestGenerator : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void alphabetHasNoConfusableCapitals()
    {
        QCOMPARE(QString::fromLatin1(pwChars),
                 QStringLiteral("abcdefghijklmnopqrstuvwxyzABCDEFGHJKLMNPQRSTVWXYZ1234567890!-#$%+&()*[]"));
    }

    // Every missing class is fixed at an unprotected position, in the order lower, upper,
    // digit, special, each fix protecting its position from the later ones.
    void missingClassesAreFixedAtUnprotectedPositions()
    {
        // Four lower-case letters; position 0 is protected as the first lower-case letter.
        // Upper: draws 0 (protected), then 1. Digit: 1 (now protected), then 2. Special: 3.
        const QString p = GeneratePassword(4, true, scripted({0, 1, 2, 3, /*upper*/ 0, 1, 0, /*digit*/ 1, 2, 9,
                                                              /*special*/ 3, 11}));
        QCOMPARE(p, QStringLiteral("aA0]"));
    }

    void firstOfEachClassIsProtected()
    {
        // 'A' at 0 and 'a' at 1 are protected; the digit fix draws 0 and 1 before 2.
        const QString p = GeneratePassword(3, false, scripted({26, 0, 0, /*digit*/ 0, 1, 2, 0}));
        QCOMPARE(p, QStringLiteral("Aa1"));
    }

    void noFixWhenEveryClassIsPresent()
    {
        // No number is drawn after the L characters.
        QCOMPARE(GeneratePassword(4, true, scripted({0, 26, 49, 59})), QStringLiteral("aA1!"));
        // Without specials, a draw is reduced modulo 59: 59 + 60 is 'a' then 'b'.
        QCOMPARE(GeneratePassword(4, false, scripted({59, 60, 26, 49})), QStringLiteral("abA1"));
    }

    void lengthsAreKeptWithinBounds_data()
    {
        QTest::addColumn<qint64>("asked");
        QTest::addColumn<bool>("specials");
        QTest::addColumn<int>("length");
        QTest::addRow("0 means 8") << qint64(0) << true << 8;
        QTest::addRow("too short with specials") << qint64(2) << true << 4;
        QTest::addRow("three classes without") << qint64(3) << false << 3;
        QTest::addRow("too short without") << qint64(1) << false << 3;
        QTest::addRow("longest") << qint64(47) << true << 47;
        QTest::addRow("beyond the buffer") << qint64(48) << true << 47;
        QTest::addRow("negative") << qint64(-5) << false << 3;
        QTest::addRow("huge") << (qint64(1) << 40) << true << 47;
    }
    void lengthsAreKeptWithinBounds()
    {
        QFETCH(qint64, asked);
        QFETCH(bool, specials);
        QFETCH(int, length);
        QCOMPARE(clampPasswordLength(asked, specials), std::uint32_t(length));
        QCOMPARE(GeneratePassword(clampPasswordLength(asked, specials), specials).size(), length);
    }

    void everyPasswordKeepsThePromises_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("specials");
        for (std::uint32_t length : kOfferedPasswordLengths) {
            QTest::addRow("%u with specials", length) << int(length) << true;
            QTest::addRow("%u without", length) << int(length) << false;
        }
    }
    void everyPasswordKeepsThePromises()
    {
        QFETCH(int, length);
        QFETCH(bool, specials);
        const int count = qEnvironmentVariableIntValue("TESSALINE_GENERATOR_SAMPLES") > 0
                              ? qEnvironmentVariableIntValue("TESSALINE_GENERATOR_SAMPLES")
                              : 100000;
        // Class of each ASCII character: 1 lower, 2 upper, 4 digit, 8 special, 0 not allowed.
        std::array<int, 128> classOf{};
        const QString sets[] = {kLower, kUpper, kDigits, kSpecials};
        for (int k = 0; k < (specials ? 4 : 3); ++k)
            for (QChar ch : sets[k])
                classOf[ch.unicode()] = 1 << k;
        const int required = specials ? 15 : 7;
        QSet<QString> seen;
        for (int i = 0; i < count; ++i) {
            const QString p = GeneratePassword(std::uint32_t(length), specials);
            QCOMPARE(p.size(), length);
            int classes = 0;
            for (QChar ch : p) {
                const int k = ch.unicode() < 128 ? classOf[ch.unicode()] : 0;
                QVERIFY2(k != 0, qPrintable(p));
                classes |= k;
            }
            QVERIFY2(classes == required, qPrintable(p));
            if (length >= 12)
                seen.insert(p);
        }
        // Repeats at these lengths mean a broken source of randomness.
        if (length >= 12)
            QCOMPARE(seen.size(), count);
    }

    // The class fix-ups make the distribution deliberately uneven. Compare the real generator
    // with the same algorithm driven by a well-known generator, cell by cell (position x
    // character): a bias beyond the plain modulus, or a poor source, shows as a large
    // two-sample chi-squared.
    void distributionMatchesTheAlgorithm_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("specials");
        QTest::addRow("4 with specials") << 4 << true;
        QTest::addRow("8 with specials") << 8 << true;
        QTest::addRow("6 without") << 6 << false;
    }
    void distributionMatchesTheAlgorithm()
    {
        QFETCH(int, length);
        QFETCH(bool, specials);
        const int samples = 200000;
        std::mt19937 engine(20261123);
        const RandomSource reference = [&engine] { return std::uint32_t(engine()); };
        const QList<double> expected = positionCounts(std::uint32_t(length), specials, samples, &reference);
        const QList<double> actual = positionCounts(std::uint32_t(length), specials, samples, nullptr);
        double chi2 = 0;
        int cells = 0;
        for (qsizetype i = 0; i < expected.size(); ++i) {
            const double a = actual[i], b = expected[i];
            if (a + b == 0)
                continue;
            chi2 += (a - b) * (a - b) / (a + b);
            ++cells;
        }
        // Degrees of freedom: cells less one per position; the bound is far in the tail.
        const double df = cells - length;
        const double bound = df + 7 * std::sqrt(2 * df);
        QVERIFY2(chi2 < bound, qPrintable(QStringLiteral("chi2 %1 over %2 cells, bound %3").arg(chi2).arg(cells).arg(bound)));

        // The check itself can see a bias: a source that favours low numbers a little fails.
        std::mt19937 skewedEngine(7);
        const RandomSource skewed = [&skewedEngine] {
            const std::uint32_t r = std::uint32_t(skewedEngine());
            return r % 50 == 0 ? r % 3 : r;
        };
        const QList<double> biased = positionCounts(std::uint32_t(length), specials, samples, &skewed);
        double biasedChi2 = 0;
        for (qsizetype i = 0; i < expected.size(); ++i) {
            const double a = biased[i], b = expected[i];
            if (a + b > 0)
                biasedChi2 += (a - b) * (a - b) / (a + b);
        }
        QVERIFY2(biasedChi2 > bound, qPrintable(QStringLiteral("skewed chi2 %1, bound %2").arg(biasedChi2).arg(bound)));
    }

    void oldPasswordKeptInTheNotes()
    {
        const QDateTime when(QDate(2024, 3, 7), QTime(16, 5));
        QCOMPARE(notesWithOldPassword("x", "abc", when), QStringLiteral("x\n07/03/2024 4:05 PM: Password was: abc\n"));
        QCOMPARE(notesWithOldPassword("x\n", "abc", when), QStringLiteral("x\n07/03/2024 4:05 PM: Password was: abc\n"));
        QCOMPARE(notesWithOldPassword("", "abc", QDateTime(QDate(2024, 12, 31), QTime(0, 9))),
                 QStringLiteral("31/12/2024 12:09 AM: Password was: abc\n"));
        QCOMPARE(notesWithOldPassword("x\r", "abc", when), QStringLiteral("x\r\n07/03/2024 4:05 PM: Password was: abc\n"));
        QCOMPARE(notesWithOldPassword("x", "", when), QStringLiteral("x"));
        // Whatever the user's locale.
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(notesWithOldPassword("", "p", when), QStringLiteral("07/03/2024 4:05 PM: Password was: p\n"));
        QLocale::setDefault(QLocale::c());
    }
};

QTEST_GUILESS_MAIN(TestGenerator)
#include "tst_generator.moc"
