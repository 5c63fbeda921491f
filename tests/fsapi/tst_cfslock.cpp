#include "fsapi/CFSLock.h"
#include "fsapi/mac/CMacFSLock.h"

#include <QtTest>

namespace {
// One digit per kind of lock (exclusive, write, read-write, delete): 1 when granted.
// A lock only asks whether the path is in use; nothing is ever taken.
QString lockAll(CFSLock &lock)
{
    const QString outcome = QStringLiteral("%1%2%3%4")
                                .arg(int(lock.lockExclusive()))
                                .arg(int(lock.lockWrite()))
                                .arg(int(lock.lockReadWrite()))
                                .arg(int(lock.lockDelete()));
    return lock.isLocked() || !lock.releaseLock() ? QStringLiteral("taken") : outcome;
}

class NullLock : public CFSLock
{
public:
    NullLock()
        : CFSLock("/x", nullptr)
    { }
};
} // namespace

class tst_CFSLock : public QObject
{
    Q_OBJECT

private slots:
    void heldPathFailsEveryLock_data()
    {
        QTest::addColumn<bool>("asWorkingDirectory");
        QTest::newRow("open file") << false;
        QTest::newRow("working directory") << true;
    }

    void heldPathFailsEveryLock()
    {
        QFETCH(bool, asWorkingDirectory);
        QTemporaryDir dir;
        const QString held = dir.filePath("held");
        QVERIFY(asWorkingDirectory ? QDir().mkdir(held) : QFile(held).open(QIODevice::WriteOnly));
        QProcess holder;
        if (asWorkingDirectory)
            holder.setWorkingDirectory(held);
        holder.start("/bin/sh",
            {"-c", asWorkingDirectory ? "exec sleep 30" : "exec 3<\"$1\"; exec sleep 30", "sh",
                held});
        QVERIFY(holder.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(
            CMacFSLock().getPidsByPath(held).contains(unsigned(holder.processId())), 10000);
        CFSLock lock(held);
        QCOMPARE(lockAll(lock), QStringLiteral("0000"));

        holder.kill();
        QVERIFY(holder.waitForFinished());
        QCOMPARE(lockAll(lock), QStringLiteral("1111")); // free once nobody holds it
    }

    void withoutImplementation()
    {
        NullLock lock;
        QVERIFY(lock.isNull());
        QCOMPARE(lockAll(lock), QStringLiteral("0000"));
    }
};

QTEST_GUILESS_MAIN(tst_CFSLock)
#include "tst_cfslock.moc"
