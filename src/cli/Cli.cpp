#include "Cli.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>

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

QString jsonText(const QVariant &value)
{
    const QJsonValue v = QJsonValue::fromVariant(value);
    if (v.isObject())
        return QString::fromUtf8(QJsonDocument(v.toObject()).toJson(QJsonDocument::Compact));
    if (v.isArray())
        return QString::fromUtf8(QJsonDocument(v.toArray()).toJson(QJsonDocument::Compact));
    // Wrap a scalar in an array to reuse the JSON writer's escaping, then unwrap it.
    QString s = QString::fromUtf8(QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact));
    return s.mid(1, s.size() - 2);
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
