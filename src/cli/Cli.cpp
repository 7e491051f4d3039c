#include "Cli.h"

#include "core/archive/KeyedArchive.h"
#include "core/archive/Utf8.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace tess::cli {

void error(const QString &message)
{
    std::fputs(("tessaline-cli: " + message + u'\n').toLocal8Bit().constData(), stderr);
}

void out(const QString &text)
{
    std::fputs((text + u'\n').toUtf8().constData(), stdout);
}

namespace {

QString quoted(const QString &text)
{
    // Qt's JSON writer does the escaping: a one-string array, unwrapped.
    const QByteArray a = QJsonDocument(QJsonArray{QJsonValue(text)}).toJson(QJsonDocument::Compact);
    return utf8Exactly(QByteArrayView(a).sliced(1, a.size() - 2));
}

// The shortest text that reads back as the same value, always with a decimal point or an
// exponent, so that a reader can tell a real from an integer.
template <class Real>
QString realText(Real r)
{
    if (std::isnan(r))
        return QStringLiteral("\"NaN\"");
    if (std::isinf(r))
        return r > 0 ? QStringLiteral("\"Infinity\"") : QStringLiteral("\"-Infinity\"");
    char buf[64];
    const auto end = std::to_chars(buf, buf + sizeof buf, r).ptr;
    QString t = QString::fromLatin1(buf, end - buf);
    if (!t.contains(u'.') && !t.contains(u'e'))
        t += QStringLiteral(".0");
    return t;
}

} // namespace

QString jsonText(const QVariant &value)
{
    switch (value.typeId()) {
    case QMetaType::QString:
        return quoted(value.toString());
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return QString::number(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return QString::number(value.toULongLong());
    case QMetaType::Double:
        return realText(value.toDouble());
    case QMetaType::Float:
        return realText(value.toFloat());
    case QMetaType::QByteArray:
        return QStringLiteral("{\"data\":\"%1\"}").arg(QString::fromLatin1(value.toByteArray().toBase64()));
    case QMetaType::QStringList:
    case QMetaType::QVariantList: {
        QStringList items;
        for (const QVariant &v : value.toList())
            items.append(jsonText(v));
        return u'[' + items.join(u',') + u']';
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        QStringList items;
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            items.append(quoted(it.key()) + u':' + jsonText(it.value()));
        return u'{' + items.join(u',') + u'}';
    }
    default:
        if (value.metaType() == QMetaType::fromType<archive::ArchivedObject>())
            return QStringLiteral("{\"archived\":%1}").arg(quoted(value.value<archive::ArchivedObject>().className));
        return QStringLiteral("null");
    }
}

QString jsonObjectText(const QVariantMap &map)
{
    if (map.isEmpty())
        return QStringLiteral("{}");
    QStringList lines;
    for (auto it = map.cbegin(); it != map.cend(); ++it)
        lines.append(QStringLiteral("    ") + quoted(it.key()) + QStringLiteral(": ") + jsonText(it.value()));
    return QStringLiteral("{\n") + lines.join(QStringLiteral(",\n")) + QStringLiteral("\n}");
}

bool takeFlag(QStringList &args, const QString &name)
{
    return args.removeAll(name) > 0;
}

bool takeOption(QStringList &args, const QString &name, QString *value, bool *missing)
{
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args[i] == name) {
            if (i + 1 >= args.size()) {
                *missing = true;
                args.removeAt(i);
                return false;
            }
            *value = args[i + 1];
            args.remove(i, 2);
            return true;
        }
        if (args[i].startsWith(name + u'=')) {
            *value = args[i].mid(name.size() + 1);
            args.removeAt(i);
            return true;
        }
    }
    return false;
}

} // namespace tess::cli
