#pragma once

// Small helpers shared by the unit tests.

#include <QCoreApplication>
#include <QMutex>
#include <QMutexLocker>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QtTest>

#include <cstdlib>

namespace BvTest {

// Collects every message that reaches Qt's message output while it lives, from any
// thread, instead of letting it scroll by. Use it where QTest::ignoreMessage cannot
// reach (other threads, prefixes that change from run to run).
class MessageCapture
{
public:
    MessageCapture()
    {
        QMutexLocker lock(&s_ActiveMutex);
        s_Active = this;
        m_Previous = qInstallMessageHandler(&MessageCapture::handler);
    }
    ~MessageCapture()
    {
        // Under the lock: a thread may be inside handler() while we go away.
        QMutexLocker lock(&s_ActiveMutex);
        qInstallMessageHandler(m_Previous);
        s_Active = nullptr;
    }
    QStringList messages() const
    {
        QMutexLocker lock(&m_Mutex);
        return m_Messages;
    }
    QList<QtMsgType> types() const
    {
        QMutexLocker lock(&m_Mutex);
        return m_Types;
    }
    bool contains(const QString &fragment) const
    {
        for (const QString &m : messages())
            if (m.contains(fragment))
                return true;
        return false;
    }

private:
    static void handler(QtMsgType type, const QMessageLogContext &, const QString &msg)
    {
        QMutexLocker activeLock(&s_ActiveMutex);
        if (MessageCapture *self = s_Active) {
            QMutexLocker lock(&self->m_Mutex);
            self->m_Messages << msg;
            self->m_Types << type;
        }
    }

    inline static QMutex s_ActiveMutex;
    inline static MessageCapture *s_Active = nullptr;
    QtMessageHandler m_Previous = nullptr;
    mutable QMutex m_Mutex;
    QStringList m_Messages;
    QList<QtMsgType> m_Types;
};

// Runs this test executable again as a child that performs `mode` (see BV_TEST_MAIN)
// and reports how it ended. Used for code paths that end the process.
struct ChildResult
{
    QProcess::ExitStatus status = QProcess::NormalExit;
    int exitCode = 0;
    QByteArray standardOutput;
    QByteArray standardError;
};

inline ChildResult runChild(const QString &mode, int timeoutMs = 30000)
{
    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("BV_TEST_CHILD"), mode);
    // The child aborts on purpose; keep the sanitizers from turning that into noise.
    env.insert(QStringLiteral("ASAN_OPTIONS"), QStringLiteral("handle_abort=0:detect_leaks=0"));
    child.setProcessEnvironment(env);
    child.start(QCoreApplication::applicationFilePath(), {});
    ChildResult result;
    if (!child.waitForFinished(timeoutMs)) {
        child.kill();
        child.waitForFinished();
    }
    result.status = child.exitStatus();
    result.exitCode = child.exitCode();
    result.standardOutput = child.readAllStandardOutput();
    result.standardError = child.readAllStandardError();
    return result;
}

inline const char *childMode()
{
    return std::getenv("BV_TEST_CHILD");
}

// Runs `script` with bash -e in `folder` ("$1", "$2"... are `arguments`). Answers nothing
// when it succeeds and its trace when it fails, so that a failed check names its command.
inline QByteArray shell(const QString &folder, const QString &script,
    const QStringList &arguments = {}, int timeoutMs = 60000)
{
    QProcess bash;
    bash.setWorkingDirectory(folder);
    bash.start(QStringLiteral("/bin/bash"), QStringList {"-exc", script, "bash"} + arguments);
    if (bash.waitForFinished(timeoutMs) && bash.exitStatus() == QProcess::NormalExit
        && bash.exitCode() == 0)
        return QByteArray();
    bash.kill();
    bash.waitForFinished();
    return "failed:\n" + bash.readAllStandardError().right(4000);
}

} // namespace BvTest

// Like QTEST_MAIN, but a child started by BvTest::runChild() runs
// `int childMain(const QByteArray &mode)` instead of the tests.
#define BV_TEST_MAIN_WITH_CHILD(TestObject, AppClass)                                              \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        AppClass app(argc, argv);                                                                  \
        if (const char *mode = BvTest::childMode())                                                \
            return childMain(QByteArray(mode));                                                    \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
