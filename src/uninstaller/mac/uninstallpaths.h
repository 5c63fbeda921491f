#pragma once

#include <QDir>
#include <QString>

// The per-user locations the uninstaller removes or backs up, all below the home folder.
namespace UninstallPaths {

inline QString dataDirectory()
{
    return QDir::homePath() + QStringLiteral("/.bv2");
}
inline QString keyFolder1()
{
    return dataDirectory() + QStringLiteral("/pss");
}
inline QString keyFolder2()
{
    return dataDirectory() + QStringLiteral("/server_access_keys");
}
inline QString configurationDirectory()
{
    return QDir::homePath() + QStringLiteral("/.config/Brisvane");
}
inline QString documentsDirectory()
{
    return QDir::homePath() + QStringLiteral("/Documents");
}

// Key folders count only as folders: a plain file of that name is no key folder.
// The second one is looked at only when the first is missing.
inline bool keyFilesExist()
{
    return QDir(keyFolder1()).exists() || QDir(keyFolder2()).exists();
}

} // namespace UninstallPaths
