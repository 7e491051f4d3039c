// tessaline-cli prefs: read and change the settings without the GUI.

#include "Cli.h"

#include "core/app/QWPrefs.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace tess::cli {
namespace {

bool parseBool(const QString &text, bool *ok)
{
    const QString t = text.toLower();
    *ok = true;
    if (t == u"yes" || t == u"true" || t == u"1")
        return true;
    if (t == u"no" || t == u"false" || t == u"0")
        return false;
    *ok = false;
    return false;
}

} // namespace

int runPrefs(QStringList args)
{
    const bool json = takeFlag(args, QStringLiteral("--json"));
    QString type = QStringLiteral("string");
    bool missing = false;
    takeOption(args, QStringLiteral("--type"), &type, &missing);
    if (missing) {
        error(QStringLiteral("--type needs a value: string, int, bool or real"));
        return ExitUsage;
    }
    for (const QString &a : std::as_const(args)) {
        if (a.startsWith(u"--")) {
            error(QStringLiteral("unknown option %1").arg(a));
            return ExitUsage;
        }
    }

    QWPrefs prefs(QWPrefs::applicationIDToLoad(), kApplicationID);
    const QString verb = args.isEmpty() ? QString() : args.takeFirst();

    if (verb.isEmpty()) {
        const QVariantMap all = prefs.prefsMutableDictionary();
        if (json) {
            out(QString::fromUtf8(QJsonDocument(QJsonObject::fromVariantMap(all)).toJson(QJsonDocument::Indented)).trimmed());
            return ExitOK;
        }
        for (auto it = all.cbegin(); it != all.cend(); ++it)
            out(it.key() + QStringLiteral(" = ") + jsonText(it.value()));
        return ExitOK;
    }
    if (verb == u"get") {
        if (args.size() != 1) {
            error(QStringLiteral("usage: tessaline-cli prefs get KEY"));
            return ExitUsage;
        }
        const QVariant v = prefs.objectForKey(args[0]);
        if (!v.isValid()) {
            error(QStringLiteral("no setting \"%1\"").arg(args[0]));
            return 1;
        }
        out(v.typeId() == QMetaType::QString && !json ? v.toString() : jsonText(v));
        return ExitOK;
    }
    if (verb == u"set") {
        if (args.size() != 2) {
            error(QStringLiteral("usage: tessaline-cli prefs set KEY VALUE [--type string|int|bool|real]"));
            return ExitUsage;
        }
        const QString &key = args[0], &text = args[1];
        bool ok = true;
        if (type == u"string") {
            prefs.setObject(text, key);
        } else if (type == u"int") {
            const qint64 i = text.toLongLong(&ok);
            if (ok)
                prefs.setInteger(i, key);
        } else if (type == u"bool") {
            const bool b = parseBool(text, &ok);
            if (ok)
                prefs.setBool(b, key);
        } else if (type == u"real") {
            const double d = text.toDouble(&ok);
            if (ok)
                prefs.setDouble(d, key);
        } else {
            error(QStringLiteral("unknown type \"%1\": use string, int, bool or real").arg(type));
            return ExitUsage;
        }
        if (!ok) {
            error(QStringLiteral("\"%1\" is not a valid %2").arg(text, type));
            return ExitUsage;
        }
    } else if (verb == u"delete") {
        if (args.size() != 1) {
            error(QStringLiteral("usage: tessaline-cli prefs delete KEY"));
            return ExitUsage;
        }
        prefs.removeObjectForKey(args[0]);
    } else {
        error(QStringLiteral("unknown prefs command \"%1\"").arg(verb));
        return ExitUsage;
    }
    if (!prefs.synchronize()) {
        error(QStringLiteral("cannot write %1").arg(prefs.prefsPath()));
        return ExitCannotWrite;
    }
    return ExitOK;
}

} // namespace tess::cli
