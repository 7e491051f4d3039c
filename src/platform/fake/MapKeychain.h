#pragma once
// An in-memory keychain for unit tests of the core.

#include "platform/Keychain.h"

#include <QByteArray>
#include <QMap>
#include <QPair>

namespace tess {

class MapKeychain : public Keychain {
public:
    int find(const QString &service, const QString &account, QByteArray *secret) override
    {
        ++finds;
        if (refuseAccess)
            return AuthorizationFailed;
        auto it = items.constFind({service, account});
        if (it == items.constEnd())
            return ItemNotFound;
        *secret = *it;
        return Found;
    }
    int add(const QString &service, const QString &account, const QByteArray &secret) override
    {
        if (failAdds)
            return NotAvailable;
        items.insert({service, account}, secret);
        return Found;
    }
    int remove(const QString &service, const QString &account) override
    {
        items.remove({service, account});
        return Found;
    }

    QMap<QPair<QString, QString>, QByteArray> items;
    bool refuseAccess = false;
    bool failAdds = false;
    int finds = 0;
};

} // namespace tess
