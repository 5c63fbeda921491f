#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

// String operations on paths; nothing here touches the file system.
//
// Most functions take `native`: true selects the platform's separator
// (QDir::separator()), false selects "/".
class CPathOperations
{
public:
    CPathOperations() = delete;

    // Three-way comparison of the byte lengths in the local 8-bit encoding.
    static int comparePathNameLength(QString a, QString b);

    // "base(tag-yyMMddhhmmss).ext", the time in UTC; see splitName() for the extension rule.
    static QString mkSynchronizerNameClashFileName(
        const QString &fileName, const QDateTime &when, const QString &tag);
    static QString mkArchiverNameClashFileName(
        const QString &fileName, const QDateTime &when, const QString &tag);

    static void forceLeadingAndTrailingPathSeperators(QString &path, bool native);
    static void forceNoLeadingAndTrailingPathSeperators(QString &path, bool native);

    static QString toNativeSeparators(const QString &path, bool force);
    static QString fromNativeSeparators(const QString &path, bool force);

    // Joins base and name with one separator and appends ".extension" when given.
    static QString concatPath(const QString &base, const QString &name, const QString &extension,
        bool native, bool force);
    // Always a directory-style path: leading and trailing separator.
    static QString makeAbsolutePath(const QString &base, const QString &relative, bool native);
    static QString makeSpaceRelativePath(
        const QString &spacePath, const QString &path, bool native, bool withSeparators);

    static QStringList splitPathComponents(const QString &path, bool native);
    // components: the root separator, then every component of path. hierarchy: for each
    // component the path of the folder holding it ("" for the root).
    static bool generateScatteredPathHierarchy(const QString &path, QStringList &hierarchy,
        QStringList &components, bool native, bool withSeparators);
    static bool splitPath(
        const QString &path, QString &parent, QString &name, bool native, bool withSeparators);
    static bool splitPath(const QString &path, QString &parent, QString &name, QString &extension,
        bool native, bool withSeparators);
    static QString parentPath(const QString &path, bool native, bool withSeparators);

    // Whether name or one component of path exceeds the 255-byte limit of a file name.
    // The first argument takes no part in the decision.
    static bool isPathTooLong(const QString &, const QString &path, const QString &name, bool);

private:
    // Splits at the first "." at or after index 1, and only when it lies at index 2 or
    // later: "archive.tar.gz" -> "archive" + ".tar.gz"; "a.txt" and ".profile" stay whole.
    static void splitName(const QString &fileName, QString &base, QString &extension);
    static QString mkNameClashFileName(
        const QString &fileName, const QDateTime &when, const QString &tag);
};
