#include "fsapi/CFSOperations.h"
#include "fsapi/mac/CMacFSOperations.h"

#include "fstestsupport.h"

using namespace FsTest;

// Every move refused, as a rename the system turns down.
class StuckMoves : public CMacFSOperations
{
public:
    bool moveFile(const QString &, const QString &, bool, bool) override { return false; }
};

class tst_CFSOperations : public QObject
{
    Q_OBJECT

private slots:
    // A cause reached through getCause() stays its holder's: the new exception carries its
    // own copy and shows it in what().
    void exceptionCopiesItsCause()
    {
        const QScopedPointer<CException> holder(
            new CException("g", "y.cpp", 2, "holder", CCallStack(),
                new Exceptions::DoesNotExist(
                    "h", "z.cpp", 3, "File not found: /k", CCallStack(), nullptr, -1, -1, nullptr),
                -1, -1, nullptr));
        const CException *cause = holder->getCause();
        QVERIFY(cause);
        const Exceptions::FileExists e("f", "x.cpp", 1, "m", CCallStack(), cause, -1, -1, nullptr);
        QCOMPARE(holder->getCause(), cause);
        QVERIFY(e.getCause() && e.getCause() != cause);
        QVERIFY(QString(e.what()).endsWith("caused by\t" + QString(cause->what()) + "\n"));
    }

    // The template of orig/app.cfg goes only once the incoming version has taken its place.
    void templateKeptWhenTheNewVersionStaysOut()
    {
        QTemporaryDir dir;
        QVERIFY2(dir.isValid(), qPrintable(dir.errorString()));
        const QString r = dir.path() + '/';
        QVERIFY(make(r, {"in/", "out/", "orig/", "in/new=NEW", "orig/app.cfg.brisvane=T"}));
        const QStringList before = snapshot(r);
        CFSOperations fs(new StuckMoves);
        QVERIFY(!fs.safeExchangeFile(r + "in", r + "out", r + "orig", "new", "app.cfg", {}, {}));
        QCOMPARE(snapshot(r), before);
    }
};

QTEST_GUILESS_MAIN(tst_CFSOperations)
#include "tst_cfsoperations.moc"
