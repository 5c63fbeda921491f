// The macOS lock backend, compiled against the scripted proc_listpidspath stand-in.

#include "fsapi/CFSLock.h"
#include "fsapi/mac/CMacFSLock.h"

#include "libproc_standin.h"

#include <QtTest>

class tst_CMacFSLockLibproc : public QObject
{
    Q_OBJECT

private slots:
    void getPidsByPath_data();
    void getPidsByPath();
    void failuresAreLoggedAndCountAsFree_data();
    void failuresAreLoggedAndCountAsFree();
};

using LibprocStandin::Answer;

void tst_CMacFSLockLibproc::getPidsByPath_data()
{
    QTest::addColumn<int>("sizeAnswer");
    QTest::addColumn<int>("listAnswer");
    QTest::addColumn<int>("expectedCount");

    QTest::newRow("nobody") << 0 << 0 << 0;
    QTest::newRow("two processes") << 8 << 8 << 2;
    // The size answer wins while it is the smaller one...
    QTest::newRow("list grew") << 8 << 16 << 2;
    // ...and the list answer when the size answer was larger.
    QTest::newRow("list shrank") << 40 << 8 << 2;
    QTest::newRow("odd byte count") << 7 << 7 << 1;
}

void tst_CMacFSLockLibproc::getPidsByPath()
{
    QFETCH(int, sizeAnswer);
    QFETCH(int, listAnswer);
    QFETCH(int, expectedCount);

    LibprocStandin::script({{sizeAnswer, 0}, {listAnswer, 0}});
    CMacFSLock lock;
    const QString path = QString::fromUtf8("/Users/ü/Brisvane.app");
    const QList<unsigned int> pids = lock.getPidsByPath(path);
    QCOMPARE(pids, QList<unsigned int>(expectedCount, 0u));

    const QList<LibprocStandin::Call> calls = LibprocStandin::calls();
    QCOMPARE(calls.size(), 2);
    for (const LibprocStandin::Call &call : calls) {
        QCOMPARE(call.type, 1u);
        QCOMPARE(call.typeinfo, 0u);
        QCOMPARE(call.path, path.toUtf8());
        QCOMPARE(call.pathflags, 2u);
    }
    QVERIFY(!calls[0].hasBuffer);
    QCOMPARE(calls[0].buffersize, 0);
    QVERIFY(calls[1].hasBuffer);
    // Elements where bytes are expected: kept on purpose.
    QCOMPARE(calls[1].buffersize, sizeAnswer / 4);

    // Every kind of lock ends in the same test, also through the facade.
    LibprocStandin::script({{sizeAnswer, 0}, {listAnswer, 0}});
    CFSLock facade(path);
    QCOMPARE(facade.lockDelete(), expectedCount == 0);
    QVERIFY(!facade.isLocked());
    QVERIFY(facade.releaseLock());
}

void tst_CMacFSLockLibproc::failuresAreLoggedAndCountAsFree_data()
{
    QTest::addColumn<QList<Answer>>("answers");
    QTest::addColumn<int>("expectedCalls");

    QTest::newRow("size query") << QList<Answer> {{-1, EPERM}} << 1;
    QTest::newRow("list query") << QList<Answer> {{8, 0}, {-1, EPERM}} << 2;
}

void tst_CMacFSLockLibproc::failuresAreLoggedAndCountAsFree()
{
    QFETCH(QList<Answer>, answers);
    QFETCH(int, expectedCalls);

    LibprocStandin::script(answers);
    CMacFSLock lock;
    QTest::ignoreMessage(QtCriticalMsg,
        QRegularExpression("^\\[ -1 : MainThread \\] \\[ CMacFSLock_libproc.cpp : "
                           "\\d+ : logFailure \\] proc_listpidspath 1 Operation "
                           "not permitted$"));
    QVERIFY(lock.getExclusiveLock("/x"));
    QCOMPARE(LibprocStandin::calls().size(), expectedCalls);
}

QTEST_GUILESS_MAIN(tst_CMacFSLockLibproc)
#include "tst_cmacfslock_libproc.moc"
