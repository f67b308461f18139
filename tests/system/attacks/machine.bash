# shellcheck shell=bash
# The judge of the tests about attacks: what a command changed on the whole machine. It knows
# nothing of the package manager but the places that are not compared.
#
# In the sandbox every directory tree is an overlay. Whatever was ever changed in one lies in its
# upper layer, a deletion too. So a record of the upper layers is a record of the machine, and it is
# quick, as they hold little.
# shellcheck disable=SC2185  # find gets its paths from a file

# The places that a refused change may touch, the notes of sudo, and the files of the tests.
places_not_compared() {
    printf '%s\n' /var/lib/vrm/stagearea/'*' /var/log/pvrm.log "${BATS_RUN_TMPDIR:-/nowhere}" \
        /run/sudo
}

# The overlays of the sandbox: mount point, upper layer and lower layer, with a tab between. The
# layers are seen from process 1, which was there before the sandbox had its root.
overlays() {
    awk '/ - overlay / {
        upper = lower = $NF
        sub(/.*upperdir=/, "", upper); sub(/,.*/, "", upper)
        sub(/.*lowerdir=/, "", lower); sub(/,.*/, "", lower)
        printf "%s\t/proc/1/root%s\t/proc/1/root%s\n", $5, upper, lower
    }' /proc/self/mountinfo
}

# Lists the paths of a tree, relative to it and each with a null byte, without the places that are
# not compared.
names_below() { # DIRECTORY MOUNT-POINT
    local place skipped=()
    while read -r place; do
        [[ $place != "${2%/}"/* ]] || skipped+=(-path ".${place#"${2%/}"}" -prune -o)
    done < <(places_not_compared)
    (cd "$1" && find . -xdev "${skipped[@]}" -print0)
}

# Describes the paths that a file lists. Each line begins with the path and a tab. Times and sizes
# of directories are left out: a temporary file that came and went is not a change.
describe() { # DIRECTORY MOUNT-POINT FILE-WITH-NAMES
    local names
    names=$(realpath "$3")
    (
        cd "$1" || exit
        {
            find -files0-from "$names" -maxdepth 0 \
                \( -type d -printf '%p\tdirectory %m %U:%G\0' \
                -o -type l -printf '%p\tlink %U:%G to %l\0' \
                -o -type f -printf '%p\tfile %m %U:%G, %s bytes, %n names, of %T@\0' \
                -o -type p -printf '%p\tpipe %m %U:%G\0' \
                -o -type s -printf '%p\tsocket %m %U:%G\0' \
                -o -exec stat --printf '%n\tdevice %F %a %u:%g %t,%T\0' '{}' ';' \)
            # The programs are large. A file with another content has another time of change.
            find -files0-from "$names" -maxdepth 0 -type f -size +1M \
                -printf '%p\tcontent of %i, %C@\0'
            find -files0-from "$names" -maxdepth 0 -type f ! -size +1M -print0 |
                xargs -0r sha1sum -z -- |
                sed -z 's/^\([0-9a-f]*\)  \(.*\)/\2\tcontent \1/'
        } | tr '\n\0' '\001\n'
        xargs -0r getfattr --absolute-names -h -d -m - -e hex -- <"$names" | awk '
            /^# file: / { path = substr($0, 9); next }
            /^trusted\.overlay\.(origin|impure|nlink|uuid|protattr)=/ { next }
            NF { print path "\tattribute " $0 }'
    ) | sed "s|^\.|${2%/}|; s|^	|/	|"
}

# Writes down the machine as it is now.
record_machine() { # FILE
    local mount upper lower
    overlays >"$1.overlays"
    [[ -s $1.overlays ]] || {
        echo 'this is not the sandbox: nothing here is an overlay' >&2
        return 1
    }
    while IFS=$'\t' read -r mount upper lower; do
        names_below "$upper" "$mount" >"$1.names"
        describe "$upper" "$mount" "$1.names"
    done <"$1.overlays" >"$1.lines"
    names_below /dev /dev >"$1.names"
    describe /dev /dev "$1.names" >>"$1.lines"
    LC_ALL=C sort "$1.lines" >"$1"
}

# The lines of a record whose paths have none in the other: what has come into an upper layer.
lines_of_new_paths() { # RECORD OTHER
    awk -F '\t' 'NR == FNR { known[$1]; next } !($1 in known)' "$2" "$1"
}

# Describes, in the lower layers, the paths of these lines.
describe_below() { # FILE-WITH-LINES
    local mount upper lower
    while IFS=$'\t' read -r mount upper lower; do
        # A path can be of several mount points; it is in the lower layer of one at most.
        cut -f 1 "$1" | sort -u | sed -n "s|^${mount%/}/|./|p" | tr '\n\001' '\0\n' >"$1.asked"
        (cd "$lower" && while read -rd '' name; do
            [[ ! -e $name && ! -L $name ]] || printf '%s\0' "$name"
        done) <"$1.asked" >"$1.names"
        [[ ! -s $1.names ]] || describe "$lower" "$mount" "$1.names"
    done < <(overlays)
}

# Prints what differs between two records: "-" before what was, "+" before what is. A path that has
# come into an upper layer and is the same as below it was not changed, such as the parents of what
# was made and removed again.
machine_changes() { # BEFORE AFTER
    lines_of_new_paths "$2" "$1" >"$2.new"
    describe_below "$2.new" | LC_ALL=C sort -u "$1" - >"$2.before"
    LC_ALL=C sort -u "$2" >"$2.after"
    {
        LC_ALL=C comm -23 "$2.before" "$2.after" | sed 's/^/- /'
        LC_ALL=C comm -13 "$2.before" "$2.after" | sed 's/^/+ /'
    } | LC_ALL=C sort -s -k 2,2 -t ' '
}
