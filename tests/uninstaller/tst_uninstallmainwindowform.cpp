#include "uninstaller/mac/UninstallMainWindowForm.h"

#include "BvTestSupport.h"

#include <QApplication>
#include <QMainWindow>
#include <QPushButton>
#include <QTranslator>

namespace {
const char C_CONTEXT[] = "UninstallMainWindow";

// Translates everything of the form's context, so that any text that passes through
// translation shows it, and remembers what it was asked for.
class MarkingTranslator : public QTranslator
{
public:
    mutable QStringList asked;
    bool isEmpty() const override { return false; }
    QString translate(const char *context, const char *source, const char *, int) const override
    {
        if (qstrcmp(context, C_CONTEXT) != 0 || !*source)
            return QString();
        asked << QString::fromUtf8(source);
        return QStringLiteral("<%1>").arg(QString::fromUtf8(source));
    }
};

QString policyName(QSizePolicy::Policy policy)
{
    switch (policy) {
    case QSizePolicy::Fixed:
        return QStringLiteral("Fixed");
    case QSizePolicy::Minimum:
        return QStringLiteral("Minimum");
    case QSizePolicy::Maximum:
        return QStringLiteral("Maximum");
    case QSizePolicy::Preferred:
        return QStringLiteral("Preferred");
    case QSizePolicy::MinimumExpanding:
        return QStringLiteral("MinimumExpanding");
    case QSizePolicy::Expanding:
        return QStringLiteral("Expanding");
    case QSizePolicy::Ignored:
        return QStringLiteral("Ignored");
    }
    return QString();
}

// One line per layout item: a widget by name, a spacer by size and policies, with the
// grid cell and span for grid layouts.
QStringList describeItems(QLayout *layout)
{
    QStringList items;
    auto *grid = qobject_cast<QGridLayout *>(layout);
    for (int i = 0; i < layout->count(); ++i) {
        QLayoutItem *item = layout->itemAt(i);
        QString text;
        if (QWidget *widget = item->widget()) {
            text = widget->objectName();
        } else if (QSpacerItem *spacer = item->spacerItem()) {
            const QSize hint = spacer->sizeHint();
            text = QStringLiteral("spacer %1x%2 %3/%4")
                       .arg(hint.width())
                       .arg(hint.height())
                       .arg(policyName(spacer->sizePolicy().horizontalPolicy()),
                           policyName(spacer->sizePolicy().verticalPolicy()));
        }
        if (grid) {
            int row, column, rowSpan, columnSpan;
            grid->getItemPosition(i, &row, &column, &rowSpan, &columnSpan);
            text += QStringLiteral(" @%1,%2 %3x%4")
                        .arg(row)
                        .arg(column)
                        .arg(rowSpan)
                        .arg(columnSpan);
        }
        items << text;
    }
    return items;
}
} // namespace

class tst_UninstallMainWindowForm : public QObject
{
    Q_OBJECT

private slots:
    void window();
    void existingObjectNameKept();
    void widgets_data();
    void widgets();
    void layouts_data();
    void layouts();
    void frames();
    void navigationGradient();
    void designTimeState();
    void retranslation();
    void slotsConnectedByName();
};

void tst_UninstallMainWindowForm::window()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    QCOMPARE(window.objectName(), QStringLiteral("UninstallMainWindow"));
    QCOMPARE(window.minimumSize(), QSize(410, 332));
    QCOMPARE(window.maximumSize(), QSize(410, 332));
    QCOMPARE(window.size(), QSize(410, 332));
    QCOMPARE(window.sizePolicy(), QSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed));
    QCOMPARE(window.styleSheet(),
        QStringLiteral("#UninstallMainWindow{\nbackground-color:#ffffff;\n }"));
    QCOMPARE(window.windowModality(), Qt::NonModal);
    QCOMPARE(window.contextMenuPolicy(), Qt::DefaultContextMenu);
    QCOMPARE(window.toolButtonStyle(), Qt::ToolButtonIconOnly);
    QVERIFY(window.isAnimated());
    QCOMPARE(window.tabShape(), QTabWidget::Rounded);
    QCOMPARE(window.dockOptions(), QMainWindow::AllowTabbedDocks | QMainWindow::AnimatedDocks);
    QCOMPARE(window.centralWidget(), ui.UninstallContent);
    QCOMPARE(window.windowTitle(), QStringLiteral("MainWindow"));

    // The window cannot be resized, not even by its layout.
    window.show();
    window.resize(600, 500);
    QCOMPARE(window.size(), QSize(410, 332));
}

void tst_UninstallMainWindowForm::existingObjectNameKept()
{
    QMainWindow window;
    window.setObjectName(QStringLiteral("keep me"));
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    QCOMPARE(window.objectName(), QStringLiteral("keep me"));
}

void tst_UninstallMainWindowForm::widgets_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("parentName");
    QTest::addColumn<QSize>("minimum");
    QTest::addColumn<QSize>("maximum");
    QTest::addColumn<QString>("policy"); // horizontal/vertical; empty: the class default

    const QSize none(0, 0);
    const QSize free(QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
    QTest::newRow("UninstallContent")
        << "QWidget"
        << "UninstallMainWindow" << QSize(410, 332) << QSize(410, 332) << "Fixed/Fixed";
    QTest::newRow("UIHeader") << "QFrame"
                              << "UninstallContent" << QSize(0, 86) << QSize(QWIDGETSIZE_MAX, 86)
                              << "Preferred/Fixed";
    QTest::newRow("HeaderIcon") << "QLabel"
                                << "UIHeader" << QSize(64, 64) << QSize(64, 64) << "";
    QTest::newRow("HeaderHeadline") << "QLabel"
                                    << "UIHeader" << none << free << "";
    QTest::newRow("frameKeysBackup")
        << "QFrame"
        << "UninstallContent" << QSize(410, 145) << QSize(410, 145) << "Expanding/Fixed";
    QTest::newRow("UIHeader2") << "QFrame"
                               << "frameKeysBackup" << QSize(410, 30) << QSize(410, 30)
                               << "Expanding/Fixed";
    QTest::newRow("lblHeaderHeadline2") << "QLabel"
                                        << "UIHeader2" << none << free << "Expanding/Preferred";
    QTest::newRow("lblKeysBackupText")
        << "QLabel"
        << "frameKeysBackup" << QSize(0, 52) << QSize(QWIDGETSIZE_MAX, 52) << "Preferred/Fixed";
    QTest::newRow("ckbxKeysBackupCheck") << "QCheckBox"
                                         << "frameKeysBackup" << none << free << "";
    QTest::newRow("stackedWidget") << "QStackedWidget"
                                   << "UninstallContent" << none << free << "";
    QTest::newRow("pageProgress") << "QWidget"
                                  << "stackedWidget" << none << free << "";
    QTest::newRow("frameProgressBar") << "QFrame"
                                      << "pageProgress" << none << free << "";
    QTest::newRow("lblProgressInfo") << "QLabel"
                                     << "frameProgressBar" << none << free << "";
    QTest::newRow("progressBar") << "QProgressBar"
                                 << "frameProgressBar" << none << free << "";
    QTest::newRow("pageError") << "QWidget"
                               << "stackedWidget" << none << free << "";
    QTest::newRow("frameErrorsUninstaller")
        << "QFrame"
        << "pageError" << none << QSize(QWIDGETSIZE_MAX, 54) << "Expanding/Fixed";
    QTest::newRow("UIErrorsContent") << "QFrame"
                                     << "frameErrorsUninstaller" << QSize(0, 44)
                                     << QSize(QWIDGETSIZE_MAX, 44) << "Expanding/Fixed";
    QTest::newRow("lblErrorsIcon") << "QLabel"
                                   << "UIErrorsContent" << none << QSize(32, 32) << "";
    QTest::newRow("lblErrorsText") << "QLabel"
                                   << "UIErrorsContent" << none << free << "Expanding/Preferred";
    QTest::newRow("SubNavi") << "QWidget"
                             << "UninstallContent" << QSize(410, 40) << QSize(410, QWIDGETSIZE_MAX)
                             << "Expanding/Fixed";
    QTest::newRow("dbbSubNaviButton") << "QDialogButtonBox"
                                      << "SubNavi" << none << free << "MinimumExpanding/Fixed";
}

void tst_UninstallMainWindowForm::widgets()
{
    QFETCH(QString, className);
    QFETCH(QString, parentName);
    QFETCH(QSize, minimum);
    QFETCH(QSize, maximum);
    QFETCH(QString, policy);

    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    const QString name = QString::fromLatin1(QTest::currentDataTag());
    const QList<QWidget *> found = window.findChildren<QWidget *>(name);
    QCOMPARE(found.size(), 1);
    QWidget *widget = found.first();
    QCOMPARE(QString::fromLatin1(widget->metaObject()->className()), className);
    QVERIFY(widget->parentWidget());
    QCOMPARE(widget->parentWidget()->objectName(), parentName);
    QCOMPARE(widget->minimumSize(), minimum);
    QCOMPARE(widget->maximumSize(), maximum);
    if (!policy.isEmpty()) {
        const QSizePolicy actual = widget->sizePolicy();
        QCOMPARE(policyName(actual.horizontalPolicy()) + u'/' + policyName(actual.verticalPolicy()),
            policy);
    }
}

void tst_UninstallMainWindowForm::layouts_data()
{
    QTest::addColumn<QString>("host");
    QTest::addColumn<int>("spacing"); // -1: the style's
    QTest::addColumn<QList<int>>("margins"); // left, top, right, bottom; -1: the style's
    QTest::addColumn<QStringList>("items");

    QTest::newRow("verticalLayout") << "UninstallContent" << 0 << QList<int> {0, 0, 0, 0}
                                    << QStringList {"UIHeader", "frameKeysBackup", "stackedWidget",
                                           "spacer 388x21 Minimum/Expanding", "SubNavi"};
    QTest::newRow("horizontalLayout_4")
        << "UIHeader" << 0 << QList<int> {0, 10, 0, 10}
        << QStringList {"spacer 5x20 Fixed/Minimum", "HeaderIcon", "spacer 10x20 Fixed/Minimum",
               "HeaderHeadline", "spacer 10x20 Fixed/Minimum"};
    QTest::newRow("gridLayout") << "frameKeysBackup" << 0 << QList<int> {0, 0, 0, 0}
                                << QStringList {"UIHeader2 @1,0 1x3",
                                       "spacer 10x88 Fixed/Minimum @2,0 3x1",
                                       "lblKeysBackupText @2,1 2x1",
                                       "spacer 20x88 Fixed/Minimum @3,2 2x1",
                                       "ckbxKeysBackupCheck @4,1 1x1"};
    QTest::newRow("horizontalLayout_5") << "UIHeader2" << 0 << QList<int> {0, 0, 0, 0}
                                        << QStringList {"spacer 10x17 Fixed/Minimum",
                                               "lblHeaderHeadline2", "spacer 10x17 Fixed/Minimum"};
    QTest::newRow("verticalLayout_2")
        << "pageProgress" << 0 << QList<int> {0, 0, 0, 0} << QStringList {"frameProgressBar"};
    QTest::newRow("verticalLayout_3") << "frameProgressBar" << -1 << QList<int> {10, -1, 10, 20}
                                      << QStringList {"lblProgressInfo", "progressBar"};
    QTest::newRow("verticalLayout_5")
        << "pageError" << 0 << QList<int> {0, 0, 0, 0} << QStringList {"frameErrorsUninstaller"};
    QTest::newRow("verticalLayout_4") << "frameErrorsUninstaller" << 0 << QList<int> {10, 5, 10, 5}
                                      << QStringList {"UIErrorsContent"};
    QTest::newRow("horizontalLayout_6")
        << "UIErrorsContent" << -1 << QList<int> {5, 5, 5, 5}
        << QStringList {"lblErrorsIcon", "spacer 5x0 Fixed/Minimum", "lblErrorsText"};
    QTest::newRow("_4") << "SubNavi" << 6 << QList<int> {6, 0, 6, 0}
                        << QStringList {"spacer 31x38 Expanding/Minimum @0,1 1x1",
                               "dbbSubNaviButton @0,2 1x1"};
}

void tst_UninstallMainWindowForm::layouts()
{
    QFETCH(QString, host);
    QFETCH(int, spacing);
    QFETCH(QList<int>, margins);
    QFETCH(QStringList, items);

    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    QWidget *widget = window.findChild<QWidget *>(host);
    QVERIFY(widget);
    QLayout *layout = widget->layout();
    QVERIFY(layout);
    QCOMPARE(layout->objectName(), QString::fromLatin1(QTest::currentDataTag()));
    if (spacing >= 0) {
        auto *grid = qobject_cast<QGridLayout *>(layout);
        QCOMPARE(grid ? grid->horizontalSpacing() : layout->spacing(), spacing);
    }
    const QMargins actual = layout->contentsMargins();
    const QList<int> got {actual.left(), actual.top(), actual.right(), actual.bottom()};
    for (int i = 0; i < 4; ++i) {
        if (margins.at(i) >= 0)
            QCOMPARE(got.at(i), margins.at(i));
    }
    QCOMPARE(describeItems(layout), items);
}

void tst_UninstallMainWindowForm::frames()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    for (QFrame *frame : {ui.UIHeader, ui.frameKeysBackup, ui.UIHeader2, ui.frameProgressBar,
             ui.frameErrorsUninstaller}) {
        QCOMPARE(frame->frameShape(), QFrame::StyledPanel);
        QCOMPARE(frame->frameShadow(), QFrame::Raised);
    }
    QCOMPARE(ui.UIErrorsContent->frameShape(), QFrame::StyledPanel);
    QCOMPARE(ui.UIErrorsContent->frameShadow(), QFrame().frameShadow());
}

void tst_UninstallMainWindowForm::navigationGradient()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    QVERIFY(!ui.SubNavi->autoFillBackground());
    QCOMPARE(ui.SubNavi->font().pointSize(), 11);
    const QPalette palette = ui.SubNavi->palette();
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        for (QPalette::ColorRole role : {QPalette::Button, QPalette::Base, QPalette::Window}) {
            const QBrush brush = palette.brush(group, role);
            QCOMPARE(brush.style(), Qt::LinearGradientPattern);
            const auto *gradient = static_cast<const QLinearGradient *>(brush.gradient());
            QCOMPARE(gradient->coordinateMode(), QGradient::ObjectBoundingMode);
            QCOMPARE(gradient->start(), QPointF(0, 0.45));
            QCOMPARE(gradient->finalStop(), QPointF(0, 0.6));
            const QGradientStops expected {
                {0.0, QColor(232, 232, 232, 255)}, {1.0, QColor(184, 184, 184, 255)}};
            QCOMPARE(gradient->stops(), expected);
        }
    }
}

void tst_UninstallMainWindowForm::designTimeState()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);

    QCOMPARE(ui.stackedWidget->currentIndex(), 1);
    QCOMPARE(ui.stackedWidget->currentWidget(), ui.pageError);
    QCOMPARE(
        ui.dbbSubNaviButton->standardButtons(), QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    QCOMPARE(ui.dbbSubNaviButton->buttons().size(), 2);
    QCOMPARE(ui.progressBar->value(), 24);
    QVERIFY(!ui.progressBar->isTextVisible());
    QCOMPARE(ui.lblErrorsText->text(), QString(43, u'.'));
    QCOMPARE(ui.lblErrorsText->alignment(), Qt::AlignLeading | Qt::AlignLeft | Qt::AlignVCenter);
    QVERIFY(ui.HeaderHeadline->wordWrap());
    QVERIFY(ui.lblKeysBackupText->wordWrap());
    QVERIFY(ui.lblHeaderHeadline2->wordWrap());
    QCOMPARE(ui.HeaderIcon->font().pointSize(), 11);
    QVERIFY(ui.UIHeader2->styleSheet().isEmpty());
    QVERIFY(ui.UIErrorsContent->styleSheet().isEmpty());

    // Both pictures come from the embedded resources, scaled into their labels.
    for (QLabel *label : {ui.HeaderIcon, ui.lblErrorsIcon}) {
        QVERIFY(label->hasScaledContents());
        QCOMPARE(label->pixmap().size(), QSize(256, 256));
        QVERIFY(label->text().isEmpty());
    }
}

void tst_UninstallMainWindowForm::retranslation()
{
    QMainWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    const QString sentence
        = QStringLiteral("Please click \"OK\" to start the Uninstall for Brisvane.");
    QCOMPARE(ui.lblKeysBackupText->text(), sentence);
    QCOMPARE(ui.HeaderHeadline->text(), QStringLiteral("Brisvnae Uninstall"));

    MarkingTranslator translator;
    QVERIFY(QCoreApplication::installTranslator(&translator));
    translator.asked.clear(); // installing retranslates nothing of ours, but be sure
    ui.retranslateUi(&window);
    QCoreApplication::removeTranslator(&translator);

    QCOMPARE(translator.asked,
        QStringList({"MainWindow", "Brisvnae Uninstall", "Backup Keys", "uninstalling ..."}));
    QCOMPARE(window.windowTitle(), QStringLiteral("<MainWindow>"));
    QCOMPARE(ui.HeaderHeadline->text(), QStringLiteral("<Brisvnae Uninstall>"));
    QCOMPARE(ui.ckbxKeysBackupCheck->text(), QStringLiteral("<Backup Keys>"));
    QCOMPARE(ui.lblProgressInfo->text(), QStringLiteral("<uninstalling ...>"));
    QCOMPARE(ui.lblKeysBackupText->text(), sentence);
    QCOMPARE(ui.lblErrorsText->text(), QString(43, u'.'));
}

namespace {
class NamedSlotsWindow : public QMainWindow
{
    Q_OBJECT
public:
    int accepted = 0;
private slots:
    void on_dbbSubNaviButton_accepted() { ++accepted; }
};
} // namespace

void tst_UninstallMainWindowForm::slotsConnectedByName()
{
    NamedSlotsWindow window;
    Ui_UninstallMainWindow ui;
    ui.setupUi(&window);
    ui.dbbSubNaviButton->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(window.accepted, 1);
}

QTEST_MAIN(tst_UninstallMainWindowForm)
#include "tst_uninstallmainwindowform.moc"
