#pragma once
// The Secret Service (gnome-keyring, KWallet...) through QtKeychain.

#include "platform/Keychain.h"

namespace tess {

class SecretServiceKeychain : public Keychain {
public:
    int find(const QString &service, const QString &account, QByteArray *secret) override;
    int add(const QString &service, const QString &account, const QByteArray &secret) override;
    int remove(const QString &service, const QString &account) override;

    // Whether a Secret Service is running on the session bus now. Without one every call
    // answers at once instead of starting (and waiting on) a keyring through D-Bus activation.
    static bool serviceRunning();
};

} // namespace tess
