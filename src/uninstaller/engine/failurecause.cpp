#include "failurecause.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <cerrno>
#include <cstring>
#include <locale.h>
#include <string.h>

const char FailureCause::C_NOT_COPYABLE[]
    = QT_TRANSLATE_NOOP("CMainWindow", "not a folder, file or link");
const char FailureCause::C_COPY_DIFFERS[]
    = QT_TRANSLATE_NOOP("CMainWindow", "the copy differs from the original");

namespace {

// The system's texts for the reasons a user meets most, so that the window can show
// them translated; they read as the C library's own on both systems.
const char *const C_SYSTEM_REASONS[] = {
    QT_TRANSLATE_NOOP("CMainWindow", "Permission denied"),
    QT_TRANSLATE_NOOP("CMainWindow", "Operation not permitted"),
    QT_TRANSLATE_NOOP("CMainWindow", "No space left on device"),
    QT_TRANSLATE_NOOP("CMainWindow", "Read-only file system"),
    QT_TRANSLATE_NOOP("CMainWindow", "Directory not empty"),
    QT_TRANSLATE_NOOP("CMainWindow", "No such file or directory"),
    QT_TRANSLATE_NOOP("CMainWindow", "Not a directory"),
    QT_TRANSLATE_NOOP("CMainWindow", "Too many levels of symbolic links"),
    QT_TRANSLATE_NOOP("CMainWindow", "Input/output error"),
};

// strerror() follows the program's locale; the report and the log stay English.
QString englishSystemText(int error)
{
    static const locale_t c = ::newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    return QString::fromLocal8Bit(c ? ::strerror_l(error, c) : std::strerror(error));
}

} // namespace

QString FailureCause::reason() const
{
    if (ownReason)
        return QString::fromLatin1(ownReason);
    return error ? englishSystemText(error) : QString();
}

QString FailureCause::translatedReason() const
{
    const QString english = reason();
    if (ownReason)
        return QCoreApplication::translate("CMainWindow", ownReason);
    for (const char *known : C_SYSTEM_REASONS) {
        if (english == QLatin1String(known))
            return QCoreApplication::translate("CMainWindow", known);
    }
    return english;
}

QString FailureCause::text() const
{
    return entry.isEmpty() ? reason() : entry + QStringLiteral(": ") + reason();
}

QString FailureCause::translatedText() const
{
    return entry.isEmpty() ? translatedReason() : entry + QStringLiteral(": ") + translatedReason();
}

FailureCause FailureCause::system(const QString &entry, int error)
{
    FailureCause cause;
    cause.entry = entry;
    cause.error = error;
    return cause;
}

FailureCause FailureCause::fromExceptionText(const QString &text, const QString &path)
{
    // "deleteFile failed. Errno: 13 'Permission denied' '/the/entry'", or a walk's
    // "... failed. Errno: 13" that names no entry.
    static const QRegularExpression withEntry(QStringLiteral("Errno: (\\d+) '[^']*' '(.*)'$"));
    static const QRegularExpression number(QStringLiteral("Errno: (\\d+)"));
    QRegularExpressionMatch match = withEntry.match(text);
    if (match.hasMatch())
        return system(match.captured(2), match.captured(1).toInt());
    match = number.match(text);
    if (match.hasMatch())
        return system(path, match.captured(1).toInt());
    if (text.endsWith(QLatin1String(" is not a directory")))
        return system(text.chopped(int(qstrlen(" is not a directory"))), ENOTDIR);
    return FailureCause();
}
