#pragma once
// Keyed archives in the NSKeyedArchiver format, over our binary-plist codec.
//
// Values are QVariants of these kinds: QString, bool, qint64, double, float, QByteArray,
// QVariantList (NSMutableArray) and QVariantMap (NSMutableDictionary, string keys).
// Booleans and integers keep their kinds through a round trip.

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace tess::archive {

// Answers an empty array and sets *error when the value holds a kind that cannot be archived.
QByteArray encodeKeyedArchive(const QVariant &root, QString *error = nullptr);

// Answers an invalid QVariant and sets *error for anything that is not a keyed archive of the
// kinds above: damaged bytes, reference cycles, unsupported classes, nesting beyond reason.
QVariant decodeKeyedArchive(const QByteArray &bytes, QString *error = nullptr);

} // namespace tess::archive
