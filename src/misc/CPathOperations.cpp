#include "CPathOperations.h"

#include "threading/assertions/assertion.h"

#include <QDir>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/misc/CPathOperations"

namespace {
const int kMaxNameBytes = 255;

QChar separator(bool native)
{
    return native ? QDir::separator() : QLatin1Char('/');
}

int localByteLength(const QString &text)
{
    return int(text.toLocal8Bit().size());
}
} // namespace

int CPathOperations::comparePathNameLength(QString a, QString b)
{
    const int lengthA = localByteLength(a);
    const int lengthB = localByteLength(b);
    return lengthA < lengthB ? -1 : (lengthA > lengthB ? 1 : 0);
}

void CPathOperations::splitName(const QString &fileName, QString &base, QString &extension)
{
    const int dot = fileName.indexOf(QLatin1Char('.'), 1);
    if (dot >= 2) {
        base = fileName.left(dot);
        extension = fileName.mid(dot);
    } else {
        base = fileName;
        extension.clear();
    }
}

QString CPathOperations::mkNameClashFileName(
    const QString &fileName, const QDateTime &when, const QString &tag)
{
    QString base;
    QString extension;
    splitName(fileName, base, extension);
    const QString stamp = when.toUTC().toString(QStringLiteral("yyMMddhhmmss"));
    return QStringLiteral("%1(%2-%3)%4").arg(base, tag, stamp, extension);
}

QString CPathOperations::mkSynchronizerNameClashFileName(
    const QString &fileName, const QDateTime &when, const QString &tag)
{
    return mkNameClashFileName(fileName, when, tag);
}

QString CPathOperations::mkArchiverNameClashFileName(
    const QString &fileName, const QDateTime &when, const QString &tag)
{
    return mkNameClashFileName(fileName, when, tag);
}

void CPathOperations::forceLeadingAndTrailingPathSeperators(QString &path, bool native)
{
    const QChar sep = separator(native);
    if (path.isEmpty()) {
        path = sep;
        return;
    }
    if (!path.startsWith(sep))
        path.prepend(sep);
    if (!path.endsWith(sep))
        path.append(sep);
}

void CPathOperations::forceNoLeadingAndTrailingPathSeperators(QString &path, bool native)
{
    const QChar sep = separator(native);
    while (path.startsWith(sep))
        path.remove(0, 1);
    while (path.endsWith(sep))
        path.chop(1);
}

QString CPathOperations::toNativeSeparators(const QString &path, bool force)
{
    QString result = path;
    result.replace(QLatin1Char('/'), QDir::separator());
    if (force)
        forceLeadingAndTrailingPathSeperators(result, true);
    return result;
}

QString CPathOperations::fromNativeSeparators(const QString &path, bool force)
{
    QString result = path;
    result.replace(QDir::separator(), QLatin1Char('/'));
    if (force)
        forceLeadingAndTrailingPathSeperators(result, false);
    return result;
}

QString CPathOperations::concatPath(
    const QString &base, const QString &name, const QString &extension, bool native, bool force)
{
    if (base.isEmpty() && name == QLatin1String("/"))
        return QStringLiteral("/");

    QString result = base;
    if (!name.isEmpty()) {
        QString stripped = name;
        forceNoLeadingAndTrailingPathSeperators(stripped, native);
        // Only "/" is dropped here, whatever the separator: callers hand in
        // slash-terminated folders even when asking for native output.
        if (result.endsWith(QLatin1Char('/')))
            result.chop(1);
        result += separator(native) + stripped;
    }
    if (!extension.isEmpty()) {
        QString stripped = extension;
        forceNoLeadingAndTrailingPathSeperators(stripped, native);
        result += QLatin1Char('.') + stripped;
    }
    if (force)
        forceLeadingAndTrailingPathSeperators(result, native);
    return result;
}

QString CPathOperations::makeAbsolutePath(const QString &base, const QString &relative, bool native)
{
    QString result = fromNativeSeparators(base, false);
    forceLeadingAndTrailingPathSeperators(result, false);
    QString tail = relative;
    forceNoLeadingAndTrailingPathSeperators(tail, native);
    result += tail;
    forceLeadingAndTrailingPathSeperators(result, native);
    return result;
}

QString CPathOperations::makeSpaceRelativePath(
    const QString &spacePath, const QString &path, bool native, bool withSeparators)
{
    if (spacePath.isEmpty()) {
        BV_CRITICAL() << "spacePath is empty !!!";
        return native ? toNativeSeparators(path, false) : path;
    }
    if (path.isEmpty())
        return QString(separator(native));

    QString space = fromNativeSeparators(spacePath, false);
    if (!space.endsWith(QLatin1Char('/')))
        space += QLatin1Char('/');
    QString result = fromNativeSeparators(path, false);
    if (result.startsWith(space))
        result = result.mid(space.length());

    if (withSeparators)
        forceLeadingAndTrailingPathSeperators(result, false);
    else
        forceNoLeadingAndTrailingPathSeperators(result, false);
    return native ? toNativeSeparators(result, false) : result;
}

QStringList CPathOperations::splitPathComponents(const QString &path, bool native)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "path is empty !!!";
        return {};
    }
    const QString normalised
        = native ? toNativeSeparators(path, false) : fromNativeSeparators(path, false);
    return normalised.split(separator(native), Qt::SkipEmptyParts);
}

bool CPathOperations::generateScatteredPathHierarchy(const QString &path, QStringList &hierarchy,
    QStringList &components, bool native, bool withSeparators)
{
    const QChar sep = separator(native);
    components = QStringList {QString(sep)} + splitPathComponents(path, native);
    hierarchy.clear();
    hierarchy.reserve(components.size());
    hierarchy << QString();
    for (int i = 1; i < components.size(); ++i) {
        QString parent = components.mid(1, i - 1).join(sep);
        if (withSeparators)
            forceLeadingAndTrailingPathSeperators(parent, native);
        hierarchy << parent;
    }
    return hierarchy.size() == components.size();
}

QString CPathOperations::parentPath(const QString &path, bool native, bool withSeparators)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "path is empty !!!";
        return {};
    }
    QStringList hierarchy;
    QStringList components;
    if (!generateScatteredPathHierarchy(path, hierarchy, components, native, withSeparators)) {
        BV_CRITICAL() << "error generating scattered path hierarchy ..." << path;
        return {};
    }
    return hierarchy.isEmpty() || components.isEmpty() ? QString() : hierarchy.last();
}

bool CPathOperations::splitPath(
    const QString &path, QString &parent, QString &name, bool native, bool withSeparators)
{
    if (path.isEmpty()) {
        BV_CRITICAL() << "path is empty !!!";
        return false;
    }
    QStringList hierarchy;
    QStringList components;
    if (!generateScatteredPathHierarchy(path, hierarchy, components, native, withSeparators)
        || components.isEmpty()) {
        BV_CRITICAL() << "error generating scattered path hierarchy ..." << path;
        return false;
    }
    parent = hierarchy.last();
    name = components.last();
    return true;
}

bool CPathOperations::splitPath(const QString &path, QString &parent, QString &name,
    QString &extension, bool native, bool withSeparators)
{
    if (!splitPath(path, parent, name, native, withSeparators))
        return false;
    const QString whole = name;
    splitName(whole, name, extension);
    return true;
}

bool CPathOperations::isPathTooLong(const QString &, const QString &path, const QString &name, bool)
{
    const int nameLength = localByteLength(name);
    if (nameLength > kMaxNameBytes) {
        BV_WARNING() << "path too long" << path << name << nameLength;
        return true;
    }
    QStringList hierarchy;
    QStringList components;
    if (!generateScatteredPathHierarchy(path, hierarchy, components, false, false)
        || components.isEmpty())
        return false;
    for (const QString &component : qAsConst(components)) {
        const int length = localByteLength(component);
        if (length > kMaxNameBytes) {
            BV_WARNING() << "path too long" << path << component << length;
            return true;
        }
    }
    return false;
}
