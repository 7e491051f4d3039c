#include "SingleInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QFileInfo>
#include <QThread>
#include <QTimer>

namespace tess {

const QString SingleInstance::kServiceName = QStringLiteral("org.tessaline.Tessaline");
const QString SingleInstance::kObjectPath = QStringLiteral("/org/tessaline/Tessaline");

namespace {
constexpr int kHandOverTimeoutMs = 10000;
constexpr int kAttempts = 3;
} // namespace

SingleInstance::SingleInstance(QObject *parent) : QObject(parent)
{
}

SingleInstance::~SingleInstance()
{
    release();
}

SingleInstance::Role SingleInstance::claimOrHandOver(const QStringList &files)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return Role::Alone;
    QStringList absolute;
    for (const QString &f : files)
        absolute.append(QFileInfo(f).absoluteFilePath());

    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        // The object is there before the name, so that no caller finds the name without it.
        if (!bus.registerObject(kObjectPath, this, QDBusConnection::ExportScriptableSlots))
            return Role::Alone;
        if (bus.registerService(kServiceName)) {
            m_registered = true;
            return Role::Primary;
        }
        bus.unregisterObject(kObjectPath);

        QDBusMessage call = QDBusMessage::createMethodCall(kServiceName, kObjectPath, kServiceName,
                                                           QStringLiteral("openFiles"));
        call << absolute;
        const QDBusMessage reply = bus.call(call, QDBus::Block, kHandOverTimeoutMs);
        if (reply.type() == QDBusMessage::ReplyMessage)
            return Role::HandedOver;
        // The owner ended between the two steps (or is ending): try to take its place.
        QThread::msleep(100);
    }
    return Role::Alone;
}

void SingleInstance::release()
{
    if (!m_registered)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    bus.unregisterService(kServiceName);
    bus.unregisterObject(kObjectPath);
    m_registered = false;
}

void SingleInstance::openFiles(const QStringList &files)
{
    QTimer::singleShot(0, this, [this, files] { Q_EMIT filesHandedOver(files); });
}

} // namespace tess
