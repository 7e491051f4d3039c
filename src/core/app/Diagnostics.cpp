#include "Diagnostics.h"

#include "core/app/QWPrefs.h"

#include <QProcess>
#include <QRegularExpression>
#include <QSysInfo>

namespace tess::Diagnostics {

namespace {

const QString kProgram = QStringLiteral("tessaline");

QString banner(const QString &title)
{
    return QStringLiteral("--------------------------   ") + title + QStringLiteral("   --------------------------");
}

// Standard output of a tool, or nothing when it is missing, fails or hangs.
QString output(const QString &program, const QStringList &arguments)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::SeparateChannels);
    p.start(program, arguments, QIODevice::ReadOnly);
    if (!p.waitForStarted(3000))
        return {};
    if (!p.waitForFinished(10000)) {
        p.kill();
        p.waitForFinished(1000);
        return {};
    }
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return {};
    return QString::fromUtf8(p.readAllStandardOutput());
}

} // namespace

QString osVersion()
{
    return QSysInfo::prettyProductName() + QStringLiteral(", ") + QSysInfo::kernelType() + QLatin1Char(' ') +
           QSysInfo::kernelVersion();
}

QString journalLines()
{
    // The journal can be long: the recent part is what support needs.
    const QString text = output(QStringLiteral("journalctl"), {QStringLiteral("--user"), QStringLiteral("--no-pager"),
                                                               QStringLiteral("--quiet"), QStringLiteral("--lines=20000")});
    QString out;
    for (const QString &line : text.split(QLatin1Char('\n')))
        if (line.contains(kProgram, Qt::CaseInsensitive))
            out += line + QLatin1Char('\r');
    return out;
}

QStringList crashReports()
{
    QStringList reports;
    const QString listing = output(QStringLiteral("coredumpctl"), {QStringLiteral("--no-pager"), QStringLiteral("--no-legend"),
                                                                  QStringLiteral("list"), kProgram});
    static const QRegularExpression pidToken(QStringLiteral("\\s(\\d+)\\s"));
    for (const QString &line : listing.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        // The time comes first ("Mon 2026-11-23 10:00:00 UTC"); the first bare number is the PID.
        const QRegularExpressionMatch m = pidToken.match(line);
        QString info = m.hasMatch() ? output(QStringLiteral("coredumpctl"), {QStringLiteral("--no-pager"), QStringLiteral("info"), m.captured(1)})
                                    : QString();
        if (info.isEmpty()) {
            reports.append(line.trimmed());
            continue;
        }
        // The crashed thread's stack comes first; the other threads' add little.
        const QString thread = QStringLiteral("Stack trace of thread");
        const qsizetype first = info.indexOf(thread);
        const qsizetype second = first < 0 ? -1 : info.indexOf(thread, first + thread.size());
        if (second >= 0)
            info.truncate(second);
        reports.append(info);
    }
    return reports;
}

QString report(const QWPrefs &prefs, const QString &debugInfo, const QString &os)
{
    QString r;
    r.reserve(50000);
    r += QStringLiteral("Tessaline 6.0 Debugging info is included below.  You can delete it if irrelevant to your email, or review it "
                        "to assure that it contains no information that you do not want sent.  It contains your preferences, "
                        "information from recent crashes (if any), and your OS version (%1).\n\n")
             .arg(os) +
         banner(QStringLiteral("Preferences")) + QLatin1Char('\n');
    r += prefs.description();
    r += QStringLiteral("\n\n") + banner(QStringLiteral("Debug Info")) + QStringLiteral("\n\n") + debugInfo;
    r += QStringLiteral("\n\n") + banner(QStringLiteral("Log Entries")) + QStringLiteral("\n\n");
    r += journalLines();
    for (const QString &crash : crashReports())
        r += QStringLiteral("\n\n") + banner(QStringLiteral("Crash Report")) + QLatin1Char('\n') + crash;
    return r;
}

QUrl mailtoURL(const QString &report)
{
    const QString head = QStringLiteral("mailto:") + kSupportAddress + QStringLiteral("?Subject=Tessaline Debugging Info&body=");
    // The characters a URL query may hold as they are. In the body, "&", "=" and "+" are
    // encoded too, so that a mail program does not end the body at the report's first "&".
    const QByteArray query = "!$&'()*+,-./:;=?@_~";
    const QByteArray body = "!$'()*,-./:;?@_~";
    const QByteArray url = head.toUtf8().toPercentEncoding(query) +
                           (QStringLiteral("\n\n") + report).toUtf8().toPercentEncoding(body);
    return QUrl::fromEncoded(url, QUrl::StrictMode);
}

} // namespace tess::Diagnostics
