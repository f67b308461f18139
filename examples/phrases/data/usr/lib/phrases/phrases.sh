#!/bin/sh
# Phrases in several languages, to be read in by a program:
#     . /usr/lib/phrases/phrases.sh
# shellcheck source=/dev/null
. /usr/lib/textlib/text.sh

# phrase LANGUAGE KEY [WORD]: prints a phrase, with the word in it where the phrase has a place for
# one. A language that lacks the phrase, or is not there at all, gives the English one.
phrase() {
    phrase_text=$(text_value "/usr/share/phrases/$1.txt" "$2" 2>/dev/null) ||
        phrase_text=$(text_value /usr/share/phrases/en.txt "$2") || return 1
    case $phrase_text in
    *%s*) printf '%s%s%s\n' "${phrase_text%%%s*}" "${3-}" "${phrase_text#*%s}" ;;
    *) printf '%s\n' "$phrase_text" ;;
    esac
}
