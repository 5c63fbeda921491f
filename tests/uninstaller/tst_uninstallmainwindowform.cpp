#include "uninstaller/mac/UninstallMainWindowForm.h"

#include <QApplication>
#include <QMainWindow>
#include <QTest>
#include <QTranslator>

namespace {
// Translates every text of the form's context into "<text>".
class MarkingTranslator : public QTranslator
{
public:
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        if (qstrcmp(context, "UninstallMainWindow") != 0 || !*source)
            return QString();
        return QStringLiteral("<%1>").arg(QString::fromUtf8(source));
    }
};
} // namespace

class tst_UninstallMainWindowForm : public QObject
{
    Q_OBJECT

private slots:
    void tree_data();
    void tree();
    void setupState();
    void retranslation();
};

// The controller and the style sheet find the widgets by these names.
void tst_UninstallMainWindowForm::tree_data()
{
    QTest::addColumn<QStringList>("children"); // the named child widgets

    // clang-format off
    QTest::newRow("UninstallMainWindow") << QStringList {"QWidget#UninstallContent"};
    QTest::newRow("UninstallContent") << QStringList {"QFrame#UIHeader", "QFrame#frameKeysBackup", "QStackedWidget#stackedWidget", "QWidget#SubNavi"};
    QTest::newRow("UIHeader") << QStringList {"QLabel#HeaderIcon", "QLabel#HeaderHeadline"};
    QTest::newRow("frameKeysBackup") << QStringList {"QFrame#UIHeader2", "QLabel#lblKeysBackupText", "QCheckBox#ckbxKeysBackupCheck"};
    QTest::newRow("UIHeader2") << QStringList {"QLabel#lblHeaderHeadline2"};
    QTest::newRow("stackedWidget") << QStringList {"QWidget#pageProgress", "QWidget#pageError"};
    QTest::newRow("pageProgress") << QStringList {"QFrame#frameProgressBar"};
    QTest::newRow("frameProgressBar") << QStringList {"QLabel#lblProgressInfo", "QProgressBar#progressBar"};
    QTest::newRow("pageError") << QStringList {"QFrame#frameErrorsUninstaller"};
    QTest::newRow("frameErrorsUninstaller") << QStringList {"QFrame#UIErrorsContent"};
    QTest::newRow("UIErrorsContent") << QStringList {"QLabel#lblErrorsIcon", "QLabel#lblErrorsText"};
    QTest::newRow("SubNavi") << QStringList {"QDialogButtonBox#dbbSubNaviButton"};
    // clang-format on
}

void tst_UninstallMainWindowForm::tree()
{
    QFETCH(QStringList, children);

    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    const QString name = QString::fromLatin1(QTest::currentDataTag());
    QWidget *parent = name == window.objectName() ? &window : window.findChild<QWidget *>(name);
    QVERIFY(parent);

    QStringList found;
    for (QWidget *child : parent->findChildren<QWidget *>(Qt::FindDirectChildrenOnly)) {
        if (!child->objectName().isEmpty() && !child->objectName().startsWith("qt_"))
            found << QString::fromLatin1(child->metaObject()->className()) + u'#'
                    + child->objectName();
    }
    // Their order follows the stacking, which showing a page changes.
    found.sort();
    children.sort();
    QCOMPARE(found, children);
}

void tst_UninstallMainWindowForm::setupState()
{
    QMainWindow named;
    named.setObjectName(QStringLiteral("keep me"));
    Ui_UninstallMainWindow().setupUi(&named);
    QCOMPARE(named.objectName(), QStringLiteral("keep me"));

    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    for (QWidget *fixed : {static_cast<QWidget *>(&window), ui.UninstallContent}) {
        QCOMPARE(fixed->minimumSize(), QSize(410, 332));
        QCOMPARE(fixed->maximumSize(), QSize(410, 332));
    }
    QCOMPARE(ui.stackedWidget->currentIndex(), 1);
    QCOMPARE(ui.stackedWidget->currentWidget(), ui.pageError);
    QCOMPARE(
        ui.dbbSubNaviButton->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    // Both pictures come from the embedded resources.
    QVERIFY(!ui.HeaderIcon->pixmap().isNull());
    QVERIFY(!ui.lblErrorsIcon->pixmap().isNull());
}

void tst_UninstallMainWindowForm::retranslation()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    const QString sentence
        = QStringLiteral("Please click \"OK\" to start the Uninstall for Brisvane.");

    MarkingTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    ui.retranslateUi(&window);
    QCoreApplication::removeTranslator(&translator);

    QCOMPARE(window.windowTitle(), QStringLiteral("<MainWindow>"));
    QCOMPARE(ui.HeaderHeadline->text(), QStringLiteral("<Brisvnae Uninstall>"));
    QCOMPARE(ui.ckbxKeysBackupCheck->text(), QStringLiteral("<Backup Keys>"));
    QCOMPARE(ui.lblProgressInfo->text(), QStringLiteral("<uninstalling ...>"));
    // The controller replaces these; they are not for translation.
    QCOMPARE(ui.lblKeysBackupText->text(), sentence);
    QCOMPARE(ui.lblErrorsText->text(), QString(43, u'.'));
}

QTEST_MAIN(tst_UninstallMainWindowForm)
#include "tst_uninstallmainwindowform.moc"
