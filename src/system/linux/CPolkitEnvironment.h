#pragma once

#include <QByteArrayList>

// What the polkit backend looks at when it opens a session.
struct CPolkitEnvironment
{
    bool isRoot = false;
    // Where pkexec may be installed, tried in order. Fixed locations only: the PATH is the
    // user's to change, and whatever it finds first would be handed the root script.
    QByteArrayList pkexecLocations;

    // The machine as it is. Defined in a file of its own, so that a test program can link
    // its own definition instead and play any machine.
    static CPolkitEnvironment system();
};
