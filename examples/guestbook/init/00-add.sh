#!/bin/sh
# Refuses to go on where the book could not be kept. This comes before anything of the package is on
# the machine, so there is nothing to take back.
if [ -e /var/lib/guestbook ] && [ ! -d /var/lib/guestbook ]; then
    echo "$VRK_NAME: /var/lib/guestbook is in the way: it is no directory" >&2
    exit 1
fi
echo "$VRK_NAME: there is room for the book ($VRM_MODE of $VRK_VERSION)"
