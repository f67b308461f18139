# shellcheck shell=bash
# The judge of the tests about attacks: what a command changed on the whole machine. It knows
# nothing of the package manager but the places that are not compared.
#
# In the sandbox every directory tree is an overlay. Whatever was ever changed in one lies in its
# upper layer, a deletion too. So a record of the upper layers is a record of the machine, and it is
# quick, as they hold little.

# The places that a refused change may touch, the notes of sudo, and the files of the tests.
places_not_compared() {
    printf '%s\n' /var/lib/vrm/stagearea/'*' /var/log/pvrm.log "${BATS_RUN_TMPDIR:-/nowhere}" \
        /run/sudo
}

# The overlays of the sandbox: mount point (without the slash of the root), upper layer and lower
# layer, with a | between. The layers are seen from process 1, which was there before the sandbox
# had its root.
overlays() {
    awk '/ - overlay / {
        upper = lower = $NF
        sub(/.*upperdir=/, "", upper); sub(/,.*/, "", upper)
        sub(/.*lowerdir=/, "", lower); sub(/,.*/, "", lower); sub(/\/$/, "", lower)
        sub(/\/$/, "", $5)
        printf "%s|/proc/1/root%s|/proc/1/root%s\n", $5, upper, lower
    }' /proc/self/mountinfo
}

# Describes the files that find finds. Each line begins with the path and a tab. Times and sizes of
# directories are left out: a temporary file that came and went is not a change. The content of a
# large file, such as a program, is its time of change, which no other content leaves as it is.
describe() { # FILE-FOR-WORK ARGUMENTS OF FIND...
    : >"$1.all"
    : >"$1.small"
    # -links: without a look at the file itself find takes a device that is mounted on a file for one.
    find "${@:2}" -links +0 -fprint0 "$1.all" \
        \( -type d -printf '%p\tdirectory %m %U:%G\0' \
        -o -type l -printf '%p\tlink %U:%G to %l\0' \
        -o -type f -printf '%p\tfile %m %U:%G, %s bytes, %n names, of %T@\0' \
        \( -size +1M -printf '%p\tcontent of %i, %C@\0' -o -fprint0 "$1.small" \) \
        -o -type p -printf '%p\tpipe %m %U:%G\0' \
        -o -type s -printf '%p\tsocket %m %U:%G\0' \
        -o -exec stat --printf '%n\tdevice %F %a %u:%g %t,%T\0' '{}' ';' \) >"$1.kinds"
    xargs -0r sha1sum -z -- <"$1.small" |
        sed -z 's/^\([0-9a-f]*\)  \(.*\)/\2\tcontent \1/' | cat "$1.kinds" - | tr '\n\0' '\001\n'
    xargs -0r getfattr --absolute-names -h -d -m - -e hex -- <"$1.all" | awk '
        /^# file: / { path = substr($0, 9); next }
        /^trusted\.overlay\.(origin|impure|nlink|uuid|protattr)=/ { next }
        NF { print path "\tattribute " $0 }'
}

# Writes down the machine as it is now.
record_machine() { # FILE
    local mount upper lower place roots=(/dev) skipped=() paths=()
    while IFS='|' read -r mount upper lower; do
        roots+=("$upper")
        paths+=(-e "s|^$upper|$mount|")
        while read -r place; do
            [[ $place != "$mount"/* ]] || skipped+=(-path "$upper${place#"$mount"}" -prune -o)
        done < <(places_not_compared)
    done < <(overlays)
    ((${#roots[@]} > 1)) || {
        echo 'this is not the sandbox: nothing here is an overlay' >&2
        return 1
    }
    describe "$1.work" "${roots[@]}" -xdev "${skipped[@]}" |
        sed "${paths[@]}" -e 's|^	|/	|' | LC_ALL=C sort >"$1"
}

# The lines of a record whose paths have none in the other: what has come into an upper layer.
lines_of_new_paths() { # RECORD OTHER
    awk -F '\t' 'NR == FNR { known[$1]; next } !($1 in known)' "$2" "$1"
}

# Describes, as they are in the lower layers, the paths of these lines.
describe_below() { # FILE-WITH-LINES
    local mount upper lower name
    while IFS='|' read -r mount upper lower; do
        # A path can be of several mount points; it is in the lower layer of one at most.
        while IFS= read -r name; do
            name=$lower/${name//$'\001'/$'\n'}
            [[ ! -e $name && ! -L $name ]] || printf '%s\0' "$name"
        done < <(cut -f 1 "$1" | sort -u | sed -n "s|^$mount/||p") >"$1.names"
        [[ ! -s $1.names ]] || describe "$1.work" -files0-from "$1.names" -maxdepth 0 |
            sed -e "s|^$lower|$mount|" -e 's|^/	|	|' -e 's|^	|/	|'
    done < <(overlays)
}

# Prints what differs between two records: "-" before what was, "+" before what is. A path that has
# come into an upper layer and is the same as below it was not changed, such as the parents of what
# was made and removed again.
machine_changes() { # BEFORE AFTER
    ! cmp -s "$1" "$2" || return 0
    lines_of_new_paths "$2" "$1" >"$2.new"
    describe_below "$2.new" | LC_ALL=C sort -u "$1" - >"$2.before"
    {
        LC_ALL=C comm -23 "$2.before" "$2" | sed 's/^/- /'
        LC_ALL=C comm -13 "$2.before" "$2" | sed 's/^/+ /'
    } | LC_ALL=C sort -s -k 2,2 -t ' '
}
