#include "uninstallsafety.h"

#include "BvTestSupport.h"

#include <QTemporaryDir>

#include <unistd.h>

// The backup's copy and its check, and the folder root makes for a user's backups. Each
// row's "setup" and "check" run in a fresh temporary folder.
class tst_UninstallSafety : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_Dir.reset(new QTemporaryDir);
        QVERIFY(m_Dir->isValid());
    }
    void verifyCopy_data();
    void verifyCopy();
    void copyTree_data();
    void copyTree();
    void makeUserFolder_data();
    void makeUserFolder();

private:
    QString path(const char *name) const { return m_Dir->filePath(QString::fromLatin1(name)); }
    QByteArray sh(const QString &script) const { return BvTest::shell(m_Dir->path(), script); }

    std::unique_ptr<QTemporaryDir> m_Dir;
};

void tst_UninstallSafety::verifyCopy_data()
{
    QTest::addColumn<QString>("damage"); // run in the copy
    QTest::addColumn<QString>("logged"); // %1 = key folder, %2 = its copy; empty = copy good

    // clang-format off
    QTest::newRow("faithful copy") << "" << "";
    QTest::newRow("extra file in copy") << "echo >extra" << "";
    QTest::newRow("file missing in a subfolder") << "rm sub/b.key" << "sameEntry ] backup check: \"%1/sub/b.key\" is a file but \"%2/sub/b.key\" is missing";
    QTest::newRow("hidden file missing") << "rm .hidden" << "sameEntry ] backup check: \"%1/.hidden\" is a file but \"%2/.hidden\" is missing";
    QTest::newRow("empty folder missing") << "rmdir empty" << "sameEntry ] backup check: \"%1/empty\" is a folder but \"%2/empty\" is missing";
    QTest::newRow("file shorter") << "truncate -s 3 a.key" << "sameEntry ] backup check: size differs \"%1/a.key\" 8 \"%2/a.key\" 3";
    QTest::newRow("same size, other bytes") << "printf secret-b >a.key" << "sameContents ] backup check: contents differ \"%1/a.key\" \"%2/a.key\"";
    QTest::newRow("link copied as file") << "rm link; printf a.key >link" << "sameEntry ] backup check: \"%1/link\" is a symbolic link but \"%2/link\" is file";
    QTest::newRow("link to another target") << "ln -sfn b.key link" << "sameEntry ] backup check: link target differs \"%1/link\" \"%2/link\"";
    QTest::newRow("special file in key folder") << "mkfifo pipe ../pss/pipe" << "sameEntry ] backup check: \"%1/pipe\" is a special file but \"%2/pipe\" is special file";
    // clang-format on
}

void tst_UninstallSafety::verifyCopy()
{
    QFETCH(QString, damage);
    QFETCH(QString, logged);

    QCOMPARE(sh("mkdir -p pss/sub pss/empty; cd pss; printf secret-a >a.key; echo >.hidden;"
                " head -c 100000 /dev/zero >sub/b.key; ln -s a.key link; cp -a ../pss ../copy; cd ../copy; "
                + damage),
        "");
    BvTest::MessageCapture capture;
    QCOMPARE(UninstallSafety::verifyCopy(path("pss"), path("copy")), logged.isEmpty());
    QStringList messages = capture.messages();
    messages.replaceInStrings(QRegularExpression(" : \\d+ : "), " : # : ");
    QCOMPARE(messages.join('\n'),
        logged.isEmpty() ? QString() : "[ -1 : MainThread ] [ uninstallsafety : # : " + logged.arg(path("pss"), path("copy")));
}

// A backup copies what is there as it is: links stay links and are never followed.
void tst_UninstallSafety::copyTree_data()
{
    QTest::addColumn<QString>("setup"); // pss is the key folder
    QTest::addColumn<QString>("cause"); // %1 = the test folder; empty = copied
    QTest::addColumn<bool>("made"); // whether the copy was begun
    QTest::addColumn<QString>("check");

    const QString tree = "mkdir -p pss/sub/deeper pss/empty outside; echo secret >outside/x;"
                         " printf key >pss/a.key; head -c 300000 /dev/urandom >pss/sub/big.key;"
                         " chmod 640 pss/a.key; chmod 700 pss pss/sub; ";
    // clang-format off
    QTest::newRow("folders, files and links as they are") << tree + "ln -s a.key pss/link; ln -s /nowhere pss/dangling; ln -s ../../outside pss/sub/deeper/up" << "" << true
        << "[ $(stat -c %a copy) = 700 ] && [ $(stat -c %a copy/a.key) = 640 ] && [ $(stat -c %a copy/sub) = 700 ] && cmp pss/sub/big.key copy/sub/big.key"
           " && [ \"$(readlink copy/link)\" = a.key ] && [ \"$(readlink copy/dangling)\" = /nowhere ] && [ \"$(readlink copy/sub/deeper/up)\" = ../../outside ]"
           " && [ ! -e /nowhere ] && [ -d copy/empty ]";
    QTest::newRow("the key folder itself a link") << tree + "mv pss real; ln -s real pss" << "" << true << "[ \"$(readlink copy)\" = real ]";
    QTest::newRow("a pipe") << tree + "mkfifo pss/sub/pipe" << "%1/pss/sub/pipe: not a folder, file or link" << true << "[ ! -e copy/sub/pipe ]";
    QTest::newRow("the copy exists already") << tree + "mkdir copy; echo mine >copy/mine" << "%1/copy: File exists" << false << "grep -qx mine copy/mine";
    // clang-format on
}

void tst_UninstallSafety::copyTree()
{
    QFETCH(QString, setup);
    QFETCH(QString, cause);
    QFETCH(bool, made);
    QFETCH(QString, check);

    QCOMPARE(sh(setup), "");
    FailureCause why;
    bool begun = false;
    const bool copied = UninstallSafety::copyTree(path("pss"), path("copy"), &why, &begun);
    QCOMPARE(why.text(), cause.arg(m_Dir->path()));
    QCOMPARE(copied, cause.isEmpty());
    QCOMPARE(begun, made);
    QVERIFY(!copied || UninstallSafety::verifyCopy(path("pss"), path("copy")));
    QCOMPARE(sh(check), "");
}

// Root makes the user's folder inside a folder of its choice; whatever already stands
// under that name must not be handed to the user.
void tst_UninstallSafety::makeUserFolder_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("cause"); // %1 = the folder; empty = made or accepted
    QTest::addColumn<QString>("check");

    QTest::newRow("made for the user") << "" << "" << "[ $(stat -c %u:%g:%a alice) = 4101:4102:700 ]";
    QTest::newRow("the user's own from before") << "mkdir alice; chown 4101 alice" << "" << "[ $(stat -c %u alice) = 4101 ]";
    QTest::newRow("a link by that name") << "mkdir target; ln -s target alice" << "%1: Not a directory" << "[ $(stat -c %u target) = 0 ]";
    QTest::newRow("somebody else's folder") << "mkdir alice" << "%1: Operation not permitted" << "[ $(stat -c %u alice) = 0 ]";
}

void tst_UninstallSafety::makeUserFolder()
{
    QFETCH(QString, setup);
    QFETCH(QString, cause);
    QFETCH(QString, check);
    if (::geteuid() != 0)
        QSKIP("Making a folder for another user needs root");

    QCOMPARE(sh(setup), "");
    FailureCause why;
    QCOMPARE(UninstallSafety::makeUserFolder(path("alice"), 4101, 4102, &why), cause.isEmpty());
    QCOMPARE(why.text(), cause.arg(path("alice")));
    QCOMPARE(sh(check), "");
}

QTEST_GUILESS_MAIN(tst_UninstallSafety)
#include "tst_uninstallsafety.moc"
