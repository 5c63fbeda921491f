#include "fsapi/CFSLock.h"
#include "fsapi/mac/CMacFSLock.h"

#include <QtTest>

#include <csignal>

class tst_CFSLock : public QObject
{
    Q_OBJECT

private slots:
    void freePathPassesEveryLock();
    void heldPathFailsEveryLock_data();
    void heldPathFailsEveryLock();
    void withoutImplementation();
};

namespace {
struct Outcome
{
    bool exclusive, write, readWrite, del;
};

Outcome lockAll(const QString &path)
{
    CFSLock lock(path);
    const Outcome outcome {
        lock.lockExclusive(), lock.lockWrite(), lock.lockReadWrite(), lock.lockDelete()};
    // Nothing is ever taken, whatever the outcome.
    if (lock.isLocked() || !lock.releaseLock() || lock.isLocked())
        return {true, false, true, false};
    return outcome;
}

class NullLock : public CFSLock
{
public:
    NullLock()
        : CFSLock("/x", nullptr)
    { }
};
} // namespace

void tst_CFSLock::freePathPassesEveryLock()
{
    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString file = dir.filePath("free.txt");
    QFile f(file);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.close();

    const Outcome outcome = lockAll(file);
    QVERIFY(outcome.exclusive && outcome.write && outcome.readWrite && outcome.del);
    QVERIFY(CMacFSLock().getPidsByPath(file).isEmpty());
    QVERIFY(CMacFSLock().getPidsByPath(dir.filePath("missing")).isEmpty());
}

void tst_CFSLock::heldPathFailsEveryLock_data()
{
    QTest::addColumn<bool>("asWorkingDirectory");
    QTest::newRow("open file") << false;
    QTest::newRow("working directory") << true;
}

void tst_CFSLock::heldPathFailsEveryLock()
{
    QFETCH(bool, asWorkingDirectory);

    QTemporaryDir dir;
    QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
    const QString held = asWorkingDirectory ? dir.filePath("cwd") : dir.filePath("held.txt");
    if (asWorkingDirectory) {
        QVERIFY(QDir(dir.path()).mkdir("cwd"));
    } else {
        QFile f(held);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }

    QProcess holder;
    if (asWorkingDirectory) {
        holder.setWorkingDirectory(held);
        holder.start("/bin/sh", {"-c", "exec sleep 30"});
    } else {
        holder.start("/bin/sh", {"-c", "exec 3<\"$1\"; exec sleep 30", "sh", held});
    }
    QVERIFY(holder.waitForStarted());

    QList<unsigned int> pids;
    QTRY_VERIFY_WITH_TIMEOUT(
        (pids = CMacFSLock().getPidsByPath(held)).contains(unsigned(holder.processId())), 10000);
    const Outcome outcome = lockAll(held);
    QVERIFY(!outcome.exclusive);
    QVERIFY(!outcome.write);
    QVERIFY(!outcome.readWrite);
    QVERIFY(!outcome.del);

    holder.kill();
    QVERIFY(holder.waitForFinished());
    const Outcome after = lockAll(held);
    QVERIFY(after.exclusive && after.write && after.readWrite && after.del);
}

void tst_CFSLock::withoutImplementation()
{
    NullLock lock;
    QVERIFY(lock.isNull());
    QVERIFY(!lock.lockExclusive());
    QVERIFY(!lock.lockWrite());
    QVERIFY(!lock.lockReadWrite());
    QVERIFY(!lock.lockDelete());
    QVERIFY(lock.releaseLock());
    QVERIFY(!lock.isLocked());
    QCOMPARE(lock.getPath(), QString("/x"));
    QVERIFY(!CFSLock("/y").isNull());
}

QTEST_GUILESS_MAIN(tst_CFSLock)
#include "tst_cfslock.moc"
