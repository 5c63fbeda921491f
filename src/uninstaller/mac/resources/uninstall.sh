#!/bin/bash
# Removes Brisvane outside the home as root

function execute
{
	INSTALL_FOLDER="%1"
	if [ "$INSTALL_FOLDER" == '%'"1" ]; then
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
