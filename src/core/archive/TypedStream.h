#pragma once
// Reader for typedstream archives (the NSArchiver format of pre-2.0 password files).
//
// Reads NSArray/NSMutableArray, NSDictionary/NSMutableDictionary, NSString/NSMutableString and
// NSNumber into the same QVariant kinds as the keyed archive; a "c" NSNumber is a boolean.

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace tess::archive {

// Answers an invalid QVariant and sets *error for damaged input or unsupported classes.
QVariant decodeTypedStream(const QByteArray &bytes, QString *error = nullptr);

} // namespace tess::archive
