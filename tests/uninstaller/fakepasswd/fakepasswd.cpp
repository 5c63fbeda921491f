// bv_fakepasswd: a user database of the test's own, so that tests can act for accounts
// that do not exist on the machine, with homes inside their sandbox. Load it with
// LD_PRELOAD and name a file in the passwd format:
//     BV_PASSWD_FILE=<sandbox>/passwd
// getpwnam, getpwuid, getpwent (with setpwent and endpwent) and their _r forms then answer
// from that file only; without the variable they are the system's own.

#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <pwd.h>
#include <string>
#include <sys/types.h>
#include <vector>

namespace {

struct Account
{
    std::string name, password, gecos, home, shell;
    uid_t uid = 0;
    gid_t gid = 0;
};

const char *databaseFile()
{
    return std::getenv("BV_PASSWD_FILE");
}

std::vector<Account> readDatabase()
{
    std::vector<Account> accounts;
    FILE *file = std::fopen(databaseFile(), "re");
    if (!file)
        return accounts;
    char line[4096];
    while (std::fgets(line, sizeof line, file)) {
        std::vector<std::string> fields;
        std::string field;
        for (const char *c = line; *c && *c != '\n'; ++c) {
            if (*c == ':') {
                fields.push_back(field);
                field.clear();
            } else {
                field += *c;
            }
        }
        fields.push_back(field);
        if (fields.size() != 7)
            continue;
        Account account;
        account.name = fields[0];
        account.password = fields[1];
        account.uid = uid_t(std::strtoul(fields[2].c_str(), nullptr, 10));
        account.gid = gid_t(std::strtoul(fields[3].c_str(), nullptr, 10));
        account.gecos = fields[4];
        account.home = fields[5];
        account.shell = fields[6];
        accounts.push_back(account);
    }
    std::fclose(file);
    return accounts;
}

// Fills `entry` with strings kept in `buffer`; ERANGE when it is too small.
int fill(const Account &account, passwd *entry, char *buffer, size_t size)
{
    char *next = buffer;
    size_t left = size;
    auto put = [&](const std::string &text) -> char * {
        if (text.size() + 1 > left)
            return nullptr;
        char *at = next;
        std::memcpy(at, text.c_str(), text.size() + 1);
        next += text.size() + 1;
        left -= text.size() + 1;
        return at;
    };
    entry->pw_name = put(account.name);
    entry->pw_passwd = put(account.password);
    entry->pw_gecos = put(account.gecos);
    entry->pw_dir = put(account.home);
    entry->pw_shell = put(account.shell);
    if (!entry->pw_name || !entry->pw_passwd || !entry->pw_gecos || !entry->pw_dir
        || !entry->pw_shell)
        return ERANGE;
    entry->pw_uid = account.uid;
    entry->pw_gid = account.gid;
    return 0;
}

passwd g_Entry;
char g_Buffer[8192];
size_t g_Position = 0;

template<typename Match> passwd *findStatic(Match match)
{
    for (const Account &account : readDatabase()) {
        if (match(account))
            return fill(account, &g_Entry, g_Buffer, sizeof g_Buffer) == 0 ? &g_Entry : nullptr;
    }
    return nullptr;
}

template<typename Match>
int findReentrant(Match match, passwd *entry, char *buffer, size_t size, passwd **result)
{
    *result = nullptr;
    for (const Account &account : readDatabase()) {
        if (match(account)) {
            const int error = fill(account, entry, buffer, size);
            if (error == 0)
                *result = entry;
            return error;
        }
    }
    return 0;
}

template<typename Function> Function real(const char *name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

passwd *getpwnam(const char *name)
{
    if (!databaseFile())
        return real<passwd *(*)(const char *)>("getpwnam")(name);
    return findStatic([name](const Account &a) { return a.name == name; });
}

passwd *getpwuid(uid_t uid)
{
    if (!databaseFile())
        return real<passwd *(*)(uid_t)>("getpwuid")(uid);
    return findStatic([uid](const Account &a) { return a.uid == uid; });
}

int getpwnam_r(const char *name, passwd *entry, char *buffer, size_t size, passwd **result)
{
    if (!databaseFile())
        return real<int (*)(const char *, passwd *, char *, size_t, passwd **)>("getpwnam_r")(
            name, entry, buffer, size, result);
    return findReentrant(
        [name](const Account &a) { return a.name == name; }, entry, buffer, size, result);
}

int getpwuid_r(uid_t uid, passwd *entry, char *buffer, size_t size, passwd **result)
{
    if (!databaseFile())
        return real<int (*)(uid_t, passwd *, char *, size_t, passwd **)>("getpwuid_r")(
            uid, entry, buffer, size, result);
    return findReentrant(
        [uid](const Account &a) { return a.uid == uid; }, entry, buffer, size, result);
}

void setpwent()
{
    if (!databaseFile())
        return real<void (*)()>("setpwent")();
    g_Position = 0;
}

void endpwent()
{
    if (!databaseFile())
        return real<void (*)()>("endpwent")();
    g_Position = 0;
}

passwd *getpwent()
{
    if (!databaseFile())
        return real<passwd *(*)()>("getpwent")();
    const std::vector<Account> accounts = readDatabase();
    if (g_Position >= accounts.size())
        return nullptr;
    const Account &account = accounts[g_Position++];
    return fill(account, &g_Entry, g_Buffer, sizeof g_Buffer) == 0 ? &g_Entry : nullptr;
}

} // extern "C"
