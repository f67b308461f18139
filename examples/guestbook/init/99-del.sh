#!/bin/sh
# The names are the guests' and not the package's: they stay, and the administrator is told where.
if [ -e /var/lib/guestbook/book ]; then
    echo "$VRK_NAME: the guests' names stay in /var/lib/guestbook/book"
fi
