#pragma once
// A store of generic secrets keyed by (service, account), with the status codes the
// password-file code distinguishes.

#include <QString>

namespace tess {

class Keychain {
public:
    enum Status : int {
        Found = 0,
        AuthorizationFailed = -25293, // the user refused access
        NotAvailable = -25291,        // no usable store
        ItemNotFound = -25300,
    };

    virtual ~Keychain() = default;
    virtual int find(const QString &service, const QString &account, QByteArray *secret) = 0;
    virtual int add(const QString &service, const QString &account, const QByteArray &secret) = 0;
    virtual int remove(const QString &service, const QString &account) = 0;
};

} // namespace tess
