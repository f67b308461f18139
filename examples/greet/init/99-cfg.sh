#!/bin/sh
# Says at once when the configuration names a language that there is no phrase in. A greet.conf that
# stood on the machine before is kept, so it may. This waits for the end of all installations since
# only then everything that greet needs is sure to be there.
language=en
# shellcheck source=/dev/null
[ ! -r /etc/greet.conf ] || . /etc/greet.conf
if [ -f "/usr/share/phrases/$language.txt" ]; then
    echo "$VRK_NAME: greets in the language $language"
else
    echo "$VRK_NAME: /etc/greet.conf: there are no phrases in $language, greets in en" >&2
fi
