#pragma once

#include <QDir>
#include <QString>

// The per-user locations the uninstaller removes or backs up, all below a home folder.
namespace UninstallPaths {

inline QString dataDirectory(const QString &home = QDir::homePath())
{
    return home + QStringLiteral("/.bv2");
}
inline QString keyFolder1(const QString &home = QDir::homePath())
{
    return dataDirectory(home) + QStringLiteral("/pss");
}
inline QString keyFolder2(const QString &home = QDir::homePath())
{
    return dataDirectory(home) + QStringLiteral("/server_access_keys");
}
inline QString configurationDirectory(const QString &home = QDir::homePath())
{
    return home + QStringLiteral("/.config/Brisvane");
}
inline QString documentsDirectory(const QString &home = QDir::homePath())
{
    return home + QStringLiteral("/Documents");
}

// Key folders count only as folders: a plain file of that name is no key folder.
// The second one is looked at only when the first is missing.
inline bool keyFilesExist(const QString &home = QDir::homePath())
{
    return QDir(keyFolder1(home)).exists() || QDir(keyFolder2(home)).exists();
}

} // namespace UninstallPaths
