#pragma once
// The entry record: a dictionary from string keys to strings, integers and booleans.
// An absent key reads as "", 0 or false.

#include <QString>
#include <QVariant>
#include <QVariantMap>

namespace tess {

using Entry = QVariantMap;
using EntryList = QVariantList;

namespace EntryKey {
inline const QString Path = QStringLiteral("Path");
inline const QString Button = QStringLiteral("Button");
inline const QString Notes = QStringLiteral("Notes");
inline const QString URL = QStringLiteral("websiteURL");
inline const QString UserID = QStringLiteral("websiteUserID");
inline const QString UserID2 = QStringLiteral("websiteUserID2");
inline const QString Password = QStringLiteral("websitePassword");
inline const QString NewUserIDOptions = QStringLiteral("websiteNewUserIDOptions");
inline const QString UserIDTabSwitch = QStringLiteral("websiteUserIDTabSwitch");
inline const QString UserIDTabCount = QStringLiteral("websiteUserIDTabCount");
inline const QString UserIDReturnSwitch = QStringLiteral("websiteUserIDReturnSwitch");
inline const QString PasswordOptions = QStringLiteral("websitePasswordOptions");
inline const QString PasswordTabSwitch = QStringLiteral("websitePasswordTabSwitch");
inline const QString PasswordTabCount = QStringLiteral("websitePasswordTabCount");
inline const QString PasswordEnter = QStringLiteral("websitePasswordEnter");
inline const QString PasswordReturnSwitch = QStringLiteral("websitePasswordReturnSwitch");
inline const QString UseDVBrowser = QStringLiteral("websiteUseDVBrowser");
inline const QString Browser = QStringLiteral("websiteBrowser");
inline const QString BrowserBundleID = QStringLiteral("websiteBrowserBundleID");
inline const QString IncludeSpecials = QStringLiteral("websiteIncludeSpecials");
inline const QString PasswordLength = QStringLiteral("websitePasswordLength");
inline const QString UserIDOptions = QStringLiteral("websiteUserIDOptions");
} // namespace EntryKey

inline QString entryString(const Entry &e, const QString &key)
{
    return e.value(key).toString();
}
inline QString entryName(const QVariant &e)
{
    return e.toMap().value(EntryKey::Path).toString();
}

} // namespace tess
