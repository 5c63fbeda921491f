#include "CMainWindow.h"
#include "commandline.h"
#include "startup.h"
#include "supportlog.h"

#include "log/CLog.h"

#include <QApplication>
#include <QTranslator>

int main(int argc, char *argv[])
{
    // Management tools run the uninstaller without a display: no GUI application then.
    if (CommandLine::requested(argc, argv))
        return CommandLine::run(argc, argv);

    QApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Brisvane Uninstaller"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("brisvane.com"));
    QCoreApplication::setOrganizationName(QStringLiteral("brisvane"));

    // Kept for support, outside every folder the run deletes.
    const std::unique_ptr<CLog> log = SupportLog::start(SupportLog::defaultPath());

    QTranslator translator;
    if (!loadTranslations(&translator))
        return 1;

    loadStylesheet();

    CMainWindow window(nullptr);
    window.show();
    return app.exec();
}
