#include "KeyedArchive.h"

#include "BinaryPlist.h"

#include <QHash>

#include <map>
#include <unordered_map>

namespace tess::archive {
namespace {

using bplist::Kind;
using bplist::Object;

constexpr int kMaxDepth = 256;

class Encoder {
public:
    QByteArray run(const QVariant &root, QString *error)
    {
        // Plist objects that every archive has, in a fixed place at the front.
        m_doc.objects.reserve(64);
        const std::uint32_t top = add(Object{Kind::Dict});
        const std::uint32_t kVersion = addString(QStringLiteral("$version"));
        const std::uint32_t kArchiver = addString(QStringLiteral("$archiver"));
        const std::uint32_t kTop = addString(QStringLiteral("$top"));
        const std::uint32_t kObjects = addString(QStringLiteral("$objects"));
        const std::uint32_t version = add(Object::makeInt(100000));
        const std::uint32_t archiver = addString(QStringLiteral("NSKeyedArchiver"));
        const std::uint32_t topDict = add(Object{Kind::Dict});
        const std::uint32_t kRoot = addString(QStringLiteral("root"));
        const std::uint32_t objects = add(Object{Kind::Array});
        m_nsObjects = addString(QStringLiteral("NS.objects"));
        m_nsKeys = addString(QStringLiteral("NS.keys"));
        m_class = addString(QStringLiteral("$class"));
        m_className = addString(QStringLiteral("$classname"));
        m_classes = addString(QStringLiteral("$classes"));

        m_archived.push_back(addString(QStringLiteral("$null")));
        if (!root.isValid()) {
            fail(error, QStringLiteral("nothing to archive"));
            return {};
        }
        const std::uint32_t rootNumber = encode(root, 0);
        if (!m_error.isEmpty()) {
            fail(error, m_error);
            return {};
        }
        m_doc.top = top;
        m_doc.setRefs(top, {kVersion, kArchiver, kTop, kObjects, version, archiver, topDict, objects});
        m_doc.setRefs(topDict, {kRoot, uid(rootNumber)});
        m_doc.setRefs(objects, m_archived);
        return bplist::write(m_doc);
    }

private:
    static void fail(QString *error, const QString &why)
    {
        if (error)
            *error = why;
    }

    std::uint32_t add(Object &&o)
    {
        m_doc.objects.push_back(std::move(o));
        return std::uint32_t(m_doc.objects.size() - 1);
    }
    std::uint32_t addString(const QString &s) { return m_doc.addString(s); }

    std::uint32_t uid(std::uint32_t number)
    {
        if (number >= m_uids.size())
            m_uids.resize(number + 1, 0);
        if (!m_uids[number])
            m_uids[number] = add(Object::makeUid(number));
        return m_uids[number];
    }

    // Reserves the next archive number for a plist object.
    std::uint32_t archive(std::uint32_t plistIndex)
    {
        m_archived.push_back(plistIndex);
        return std::uint32_t(m_archived.size() - 1);
    }

    std::uint32_t classNumber(const QString &name, const QStringList &chain)
    {
        auto it = m_classNumbers.constFind(name);
        if (it != m_classNumbers.constEnd())
            return *it;
        const std::uint32_t d = add(Object{Kind::Dict});
        const std::uint32_t nameIndex = addString(name);
        const std::uint32_t chainIndex = add(Object{Kind::Array});
        std::vector<std::uint32_t> chainRefs;
        for (const QString &c : chain)
            chainRefs.push_back(c == name ? nameIndex : addString(c));
        m_doc.setRefs(chainIndex, chainRefs);
        m_doc.setRefs(d, {m_className, m_classes, nameIndex, chainIndex});
        const std::uint32_t n = archive(d);
        m_classNumbers.insert(name, n);
        return n;
    }

    // Dictionary keys repeat in every entry: archive each distinct key once. Keys usually share
    // one buffer, so the buffer address is tried before hashing the text; the cache holds a
    // reference, which keeps the buffer alive and unchanged.
    std::uint32_t encodeKey(const QString &key)
    {
        auto p = m_keyBuffers.find(key.constData());
        if (p != m_keyBuffers.end() && p->second.first.size() == key.size())
            return p->second.second;
        std::uint32_t n;
        auto it = m_strings.constFind(key);
        if (it != m_strings.constEnd()) {
            n = *it;
        } else {
            n = archive(addString(key));
            m_strings.insert(key, n);
        }
        if (!key.isEmpty())
            m_keyBuffers[key.constData()] = {key, n};
        return n;
    }

    // Puts back an object kept as it was read: its table's objects are appended, each archive
    // object among them takes the next number, and its UIDs are renumbered to match.
    std::uint32_t encodeArchived(const ArchivedObject &a)
    {
        bplist::Document in;
        QString why;
        if (!bplist::parse(a.objects, &in, &why) || in.top + 1 != in.objects.size()
            || in.objects[in.top].kind != Kind::Array || in.objects[in.top].refCount == 0) {
            m_error = QStringLiteral("a kept object is damaged");
            return 0;
        }
        const std::uint32_t offset = std::uint32_t(m_doc.objects.size());
        std::vector<std::uint32_t> numbers;
        for (std::uint32_t r : in.refs(in.top)) {
            if (r >= in.top) {
                m_error = QStringLiteral("a kept object is damaged");
                return 0;
            }
            numbers.push_back(archive(offset + r));
        }
        std::vector<std::uint32_t> refs;
        for (std::uint32_t i = 0; i < in.top; ++i) {
            const Object &o = in.objects[i];
            switch (o.kind) {
            case Kind::String:
                addString(in.string(o));
                break;
            case Kind::Data:
                m_doc.addData(in.data(o));
                break;
            case Kind::Uid:
                if (std::uint64_t(o.integer) > numbers.size()) {
                    m_error = QStringLiteral("a kept object is damaged");
                    return 0;
                }
                add(Object::makeUid(o.integer == 0 ? 0 : numbers[std::size_t(o.integer - 1)]));
                break;
            case Kind::Array:
            case Kind::Set:
            case Kind::Dict: {
                refs.clear();
                for (std::uint32_t r : in.refs(o))
                    refs.push_back(offset + r);
                const std::uint32_t c = add(Object(o.kind));
                m_doc.setRefs(c, refs);
                break;
            }
            default:
                add(Object(o));
                break;
            }
        }
        return numbers.front();
    }

    std::uint32_t encodeInt(std::int64_t i)
    {
        auto it = m_ints.find(i);
        if (it != m_ints.end())
            return it->second;
        const std::uint32_t n = archive(add(Object::makeInt(i)));
        m_ints.emplace(i, n);
        return n;
    }

    std::uint32_t encode(const QVariant &v, int depth)
    {
        if (depth > kMaxDepth) {
            m_error = QStringLiteral("nesting too deep");
            return 0;
        }
        switch (v.typeId()) {
        case QMetaType::Bool: {
            std::uint32_t &slot = v.toBool() ? m_yes : m_no;
            if (!slot)
                slot = archive(add(Object::makeBool(v.toBool())));
            return slot;
        }
        case QMetaType::ULongLong:
        case QMetaType::ULong: {
            const std::uint64_t u = v.toULongLong();
            if (u <= std::uint64_t(INT64_MAX))
                return encodeInt(std::int64_t(u));
            auto it = m_unsigned.find(u);
            if (it != m_unsigned.end())
                return it->second;
            const std::uint32_t n = archive(add(Object::makeUnsigned(u)));
            m_unsigned.emplace(u, n);
            return n;
        }
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::Short:
        case QMetaType::UShort:
        case QMetaType::Long:
            return encodeInt(v.toLongLong());
        case QMetaType::Double:
            return archive(add(Object::makeReal(v.toDouble())));
        case QMetaType::Float:
            return archive(add(Object::makeReal(double(v.toFloat()), true)));
        case QMetaType::QString:
            // Like Apple's archiver, values are not merged by content; keys are (below).
            return archive(addString(v.toString()));
        case QMetaType::QByteArray:
            return archive(m_doc.addData(v.toByteArray()));
        case QMetaType::QStringList:
        case QMetaType::QVariantList: {
            const QVariantList list = v.toList();
            const std::uint32_t d = add(Object{Kind::Dict});
            const std::uint32_t n = archive(d);
            std::vector<std::uint32_t> items;
            items.reserve(std::size_t(list.size()));
            for (const QVariant &e : list) {
                const std::uint32_t c = encode(e, depth + 1);
                if (!c && m_error.isEmpty())
                    m_error = QStringLiteral("an array cannot hold nil");
                items.push_back(c);
            }
            const std::uint32_t cls = classNumber(QStringLiteral("NSMutableArray"),
                {QStringLiteral("NSMutableArray"), QStringLiteral("NSArray"), QStringLiteral("NSObject")});
            for (std::uint32_t &c : items)
                c = uid(c);
            const std::uint32_t a = add(Object{Kind::Array});
            m_doc.setRefs(a, items);
            m_doc.setRefs(d, {m_nsObjects, m_class, a, uid(cls)});
            return n;
        }
        case QMetaType::QVariantMap:
        case QMetaType::QVariantHash: {
            const QVariantMap map = v.toMap();
            const std::uint32_t d = add(Object{Kind::Dict});
            const std::uint32_t n = archive(d);
            std::vector<std::uint32_t> keys, values;
            keys.reserve(std::size_t(map.size()));
            values.reserve(std::size_t(map.size()));
            for (auto it = map.cbegin(); it != map.cend(); ++it)
                keys.push_back(encodeKey(it.key()));
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                const std::uint32_t c = encode(it.value(), depth + 1);
                if (!c && m_error.isEmpty())
                    m_error = QStringLiteral("a dictionary cannot hold nil");
                values.push_back(c);
            }
            const std::uint32_t cls = classNumber(QStringLiteral("NSMutableDictionary"),
                {QStringLiteral("NSMutableDictionary"), QStringLiteral("NSDictionary"), QStringLiteral("NSObject")});
            for (std::uint32_t &c : keys)
                c = uid(c);
            for (std::uint32_t &c : values)
                c = uid(c);
            const std::uint32_t ki = add(Object{Kind::Array});
            m_doc.setRefs(ki, keys);
            const std::uint32_t oi = add(Object{Kind::Array});
            m_doc.setRefs(oi, values);
            m_doc.setRefs(d, {m_nsKeys, m_nsObjects, m_class, ki, oi, uid(cls)});
            return n;
        }
        default:
            if (v.metaType() == QMetaType::fromType<ArchivedObject>())
                return encodeArchived(*static_cast<const ArchivedObject *>(v.constData()));
            m_error = QStringLiteral("cannot archive a value of type %1").arg(QString::fromLatin1(v.typeName()));
            return 0;
        }
    }

    bplist::Document m_doc;
    std::vector<std::uint32_t> m_archived; // archive number -> plist index
    std::vector<std::uint32_t> m_uids;     // archive number -> plist index of its UID object
    QHash<QString, std::uint32_t> m_classNumbers;
    QHash<QString, std::uint32_t> m_strings;
    std::unordered_map<const QChar *, std::pair<QString, std::uint32_t>> m_keyBuffers;
    std::unordered_map<std::int64_t, std::uint32_t> m_ints;
    std::unordered_map<std::uint64_t, std::uint32_t> m_unsigned;
    std::uint32_t m_yes = 0, m_no = 0;
    std::uint32_t m_nsObjects = 0, m_nsKeys = 0, m_class = 0, m_className = 0, m_classes = 0;
    QString m_error;
};

class Decoder {
public:
    QVariant run(const QByteArray &bytes, QString *error)
    {
        QString why;
        if (!bplist::parse(bytes, &m_doc, &why))
            return fail(error, why);
        const Object &top = m_doc.objects[m_doc.top];
        if (top.kind != Kind::Dict)
            return fail(error, QStringLiteral("not a keyed archive"));
        const Object *archiver = member(top, "$archiver");
        if (!archiver || !m_doc.stringEquals(*archiver, "NSKeyedArchiver"))
            return fail(error, QStringLiteral("not a keyed archive (wrong $archiver)"));
        const Object *version = member(top, "$version");
        if (!version || version->kind != Kind::Int || version->integer != 100000)
            return fail(error, QStringLiteral("unsupported keyed archive version"));
        const Object *topDict = member(top, "$top");
        if (!topDict || topDict->kind != Kind::Dict)
            return fail(error, QStringLiteral("keyed archive without $top"));
        // Our files always use "root"; other archiving calls name their objects "$0", "$1"...
        const Object *root = member(*topDict, "root");
        if (!root)
            root = member(*topDict, "$0");
        if (!root || root->kind != Kind::Uid)
            return fail(error, QStringLiteral("keyed archive without a root object"));
        const Object *objects = member(top, "$objects");
        if (!objects || objects->kind != Kind::Array)
            return fail(error, QStringLiteral("keyed archive without $objects"));
        m_objects = m_doc.refs(*objects);
        m_keyKinds.assign(m_doc.objects.size(), Unknown);
        m_classKinds.assign(m_objects.size(), std::int8_t(-2));
        m_state.assign(m_objects.size(), State::New);
        m_values.resize(m_objects.size());
        QVariant v = decode(std::uint64_t(root->integer), 0);
        if (!m_error.isEmpty())
            return fail(error, m_error);
        if (!v.isValid())
            return fail(error, QStringLiteral("the root object is nil"));
        return v;
    }

private:
    enum class State : std::uint8_t { New, Busy, Done };

    static QVariant fail(QString *error, const QString &why)
    {
        if (error)
            *error = why;
        return {};
    }

    enum KeyKind : std::int8_t { Unknown = -1, Other, NSKeys, NSObjects, Class, NSString };
    enum ClassKind : std::int8_t { NotAClass = -1, ArrayClass, DictionaryClass, StringClass, OtherClass };

    // Which of the keys that instances use a plist string is, worked out once per string.
    KeyKind keyKind(std::uint32_t plistIndex)
    {
        KeyKind &k = m_keyKinds[plistIndex];
        if (k == Unknown) {
            const Object &o = m_doc.objects[plistIndex];
            k = Other;
            if (m_doc.stringEquals(o, "NS.keys"))
                k = NSKeys;
            else if (m_doc.stringEquals(o, "NS.objects"))
                k = NSObjects;
            else if (m_doc.stringEquals(o, "$class"))
                k = Class;
            else if (m_doc.stringEquals(o, "NS.string"))
                k = NSString;
        }
        return k;
    }

    const Object *instanceMember(const Object &dict, KeyKind wanted)
    {
        const auto refs = m_doc.refs(dict);
        const std::size_t n = refs.size() / 2;
        for (std::size_t i = 0; i < n; ++i)
            if (keyKind(refs[i]) == wanted)
                return &m_doc.objects[refs[n + i]];
        return nullptr;
    }

    // The value for a string key of a plist dictionary, or null.
    const Object *member(const Object &dict, std::string_view key) const
    {
        const auto refs = m_doc.refs(dict);
        const std::size_t n = refs.size() / 2;
        for (std::size_t i = 0; i < n; ++i) {
            if (m_doc.stringEquals(m_doc.objects[refs[i]], key))
                return &m_doc.objects[refs[n + i]];
        }
        return nullptr;
    }

    QVariant error(const QString &why)
    {
        if (m_error.isEmpty())
            m_error = why;
        return {};
    }

    // An array of UIDs, checked; its elements are read in place with uidAt().
    bool isUidArray(const Object *arr) const
    {
        if (!arr || arr->kind != Kind::Array)
            return false;
        for (std::uint32_t r : m_doc.refs(*arr))
            if (m_doc.objects[r].kind != Kind::Uid)
                return false;
        return true;
    }
    std::uint64_t uidAt(const Object *arr, std::size_t i) const
    {
        return std::uint64_t(m_doc.objects[m_doc.refPool[arr->refStart + i]].integer);
    }

    QVariant decode(std::uint64_t number, int depth, bool memoizeStrings = false)
    {
        if (number == 0)
            return {};
        if (number >= m_objects.size())
            return error(QStringLiteral("object reference out of range"));
        if (depth > kMaxDepth)
            return error(QStringLiteral("nesting too deep"));
        const std::uint32_t plistIndex = m_objects[number];
        // Numbers and values are cheap to decode again. Dictionary keys are made once (every
        // entry shares them); instances are decoded once, which also bounds the work on archives
        // that share one subtree many times, and catches cycles.
        const Kind kind = m_doc.objects[plistIndex].kind;
        if (kind != Kind::Dict && !(memoizeStrings && kind == Kind::String))
            return decodeFresh(number, plistIndex, depth);
        switch (m_state[number]) {
        case State::Done:
            return m_values[number];
        case State::Busy:
            return error(QStringLiteral("circular reference"));
        case State::New:
            break;
        }
        m_state[number] = State::Busy;
        QVariant v = decodeFresh(number, plistIndex, depth);
        if (!m_error.isEmpty())
            return {};
        m_state[number] = State::Done;
        m_values[number] = v;
        return v;
    }

    QVariant decodeFresh(std::uint64_t number, std::uint32_t plistIndex, int depth)
    {
        const Object &o = m_doc.objects[plistIndex];
        switch (o.kind) {
        case Kind::String:
            return m_doc.string(o);
        case Kind::Int:
            if (o.unsignedInt)
                return QVariant::fromValue<quint64>(std::uint64_t(o.integer));
            return QVariant::fromValue<qint64>(o.integer);
        case Kind::Bool:
            return o.boolean;
        case Kind::Real:
            return o.real32 ? QVariant(float(o.real)) : QVariant(o.real);
        case Kind::Data:
            return m_doc.data(o);
        case Kind::Dict:
            return decodeInstance(number, o, depth);
        case Kind::Date:
            return capture(number, QStringLiteral("date"));
        case Kind::Array:
        case Kind::Set:
            return capture(number, o.kind == Kind::Set ? QStringLiteral("set") : QStringLiteral("array"));
        default:
            return error(QStringLiteral("unexpected object in archive"));
        }
    }

    // Keeps an object of a kind we do not model as it was archived, with everything it reaches
    // (its class description too): the objects it reaches become a table of their own, their
    // UIDs numbered into it. Copied breadth first, each plist object once: sharing and cycles
    // cost nothing and cannot recurse.
    QVariant capture(std::uint64_t number, const QString &className)
    {
        bplist::Document out;
        std::vector<std::uint32_t> reached;                      // out index -> our plist index
        std::unordered_map<std::uint32_t, std::uint32_t> outIndex; // our plist index -> out index
        std::vector<std::uint64_t> numbers;                      // captured archive objects
        std::unordered_map<std::uint64_t, std::uint32_t> numberIndex;
        auto reach = [&](std::uint32_t plistIndex) {
            auto [it, added] = outIndex.emplace(plistIndex, std::uint32_t(reached.size()));
            if (added) {
                reached.push_back(plistIndex);
                out.objects.emplace_back();
            }
            return it->second;
        };
        auto reachNumber = [&](std::uint64_t n) {
            auto [it, added] = numberIndex.emplace(n, std::uint32_t(numbers.size()));
            if (added) {
                numbers.push_back(n);
                reach(m_objects[n]);
            }
            return it->second + 1; // UID 0 stays nil
        };
        reachNumber(number);
        std::vector<std::uint32_t> refs;
        for (std::uint32_t i = 0; i < reached.size(); ++i) {
            const Object &o = m_doc.objects[reached[i]];
            switch (o.kind) {
            case Kind::String:
                out.setString(i, m_doc.string(o));
                break;
            case Kind::Data:
                out.setData(i, m_doc.data(o));
                break;
            case Kind::Uid:
                if (std::uint64_t(o.integer) >= m_objects.size())
                    return error(QStringLiteral("object reference out of range"));
                out.objects[i] = Object::makeUid(o.integer == 0 ? 0 : reachNumber(std::uint64_t(o.integer)));
                break;
            case Kind::Array:
            case Kind::Set:
            case Kind::Dict:
                refs.clear();
                for (std::uint32_t r : m_doc.refs(o))
                    refs.push_back(reach(r));
                out.objects[i] = Object(o.kind);
                out.setRefs(i, refs);
                break;
            default:
                out.objects[i] = o;
                break;
            }
        }
        // The table's last object lists the captured archive objects, the first its root.
        refs.clear();
        for (std::uint64_t n : numbers)
            refs.push_back(outIndex.at(m_objects[n]));
        out.objects.emplace_back(Kind::Array);
        out.top = std::uint32_t(out.objects.size() - 1);
        out.setRefs(out.top, refs);
        return QVariant::fromValue(ArchivedObject{className, bplist::write(out)});
    }

    QVariant decodeInstance(std::uint64_t number, const Object &o, int depth)
    {
        const Object *cls = instanceMember(o, Class);
        if (!cls || cls->kind != Kind::Uid || std::uint64_t(cls->integer) >= m_objects.size())
            return error(QStringLiteral("object without a class"));
        const std::size_t clsNumber = std::size_t(cls->integer);
        const Object &clsDict = m_doc.objects[m_objects[clsNumber]];
        std::int8_t &kind = m_classKinds[clsNumber];
        if (kind == -2) {
            const Object *name = clsDict.kind == Kind::Dict ? member(clsDict, "$classname") : nullptr;
            if (!name || name->kind != Kind::String)
                return error(QStringLiteral("bad class description"));
            const QString n = m_doc.string(*name);
            kind = (n == QLatin1String("NSArray") || n == QLatin1String("NSMutableArray")) ? ArrayClass
                 : (n == QLatin1String("NSDictionary") || n == QLatin1String("NSMutableDictionary")) ? DictionaryClass
                 : (n == QLatin1String("NSString") || n == QLatin1String("NSMutableString")) ? StringClass
                 : OtherClass;
        }

        if (kind == ArrayClass) {
            const Object *items = instanceMember(o, NSObjects);
            if (!isUidArray(items))
                return error(QStringLiteral("bad array"));
            QVariantList list;
            list.reserve(qsizetype(items->refCount));
            for (std::size_t i = 0; i < items->refCount; ++i) {
                QVariant e = decode(uidAt(items, i), depth + 1);
                if (!m_error.isEmpty())
                    return {};
                if (!e.isValid())
                    return error(QStringLiteral("nil inside an array"));
                list.append(std::move(e));
            }
            return list;
        }
        if (kind == DictionaryClass) {
            const Object *keys = instanceMember(o, NSKeys);
            const Object *values = instanceMember(o, NSObjects);
            if (!isUidArray(keys) || !isUidArray(values) || keys->refCount != values->refCount)
                return error(QStringLiteral("bad dictionary"));
            // Built as a std::map and handed over whole: QMap's own insert detaches and
            // checks on every call.
            std::map<QString, QVariant> map;
            for (std::uint32_t i = 0; i < keys->refCount; ++i) {
                const QVariant k = decode(uidAt(keys, i), depth + 1, true);
                if (!m_error.isEmpty())
                    return {};
                if (k.typeId() != QMetaType::QString)
                    return error(QStringLiteral("unsupported dictionary key"));
                QVariant v = decode(uidAt(values, i), depth + 1);
                if (!m_error.isEmpty())
                    return {};
                if (!v.isValid())
                    return error(QStringLiteral("nil inside a dictionary"));
                // Keys mostly arrive in order (ours are written sorted): hint the end.
                map.emplace_hint(map.end(), *static_cast<const QString *>(k.constData()), std::move(v));
            }
            return QVariantMap(std::move(map));
        }
        if (kind == StringClass) {
            const Object *s = instanceMember(o, NSString);
            if (!s || s->kind != Kind::String)
                return error(QStringLiteral("bad string"));
            return m_doc.string(*s);
        }
        return capture(number, m_doc.string(*member(clsDict, "$classname")));
    }

    bplist::Document m_doc;
    std::span<const std::uint32_t> m_objects;
    std::vector<State> m_state;
    std::vector<KeyKind> m_keyKinds;
    std::vector<std::int8_t> m_classKinds;
    std::vector<QVariant> m_values;
    QString m_error;
};

} // namespace

QByteArray encodeKeyedArchive(const QVariant &root, QString *error)
{
    return Encoder().run(root, error);
}

QVariant decodeKeyedArchive(const QByteArray &bytes, QString *error)
{
    return Decoder().run(bytes, error);
}

} // namespace tess::archive
