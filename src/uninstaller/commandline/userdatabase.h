#pragma once

#include <QList>
#include <QString>

#include <optional>

// The accounts of the system's user database (getpwnam and friends), as far as an
// uninstall needs them.
namespace UserDatabase {

struct Account
{
    QString name;
    QString home;
    qint64 uid = -1;
    qint64 gid = -1;
};

std::optional<Account> byName(const QString &name);
std::optional<Account> byUid(qint64 uid);
// Every account, in the database's order.
QList<Account> all();

} // namespace UserDatabase
