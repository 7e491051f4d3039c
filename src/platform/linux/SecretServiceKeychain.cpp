#include "SecretServiceKeychain.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QEventLoop>

#include <qt6keychain/keychain.h>

namespace tess {

namespace {

int statusFor(QKeychain::Error error)
{
    switch (error) {
    case QKeychain::NoError:
        return Keychain::Found;
    case QKeychain::EntryNotFound:
        return Keychain::ItemNotFound;
    case QKeychain::AccessDenied:
    case QKeychain::AccessDeniedByUser:
        return Keychain::AuthorizationFailed;
    default:
        return Keychain::NotAvailable;
    }
}

// QtKeychain's jobs answer through signals: wait for this one in a local loop.
void runJob(QKeychain::Job &job)
{
    job.setAutoDelete(false);
    QEventLoop loop;
    QObject::connect(&job, &QKeychain::Job::finished, &loop, &QEventLoop::quit);
    job.start();
    loop.exec(QEventLoop::ExcludeUserInputEvents);
}

} // namespace

bool SecretServiceKeychain::serviceRunning()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface())
        return false;
    return bus.interface()->isServiceRegistered(QStringLiteral("org.freedesktop.secrets")).value();
}

int SecretServiceKeychain::find(const QString &service, const QString &account, QByteArray *secret)
{
    if (!serviceRunning())
        return ItemNotFound;
    QKeychain::ReadPasswordJob job(service);
    job.setKey(account);
    runJob(job);
    if (job.error() == QKeychain::NoError)
        *secret = job.textData().toUtf8();
    return statusFor(job.error());
}

int SecretServiceKeychain::add(const QString &service, const QString &account, const QByteArray &secret)
{
    if (!serviceRunning())
        return NotAvailable;
    QKeychain::WritePasswordJob job(service);
    job.setKey(account);
    job.setTextData(QString::fromUtf8(secret));
    runJob(job);
    return statusFor(job.error());
}

int SecretServiceKeychain::remove(const QString &service, const QString &account)
{
    if (!serviceRunning())
        return ItemNotFound;
    QKeychain::DeletePasswordJob job(service);
    job.setKey(account);
    runJob(job);
    return statusFor(job.error());
}

} // namespace tess
