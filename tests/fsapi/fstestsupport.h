#pragma once

// Helpers for the tests of the safe operations and the safe exchange.

#include "fsapi/FSExceptions.h"
#include "fsapi/mac/CMacFSOperations.h"

#include "BvTestSupport.h"

#include <QDirIterator>
#include <QHash>
#include <QRegularExpression>

#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>

namespace FsTest {

// The POSIX operations, except that chosen calls of the plain operations fail: "moveFile#2"
// makes the second moveFile answer false, "moveFile#2!" makes it throw a
// FileSystemException with the message "injected". Calls are counted per operation,
// including those the operations make of one another.
class Faulty : public CMacFSOperations
{
public:
    explicit Faulty(const QStringList &faults)
        : m_Faults(faults)
    { }

    using S = const QString &;
    using D = const QDateTime &;
    // clang-format off
    bool moveFile(S s, S d, bool f, bool o) override { return pass("moveFile") && CMacFSOperations::moveFile(s, d, f, o); }
    bool moveDirectory(S s, S d, bool f) override { return pass("moveDirectory") && CMacFSOperations::moveDirectory(s, d, f); }
    bool deleteFile(S p, bool f) override { return pass("deleteFile") && CMacFSOperations::deleteFile(p, f); }
    bool deleteDirectory(S p, bool f) override { return pass("deleteDirectory") && CMacFSOperations::deleteDirectory(p, f); }
    bool copyFile(S s, S d, bool f, bool u, bool o) override { return pass("copyFile") && CMacFSOperations::copyFile(s, d, f, u, o); }
    bool createDirectory(S p, D c, D m, D a, const EFileSystemAttribute &at, bool f) override { return pass("createDirectory") && CMacFSOperations::createDirectory(p, c, m, a, at, f); }
    bool setTimeStamps(S p, D c, D m, D a, bool f) override { return pass("setTimeStamps") && CMacFSOperations::setTimeStamps(p, c, m, a, f); }
    // clang-format on

private:
    bool pass(const char *operation)
    {
        const QString call = QLatin1String(operation) + QLatin1Char('#')
            + QString::number(++m_Calls[QLatin1String(operation)]);
        if (m_Faults.contains(call + QLatin1Char('!')))
            throw new Exceptions::FileSystemException(
                operation, "faulty", 1, "injected", CCallStack(), nullptr, -1, -1, nullptr);
        return !m_Faults.contains(call);
    }

    QStringList m_Faults;
    QHash<QString, int> m_Calls;
};

// Everything below root, one line per entry, sorted: the relative path, then the type and
// what matters of it (a file's content, mode and modification time, a link's target, a
// folder's mode). A folder's own times are left out: renaming entries in it changes them.
inline QStringList snapshot(const QString &root)
{
    QStringList lines;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
        QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QByteArray bytes = CMacFSOperations::encodePath(path);
        struct stat st;
        QString line = path.mid(root.size() + (root.endsWith(QLatin1Char('/')) ? 0 : 1));
        if (::lstat(bytes.constData(), &st) != 0) {
            line += QLatin1String(" vanished");
        } else if (S_ISLNK(st.st_mode)) {
            line += QLatin1String(" -> ") + QFile::symLinkTarget(path);
        } else if (S_ISDIR(st.st_mode)) {
            line += QStringLiteral(" dir %1").arg(st.st_mode & 07777, 0, 8);
        } else {
            QFile file(path);
            file.open(QIODevice::ReadOnly);
            line += QStringLiteral(" file %1 %2 \"%3\"")
                        .arg(st.st_mode & 07777, 0, 8)
                        .arg(qint64(st.st_mtime))
                        .arg(QString::fromUtf8(file.readAll()));
        }
        lines << line;
    }
    lines.sort();
    return lines;
}

inline bool writeFile(const QString &path, const QByteArray &content, qint64 mtime = 1000000)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        return false;
    file.close();
    const QByteArray bytes = CMacFSOperations::encodePath(path);
    const utimbuf times {time_t(mtime), time_t(mtime)};
    return ::chmod(bytes.constData(), 0644) == 0 && ::utime(bytes.constData(), &times) == 0;
}

// "true"/"false" when call returned, "<type>: <message>" of the library exception it threw.
template<typename Call> QString outcome(Call call)
{
    try {
        return call() ? QStringLiteral("true") : QStringLiteral("false");
    } catch (CException *e) {
        const QString text = QString::fromLatin1(e->getTypeName()) + QLatin1String(": ")
            + QString::fromUtf8(e->getMessage().c_str());
        delete e;
        return text;
    }
}

// Checks the captured lines one by one: each "function|text" must be a whole diagnostic
// line of that function in that source file, prefix included.
inline void compareLines(
    const BvTest::MessageCapture &capture, const char *sourceFile, const QStringList &expected)
{
    const QStringList got = capture.messages();
    QVERIFY2(got.size() == expected.size(), qPrintable(got.join(QLatin1Char('\n'))));
    for (int i = 0; i < got.size(); ++i) {
        const qsizetype bar = expected.at(i).indexOf(QLatin1Char('|'));
        const QRegularExpression line(QLatin1String("^")
            + QRegularExpression::escape(QLatin1String("[ -1 : MainThread ] [ ")
                + QLatin1String(sourceFile) + QLatin1String(" : "))
            + QLatin1String("\\d+")
            + QRegularExpression::escape(QLatin1String(" : ") + expected.at(i).left(bar)
                + QLatin1String(" ] ") + expected.at(i).mid(bar + 1))
            + QLatin1String("$"));
        QVERIFY2(line.match(got.at(i)).hasMatch(),
            qPrintable(got.at(i) + QLatin1String("\n  does not match\n") + line.pattern()));
    }
}

} // namespace FsTest
