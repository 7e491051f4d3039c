#include "TypedStreamWriter.h"

#include <QHash>
#include <QStringList>

#include <cstring>

namespace tess::testsupport {
namespace {

class Writer {
public:
    QByteArray run(const QVariant &root)
    {
        m_out.append("\x04\x0bstreamtyped", 13);
        putInt(1000);
        putShared("@");
        putObject(root);
        return m_out;
    }

private:
    void putInt(qint64 v)
    {
        if (v >= -110 && v <= 127) {
            m_out.append(char(v));
        } else if (v >= -32768 && v <= 32767) {
            m_out.append(char(0x81));
            putLE(quint64(v), 2);
        } else if (v >= INT32_MIN && v <= INT32_MAX) {
            m_out.append(char(0x82));
            putLE(quint64(v), 4);
        } else {
            m_out.append(char(0x87));
            putLE(quint64(v), 8);
        }
    }
    void putLE(quint64 v, int n)
    {
        for (int i = 0; i < n; ++i, v >>= 8)
            m_out.append(char(v & 0xFF));
    }
    void putShared(const QByteArray &s)
    {
        auto it = m_strings.constFind(s);
        if (it != m_strings.constEnd()) {
            putInt(*it - 110);
            return;
        }
        m_strings.insert(s, int(m_strings.size()));
        m_out.append(char(0x84));
        putInt(s.size());
        m_out.append(s);
    }
    void putClass(const QStringList &chain, const QList<int> &versions)
    {
        for (qsizetype i = 0; i < chain.size(); ++i) {
            auto it = m_classes.constFind(chain[i]);
            if (it != m_classes.constEnd()) {
                putInt(*it - 110);
                return;
            }
            m_classes.insert(chain[i], m_objects++);
            m_out.append(char(0x84));
            putShared(chain[i].toLatin1());
            putInt(versions[i]);
        }
        m_out.append(char(0x85));
    }
    void putObject(const QVariant &v)
    {
        m_out.append(char(0x84));
        ++m_objects;
        switch (v.typeId()) {
        case QMetaType::QString: {
            putClass({QStringLiteral("NSString"), QStringLiteral("NSObject")}, {1, 0});
            const QByteArray utf8 = v.toString().toUtf8();
            putShared("+");
            putInt(utf8.size());
            m_out.append(utf8);
            break;
        }
        case QMetaType::QVariantList: {
            putClass({QStringLiteral("NSMutableArray"), QStringLiteral("NSArray"), QStringLiteral("NSObject")}, {0, 0, 0});
            const QVariantList list = v.toList();
            putShared("i");
            putInt(list.size());
            for (const QVariant &e : list) {
                putShared("@");
                putObject(e);
            }
            break;
        }
        case QMetaType::QVariantMap: {
            putClass({QStringLiteral("NSMutableDictionary"), QStringLiteral("NSDictionary"), QStringLiteral("NSObject")},
                     {0, 0, 0});
            const QVariantMap map = v.toMap();
            putShared("i");
            putInt(map.size());
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                putShared("@");
                putObject(it.key());
                putShared("@");
                putObject(it.value());
            }
            break;
        }
        default: {
            putClass({QStringLiteral("NSNumber"), QStringLiteral("NSValue"), QStringLiteral("NSObject")}, {0, 0, 0});
            const QByteArray type = v.typeId() == QMetaType::Bool ? "c"
                                  : v.typeId() == QMetaType::Double ? "d" : "q";
            putShared("*");
            auto it = m_cstrings.constFind(type);
            if (it != m_cstrings.constEnd()) {
                putInt(*it - 110);
            } else {
                m_cstrings.insert(type, m_objects++);
                m_out.append(char(0x84));
                putShared(type);
            }
            putShared(type);
            if (type == "c") {
                m_out.append(char(v.toBool() ? 1 : 0));
            } else if (type == "d") {
                const double d = v.toDouble();
                if (d == double(qint64(d))) {
                    putInt(qint64(d));
                } else {
                    quint64 bits;
                    std::memcpy(&bits, &d, 8);
                    m_out.append(char(0x83));
                    putLE(bits, 8);
                }
            } else {
                putInt(v.toLongLong());
            }
            break;
        }
        }
        m_out.append(char(0x86));
    }

    QByteArray m_out;
    QHash<QByteArray, int> m_strings;
    QHash<QString, int> m_classes;
    QHash<QByteArray, int> m_cstrings;
    int m_objects = 0;
};

} // namespace

QByteArray encodeTypedStream(const QVariant &root)
{
    return Writer().run(root);
}

} // namespace tess::testsupport
