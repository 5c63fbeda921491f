#!/bin/sh
# Removes what is left of Brisvane outside the homes as root, after the installation:
# launch agents, helper tools and preferences (links as links), then, once all of them
# are gone, forgets the package receipts. Every word below stands escaped in double
# quotes. The last line printed is 0 when everything went.

status=0
for item in %1; do
	if [ -e "$item" ] || [ -L "$item" ]; then
		rm -rf "$item" || { echo "failed to remove $item"; status=1; }
	fi
done

# A receipt outlives files that would not go: inventories still see the product.
if [ $status -eq 0 ]; then
	for receipt in %2; do
		pkgutil --forget "$receipt" >/dev/null 2>&1 || { echo "failed to forget $receipt"; status=1; }
	done
fi

echo $status
exit 0
