#pragma once
// A binary property list ("bplist00") as a flat table of objects.
//
// Our own codec rather than libplist: libplist's writer is quadratic in the number of objects,
// and password files are re-saved after every change. The flat table also lets the keyed-archive
// layer follow UIDs by index without building an intermediate tree.

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string_view>
#include <vector>

namespace tess::bplist {

enum class Kind : std::uint8_t { Null, Bool, Int, Real, Date, Data, String, Uid, Array, Set, Dict };

// One object. Strings and data stay where the parser found them in the file's bytes (or, for
// objects built in memory, in the document's own pools) until someone asks for them: most of
// a keyed archive's strings are keys, read once and shared.
struct Object {
    Object(Kind k = Kind::Null) : kind(k) {}

    Kind kind;
    bool real32 = false;  // a 4-byte real (float) rather than 8 bytes
    // An integer of 2^63 or more (a 16-byte integer object): `integer` holds its bits.
    bool unsignedInt = false;
    bool boolean = false;
    // Strings: how the text is stored (see Document::string()).
    enum class Text : std::uint8_t { Ascii, Utf16, Utf8, Owned } text = Text::Ascii;
    // Array/Set: the element indexes. Dict: the keys' indexes then the values' (2n of them).
    // They live in the document's pool, so that containers cost no allocation of their own.
    // Strings and data: the byte offset (or pool index) is `integer`, the length `refCount`.
    std::uint32_t refStart = 0;
    std::uint32_t refCount = 0;
    std::int64_t integer = 0; // Int, and Uid's value
    double real = 0;          // Real, Date

    static Object makeInt(std::int64_t v) { Object o(Kind::Int); o.integer = v; return o; }
    static Object makeUnsigned(std::uint64_t v)
    {
        Object o(Kind::Int); o.integer = std::int64_t(v); o.unsignedInt = v > std::uint64_t(INT64_MAX); return o;
    }
    static Object makeUid(std::uint32_t v) { Object o(Kind::Uid); o.integer = v; return o; }
    static Object makeBool(bool v) { Object o(Kind::Bool); o.boolean = v; return o; }
    static Object makeReal(double v, bool is32 = false)
    {
        Object o(Kind::Real); o.real = v; o.real32 = is32; return o;
    }
};

struct Document {
    std::vector<Object> objects;
    std::vector<std::uint32_t> refPool;
    std::uint32_t top = 0;
    QByteArray source;                 // the parsed bytes, which strings and data point into
    std::vector<QString> stringPool;   // strings set in memory
    std::vector<QByteArray> dataPool;  // data set in memory

    std::span<const std::uint32_t> refs(const Object &o) const
    {
        return {refPool.data() + o.refStart, o.refCount};
    }
    std::span<const std::uint32_t> refs(std::uint32_t index) const { return refs(objects[index]); }
    // Gives objects[index] these references (appended to the pool).
    void setRefs(std::uint32_t index, std::span<const std::uint32_t> r)
    {
        objects[index].refStart = std::uint32_t(refPool.size());
        objects[index].refCount = std::uint32_t(r.size());
        refPool.insert(refPool.end(), r.begin(), r.end());
    }
    void setRefs(std::uint32_t index, std::initializer_list<std::uint32_t> r)
    {
        setRefs(index, std::span<const std::uint32_t>(r.begin(), r.size()));
    }

    // A String object's text, a Data object's bytes (empty for other kinds).
    QString string(const Object &o) const;
    QString string(std::uint32_t index) const { return string(objects[index]); }
    QByteArray data(const Object &o) const;
    // Whether a String object's text is exactly this ASCII text, without building a QString.
    bool stringEquals(const Object &o, std::string_view ascii) const;

    std::uint32_t addString(const QString &s);
    std::uint32_t addData(const QByteArray &d);
    void setString(std::uint32_t index, const QString &s);
    void setData(std::uint32_t index, const QByteArray &d);
};

// Parses a binary plist. On failure answers false and says why in *error. Every reference is
// checked to be in range; references are not followed here, so cycles cannot hang the parser.
bool parse(const QByteArray &bytes, Document *out, QString *error);

// Serialises the table as it stands (no merging of equal objects: callers share by reference).
QByteArray write(const Document &doc);

} // namespace tess::bplist
