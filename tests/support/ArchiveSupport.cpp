#include "ArchiveSupport.h"

#include "core/archive/KeyedArchive.h"
#include "core/entries/Entry.h"
#include "core/entries/EntryList.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace tess::testsupport {

using bplist::Kind;
using bplist::Object;

ArchiveBuilder::ArchiveBuilder()
{
    m_objects.push_back(string(QStringLiteral("$null")));
}

std::uint32_t ArchiveBuilder::string(const QString &s) { return m_doc.addString(s); }
std::uint32_t ArchiveBuilder::data(const QByteArray &d) { return m_doc.addData(d); }

static std::uint32_t push(bplist::Document &doc, Object o)
{
    doc.objects.push_back(o);
    return std::uint32_t(doc.objects.size() - 1);
}

std::uint32_t ArchiveBuilder::integer(qint64 v) { return push(m_doc, Object::makeInt(v)); }
std::uint32_t ArchiveBuilder::unsignedInteger(quint64 v) { return push(m_doc, Object::makeUnsigned(v)); }
std::uint32_t ArchiveBuilder::real(double v) { return push(m_doc, Object::makeReal(v)); }
std::uint32_t ArchiveBuilder::uid(std::uint32_t number) { return push(m_doc, Object::makeUid(number)); }

std::uint32_t ArchiveBuilder::date(double v)
{
    Object o(Kind::Date);
    o.real = v;
    return push(m_doc, o);
}

std::uint32_t ArchiveBuilder::array(const std::vector<std::uint32_t> &items)
{
    const std::uint32_t a = push(m_doc, Object(Kind::Array));
    m_doc.setRefs(a, items);
    return a;
}

std::uint32_t ArchiveBuilder::dict(const Members &members)
{
    std::vector<std::uint32_t> refs;
    for (const auto &m : members)
        refs.push_back(string(m.first));
    for (const auto &m : members)
        refs.push_back(m.second);
    const std::uint32_t d = push(m_doc, Object(Kind::Dict));
    m_doc.setRefs(d, refs);
    return d;
}

std::uint32_t ArchiveBuilder::object(std::uint32_t plistIndex)
{
    m_objects.push_back(plistIndex);
    return std::uint32_t(m_objects.size() - 1);
}

std::uint32_t ArchiveBuilder::reserve() { return object(0); }
void ArchiveBuilder::set(std::uint32_t number, std::uint32_t plistIndex) { m_objects[number] = plistIndex; }

std::uint32_t ArchiveBuilder::classNamed(const QStringList &chain)
{
    std::vector<std::uint32_t> names;
    for (const QString &c : chain)
        names.push_back(string(c));
    return object(dict({{QStringLiteral("$classname"), string(chain.first())}, {QStringLiteral("$classes"), array(names)}}));
}

std::uint32_t ArchiveBuilder::instance(std::uint32_t classNumber,
                                       const std::vector<std::pair<QString, std::uint32_t>> &memberNumbers,
                                       std::uint32_t number)
{
    Members members;
    for (const auto &m : memberNumbers)
        members.emplace_back(m.first, uid(m.second));
    members.emplace_back(QStringLiteral("$class"), uid(classNumber));
    const std::uint32_t d = dict(members);
    if (number) {
        set(number, d);
        return number;
    }
    return object(d);
}

std::uint32_t ArchiveBuilder::mutableArray(const std::vector<std::uint32_t> &numbers)
{
    if (!m_arrayClass)
        m_arrayClass = classNamed({"NSMutableArray", "NSArray", "NSObject"});
    std::vector<std::uint32_t> uids;
    for (std::uint32_t n : numbers)
        uids.push_back(uid(n));
    return object(dict({{QStringLiteral("NS.objects"), array(uids)}, {QStringLiteral("$class"), uid(m_arrayClass)}}));
}

std::uint32_t ArchiveBuilder::mutableDictionary(const std::vector<std::pair<QString, std::uint32_t>> &valueNumbers)
{
    if (!m_dictClass)
        m_dictClass = classNamed({"NSMutableDictionary", "NSDictionary", "NSObject"});
    std::vector<std::uint32_t> keys, values;
    for (const auto &kv : valueNumbers) {
        keys.push_back(uid(text(kv.first)));
        values.push_back(uid(kv.second));
    }
    return object(dict({{QStringLiteral("NS.keys"), array(keys)},
                        {QStringLiteral("NS.objects"), array(values)},
                        {QStringLiteral("$class"), uid(m_dictClass)}}));
}

QByteArray ArchiveBuilder::finish(std::uint32_t rootNumber)
{
    const std::uint32_t objects = array(m_objects);
    const std::uint32_t top = dict({{QStringLiteral("$version"), integer(100000)},
                                    {QStringLiteral("$archiver"), string(QStringLiteral("NSKeyedArchiver"))},
                                    {QStringLiteral("$top"), dict({{QStringLiteral("root"), uid(rootNumber)}})},
                                    {QStringLiteral("$objects"), objects}});
    m_doc.top = top;
    return bplist::write(m_doc);
}

QByteArray entryListWithForeignObjects()
{
    ArchiveBuilder b;
    const std::uint32_t dateClass = b.classNamed({"NSDate", "NSObject"});
    const std::uint32_t date = b.instance(dateClass, {{"NS.time", b.object(b.real(700000000.25))}});
    const std::uint32_t uuidClass = b.classNamed({"NSUUID", "NSObject"});
    const std::uint32_t uuid = b.instance(uuidClass, {{"NS.uuidbytes", b.object(b.data(QByteArray(16, '\x5a')))}});
    const std::uint32_t shared = b.text(QStringLiteral("shared \u00e9 text"));
    const std::uint32_t noteClass = b.classNamed({"Note", "NSObject"});
    const std::uint32_t note = b.reserve();
    b.instance(noteClass, {{"title", shared}, {"self", note}, {"tags", b.mutableArray({b.text("a"), b.text("b")})}}, note);
    const std::uint32_t first = b.mutableDictionary({{"Path", b.text("Dated")}, {"created", date}, {"Notes", shared}});
    const std::uint32_t second = b.mutableDictionary({{"Path", b.object(b.data("Path as data"))}, {"id", uuid}});
    const std::uint32_t third = b.mutableDictionary({{"Path", b.text("Noted")}, {"note", note},
                                                     {"when", b.object(b.date(-1.5))},
                                                     {"big", b.object(b.unsignedInteger(~quint64(0)))},
                                                     {"websitePassword", b.text("s3cret")}});
    return b.finish(b.mutableArray({first, second, third}));
}

QList<QPair<QString, QByteArray>> damagedEntryArchives()
{
    using archive::encodeKeyedArchive;
    QList<QPair<QString, QByteArray>> out;
    const Entry entry{{EntryKey::Path, QStringLiteral("Bank")}, {EntryKey::Password, QStringLiteral("b4nk")}};
    out.append({"dictionary", encodeKeyedArchive(entry)});
    out.append({"string", encodeKeyedArchive(QStringLiteral("Bank"))});
    out.append({"number", encodeKeyedArchive(QVariant::fromValue<qint64>(7))});
    out.append({"boolean", encodeKeyedArchive(true)});
    out.append({"array of strings", encodeKeyedArchive(QVariantList{QStringLiteral("Bank"), QStringLiteral("Mail")})});
    out.append({"array with a number", encodeKeyedArchive(QVariantList{entry, QVariant::fromValue<qint64>(3)})});
    out.append({"array of arrays", encodeKeyedArchive(QVariantList{QVariantList{entry}})});
    {
        ArchiveBuilder b;
        const std::uint32_t cls = b.classNamed({"Secret", "NSObject"});
        out.append({"object of an unknown class", b.finish(b.instance(cls, {{"Path", b.text("Bank")}}))});
    }
    {
        ArchiveBuilder b;
        const std::uint32_t cls = b.classNamed({"Secret", "NSObject"});
        const std::uint32_t e = b.mutableDictionary({{"Path", b.text("Bank")}});
        out.append({"array with an unknown object", b.finish(b.mutableArray({e, b.instance(cls, {})}))});
    }
    {
        ArchiveBuilder b; // an NSMutableString without its text
        const std::uint32_t cls = b.classNamed({"NSMutableString", "NSString", "NSObject"});
        out.append({"malformed string", b.finish(b.instance(cls, {}))});
    }
    {
        ArchiveBuilder b; // an entry whose name is an NSMutableString without its text
        const std::uint32_t cls = b.classNamed({"NSMutableString", "NSString", "NSObject"});
        out.append({"entry with a malformed string", b.finish(b.mutableArray({b.mutableDictionary({{"Path", b.instance(cls, {})}})}))});
    }
    {
        // An integer of 2^64 + 2^64 - 1: 16 bytes whose high half is not zero.
        ArchiveBuilder b;
        const std::uint32_t e = b.mutableDictionary({{"Path", b.text("Bank")}, {"n", b.object(b.unsignedInteger(~quint64(0)))}});
        QByteArray bytes = b.finish(b.mutableArray({e}));
        const QByteArray wide = QByteArray(1, '\x14') + QByteArray(8, '\0') + QByteArray(8, '\xff');
        const qsizetype at = bytes.indexOf(wide);
        bytes[at + 8] = '\x01';
        out.append({"integer beyond 64 bits", bytes});
    }
    {
        // A cycle: an entry list that holds itself.
        ArchiveBuilder b;
        const std::uint32_t list = b.reserve();
        const std::uint32_t arrayClass = b.classNamed({"NSMutableArray", "NSArray", "NSObject"});
        b.set(list, b.dict({{"NS.objects", b.array({b.uid(list)})}, {"$class", b.uid(arrayClass)}}));
        out.append({"list holding itself", b.finish(list)});
    }
    out.append({"not an archive", QByteArray("bplist00 and then nothing of the kind")});
    // Found by fuzzing: a reader that does not look at the header's last byte decodes this.
    QByteArray otherHeader = encodeKeyedArchive(entry);
    otherHeader[7] = '\xb0';
    out.append({"dictionary under another header", otherHeader});
    return out;
}

namespace {

QString randomText(QRandomGenerator &rng, int maxLength)
{
    static const char16_t kSamples[] = {
        u'a', u'Z', u'0', u' ', u'\t', u'\n', u'\r', u'"', u'\\', u'/', 0x7f, 0x01,
        0xe9, 0xc5, 0x212b, 0x301, 0xfeff, 0x200b, 0x4e2d, 0x6587, 0x0627, 0xff21, 0xfffd, 0x2028};
    const int length = rng.bounded(100) == 0 ? 20000 + rng.bounded(2000) : rng.bounded(maxLength + 1);
    QString s;
    s.reserve(length + 2);
    while (s.size() < length) {
        switch (rng.bounded(8)) {
        case 0:
            s += QChar::fromUcs4(0x1f600 + rng.bounded(80)); // astral: a surrogate pair
            break;
        case 1:
            s += rng.bounded(2) ? QStringLiteral("e\u0301") : QStringLiteral("\u00e9"); // canonical twins
            break;
        case 2:
            s += QChar(char16_t(0x20 + rng.bounded(0x5f)));
            break;
        default:
            s += QChar(kSamples[rng.bounded(int(std::size(kSamples)))]);
        }
    }
    if (rng.bounded(10) == 0)
        s.prepend(QChar(0xfeff));
    return s;
}

QVariant randomReal(QRandomGenerator &rng)
{
    static const double kSpecial[] = {0.0, -0.0, 2.0, 1.5, -1.0, 1e300, 5e-324, 0.1,
                                      std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                                      std::numeric_limits<double>::quiet_NaN(), 9007199254740993.0};
    double d;
    if (rng.bounded(2)) {
        d = kSpecial[rng.bounded(int(std::size(kSpecial)))];
    } else {
        const quint64 bits = rng.generate64();
        std::memcpy(&d, &bits, 8);
    }
    if (rng.bounded(4) == 0)
        return QVariant(float(d));
    return QVariant(d);
}

QVariant randomValue(QRandomGenerator &rng, const QVariantList &foreign, int depth)
{
    switch (rng.bounded(depth > 1 ? 9 : 11)) {
    case 0:
    case 1:
    case 2:
        return randomText(rng, 40);
    case 3: {
        static const qint64 kInts[] = {0, 1, -1, 255, 256, 65535, 65536, 4294967296, std::numeric_limits<qint64>::min(),
                                       std::numeric_limits<qint64>::max()};
        return QVariant::fromValue<qint64>(rng.bounded(2) ? kInts[rng.bounded(int(std::size(kInts)))] : qint64(rng.generate64()));
    }
    case 4:
        return QVariant::fromValue<quint64>(rng.generate64() | (quint64(1) << 63));
    case 5:
        return rng.bounded(2) == 1;
    case 6:
        return randomReal(rng);
    case 7: {
        QByteArray d(rng.bounded(40), Qt::Uninitialized);
        for (char &c : d)
            c = char(rng.bounded(256));
        return d;
    }
    case 8:
        return foreign.isEmpty() ? QVariant(true) : foreign[rng.bounded(int(foreign.size()))];
    case 9: {
        QVariantList l;
        for (int i = rng.bounded(4); i > 0; --i)
            l.append(randomValue(rng, foreign, depth + 1));
        return l;
    }
    default: {
        QVariantMap m;
        for (int i = rng.bounded(4); i > 0; --i)
            m.insert(randomText(rng, 8), randomValue(rng, foreign, depth + 1));
        return m;
    }
    }
}

// Values of kinds the program does not model, as read from another program's file.
QVariantList foreignValues()
{
    QVariantList out;
    for (const QVariant &e : archive::decodeKeyedArchive(entryListWithForeignObjects()).toList())
        for (const QVariant &v : e.toMap())
            if (v.metaType() == QMetaType::fromType<archive::ArchivedObject>())
                out.append(v);
    return out;
}

} // namespace

QVariantList randomEntryList(QRandomGenerator &rng, int maxEntries)
{
    static const QVariantList foreign = foreignValues();
    static const QStringList keys = {EntryKey::Button, EntryKey::Notes, EntryKey::URL, EntryKey::UserID, EntryKey::UserID2,
                                     EntryKey::Password, EntryKey::NewUserIDOptions, EntryKey::PasswordTabSwitch,
                                     EntryKey::PasswordTabCount, EntryKey::IncludeSpecials, EntryKey::PasswordLength};
    QVariantList list;
    const int n = rng.bounded(maxEntries + 1);
    for (int i = 0; i < n; ++i) {
        Entry e;
        const int kind = rng.bounded(20);
        if (kind == 0)
            e.insert(EntryKey::Path, randomValue(rng, foreign, 2)); // a name of another kind
        else if (kind != 1)                                      // 1: no name at all
            e.insert(EntryKey::Path, QString(QStringLiteral("%1 ").arg(i) + randomText(rng, 12)));
        for (int k = rng.bounded(12); k > 0; --k) {
            const QString key = rng.bounded(3) ? keys[rng.bounded(int(keys.size()))] : randomText(rng, 10);
            e.insert(key, randomValue(rng, foreign, 0));
        }
        list.append(e);
    }
    sortEntries(list);
    return list;
}

int randomListCount(int byDefault)
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue("TESSALINE_RANDOM_LISTS", &ok);
    return ok ? n : byDefault;
}

quint32 randomSeed(quint32 byDefault)
{
    bool ok = false;
    const int n = qEnvironmentVariableIntValue("TESSALINE_RANDOM_SEED", &ok);
    return ok ? quint32(n) : byDefault;
}

bool identical(const QVariant &a, const QVariant &b, QString *where)
{
    auto differ = [&](const QString &what) {
        if (where)
            *where = what;
        return false;
    };
    if (a.metaType() != b.metaType())
        return differ(QStringLiteral("type %1 against %2").arg(a.typeName(), b.typeName()));
    switch (a.typeId()) {
    case QMetaType::Double: {
        const double x = a.toDouble(), y = b.toDouble();
        return std::memcmp(&x, &y, 8) == 0 || differ(QStringLiteral("real %1 against %2").arg(x).arg(y));
    }
    case QMetaType::Float: {
        const float x = a.toFloat(), y = b.toFloat();
        return std::memcmp(&x, &y, 4) == 0 || differ(QStringLiteral("float %1 against %2").arg(x).arg(y));
    }
    case QMetaType::QVariantList: {
        const QVariantList x = a.toList(), y = b.toList();
        if (x.size() != y.size())
            return differ(QStringLiteral("%1 elements against %2").arg(x.size()).arg(y.size()));
        for (qsizetype i = 0; i < x.size(); ++i) {
            QString inner;
            if (!identical(x[i], y[i], &inner))
                return differ(QStringLiteral("[%1] %2").arg(i).arg(inner));
        }
        return true;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap x = a.toMap(), y = b.toMap();
        if (x.keys() != y.keys())
            return differ(QStringLiteral("keys differ"));
        for (auto it = x.cbegin(); it != x.cend(); ++it) {
            QString inner;
            if (!identical(it.value(), y.value(it.key()), &inner))
                return differ(QStringLiteral("\"%1\": %2").arg(it.key(), inner));
        }
        return true;
    }
    default:
        return a == b || differ(QStringLiteral("value differs"));
    }
}

} // namespace tess::testsupport
