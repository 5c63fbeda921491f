#pragma once

#include "CUninstallRun.h"

#include <QDateTime>
#include <QJsonObject>

#include <optional>

// The machine-readable account of a command-line run (--report), one JSON object:
// docs/report.schema.json describes it.
namespace UninstallReport {

// `remaining` is what the check after a run that succeeded found still there; null when
// no such check was made.
QJsonObject build(const QList<CUninstallRun::Record> &records, bool dryRun,
    const QDateTime &started, const QDateTime &finished, int exitCode, const QString &message,
    const std::optional<QStringList> &remaining = std::nullopt);

// Writes `report` to `file`, or to standard output for "-". False with `error` set when
// the file cannot be written.
bool write(const QString &file, const QJsonObject &report, QString *error);

} // namespace UninstallReport
