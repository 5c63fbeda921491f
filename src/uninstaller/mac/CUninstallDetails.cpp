#include "CUninstallDetails.h"

#include "CUninstallActions.h"
#include "uninstallfootprint.h"

CUninstallDetails::CUninstallDetails(const QString &home, QObject *parent)
    : CBasicThread(std::string("Details"), false, parent)
    , m_Home(home)
{ }

CUninstallDetails::~CUninstallDetails()
{
    stop();
    wait();
}

void CUninstallDetails::runMethod()
{
    // The same lists, in the same order, as the steps of a run read them.
    QStringList paths;
    for (const UninstallFootprint::Item &item : UninstallFootprint::inHome(m_Home))
        paths << item.path;
    const QString installation = CUninstallActions::installationDirectory();
    if (!installation.isEmpty())
        paths << installation;
    for (const UninstallFootprint::Item &item :
        UninstallFootprint::onMachine(UninstallFootprint::machineLibrary()))
        paths << item.path;
    if (m_Stop)
        return;
    const QStringList receipts = UninstallFootprint::receipts(&m_Stop);
    if (m_Stop)
        return;
    emit listed(paths, receipts);

    for (int index = 0; index < paths.size(); ++index) {
        const qint64 bytes = UninstallFootprint::size(paths.at(index), &m_Stop);
        // A count cut short is no size.
        if (m_Stop)
            return;
        emit sized(index, bytes);
    }
}
