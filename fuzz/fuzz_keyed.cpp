// libFuzzer target: the keyed-archive reader must answer, never crash, hang or run away, and
// whatever it reads it writes back so that it reads the same again, kinds and bits.
#include "core/archive/KeyedArchive.h"
#include "support/ArchiveSupport.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    QString error;
    const QVariant v = tess::archive::decodeKeyedArchive(bytes, &error);
    if (!v.isValid())
        return 0;
    const QByteArray again = tess::archive::encodeKeyedArchive(v, &error);
    QString where;
    if (again.isEmpty() || !tess::testsupport::identical(tess::archive::decodeKeyedArchive(again), v, &where)) {
        std::fprintf(stderr, "fuzz_keyed: not read back the same: %s%s\n", qPrintable(error), qPrintable(where));
        std::abort();
    }
    return 0;
}
