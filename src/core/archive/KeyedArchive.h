#pragma once
// Keyed archives in the NSKeyedArchiver format, over our binary-plist codec.
//
// Values are QVariants of these kinds: QString, bool, qint64 (quint64 for 2^63 and above),
// double, float, QByteArray, QVariantList (NSMutableArray), QVariantMap (NSMutableDictionary,
// string keys) and ArchivedObject for everything else. Every kind survives a round trip.

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariant>

namespace tess::archive {

// A value of a kind the program does not model (an object of another class, a plist date or
// a bare plist array), kept as it was archived so that writing it puts back the same object.
// `objects` is a binary plist of the objects it reaches; its last object lists the archive
// objects among them, its root first, and their UIDs count from 1 in that list.
struct ArchivedObject {
    QString className; // the root's class, or "date", "array", "set" for bare plist values
    QByteArray objects;
    bool operator==(const ArchivedObject &o) const { return objects == o.objects; }
    bool operator!=(const ArchivedObject &o) const { return !(*this == o); }
};

// Answers an empty array and sets *error when the value holds a kind that cannot be archived.
QByteArray encodeKeyedArchive(const QVariant &root, QString *error = nullptr);

// Answers an invalid QVariant and sets *error for anything that is not a keyed archive:
// damaged bytes, reference cycles among the kinds above, nesting beyond reason.
QVariant decodeKeyedArchive(const QByteArray &bytes, QString *error = nullptr);

} // namespace tess::archive

Q_DECLARE_METATYPE(tess::archive::ArchivedObject)
