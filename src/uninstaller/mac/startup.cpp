#include "startup.h"

#include "threading/assertions/assertion.h"

#include <QApplication>
#include <QFile>
#include <QLocale>
#include <QTranslator>

#undef BV_SOURCE_FILE
#define BV_SOURCE_FILE "src/uninstaller/mac/main"

bool loadTranslations(QTranslator *translator)
{
    if (!QCoreApplication::instance())
        return false;

    const QString dir
        = QCoreApplication::applicationDirPath() + QStringLiteral("/../Translations/");
    BV_DEBUG() << dir << "StartUp" << QLocale::system().name();

    QString appLanguage = QStringLiteral("en");
    QString qtLanguage = QStringLiteral("en");
    chooseLanguage(dir, appLanguage, qtLanguage);
    BV_DEBUG() << appLanguage << qtLanguage;

    // One translator on purpose: after two good loads it holds the uninstaller catalogue,
    // which is installed last.
    if (!translator->load(QStringLiteral("qt_") + qtLanguage, dir))
        BV_CRITICAL() << "failed loading" << QStringLiteral("%1qt_%2").arg(dir, qtLanguage);
    else
        QCoreApplication::installTranslator(translator);

    if (!translator->load(QStringLiteral("UnInstallerMac_") + appLanguage, dir))
        BV_CRITICAL() << "failed loading"
                      << QStringLiteral("%1UnInstallerMac_%2").arg(dir, appLanguage);
    else
        QCoreApplication::installTranslator(translator);

    return true;
}

void chooseLanguage(const QString &translationsDir, QString &appLanguage, QString &qtLanguage)
{
    QString language = QStringLiteral("en");
    const QStringList parts
        = QLocale::system().name().split(QLatin1Char('_'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (!parts.isEmpty())
        language = parts.first();

    if (QFile::exists(QStringLiteral("%1UnInstallerMac_%2.qm").arg(translationsDir, language)))
        appLanguage = language;
    if (QFile::exists(QStringLiteral("%1qt_%2.qm").arg(translationsDir, language)))
        qtLanguage = language;
}

bool loadStylesheet()
{
    QFile file(
        QCoreApplication::applicationDirPath() + QStringLiteral("/../Resources/mac_BSVN.css"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        BV_CRITICAL() << "unable to open sylesheet" << file.fileName();
        return false;
    }

    auto *app = qobject_cast<QApplication *>(QCoreApplication::instance());
    if (!app || !app->styleSheet().isEmpty())
        return true;

    app->setStyleSheet(QString::fromLatin1(file.readAll()));
    return true;
}
