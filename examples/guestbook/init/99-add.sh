#!/bin/sh
# Begins the book. It is no file of the package, as each installation and update would replace it and
# a removal would take the guests' names with it. The directory is there by now, with its mode.
if [ -e /var/lib/guestbook/book ]; then
    echo "$VRK_NAME: keeps the book that was there ($VRM_MODE of $VRK_VERSION)"
else
    echo "Signed since version $VRK_VERSION:" >/var/lib/guestbook/book
    echo "$VRK_NAME: began a new book ($VRM_MODE of $VRK_VERSION)"
fi
