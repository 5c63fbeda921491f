#!/bin/bash
# Removes what the Brisvane installation put outside the user's home: the
# file-system-events daemon, the machine-wide support folder and the
# installation folder. Runs as root. Prints the status of the removal as its
# last line and always exits 0: the uninstaller judges by that line only.
#
# The uninstaller fills in the installation folder below; run by hand, the
# script takes it as its first argument.

# Plain POSIX syntax for the function and the test: the privileged shell is /bin/sh,
# which is bash on a Mac but need not be elsewhere.
execute()
{
    INSTALL_FOLDER="%1"
    # Written in two pieces so that filling in the folder cannot change it.
    if [ "$INSTALL_FOLDER" = '%'"1" ]; then
        INSTALL_FOLDER=$1
    fi

    if [ -z "$INSTALL_FOLDER" ]; then
        echo "usage: $0 <path to Brisvane Installation>"
        return 1
    fi

    LOAD="/Library/LaunchDaemons/com.brisvane.fseventsdaemon.plist"
    LOAD_OLD="/Library/LaunchDaemons/FSEventsDeamon.plist"
    APPSUPPORT="/Library/Application Support/Brisvane"

    if [ -f "$LOAD" ]; then
        launchctl unload "$LOAD" 2&>/dev/null || echo "failed to uninstall $LOAD"
        sudo launchctl unload "$LOAD" 2&>/dev/null || echo "failed to uninstall $LOAD"
        sleep 1
        rm -f "$LOAD" || echo "failed to remove $LOAD"
    fi

    if [ -f "$LOAD_OLD" ]; then
        launchctl unload "$LOAD_OLD" 2&>/dev/null || echo "failed to uninstall $LOAD_OLD"
        sudo launchctl unload "$LOAD_OLD" 2&>/dev/null || echo "failed to uninstall $LOAD_OLD"
        sleep 1
        rm -f "$LOAD_OLD" || echo "failed to remove $LOAD_OLD"
    fi

    rm -rf "$APPSUPPORT" || echo "failed to remove $APPSUPPORT"

    rm -rf "$INSTALL_FOLDER"
}

execute $*
echo $?
exit 0
