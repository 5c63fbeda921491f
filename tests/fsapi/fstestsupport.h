#pragma once

// What the file-system tests compare: a call's outcome, its diagnostic lines, and the
// operations with chosen calls made to fail.

#include "fsapi/FSExceptions.h"

#include "BvTestSupport.h"
#include "FileTree.h"

#include <QHash>
#include <QRegularExpression>

#include <stdexcept>

namespace FsTest {
using namespace FileTree;

// "true"/"false" when call returned; "<type>: <message>[ / <sub-exception>]" of the library
// exception it threw, or what else it threw.
template<typename Call> QString outcome(Call call)
{
    try {
        return call() ? QStringLiteral("true") : QStringLiteral("false");
    } catch (CException *e) {
        QString text = QString::fromLatin1(e->getTypeName()) + QLatin1String(": ")
            + QString::fromUtf8(e->getMessage().c_str());
        if (e->getSubException())
            text += QLatin1String(" / ") + QLatin1String(e->getSubException());
        delete e;
        return text;
    } catch (int value) {
        return QStringLiteral("int %1").arg(value);
    } catch (const std::exception &e) {
        return QStringLiteral("std: ") + QString::fromLocal8Bit(e.what());
    } catch (...) {
        return QStringLiteral("unknown");
    }
}

// Diagnostic lines of the main thread from a source file matching `source` as
// "function|text"; any other line comes back whole.
inline QStringList logged(const QStringList &messages, const char *source)
{
    const QRegularExpression prefix(
        QStringLiteral("^\\[ -1 : MainThread \\] \\[ %1 : \\d+ : ([^ ]+) \\] ")
            .arg(QLatin1String(source)));
    return QStringList(messages).replaceInStrings(prefix, QStringLiteral("\\1|"));
}

// The POSIX operations, except that chosen calls fail: "moveFile#2" makes the second
// moveFile answer false, "moveFile#2!" throw a FileSystemException "injected", "!int",
// "!std" and "!other" throw an int, a std::exception and a QString. Calls are counted per
// operation, including those the operations make of one another.
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
    bool setTimeStamps(S p, D c, D m, D a, bool f) override { return pass("setTimeStamps") && CMacFSOperations::setTimeStamps(p, c, m, a, f); }
    // clang-format on

private:
    bool pass(const char *operation)
    {
        const QString call = QStringLiteral("%1#%2").arg(operation).arg(++m_Calls[operation]);
        if (m_Faults.contains(call + "!"))
            throw new Exceptions::FileSystemException(
                operation, "faulty", 1, "injected", CCallStack(), nullptr, -1, -1, nullptr);
        if (m_Faults.contains(call + "!int"))
            throw 7;
        if (m_Faults.contains(call + "!std"))
            throw std::runtime_error("injected");
        if (m_Faults.contains(call + "!other"))
            throw QStringLiteral("injected");
        return !m_Faults.contains(call);
    }
    const QStringList m_Faults;
    QHash<QString, int> m_Calls;
};

} // namespace FsTest
