#include "userdatabase.h"

#include <QFile>

#include <pwd.h>
#include <sys/types.h>

namespace UserDatabase {

namespace {

Account fromEntry(const passwd &entry)
{
    Account account;
    account.name = QFile::decodeName(entry.pw_name);
    account.home = QFile::decodeName(entry.pw_dir);
    account.uid = entry.pw_uid;
    account.gid = entry.pw_gid;
    return account;
}

} // namespace

std::optional<Account> byName(const QString &name)
{
    if (name.isEmpty())
        return std::nullopt;
    const passwd *entry = ::getpwnam(QFile::encodeName(name).constData());
    if (!entry)
        return std::nullopt;
    return fromEntry(*entry);
}

std::optional<Account> byUid(qint64 uid)
{
    const passwd *entry = ::getpwuid(uid_t(uid));
    if (!entry)
        return std::nullopt;
    return fromEntry(*entry);
}

QList<Account> all()
{
    QList<Account> accounts;
    ::setpwent();
    while (const passwd *entry = ::getpwent())
        accounts.append(fromEntry(*entry));
    ::endpwent();
    return accounts;
}

} // namespace UserDatabase
