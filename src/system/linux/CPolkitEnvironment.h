#pragma once

#include <QByteArrayList>

#include <optional>

// What the polkit backend looks at when it opens a session.
struct CPolkitEnvironment
{
    bool isRoot = false;
    // Where pkexec may be installed, tried in order. Fixed locations only: the PATH is the
    // user's to change, and whatever it finds first would be handed the root script.
    QByteArrayList pkexecLocations;

    static CPolkitEnvironment system();
};

// Sessions opened after this call see `environment` instead of the real system;
// std::nullopt restores it. For tests only.
void overridePolkitEnvironment(const std::optional<CPolkitEnvironment> &environment);
