#include "system/CActAsUser.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <future>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
const qint64 C_NOBODY = 65534;

int openError(const QByteArray &path, int flags)
{
    const int fd = ::open(path.constData(), flags | O_CLOEXEC, 0600);
    return fd < 0 ? errno : ::close(fd);
}

std::vector<gid_t> groups()
{
    std::vector<gid_t> list(size_t(qMax(::getgroups(0, nullptr), 0)));
    list.resize(size_t(qMax(::getgroups(int(list.size()), list.data()), 0)));
    return list;
}
} // namespace

// Root acting as nobody: the kernel applies nobody's rights to this thread's file access,
// and to nothing else in the process.
class tst_CActAsUser : public QObject
{
    Q_OBJECT

private slots:
    void onlyThisThreadActsAsTheUser()
    {
        if (::geteuid() != 0)
            QSKIP("Acting for another user needs root");
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        QVERIFY(::chmod(QFile::encodeName(dir.path()).constData(), 0755) == 0);
        const QByteArray secret = QFile::encodeName(dir.filePath("secret"));
        const QByteArray theirs = QFile::encodeName(dir.filePath("theirs")),
                         made = theirs + "/made";
        QCOMPARE(openError(secret, O_WRONLY | O_CREAT), 0);
        QVERIFY(::mkdir(theirs.constData(), 0700) == 0
            && ::chown(theirs.constData(), C_NOBODY, C_NOBODY) == 0);
        const std::vector<gid_t> rootGroups = groups();
        // A thread that was running before keeps root's rights and groups meanwhile (a
        // thread started inside the scope would inherit the user's).
        std::promise<void> acting;
        int otherRead = -1;
        std::vector<gid_t> otherGroups;
        std::thread other([&, started = acting.get_future()]() mutable {
            started.wait();
            otherRead = openError(secret, O_RDONLY);
            otherGroups = groups();
        });
        {
            const CActAsUser nobody(C_NOBODY, C_NOBODY, QStringLiteral("nobody"));
            QVERIFY2(nobody.isValid(), qPrintable(nobody.errorString()));
            QCOMPARE(openError(secret, O_RDONLY), EACCES);
            QCOMPARE(openError(made, O_WRONLY | O_CREAT | O_EXCL), 0);
            QCOMPARE(::chown(made.constData(), 0, 0), -1);
            QCOMPARE(groups(), std::vector<gid_t> {gid_t(C_NOBODY)});
            acting.set_value();
            other.join();
            QCOMPARE(otherRead, 0);
            QCOMPARE(otherGroups, rootGroups);
        }
        QCOMPARE(openError(secret, O_RDONLY), 0);
        QCOMPARE(groups(), rootGroups);
        struct stat info;
        QVERIFY(::stat(made.constData(), &info) == 0 && info.st_uid == C_NOBODY
            && info.st_gid == C_NOBODY);
    }

    // Nobody to act for, or oneself: nothing to do. Another user: only root may.
    void nobodyToActFor()
    {
        QVERIFY(CActAsUser(-1, -1, QString()).isValid());
        QVERIFY(CActAsUser(::geteuid(), ::getegid(), QString()).isValid());
        if (::geteuid() != 0) {
            const CActAsUser other(::geteuid() + 1, ::getegid(), QString());
            QVERIFY(!other.isValid() && other.errorString().contains(QLatin1String("only root")));
        }
    }
};

QTEST_GUILESS_MAIN(tst_CActAsUser)
#include "tst_cactasuser.moc"
