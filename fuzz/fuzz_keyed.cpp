// libFuzzer target: the keyed-archive reader must answer, never crash, hang or run away.
#include "core/archive/KeyedArchive.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const QVariant v = tess::archive::decodeKeyedArchive(bytes, &error);
    if (v.isValid())
        tess::archive::encodeKeyedArchive(v); // whatever we read, we can write back
    return 0;
}
