#pragma once
// Archives as other programs write them: a keyed-archive builder that goes object by object,
// entry lists holding objects of kinds the program does not model, files whose entry list is
// damaged, a seeded generator of random entry lists, and a comparison that minds types.

#include "core/archive/BinaryPlist.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QRandomGenerator>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <utility>
#include <vector>

namespace tess::testsupport {

class ArchiveBuilder {
public:
    using Members = std::vector<std::pair<QString, std::uint32_t>>;
    ArchiveBuilder();

    // Plist values; each answers its plist index.
    std::uint32_t string(const QString &s);
    std::uint32_t integer(qint64 v);
    std::uint32_t unsignedInteger(quint64 v);
    std::uint32_t real(double v);
    std::uint32_t date(double v);
    std::uint32_t data(const QByteArray &d);
    std::uint32_t uid(std::uint32_t number);
    std::uint32_t array(const std::vector<std::uint32_t> &items);
    std::uint32_t dict(const Members &members);

    // Archive objects; each answers its number (its UID).
    std::uint32_t object(std::uint32_t plistIndex);
    std::uint32_t reserve();
    void set(std::uint32_t number, std::uint32_t plistIndex);
    std::uint32_t classNamed(const QStringList &chain);
    // An instance of a class: {member: UID(number)..., "$class": UID(classNumber)}.
    std::uint32_t instance(std::uint32_t classNumber, const std::vector<std::pair<QString, std::uint32_t>> &memberNumbers,
                           std::uint32_t number = 0);
    std::uint32_t mutableArray(const std::vector<std::uint32_t> &numbers);
    std::uint32_t mutableDictionary(const std::vector<std::pair<QString, std::uint32_t>> &valueNumbers);
    std::uint32_t text(const QString &s) { return object(string(s)); }

    QByteArray finish(std::uint32_t rootNumber);

private:
    bplist::Document m_doc;
    std::vector<std::uint32_t> m_objects;
    std::uint32_t m_arrayClass = 0, m_dictClass = 0;
};

// An entry list whose entries hold an NSDate, an NSUUID, a "Path" that is data, an object of
// a class of its own that refers to itself and to a string another entry shares, a bare plist
// date and an integer of 2^64 - 1, beside ordinary values.
QByteArray entryListWithForeignObjects();

// Keyed archives that decrypt with the right key but hold no entry list: name and bytes.
QList<QPair<QString, QByteArray>> damagedEntryArchives();

// Random entry lists: every character class, canonical twins, U+FEFF, long strings, every
// number kind (reals that are integral, -0, infinities, NaN, integers of 2^63 and above),
// data, nested values and objects the program does not model. Sorted as a save sorts them.
QVariantList randomEntryList(QRandomGenerator &rng, int maxEntries);
// How many lists a test draws: `byDefault`, or $TESSALINE_RANDOM_LISTS; the seed is
// $TESSALINE_RANDOM_SEED or the given one.
int randomListCount(int byDefault);
quint32 randomSeed(quint32 byDefault);

// Equal in type and value, reals bit for bit; *where says where they first differ.
bool identical(const QVariant &a, const QVariant &b, QString *where = nullptr);

} // namespace tess::testsupport
