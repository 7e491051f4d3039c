// libFuzzer target: the typedstream reader must answer, never crash, hang or run away.
#include "core/archive/KeyedArchive.h"
#include "core/archive/TypedStream.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const QVariant v = tess::archive::decodeTypedStream(bytes, &error);
    if (v.isValid())
        tess::archive::encodeKeyedArchive(v); // the pre-2.0 upgrade writes what it read
    return 0;
}
