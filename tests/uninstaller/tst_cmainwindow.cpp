#include "CMainWindow.h"

#include "uninstallsafety.h"

#include "threading/exceptions/CException.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>

// The window runs in the test's own HOME. `ps` is a stand-in on PATH that prints the
// file named by BV_FAKE_PS, so the product's processes are whatever a test writes
// there and no real process on the machine is ever stopped.
class tst_CMainWindow : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void startPage_data();
    void startPage();
    void untickBackup_data();
    void untickBackup();
    void failedStep_data();
    void failedStep();
    void success();
    void resources_data();
    void resources();
    void appleScript();

public:
    static int successChild();

private:
    static QString home(const QString &relative) { return QDir::homePath() + '/' + relative; }
    void setProcesses(const QByteArray &psOutput);
    QStringList windowCriticals() const;

    QTemporaryDir m_Tools;
    BvTest::MessageCapture *m_Capture = nullptr;
};

namespace {

void writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(data);
}

// A listening unix socket at `path`, as agents keep beside their keys; closed on
// destruction (the socket file stays).
struct UnixSocket
{
    int fd = -1;
    explicit UnixSocket(const QString &path)
    {
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        const QByteArray name = QFile::encodeName(path);
        if (size_t(name.size()) >= sizeof(address.sun_path))
            return;
        std::memcpy(address.sun_path, name.constData(), name.size());
        fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        if (fd >= 0
            && (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0
                || ::listen(fd, 1) != 0)) {
            ::close(fd);
            fd = -1;
        }
    }
    ~UnixSocket()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

// Answers the next modal message box with `button` and remembers what it showed.
struct MessageBoxAnswer
{
    QString title;
    QString text;
    QMessageBox::StandardButtons buttons;
    bool seen = false;
};

void answerNextMessageBox(QMessageBox::StandardButton button, MessageBoxAnswer *answer)
{
    auto *timer = new QTimer;
    QObject::connect(timer, &QTimer::timeout, timer, [timer, button, answer] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box)
            return;
        answer->seen = true;
        answer->title = box->windowTitle();
        answer->text = box->text();
        answer->buttons = box->standardButtons();
        box->button(button)->click();
        timer->deleteLater();
    });
    timer->start(20);
}

} // namespace

void tst_CMainWindow::initTestCase()
{
    QVERIFY2(m_Tools.isValid(), qPrintable(m_Tools.errorString()));
    QVERIFY2(QDir::homePath().contains(QLatin1String("sandbox")),
        "refusing to run outside the test sandbox HOME");
    writeFile(m_Tools.filePath(QStringLiteral("ps")), "#!/bin/sh\ncat \"$BV_FAKE_PS\"\n");
    QVERIFY(QFile::setPermissions(m_Tools.filePath(QStringLiteral("ps")),
        QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    qputenv("PATH", QFile::encodeName(m_Tools.path()) + ':' + qgetenv("PATH"));
    qputenv("BV_FAKE_PS", QFile::encodeName(m_Tools.filePath(QStringLiteral("ps.out"))));
}

void tst_CMainWindow::init()
{
    for (const char *entry : {".bv2", ".config", "Documents"}) {
        QFileInfo info(home(entry));
        if (info.isDir() && !info.isSymLink())
            QVERIFY(QDir(info.filePath()).removeRecursively());
        else if (info.exists() || info.isSymLink())
            QVERIFY(QFile::remove(info.filePath()));
    }
    writeFile(home(".bv2/pss/id.key"), "first key");
    writeFile(home(".bv2/server_access_keys/server.key"), "second key");
    writeFile(home(".bv2/cache.db"), "cache");
    writeFile(home(".config/Brisvane/Brisvane.conf"), "[General]\n");
    QVERIFY(QDir().mkpath(home("Documents")));
    setProcesses("");
}

void tst_CMainWindow::setProcesses(const QByteArray &psOutput)
{
    writeFile(m_Tools.filePath(QStringLiteral("ps.out")), psOutput);
}

// Critical lines of the window, as "function: text" without the moving line number.
QStringList tst_CMainWindow::windowCriticals() const
{
    static const QRegularExpression line(
        QStringLiteral("^\\[ -1 : MainThread \\] \\[ CMainWindow : \\d+ : (\\w+) \\] (.*)$"),
        QRegularExpression::DotMatchesEverythingOption);
    QStringList result;
    const QStringList messages = m_Capture->messages();
    const QList<QtMsgType> types = m_Capture->types();
    for (int i = 0; i < messages.size(); ++i) {
        const QRegularExpressionMatch m = line.match(messages.at(i));
        if (types.at(i) == QtCriticalMsg && m.hasMatch())
            result << m.captured(1) + QStringLiteral(": ") + m.captured(2);
    }
    return result;
}

void tst_CMainWindow::startPage_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<bool>("offered");

    QTest::newRow("both key folders") << "" << true;
    QTest::newRow("neither key folder") << "rm pss rm server_access_keys" << false;
    QTest::newRow("only key folder 2") << "rm pss" << true;
    QTest::newRow("key folder 1 a plain file") << "file pss rm server_access_keys" << false;
    QTest::newRow("key folder 1 a plain file, folder 2 there") << "file pss" << true;
}

void tst_CMainWindow::startPage()
{
    QFETCH(QString, layout);
    QFETCH(bool, offered);

    const QStringList words = layout.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (int i = 0; i + 1 < words.size(); i += 2) {
        const QString path = home(".bv2/") + words.at(i + 1);
        QVERIFY(QDir(path).removeRecursively());
        if (words.at(i) == QLatin1String("file"))
            writeFile(path, "not a folder");
    }

    CMainWindow window;
    QCOMPARE(window.windowTitle(), QStringLiteral("Brisvane Uninstaller"));
    QCOMPARE(window.m_Ui.ckbxKeysBackupCheck->isChecked(), offered);
    QCOMPARE(window.m_Ui.ckbxKeysBackupCheck->isEnabled(), offered);
    QVERIFY(window.m_Ui.stackedWidget->isHidden());
    QPushButton *ok = window.m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    QVERIFY(ok);
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QVERIFY(ok->isDefault());
    QVERIFY(window.m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Cancel));
    QCOMPARE(window.m_Ui.lblKeysBackupText->text(),
        QStringLiteral("This will uninstall Brisvane including all Spaces and user settings."));
    QVERIFY(window.m_Ui.lblProgressInfo->text().isEmpty());
}

void tst_CMainWindow::untickBackup_data()
{
    QTest::addColumn<int>("answer");
    QTest::addColumn<bool>("tickedAfter");

    QTest::newRow("Ok: no backup") << int(QMessageBox::Ok) << false;
    QTest::newRow("Cancel: ticked again, backup made") << int(QMessageBox::Cancel) << true;
}

void tst_CMainWindow::untickBackup()
{
    QFETCH(int, answer);
    QFETCH(bool, tickedAfter);

    CMainWindow window;
    MessageBoxAnswer seen;
    answerNextMessageBox(QMessageBox::StandardButton(answer), &seen);
    window.m_Ui.ckbxKeysBackupCheck->click();
    QVERIFY(seen.seen);
    QCOMPARE(seen.title, QStringLiteral("Backup"));
    QCOMPARE(seen.text, QStringLiteral("You will no be able to access your Spaces anymore"));
    QCOMPARE(seen.buttons, QMessageBox::Ok | QMessageBox::Cancel);
    QCOMPARE(window.m_Ui.ckbxKeysBackupCheck->isChecked(), tickedAfter);

    // The run stops at the bundle (this test is no bundle); by then the backup is done.
    window.m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(window.m_Ui.lblErrorsText->text(), QStringLiteral("Unable to uninstall Brisvane"));
    QVERIFY(!QFileInfo::exists(home(".bv2")));
    const QStringList backups
        = QDir(home("Documents")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(backups.size(), tickedAfter ? 2 : 0);
}

void tst_CMainWindow::failedStep_data()
{
    QTest::addColumn<QString>("cause");
    QTest::addColumn<int>("progress");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QStringList>("criticals");
    QTest::addColumn<bool>("offeredAfter");

    const QString config = QDir::homePath() + QStringLiteral("/.config/Brisvane");
    const QString data = QDir::homePath() + QStringLiteral("/.bv2");
    QTest::newRow("product does not stop")
        << "process" << 0 << "Unable to quit Brisvane."
        << QStringList {"quitBrisvane: failed to shutdown Brisvane"} << true;
    QTest::newRow("backup target unusable")
        << "documents" << 10 << "Unable to backup key files" << QStringList {"*"} << true;
    QTest::newRow("key folder holds a socket")
        << "socket" << 10 << "Unable to backup key files" << QStringList {"*"} << true;
    QTest::newRow("configuration not a folder")
        << "config" << 20
        << QStringLiteral("Failed to delete %1.\nPlease delete by yourself.").arg(config)
        << QStringList {"deleteDir: Failed to  deleteData failed",
               "deleteDir: FileSystemException " + config + " is not a directory"}
        << true;
    QTest::newRow("data not a folder")
        << "data" << 50
        << QStringLiteral("Failed to delete %1.\nPlease delete by yourself.").arg(data)
        << QStringList {"deleteDir: Failed to  deleteData failed",
               "deleteDir: FileSystemException " + data + " is not a directory"}
        << false;
    QTest::newRow("not inside Brisvane.app")
        << "" << 80 << "Unable to uninstall Brisvane"
        << QStringList {"removeAppBundle: unable to figure out the installation path"} << false;
}

void tst_CMainWindow::failedStep()
{
    QFETCH(QString, cause);
    QFETCH(int, progress);
    QFETCH(QString, message);
    QFETCH(QStringList, criticals);
    QFETCH(bool, offeredAfter);

    std::unique_ptr<UnixSocket> socket;
    if (cause == QLatin1String("process")) {
        // A pid no system hands out: the stop signal cannot be delivered.
        setProcesses("2147480000 root Brisvane\n");
    } else if (cause == QLatin1String("documents")) {
        QVERIFY(QDir(home("Documents")).removeRecursively());
        writeFile(home("Documents"), "a file where the folder belongs");
    } else if (cause == QLatin1String("socket")) {
        socket = std::make_unique<UnixSocket>(home(".bv2/pss/agent.sock"));
        QVERIFY(socket->fd >= 0);
    } else if (cause == QLatin1String("config")) {
        QVERIFY(QDir(home(".config/Brisvane")).removeRecursively());
        writeFile(home(".config/Brisvane"), "");
    } else if (cause == QLatin1String("data")) {
        QVERIFY(QDir(home(".bv2")).removeRecursively());
        writeFile(home(".bv2"), "");
    }

    CMainWindow window;
    QPushButton *ok = window.m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok);
    BvTest::MessageCapture capture;
    m_Capture = &capture;
    ok->click();

    QCOMPARE(window.m_Ui.stackedWidget->currentIndex(), int(CMainWindow::PageError));
    QVERIFY(window.m_Ui.stackedWidget->isVisibleTo(&window));
    QCOMPARE(window.m_Ui.lblErrorsText->text(), message);
    QCOMPARE(window.m_Ui.progressBar->value(), progress);
    QVERIFY(window.m_Ui.dbbSubNaviButton->isEnabled());
    QCOMPARE(ok->text(), QStringLiteral("Uninstall"));
    QVERIFY(ok->isEnabled());
    QCOMPARE(window.m_Ui.ckbxKeysBackupCheck->isChecked(), offeredAfter);
    QCOMPARE(window.m_Ui.ckbxKeysBackupCheck->isEnabled(), offeredAfter);
    if (criticals == QStringList {"*"}) {
        // How the copy fails is the file layer's business; the window only logs when
        // something was thrown.
        for (const QString &line : windowCriticals())
            QVERIFY2(line.startsWith(QLatin1String("backupDir: ")), qPrintable(line));
    } else {
        QCOMPARE(windowCriticals(), criticals);
    }

    // Nothing after the failed step was attempted.
    QCOMPARE(QFileInfo(home(".config/Brisvane")).exists(), progress <= 20);
    QCOMPARE(QFileInfo(home(".bv2")).exists(), progress <= 50);

    // Remove the cause and try again: the run starts over and gets to the bundle.
    setProcesses("");
    socket.reset();
    QFile::remove(home(".bv2/pss/agent.sock"));
    for (const char *entry : {"Documents", ".config/Brisvane", ".bv2"})
        if (QFileInfo(home(entry)).isFile())
            QVERIFY(QFile::remove(home(entry)));
    QVERIFY(QDir().mkpath(home("Documents")));
    const auto backupCount = [] {
        return QDir(home("Documents")).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
    };
    const qsizetype backupsBefore = backupCount();
    ok->click();
    m_Capture = nullptr;
    QCOMPARE(window.m_Ui.lblErrorsText->text(), QStringLiteral("Unable to uninstall Brisvane"));
    QCOMPARE(window.m_Ui.progressBar->value(), 80);
    QVERIFY(!QFileInfo::exists(home(".config/Brisvane")));
    QVERIFY(!QFileInfo::exists(home(".bv2")));
    QCOMPARE(backupCount() - backupsBefore, offeredAfter ? 2 : 0);
}

void tst_CMainWindow::resources_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("assertion");

    QTest::newRow("removal script") << ":/scripts/scripts/uninstall.sh"
                                    << "";
    QTest::newRow("missing resource") << ":/scripts/none.sh"
                                      << "res";
    QTest::newRow("empty resource") << ":/testdata/empty.txt"
                                    << "!content.isEmpty()";
    QTest::newRow("not a resource path") << "/etc/hostname"
                                         << "throw";
    QTest::newRow("relative path") << "scripts/uninstall.sh"
                                   << "throw";
}

void tst_CMainWindow::resources()
{
    QFETCH(QString, path);
    QFETCH(QString, assertion);

    CMainWindow window;
    if (assertion == QLatin1String("throw")) {
        try {
            window.getResourceAsText(path);
            QFAIL("no exception");
        } catch (CException *e) {
            const QString text = QString::fromLocal8Bit(e->getExceptionMessage());
            delete e;
            QVERIFY2(
                text.startsWith(QStringLiteral("ASSERT: \"resourcePath.startsWith(\":/\")\" "
                                               "in file src/uninstaller/mac/CMainWindow, line ")),
                qPrintable(text));
        }
        return;
    }
    BvTest::MessageCapture capture;
    const QString text = window.getResourceAsText(path);
    if (assertion.isEmpty()) {
        QVERIFY(text.contains(QLatin1String("INSTALL_FOLDER=\"%1\"")));
        QCOMPARE(capture.messages(), QStringList());
    } else {
        QVERIFY(text.isEmpty());
        QCOMPARE(capture.messages().size(), 1);
        QVERIFY2(capture.messages().first().startsWith(
                     QStringLiteral("ASSERT: \"%1\" in file src/uninstaller/mac/CMainWindow, line ")
                         .arg(assertion)),
            qPrintable(capture.messages().first()));
    }
}

void tst_CMainWindow::appleScript()
{
    CMainWindow window;
    // No osascript here (and none on PATH in the sandbox): the answer is false.
    QTest::ignoreMessage(QtDebugMsg,
        QRegularExpression(QStringLiteral("executeAppleScript \\] osascript -e \"return 1\"$")));
    QVERIFY(!window.executeAppleScript(QStringLiteral("return 1")));
    try {
        window.executeAppleScript(QString());
        QFAIL("no exception");
    } catch (CException *e) {
        QVERIFY(QByteArray(e->getExceptionMessage()).startsWith("ASSERT: \"!script.isEmpty()\""));
        delete e;
    }
}

// Success needs the window to run from inside Brisvane.app: this test binary runs again
// from a throw-away installation (hard-linked, so its own path is inside the bundle),
// with the sandbox stand-ins first on PATH so that the removal script can delete
// nothing outside the sandbox, and reports the window's final state.
void tst_CMainWindow::success()
{
    if (::geteuid() != 0)
        QSKIP("The privileged step asks polkit for a password when not run as root");

    QTemporaryDir sandbox(QDir::homePath() + QStringLiteral("/../run-XXXXXX"));
    QVERIFY2(sandbox.isValid(), qPrintable(sandbox.errorString()));
    const QString root = QFileInfo(sandbox.path()).canonicalFilePath();
    const QString product = root + QStringLiteral("/Applications/Brisvane");
    const QString macOS = product + QStringLiteral("/Brisvane.app/Contents/MacOS");
    const QString childHome = root + QStringLiteral("/home");
    QVERIFY(QDir().mkpath(macOS));
    QVERIFY(QDir().mkpath(childHome + QStringLiteral("/Documents")));
    writeFile(childHome + QStringLiteral("/.bv2/pss/id.key"), "first key");
    writeFile(childHome + QStringLiteral("/.bv2/server_access_keys/server.key"), "second key");
    writeFile(childHome + QStringLiteral("/.config/Brisvane/Brisvane.conf"), "[General]\n");
    writeFile(root + QStringLiteral("/Applications/Other/keep.txt"), "canary");
    const QString executable = macOS + QStringLiteral("/tst_cmainwindow");
    QCOMPARE(::link(QFile::encodeName(QCoreApplication::applicationFilePath()).constData(),
                 QFile::encodeName(executable).constData()),
        0);

    QProcess child;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("BV_TEST_CHILD"), QStringLiteral("success"));
    env.insert(QStringLiteral("HOME"), childHome);
    env.insert(QStringLiteral("BV_SANDBOX"), root);
    env.insert(QStringLiteral("PATH"),
        m_Tools.path() + QStringLiteral(":" BV_SOURCE_DIR "/tools/sandbox-bin:")
            + env.value(QStringLiteral("PATH")));
    child.setProcessEnvironment(env);
    child.start(executable, {});
    QVERIFY(child.waitForFinished(60000));
    const QString err = QString::fromLocal8Bit(child.readAllStandardError());
    const QStringList out = QString::fromUtf8(child.readAllStandardOutput())
                                .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QVERIFY2(child.exitCode() == 0, qPrintable(err));
    if (!out.contains(QStringLiteral("progress=100")))
        qWarning().noquote() << err;
    QCOMPARE(out,
        (QStringList {"progress=100", "text=Uninstall successful.", "page=0", "buttons=Close",
            "default=true", "url=https://www.brisvane.com/redirector.php?lang=en&page=uninstall",
            "closed=true"}));

    QVERIFY(!QFileInfo::exists(product));
    QVERIFY(QFileInfo::exists(root + QStringLiteral("/Applications/Other/keep.txt")));
    QFile log(root + QStringLiteral("/privileged.log"));
    QVERIFY(log.open(QIODevice::ReadOnly));
    QVERIFY(log.readAll().contains(
        "refused: rm -rf /Library/Application\\ Support/Brisvane (outside the sandbox)"));
    QVERIFY(!QFileInfo::exists(childHome + QStringLiteral("/.bv2")));
    QVERIFY(!QFileInfo::exists(childHome + QStringLiteral("/.config/Brisvane")));
    const QDir documents(childHome + QStringLiteral("/Documents"));
    const QStringList backups = documents.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(backups.size(), 2);
    QVERIFY(backups.at(0).startsWith(QLatin1String("pss_")));
    QVERIFY(backups.at(1).startsWith(QLatin1String("server_access_keys_")));
    QFile key(documents.filePath(backups.at(0) + QStringLiteral("/id.key")));
    QVERIFY(key.open(QIODevice::ReadOnly));
    QCOMPARE(key.readAll(), QByteArray("first key"));
}

namespace {
class UrlRecorder : public QObject
{
    Q_OBJECT
public:
    QStringList urls;
public slots:
    void open(const QUrl &url) { urls << url.toString(); }
};

} // namespace

int tst_CMainWindow::successChild()
{
    UrlRecorder recorder;
    QDesktopServices::setUrlHandler(QStringLiteral("https"), &recorder, "open");
    CMainWindow window;
    window.show();
    window.m_Ui.dbbSubNaviButton->button(QDialogButtonBox::Ok)->click();

    const Ui_UninstallMainWindow &ui = window.m_Ui;
    QTextStream out(stdout);
    QStringList buttons;
    for (QAbstractButton *button : ui.dbbSubNaviButton->buttons())
        buttons << button->text();
    QPushButton *close = ui.dbbSubNaviButton->button(QDialogButtonBox::Close);
    out << "progress=" << ui.progressBar->value() << '\n'
        << "text=" << ui.lblProgressInfo->text() << '\n'
        << "page=" << ui.stackedWidget->currentIndex() << '\n'
        << "buttons=" << buttons.join(QLatin1Char(',')) << '\n'
        << "default=" << (close && close->isDefault() ? "true" : "false") << '\n'
        << "url=" << recorder.urls.join(QLatin1Char(',')) << '\n';
    if (close)
        close->click();
    out << "closed=" << (window.isVisible() ? "false" : "true") << '\n';
    QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
    return 0;
}

namespace {
int childMain(const QByteArray &mode, int argc, char **argv)
{
    QApplication app(argc, argv);
    return mode == "success" ? tst_CMainWindow::successChild() : 2;
}
} // namespace

int main(int argc, char *argv[])
{
    if (const char *mode = BvTest::childMode())
        return childMain(QByteArray(mode), argc, argv);
    QApplication app(argc, argv);
    tst_CMainWindow tc;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&tc, argc, argv);
}

#include "tst_cmainwindow.moc"
