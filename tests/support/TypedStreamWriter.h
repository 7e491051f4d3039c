#pragma once
// Writes typedstream archives as NSArchiver does, for building pre-2.0 test files and
// benchmark input. The program itself never writes this format.

#include <QByteArray>
#include <QVariant>

namespace tess::testsupport {

// Containers become NSMutableArray / NSMutableDictionary, strings NSString, booleans "c"
// NSNumbers, integers "q", doubles "d".
QByteArray encodeTypedStream(const QVariant &root);

} // namespace tess::testsupport
