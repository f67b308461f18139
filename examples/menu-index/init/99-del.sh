#!/bin/sh
# The index is made on the machine, so no list of the package has it.
rm -rf /var/cache/menu-index
echo "$VRK_NAME: removed the index"
