#!/bin/sh
# Indexes the entries of the packages that came before this one. From now on its hook does that: the
# package manager reads the hooks when it starts, so this run doesn't know it yet.
/usr/sbin/menu-index-update "$VRK_NAME"
