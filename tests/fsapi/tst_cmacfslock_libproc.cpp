// The macOS lock backend, compiled against the scripted proc_listpidspath stand-in.

#include "fsapi/mac/CMacFSLock.h"

#include <libproc.h>

#include <QtTest>

using LibprocStandin::Answer;

class tst_CMacFSLockLibproc : public QObject
{
    Q_OBJECT

private slots:
    void getPidsByPath_data()
    {
        QTest::addColumn<QList<Answer>>("answers"); // to the size query, then the list query
        QTest::addColumn<int>("count");
        QTest::addColumn<QList<int>>("buffersizes"); // passed by the calls made
        using A = QList<Answer>;
        using B = QList<int>;
        // The list query is given the element count where bytes are expected, and the
        // count comes from the size answer unless that was the smaller one: kept on purpose.
        // clang-format off
        QTest::newRow("nobody")            << A {{0, 0}, {0, 0}} << 0 << B {-1, 0};
        QTest::newRow("two processes")     << A {{8, 0}, {8, 0}} << 2 << B {-1, 2};
        QTest::newRow("list grew")         << A {{8, 0}, {16, 0}} << 2 << B {-1, 2};
        QTest::newRow("list shrank")       << A {{40, 0}, {8, 0}} << 2 << B {-1, 10};
        QTest::newRow("odd byte count")    << A {{7, 0}, {7, 0}} << 1 << B {-1, 1};
        QTest::newRow("size query fails")  << A {{-1, EPERM}} << 0 << B {-1};
        QTest::newRow("list query fails")  << A {{8, 0}, {-1, EPERM}} << 0 << B {-1, 2};
        // clang-format on
    }

    // A failed query is logged and the path counts as free.
    void getPidsByPath()
    {
        QFETCH(QList<Answer>, answers);
        QFETCH(int, count);
        QFETCH(QList<int>, buffersizes);
        LibprocStandin::script(answers);
        if (answers.last().result < 0)
            QTest::ignoreMessage(QtCriticalMsg,
                QRegularExpression(
                    "^\\[ -1 : MainThread \\] \\[ CMacFSLock_libproc.cpp : \\d+ "
                    ": getPidsByPath \\] proc_listpidspath 1 Operation not permitted$"));
        const QString path = QString::fromUtf8("/Users/ü/Brisvane.app");
        // Only the number of holders counts: the ids are never copied out.
        QCOMPARE(CMacFSLock().getPidsByPath(path), QList<unsigned int>(count, 0u));
        QList<int> sizes;
        for (const LibprocStandin::Call &call : LibprocStandin::calls()) {
            QCOMPARE(call.path, path.toUtf8());
            sizes << call.buffersize;
        }
        QCOMPARE(sizes, buffersizes);
    }
};

QTEST_GUILESS_MAIN(tst_CMacFSLockLibproc)
#include "tst_cmacfslock_libproc.moc"
