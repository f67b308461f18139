#!/bin/sh
# Refuses the removal while somebody signs: the program would vanish under the guest's hands.
if [ -d /var/lib/guestbook/lock ]; then
    echo "$VRK_NAME: somebody is signing the book" >&2
    exit 1
fi
