#pragma once

#include <QLatin1String>
#include <QString>

// The opaque session handle of Authorization Services, declared exactly as the system
// header does, so this header can be included without it.
struct AuthorizationOpaqueRef;
typedef const struct AuthorizationOpaqueRef *AuthorizationRef;

// Obtains administrator rights once and runs shell scripts as root with them.
//
// Construct (which opens the session), authorizeAsAdmin() with a name space from
// getRightNameSpace(), then shellExecuteWithPrivileges(). Failures are false results
// with one critical diagnostic line; nothing throws.
class CAuthorization
{
public:
    CAuthorization();
    virtual ~CAuthorization();

    void initialize();
    void finalize();

    // The application's reverse-domain identifier ("com.brisvane.<application name>",
    // lower case). Empty until the application object exists; cached from then on.
    static QString getReverseDomainNameString();
    static QString getRightNameSpace(const QString &name);

    bool acquireRight(QLatin1String rightName);
    // Makes sure the right "<rightNameSpace>.admin" exists, creating it with the
    // administrator rule (and acquiring it) when it does not. An empty name space selects
    // the product's own right.
    bool authorizeAsAdmin(const QString &rightNameSpace);
    // Feeds `script` to a root shell and collects its standard output. True means the
    // script was handed over and its output read; its exit status is not examined.
    bool shellExecuteWithPrivileges(const QString &script, QString &output);

private:
    Q_DISABLE_COPY(CAuthorization)

    AuthorizationRef m_AuthorizationRef;
};
