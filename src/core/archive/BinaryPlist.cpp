#include "BinaryPlist.h"

#include "Utf8.h"

#include <QtEndian>

#include <cstring>
#include <algorithm>
#include <limits>
#include <string>

namespace tess::bplist {
namespace {

constexpr int kTrailerSize = 32;

class Reader {
public:
    Reader(const QByteArray &bytes, Document *out, QString *error)
        : m_data(reinterpret_cast<const std::uint8_t *>(bytes.constData())),
          m_size(std::uint64_t(bytes.size())), m_out(out), m_error(error) {}

    bool run()
    {
        if (m_size < 8 + kTrailerSize || std::memcmp(m_data, "bplist0", 7) != 0)
            return fail(QStringLiteral("not a binary property list"));
        const std::uint8_t *t = m_data + m_size - kTrailerSize;
        m_offsetSize = t[6];
        m_refSize = t[7];
        const std::uint64_t count = qFromBigEndian<std::uint64_t>(t + 8);
        const std::uint64_t top = qFromBigEndian<std::uint64_t>(t + 16);
        const std::uint64_t tableOffset = qFromBigEndian<std::uint64_t>(t + 24);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_refSize < 1 || m_refSize > 8)
            return fail(QStringLiteral("bad trailer sizes"));
        const std::uint64_t end = m_size - kTrailerSize;
        if (count == 0 || top >= count || tableOffset < 8 || tableOffset > end
            || count > (end - tableOffset) / m_offsetSize)
            return fail(QStringLiteral("bad trailer"));
        m_count = count;
        m_end = tableOffset; // objects live between the header and the offset table
        m_out->objects.clear();
        m_out->objects.resize(count);
        m_out->stringPool.clear();
        m_out->dataPool.clear();
        m_out->refPool.clear();
        // References take at most the bytes between the objects and the offset table.
        m_out->refPool.reserve(std::size_t(std::min<std::uint64_t>(count * 2, tableOffset)));
        m_out->top = std::uint32_t(top);
        const std::uint8_t *table = m_data + tableOffset;
        for (std::uint64_t i = 0; i < count; ++i) {
            const std::uint64_t off = readBE(table + i * m_offsetSize, m_offsetSize);
            if (off < 8 || off >= m_end)
                return fail(QStringLiteral("object offset out of range"));
            if (!parseObject(off, &m_out->objects[i]))
                return false;
        }
        return true;
    }

private:
    static std::uint64_t readBE(const std::uint8_t *p, int n)
    {
        std::uint64_t v = 0;
        for (int i = 0; i < n; ++i)
            v = (v << 8) | p[i];
        return v;
    }

    bool fail(const QString &why)
    {
        if (m_error)
            *m_error = why;
        return false;
    }

    bool need(std::uint64_t pos, std::uint64_t n) const { return pos <= m_end && n <= m_end - pos; }

    // Reads the length that follows a marker whose low nibble is 0xF.
    bool readLength(std::uint64_t &pos, std::uint8_t nibble, std::uint64_t *len)
    {
        if (nibble != 0xF) {
            *len = nibble;
            return true;
        }
        if (!need(pos, 1))
            return fail(QStringLiteral("truncated length"));
        const std::uint8_t m = m_data[pos++];
        if ((m & 0xF0) != 0x10 || (m & 0x0F) > 3)
            return fail(QStringLiteral("bad length marker"));
        const int n = 1 << (m & 0x0F);
        if (!need(pos, std::uint64_t(n)))
            return fail(QStringLiteral("truncated length"));
        *len = readBE(m_data + pos, n);
        pos += std::uint64_t(n);
        return true;
    }

    bool readRefs(std::uint64_t pos, std::uint64_t n, Object *o)
    {
        if (n > (m_end - pos) / m_refSize)
            return fail(QStringLiteral("count larger than the file"));
        std::vector<std::uint32_t> &pool = m_out->refPool;
        o->refStart = std::uint32_t(pool.size());
        o->refCount = std::uint32_t(n);
        pool.resize(pool.size() + n);
        std::uint32_t *out = pool.data() + o->refStart;
        const std::uint8_t *p = m_data + pos;
        for (std::uint64_t i = 0; i < n; ++i, p += m_refSize) {
            const std::uint64_t r = readBE(p, m_refSize);
            if (r >= m_count)
                return fail(QStringLiteral("object reference out of range"));
            out[i] = std::uint32_t(r);
        }
        return true;
    }

    bool parseObject(std::uint64_t pos, Object *o)
    {
        const std::uint8_t marker = m_data[pos++];
        const std::uint8_t hi = marker >> 4, lo = marker & 0x0F;
        switch (hi) {
        case 0x0:
            if (marker == 0x08 || marker == 0x09) {
                o->kind = Kind::Bool;
                o->boolean = marker == 0x09;
                return true;
            }
            if (marker == 0x00 || marker == 0x0F) {
                o->kind = Kind::Null;
                return true;
            }
            return fail(QStringLiteral("unknown object marker"));
        case 0x1: {
            if (lo > 4)
                return fail(QStringLiteral("bad integer size"));
            const int n = 1 << lo;
            if (!need(pos, std::uint64_t(n)))
                return fail(QStringLiteral("truncated integer"));
            o->kind = Kind::Int;
            if (n < 16) { // 8 bytes are signed, fewer are never negative
                o->integer = std::int64_t(readBE(m_data + pos, n));
                return true;
            }
            // 16 bytes: a signed 128-bit value, which must fit in 64 bits, signed or unsigned.
            const std::uint64_t high = readBE(m_data + pos, 8), low = readBE(m_data + pos + 8, 8);
            const bool topBit = low >> 63;
            if (high != 0 && !(high == ~std::uint64_t(0) && topBit))
                return fail(QStringLiteral("integer beyond 64 bits"));
            o->integer = std::int64_t(low);
            o->unsignedInt = high == 0 && topBit;
            return true;
        }
        case 0x2:
        case 0x3: {
            if (hi == 0x3 && marker != 0x33)
                return fail(QStringLiteral("unknown object marker"));
            const int n = hi == 0x3 ? 8 : 1 << lo;
            if ((n != 4 && n != 8) || !need(pos, std::uint64_t(n)))
                return fail(QStringLiteral("bad real"));
            o->kind = hi == 0x3 ? Kind::Date : Kind::Real;
            if (n == 4) {
                const std::uint32_t bits = std::uint32_t(readBE(m_data + pos, 4));
                float f;
                std::memcpy(&f, &bits, 4);
                o->real = f;
                o->real32 = true;
            } else {
                const std::uint64_t bits = readBE(m_data + pos, 8);
                std::memcpy(&o->real, &bits, 8);
            }
            return true;
        }
        case 0x4:
        case 0x5:
        case 0x6:
        case 0x7: {
            std::uint64_t len;
            if (!readLength(pos, lo, &len))
                return false;
            const std::uint64_t bytes = hi == 0x6 ? len * 2 : len;
            if (len > m_end || !need(pos, bytes))
                return fail(QStringLiteral("string or data longer than the file"));
            if (len > 0xFFFFFFFFu)
                return fail(QStringLiteral("string or data longer than the file"));
            o->kind = hi == 0x4 ? Kind::Data : Kind::String;
            o->text = hi == 0x6 ? Object::Text::Utf16 : hi == 0x7 ? Object::Text::Utf8 : Object::Text::Ascii;
            o->integer = std::int64_t(pos);
            o->refCount = std::uint32_t(len);
            return true;
        }
        case 0x8: {
            const int n = lo + 1;
            if (n > 4 || !need(pos, std::uint64_t(n)))
                return fail(QStringLiteral("bad UID"));
            o->kind = Kind::Uid;
            o->integer = std::int64_t(readBE(m_data + pos, n));
            return true;
        }
        case 0xA:
        case 0xC:
        case 0xD: {
            std::uint64_t len;
            if (!readLength(pos, lo, &len))
                return false;
            o->kind = hi == 0xA ? Kind::Array : hi == 0xC ? Kind::Set : Kind::Dict;
            if (hi == 0xD) {
                if (len > std::numeric_limits<std::uint64_t>::max() / 2)
                    return fail(QStringLiteral("count larger than the file"));
                len *= 2;
            }
            return readRefs(pos, len, o);
        }
        default:
            return fail(QStringLiteral("unknown object marker"));
        }
    }

    const std::uint8_t *m_data;
    std::uint64_t m_size;
    std::uint64_t m_end = 0;
    std::uint64_t m_count = 0;
    int m_offsetSize = 0;
    int m_refSize = 0;
    Document *m_out;
    QString *m_error;
};

class Writer {
public:
    explicit Writer(const Document &doc) : m_doc(doc)
    {
        const std::size_t n = doc.objects.size();
        m_refSize = n < 0x100 ? 1 : n < 0x10000 ? 2 : 4;
    }

    QByteArray run()
    {
        const std::size_t n = m_doc.objects.size();
        std::vector<std::uint64_t> offsets(n);
        m_out.reserve(n * 12 + 64);
        m_out.append("bplist00", 8);
        for (std::size_t i = 0; i < n; ++i) {
            offsets[i] = std::uint64_t(m_out.size());
            writeObject(m_doc.objects[i]);
        }
        const std::uint64_t tableOffset = std::uint64_t(m_out.size());
        const int offSize = tableOffset < 0x100 ? 1 : tableOffset < 0x10000 ? 2 : tableOffset < 0x100000000ull ? 4 : 8;
        for (std::uint64_t off : offsets)
            putBE(off, offSize);
        char trailer[kTrailerSize] = {};
        trailer[6] = char(offSize);
        trailer[7] = char(m_refSize);
        qToBigEndian<std::uint64_t>(n, trailer + 8);
        qToBigEndian<std::uint64_t>(m_doc.top, trailer + 16);
        qToBigEndian<std::uint64_t>(tableOffset, trailer + 24);
        m_out.append(trailer, kTrailerSize);
        return QByteArray(m_out.data(), qsizetype(m_out.size()));
    }

private:
    void putBE(std::uint64_t v, int n)
    {
        char buf[8];
        for (int i = n - 1; i >= 0; --i) {
            buf[i] = char(v & 0xFF);
            v >>= 8;
        }
        m_out.append(buf, std::size_t(n));
    }

    void putMarker(std::uint8_t hi, std::uint64_t len)
    {
        if (len < 15) {
            m_out.push_back(char((hi << 4) | len));
        } else {
            m_out.push_back(char((hi << 4) | 0xF));
            putInt(std::int64_t(len));
        }
    }

    // Sizes as CoreFoundation chooses them: by magnitude, negatives always in 8 bytes.
    void putInt(std::int64_t v)
    {
        if (v < 0) {
            m_out.push_back(char(0x13));
            putBE(std::uint64_t(v), 8);
        } else if (v <= 0xFF) {
            m_out.push_back(char(0x10));
            putBE(std::uint64_t(v), 1);
        } else if (v <= 0xFFFF) {
            m_out.push_back(char(0x11));
            putBE(std::uint64_t(v), 2);
        } else if (v <= 0xFFFFFFFFll) {
            m_out.push_back(char(0x12));
            putBE(std::uint64_t(v), 4);
        } else {
            m_out.push_back(char(0x13));
            putBE(std::uint64_t(v), 8);
        }
    }

    void writeString(const QString &s)
    {
        const qsizetype len = s.size();
        const char16_t *p = reinterpret_cast<const char16_t *>(s.constData());
        bool ascii = true;
        for (qsizetype i = 0; i < len; ++i) {
            if (p[i] > 0x7F) {
                ascii = false;
                break;
            }
        }
        putMarker(ascii ? 0x5 : 0x6, std::uint64_t(len));
        if (ascii) {
            const std::size_t at = m_out.size();
            m_out.resize(at + std::size_t(len));
            char *d = m_out.data() + at;
            for (qsizetype i = 0; i < len; ++i)
                d[i] = char(p[i]);
        } else {
            const std::size_t at = m_out.size();
            m_out.resize(at + 2 * std::size_t(len));
            char *d = m_out.data() + at;
            for (qsizetype i = 0; i < len; ++i) {
                d[2 * i] = char(p[i] >> 8);
                d[2 * i + 1] = char(p[i] & 0xFF);
            }
        }
    }

    void writeObject(const Object &o)
    {
        switch (o.kind) {
        case Kind::Null:
            m_out.push_back(char(0x00));
            break;
        case Kind::Bool:
            m_out.push_back(char(o.boolean ? 0x09 : 0x08));
            break;
        case Kind::Int:
            if (o.unsignedInt && o.integer < 0) { // 2^63 and above: a 16-byte integer
                m_out.push_back(char(0x14));
                putBE(0, 8);
                putBE(std::uint64_t(o.integer), 8);
            } else {
                putInt(o.integer);
            }
            break;
        case Kind::Real:
        case Kind::Date:
            if (o.kind == Kind::Real && o.real32) {
                const float f = float(o.real);
                std::uint32_t bits;
                std::memcpy(&bits, &f, 4);
                m_out.push_back(char(0x22));
                putBE(bits, 4);
            } else {
                std::uint64_t bits;
                std::memcpy(&bits, &o.real, 8);
                m_out.push_back(char(o.kind == Kind::Date ? 0x33 : 0x23));
                putBE(bits, 8);
            }
            break;
        case Kind::Data: {
            const QByteArray d = m_doc.data(o);
            putMarker(0x4, std::uint64_t(d.size()));
            m_out.append(d.constData(), std::size_t(d.size()));
            break;
        }
        case Kind::String:
            if (o.text == Object::Text::Ascii) { // still the parsed bytes: copy them as they are
                putMarker(0x5, o.refCount);
                m_out.append(m_doc.source.constData() + o.integer, o.refCount);
            } else {
                writeString(m_doc.string(o));
            }
            break;
        case Kind::Uid: {
            const std::uint64_t v = std::uint64_t(o.integer);
            const int n = v <= 0xFF ? 1 : v <= 0xFFFF ? 2 : 4;
            m_out.push_back(char(0x80 | (n - 1)));
            putBE(v, n);
            break;
        }
        case Kind::Array:
        case Kind::Set:
        case Kind::Dict: {
            const std::span<const std::uint32_t> refs = m_doc.refs(o);
            const std::size_t count = o.kind == Kind::Dict ? refs.size() / 2 : refs.size();
            putMarker(o.kind == Kind::Array ? 0xA : o.kind == Kind::Set ? 0xC : 0xD, count);
            const std::size_t at = m_out.size();
            m_out.resize(at + refs.size() * std::size_t(m_refSize));
            std::uint8_t *d = reinterpret_cast<std::uint8_t *>(m_out.data() + at);
            for (std::uint32_t r : refs) {
                for (int i = m_refSize - 1; i >= 0; --i) {
                    d[i] = std::uint8_t(r & 0xFF);
                    r >>= 8;
                }
                d += m_refSize;
            }
            break;
        }
        }
    }

    const Document &m_doc;
    std::string m_out;
    int m_refSize;
};

} // namespace

bool parse(const QByteArray &bytes, Document *out, QString *error)
{
    out->source = bytes;
    return Reader(bytes, out, error).run();
}

QString Document::string(const Object &o) const
{
    if (o.kind != Kind::String)
        return {};
    const char *p = source.constData() + o.integer;
    switch (o.text) {
    case Object::Text::Ascii:
        return QString::fromLatin1(p, qsizetype(o.refCount));
    case Object::Text::Utf8:
        return utf8Exactly(QByteArrayView(p, qsizetype(o.refCount)));
    case Object::Text::Utf16: {
        QString s(qsizetype(o.refCount), Qt::Uninitialized);
        char16_t *d = reinterpret_cast<char16_t *>(s.data());
        const unsigned char *b = reinterpret_cast<const unsigned char *>(p);
        for (std::uint32_t i = 0; i < o.refCount; ++i)
            d[i] = char16_t((b[2 * i] << 8) | b[2 * i + 1]);
        return s;
    }
    case Object::Text::Owned:
        return stringPool[std::size_t(o.integer)];
    }
    return {};
}

QByteArray Document::data(const Object &o) const
{
    if (o.kind != Kind::Data)
        return {};
    if (o.text == Object::Text::Owned)
        return dataPool[std::size_t(o.integer)];
    return QByteArray(source.constData() + o.integer, qsizetype(o.refCount));
}

bool Document::stringEquals(const Object &o, std::string_view ascii) const
{
    if (o.kind != Kind::String)
        return false;
    if (o.text == Object::Text::Ascii)
        return o.refCount == ascii.size() && std::memcmp(source.constData() + o.integer, ascii.data(), ascii.size()) == 0;
    return string(o) == QLatin1StringView(ascii.data(), qsizetype(ascii.size()));
}

namespace {
// An object whose bytes live in one of the document's pools, at the pool's next slot.
template <class T>
Object ownedObject(Kind kind, std::vector<T> &pool, const T &value)
{
    Object o(kind);
    o.text = Object::Text::Owned;
    o.integer = std::int64_t(pool.size());
    pool.push_back(value);
    return o;
}
} // namespace

std::uint32_t Document::addString(const QString &s)
{
    objects.push_back(ownedObject(Kind::String, stringPool, s));
    return std::uint32_t(objects.size() - 1);
}

std::uint32_t Document::addData(const QByteArray &d)
{
    objects.push_back(ownedObject(Kind::Data, dataPool, d));
    return std::uint32_t(objects.size() - 1);
}

void Document::setString(std::uint32_t index, const QString &s)
{
    const Object o = ownedObject(Kind::String, stringPool, s);
    objects[index].kind = o.kind;
    objects[index].text = o.text;
    objects[index].integer = o.integer;
}

void Document::setData(std::uint32_t index, const QByteArray &d)
{
    objects[index] = ownedObject(Kind::Data, dataPool, d);
}

QByteArray write(const Document &doc)
{
    return Writer(doc).run();
}

} // namespace tess::bplist
