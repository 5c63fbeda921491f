#include "CPolkitEnvironment.h"

#include <unistd.h>

CPolkitEnvironment CPolkitEnvironment::system()
{
    CPolkitEnvironment environment;
    environment.isRoot = ::geteuid() == 0;
    environment.pkexecLocations = {"/usr/bin/pkexec", "/bin/pkexec"};
    return environment;
}
