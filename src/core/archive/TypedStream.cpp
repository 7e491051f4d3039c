#include "TypedStream.h"

#include "Utf8.h"

#include <QtEndian>

#include <cstring>
#include <vector>

namespace tess::archive {
namespace {

constexpr std::uint8_t kTagInt16 = 0x81;
constexpr std::uint8_t kTagInt32 = 0x82;
constexpr std::uint8_t kTagReal = 0x83;
constexpr std::uint8_t kTagNew = 0x84;
constexpr std::uint8_t kTagNil = 0x85;
constexpr std::uint8_t kTagEnd = 0x86;
constexpr std::uint8_t kTagInt64 = 0x87;
constexpr std::int64_t kReferenceBase = 110; // references are written as (index - 110)
constexpr int kMaxDepth = 256;

// What an object-table slot holds: references must land on the right kind.
enum class SlotKind : std::uint8_t { Object, Class, CString };
enum class SlotState : std::uint8_t { Busy, Done };

struct Slot {
    SlotKind kind;
    SlotState state;
    QVariant value;     // Object
    QString name;       // Class name, or the C string
};

class Reader {
public:
    Reader(const QByteArray &bytes) : m_p(reinterpret_cast<const std::uint8_t *>(bytes.constData())),
                                      m_end(m_p + bytes.size()) {}

    QVariant run(QString *error)
    {
        QVariant v = readStream();
        if (!m_error.isEmpty()) {
            if (error)
                *error = m_error;
            return {};
        }
        return v;
    }

private:
    QVariant readStream()
    {
        static const char kSignature[] = "\x04\x0bstreamtyped";
        if (m_end - m_p < 13 || std::memcmp(m_p, kSignature, 13) != 0) {
            if (m_end - m_p >= 13 && std::memcmp(m_p + 2, "typedstream", 11) == 0)
                return fail(QStringLiteral("big-endian typedstream is not supported"));
            return fail(QStringLiteral("not a typedstream archive"));
        }
        m_p += 13;
        std::int64_t systemVersion;
        if (!readInteger(&systemVersion))
            return {};
        if (!expectType("@"))
            return {};
        QVariant root = readObject(0);
        if (!m_error.isEmpty())
            return {};
        if (!root.isValid())
            return fail(QStringLiteral("the root object is nil"));
        return root;
    }

    QVariant fail(const QString &why)
    {
        if (m_error.isEmpty())
            m_error = why;
        return {};
    }
    bool failed(const QString &why)
    {
        fail(why);
        return false;
    }

    bool readByte(std::uint8_t *b)
    {
        if (m_p >= m_end)
            return failed(QStringLiteral("truncated archive"));
        *b = *m_p++;
        return true;
    }

    bool readLE(int n, std::uint64_t *v)
    {
        if (m_end - m_p < n)
            return failed(QStringLiteral("truncated archive"));
        std::uint64_t r = 0;
        for (int i = n - 1; i >= 0; --i)
            r = (r << 8) | m_p[i];
        m_p += n;
        *v = r;
        return true;
    }

    // An integer whose head byte has already been read.
    bool integerAfterHead(std::uint8_t head, std::int64_t *v)
    {
        std::uint64_t raw;
        switch (head) {
        case kTagInt16:
            if (!readLE(2, &raw))
                return false;
            *v = std::int16_t(raw);
            return true;
        case kTagInt32:
            if (!readLE(4, &raw))
                return false;
            *v = std::int32_t(raw);
            return true;
        case kTagInt64:
            if (!readLE(8, &raw))
                return false;
            *v = std::int64_t(raw);
            return true;
        default:
            if (head >= 0x80 && head <= 0x91)
                return failed(QStringLiteral("unexpected tag 0x%1").arg(head, 2, 16, QLatin1Char('0')));
            *v = std::int8_t(head);
            return true;
        }
    }

    bool readInteger(std::int64_t *v)
    {
        std::uint8_t head;
        return readByte(&head) && integerAfterHead(head, v);
    }

    bool readUnsharedString(QByteArray *out)
    {
        std::int64_t len;
        if (!readInteger(&len))
            return false;
        if (len < 0 || len > m_end - m_p)
            return failed(QStringLiteral("string longer than the archive"));
        *out = QByteArray(reinterpret_cast<const char *>(m_p), qsizetype(len));
        m_p += len;
        return true;
    }

    // A shared string: new (appended to the table), nil, or a reference into the table.
    bool readSharedString(QByteArray *out, bool *isNil = nullptr)
    {
        std::uint8_t head;
        if (!readByte(&head))
            return false;
        if (isNil)
            *isNil = false;
        if (head == kTagNew) {
            if (!readUnsharedString(out))
                return false;
            m_strings.push_back(*out);
            return true;
        }
        if (head == kTagNil) {
            if (!isNil)
                return failed(QStringLiteral("unexpected nil string"));
            *isNil = true;
            out->clear();
            return true;
        }
        std::int64_t ref;
        if (!integerAfterHead(head, &ref))
            return false;
        const std::int64_t index = ref + kReferenceBase;
        if (index < 0 || std::uint64_t(index) >= m_strings.size())
            return failed(QStringLiteral("string reference out of range"));
        *out = m_strings[std::size_t(index)];
        return true;
    }

    bool expectType(const char *type)
    {
        QByteArray t;
        if (!readSharedString(&t))
            return false;
        if (t != type)
            return failed(QStringLiteral("expected type \"%1\", found \"%2\"")
                              .arg(QLatin1String(type), QString::fromLatin1(t)));
        return true;
    }

    bool expectEnd()
    {
        std::uint8_t b;
        if (!readByte(&b))
            return false;
        if (b != kTagEnd)
            return failed(QStringLiteral("object not terminated"));
        return true;
    }

    // A reference into the object table, of the wanted kind.
    Slot *slotForReference(std::uint8_t head, SlotKind kind)
    {
        std::int64_t ref;
        if (!integerAfterHead(head, &ref))
            return nullptr;
        const std::int64_t index = ref + kReferenceBase;
        if (index < 0 || std::uint64_t(index) >= m_slots.size()) {
            fail(QStringLiteral("object reference out of range"));
            return nullptr;
        }
        Slot &s = m_slots[std::size_t(index)];
        if (s.kind != kind) {
            fail(QStringLiteral("object reference of the wrong kind"));
            return nullptr;
        }
        return &s;
    }

    // The class chain of a new object; answers the most derived class name.
    bool readClass(QString *name)
    {
        std::uint8_t head;
        if (!readByte(&head))
            return false;
        if (head == kTagNil)
            return failed(QStringLiteral("object without a class"));
        if (head != kTagNew) {
            Slot *s = slotForReference(head, SlotKind::Class);
            if (!s)
                return false;
            *name = s->name;
            return true;
        }
        // New classes: name and version, repeated up the chain until nil or a known class.
        bool first = true;
        for (int guard = 0; guard < kMaxDepth; ++guard) {
            const std::size_t slot = m_slots.size();
            m_slots.push_back({SlotKind::Class, SlotState::Done, {}, {}});
            QByteArray className;
            std::int64_t version;
            if (!readSharedString(&className) || !readInteger(&version))
                return false;
            m_slots[slot].name = QString::fromLatin1(className);
            if (first)
                *name = m_slots[slot].name;
            first = false;
            if (!readByte(&head))
                return false;
            if (head == kTagNil)
                return true;
            if (head != kTagNew)
                return slotForReference(head, SlotKind::Class) != nullptr;
        }
        return failed(QStringLiteral("class chain too long"));
    }

    QVariant readObject(int depth)
    {
        if (depth > kMaxDepth)
            return fail(QStringLiteral("nesting too deep"));
        std::uint8_t head;
        if (!readByte(&head))
            return {};
        if (head == kTagNil)
            return {};
        if (head != kTagNew) {
            Slot *s = slotForReference(head, SlotKind::Object);
            if (!s)
                return {};
            if (s->state == SlotState::Busy)
                return fail(QStringLiteral("circular reference"));
            return s->value;
        }
        const std::size_t slot = m_slots.size();
        m_slots.push_back({SlotKind::Object, SlotState::Busy, {}, {}});
        QString className;
        if (!readClass(&className))
            return {};
        QVariant v = readContents(className, depth);
        if (!m_error.isEmpty() || !expectEnd())
            return {};
        m_slots[slot].state = SlotState::Done;
        m_slots[slot].value = v;
        return v;
    }

    bool readCount(std::int64_t *count)
    {
        if (!expectType("i") || !readInteger(count))
            return false;
        // Each element takes at least one byte: a count beyond the rest of the file is damage.
        if (*count < 0 || *count > m_end - m_p)
            return failed(QStringLiteral("count larger than the archive"));
        return true;
    }

    QVariant readElement(int depth)
    {
        if (!expectType("@"))
            return {};
        QVariant v = readObject(depth + 1);
        if (m_error.isEmpty() && !v.isValid())
            return fail(QStringLiteral("nil inside a collection"));
        return v;
    }

    QVariant readContents(const QString &className, int depth)
    {
        if (className == QLatin1String("NSString") || className == QLatin1String("NSMutableString")) {
            QByteArray utf8;
            if (!expectType("+") || !readUnsharedString(&utf8))
                return {};
            return utf8Exactly(utf8);
        }
        if (className == QLatin1String("NSArray") || className == QLatin1String("NSMutableArray")) {
            std::int64_t count;
            if (!readCount(&count))
                return {};
            QVariantList list;
            list.reserve(qsizetype(count));
            for (std::int64_t i = 0; i < count; ++i) {
                QVariant e = readElement(depth);
                if (!m_error.isEmpty())
                    return {};
                list.append(std::move(e));
            }
            return list;
        }
        if (className == QLatin1String("NSDictionary") || className == QLatin1String("NSMutableDictionary")) {
            std::int64_t count;
            if (!readCount(&count))
                return {};
            QVariantMap map;
            for (std::int64_t i = 0; i < count; ++i) {
                const QVariant k = readElement(depth);
                if (!m_error.isEmpty())
                    return {};
                if (k.typeId() != QMetaType::QString)
                    return fail(QStringLiteral("unsupported dictionary key"));
                QVariant v = readElement(depth);
                if (!m_error.isEmpty())
                    return {};
                map.insert(k.toString(), std::move(v));
            }
            return map;
        }
        if (className == QLatin1String("NSNumber"))
            return readNumber();
        return fail(QStringLiteral("unsupported class %1").arg(className));
    }

    // The objCType as a C string: new (an object slot holding a shared string), or a reference.
    bool readCString(QByteArray *out)
    {
        std::uint8_t head;
        if (!readByte(&head))
            return false;
        if (head == kTagNil)
            return failed(QStringLiteral("number without a type"));
        if (head != kTagNew) {
            Slot *s = slotForReference(head, SlotKind::CString);
            if (!s)
                return false;
            *out = s->name.toLatin1();
            return true;
        }
        const std::size_t slot = m_slots.size();
        m_slots.push_back({SlotKind::CString, SlotState::Done, {}, {}});
        if (!readSharedString(out))
            return false;
        m_slots[slot].name = QString::fromLatin1(*out);
        return true;
    }

    QVariant readNumber()
    {
        QByteArray objCType;
        if (!expectType("*") || !readCString(&objCType))
            return {};
        if (objCType.size() != 1)
            return fail(QStringLiteral("unsupported number type \"%1\"").arg(QString::fromLatin1(objCType)));
        if (!expectType(objCType.constData()))
            return {};
        const char t = objCType[0];
        switch (t) {
        case 'c':
        case 'C':
        case 'B': {
            std::uint8_t b;
            if (!readByte(&b))
                return {};
            if (t == 'C')
                return QVariant::fromValue<qint64>(b);
            return b != 0; // a "c" NSNumber is how NSArchiver stores a BOOL
        }
        case 's': case 'S': case 'i': case 'I': case 'l': case 'L': case 'q': case 'Q': {
            std::int64_t v;
            if (!readInteger(&v))
                return {};
            if (t == 'S')
                v = std::uint16_t(v);
            else if (t == 'I' || t == 'L')
                v = std::uint32_t(v);
            else if (t == 'Q' && v < 0) // 2^63 and above
                return QVariant::fromValue<quint64>(std::uint64_t(v));
            return QVariant::fromValue<qint64>(v);
        }
        case 'f':
        case 'd': {
            std::uint8_t head;
            if (!readByte(&head))
                return {};
            double d;
            if (head == kTagReal) {
                std::uint64_t raw;
                if (!readLE(t == 'f' ? 4 : 8, &raw))
                    return {};
                if (t == 'f') {
                    const std::uint32_t bits = std::uint32_t(raw);
                    float f;
                    std::memcpy(&f, &bits, 4);
                    return QVariant(f);
                }
                std::memcpy(&d, &raw, 8);
            } else {
                // Integral reals are written as integers.
                std::int64_t i;
                if (!integerAfterHead(head, &i))
                    return {};
                d = double(i);
                if (t == 'f')
                    return QVariant(float(d));
            }
            return QVariant(d);
        }
        default:
            return fail(QStringLiteral("unsupported number type \"%1\"").arg(QLatin1Char(t)));
        }
    }

    const std::uint8_t *m_p;
    const std::uint8_t *m_end;
    std::vector<QByteArray> m_strings;
    std::vector<Slot> m_slots;
    QString m_error;
};

} // namespace

QVariant decodeTypedStream(const QByteArray &bytes, QString *error)
{
    return Reader(bytes).run(error);
}

} // namespace tess::archive
