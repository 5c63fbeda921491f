#include "CUninstallThread.h"

CUninstallThread::CUninstallThread(const CUninstallRun::Options &options, QObject *parent)
    : CBasicThread(std::string("Uninstall"), false, parent)
    , m_Run(options,
          {[this](CUninstallRun::Step step, const UninstallUser &) { emit stepStarting(step); },
              nullptr})
{ }

void CUninstallThread::runMethod()
{
    m_Run.run();
}
