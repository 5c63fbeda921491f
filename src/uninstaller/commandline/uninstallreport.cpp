#include "uninstallreport.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <cstdio>

namespace UninstallReport {

namespace {

QJsonValue textOrNull(const QString &text)
{
    return text.isEmpty() ? QJsonValue(QJsonValue::Null) : QJsonValue(text);
}

QString timeStamp(const QDateTime &when)
{
    return when.toUTC().toString(Qt::ISODateWithMs);
}

} // namespace

QJsonObject build(const QList<CUninstallRun::Record> &records, bool dryRun,
    const QDateTime &started, const QDateTime &finished, int exitCode, const QString &message,
    const std::optional<QStringList> &remaining)
{
    QJsonArray steps;
    for (const CUninstallRun::Record &record : records) {
        QJsonObject step {
            {QStringLiteral("step"), QString::fromLatin1(CUninstallRun::stepName(record.step))},
            {QStringLiteral("user"), textOrNull(record.user)},
            {QStringLiteral("path"), textOrNull(record.path)},
            {QStringLiteral("result"),
                QString::fromLatin1(CUninstallRun::resultName(record.result))},
            {QStringLiteral("detail"), textOrNull(record.detail)},
            {QStringLiteral("bytesFreed"), record.bytes},
            {QStringLiteral("items"), QJsonArray::fromStringList(record.items)},
        };
        if (record.step == CUninstallRun::StepBackup)
            step.insert(QStringLiteral("target"), textOrNull(record.target));
        if (record.step == CUninstallRun::StepRemoveInstallation)
            step.insert(QStringLiteral("receipts"), QJsonArray::fromStringList(record.receipts));
        steps.append(step);
    }
    return QJsonObject {
        {QStringLiteral("schemaVersion"), 2},
        {QStringLiteral("product"), QStringLiteral("Brisvane")},
        {QStringLiteral("uninstallerVersion"), QCoreApplication::applicationVersion()},
        {QStringLiteral("dryRun"), dryRun},
        {QStringLiteral("started"), timeStamp(started)},
        {QStringLiteral("finished"), timeStamp(finished)},
        {QStringLiteral("exitCode"), exitCode},
        {QStringLiteral("message"), textOrNull(message)},
        {QStringLiteral("steps"), steps},
        {QStringLiteral("remaining"),
            remaining ? QJsonValue(QJsonArray::fromStringList(*remaining)) : QJsonValue()},
    };
}

bool write(const QString &file, const QJsonObject &report, QString *error)
{
    const QByteArray json = QJsonDocument(report).toJson(QJsonDocument::Indented);
    if (file == QLatin1String("-")) {
        std::fwrite(json.constData(), 1, size_t(json.size()), stdout);
        std::fflush(stdout);
        return true;
    }
    // A management tool that fetches the report must never see half of one.
    QSaveFile out(file);
    if (out.open(QIODevice::WriteOnly) && out.write(json) == json.size() && out.commit())
        return true;
    *error = out.errorString();
    return false;
}

} // namespace UninstallReport
