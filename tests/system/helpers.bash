# shellcheck shell=bash
# Loaded by the system tests: load helpers

# The file is run inside the throwaway root by ctest, or by hand:
#     scripts/sandbox bats tests/system/FILE.bats
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
build_dir=${VRM_BUILD_DIR:-$source_dir/build/release}
export source_dir build_dir

repository=/var/lib/vrm
export repository

# Fails the test with both texts when they differ.
assert_equal() { # ACTUAL EXPECTED
    [[ $1 == "$2" ]] || {
        printf 'expected: <%s>\nbut got:  <%s>\n' "$2" "$1" >&2
        return 1
    }
}

# After `run`: the exit status, with the output when it is another.
assert_status() { # EXPECTED
    # shellcheck disable=SC2154
    ((status == $1)) || {
        printf 'expected status %d but got %d, with the output:\n%s\n' "$1" "$status" "$output" >&2
        return 1
    }
}

# After `run`: one line of the output is this one.
assert_line() { # EXPECTED
    local line
    # shellcheck disable=SC2154
    for line in "${lines[@]}"; do
        [[ $line != "$1" ]] || return 0
    done
    printf 'no line is: <%s>\nin the output:\n%s\n' "$1" "$output" >&2
    return 1
}

# The shell blocks of a guide that stand below a line "<!-- run: NAME -->", in their order.
commands_of_guide() { # FILE NAME
    awk -v mark="<!-- run: $2 -->" '
        $0 == mark { marked = 1; next }
        marked && /^```/ { if (inside) marked = 0; inside = !inside; next }
        inside' "$source_dir/docs/$1"
}

# After `run`: the output holds this text.
assert_output_has() { # TEXT
    # shellcheck disable=SC2154
    [[ $output == *"$1"* ]] || {
        printf 'the text <%s>\nis not in the output:\n%s\n' "$1" "$output" >&2
        return 1
    }
}

# After `run`: the output does not hold this text.
refute_output_has() { # TEXT
    # shellcheck disable=SC2154
    [[ $output != *"$1"* ]] || {
        printf 'the text <%s>\nshould not be in the output:\n%s\n' "$1" "$output" >&2
        return 1
    }
}

# A line of the text that list and search give to what is no terminal.
report_row() { # NAME_VARIANT VERSION DESCRIPTION
    printf '%-25s %-15s %-35s' "$@"
}

# Runs a command as a user who owns nothing here.
as_nobody() { # COMMAND [ARGUMENT]...
    setpriv --reuid 65534 --regid 65534 --clear-groups "$@"
}

# --- Packages -------------------------------------------------------------------------------------

# A key and a certificate of this test file. Called by setup_file.
make_signer() {
    export signer_key=$BATS_FILE_TMPDIR/signer.key
    export signer_cert=$BATS_FILE_TMPDIR/signer.pem
    vrk-build keygen "/O=Test/CN=Builder" --key "$signer_key" --cert "$signer_cert"
}

# The path of the signer's certificate in the store of the repository.
signer_in_store() {
    echo "$repository/certstore/$(openssl x509 -noout -subject_hash -in "$signer_cert").crt"
}

trust_signer() {
    cp "$signer_cert" "$(signer_in_store)"
}

# What a file of tests begins with: a signer of packages who is trusted and, with `catalogue`, the
# catalogue of the text backend. Called by setup_file.
begin_tests() { # [catalogue]
    make_signer
    trust_signer
    [[ ${1-} != catalogue ]] || use_text_backend
}

# Makes a signed package file and prints its path. Each further argument is one of
#   version=V variant=V arch=A needs=NAME    attributes, `needs` as often as it takes
#   FORK/PATH=CONTENT                        a file, as in data/usr/share/foo/x=hello
#   out=DIR                                  where it goes, else into a directory of this test
# A package that is given no data holds /usr/share/NAME/about, with name and version in it.
package() { # NAME [WHAT=VALUE]...
    local name=$1 version=1.0 variant='' arch=any out=$BATS_TEST_TMPDIR/packages needs=() files=()
    local tree argument file
    shift
    for argument in "$@"; do
        case $argument in
        version=*) version=${argument#*=} ;;
        variant=*) variant=${argument#*=} ;;
        arch=*) arch=${argument#*=} ;;
        needs=*) needs+=("${argument#*=}") ;;
        out=*) out=${argument#*=} ;;
        *) files+=("$argument") ;;
        esac
    done
    [[ " ${files[*]}" == *" data/"* ]] || files+=("data/usr/share/$name/about=$name $version")
    mkdir -p "$out"
    tree=$(mktemp -d "$BATS_TEST_TMPDIR/tree.XXXXXX")
    {
        printf 'evrkName: %s\nevrkVersion: %s\nevrkArchitecture: %s\n' "$name" "$version" "$arch"
        printf 'evrkCreator: Test\nevrkDescription: The package %s for tests\n' "$name"
        [[ -z $variant ]] || printf 'evrkVariant: %s\n' "$variant"
        for argument in "${needs[@]}"; do printf 'evrkDependency: %s\n' "$argument"; done
    } >"$tree/package.ldif"
    for argument in "${files[@]}"; do
        file=$tree/${argument%%=*}
        mkdir -p "${file%/*}"
        printf '%s\n' "${argument#*=}" >"$file"
    done
    vrk-build pack "$tree" --key "$signer_key" --cert "$signer_cert" -o "$out"
    rm -rf "$tree"
}

# --- The catalogue --------------------------------------------------------------------------------

# Builds backends/text_backend.cpp under a name.
build_text_backend() { # NAME [OPTION]...
    mkdir -p /usr/lib/vrm
    g++ -std=c++20 -shared -fPIC -I "$source_dir/src" "${@:2}" -o "/usr/lib/vrm/$1" \
        "$source_dir/tests/system/backends/text_backend.cpp"
}

# Builds that backend, whose source says what it can do, and makes it the configured one, with
# an empty catalogue that is known. Called by setup_file.
use_text_backend() {
    build_text_backend text.so
    sed -i 's/^vrc_backend=.*/vrc_backend=text.so/' /etc/vrm.conf
    : >"$repository/catalogue.txt"
    : >"$repository/catalogue.known"
}

# Puts a package into the catalogue, by the fields that text_backend.cpp tells. With `known` in front
# the backend knows it already, else from the next refresh on.
offer() { # [known] NAME VARIANT VERSION ARCH-ID DESCRIPTION NEEDS FILE
    local to=txt IFS='|'
    if [[ $1 == known ]]; then
        to=known
        shift
    fi
    printf '%s\n' "$*|" >>"$repository/catalogue.$to"
}

# Makes a package file and puts it into the catalogue, known already; the arguments are those of
# `package`.
put_on_offer() { # NAME [WHAT=VALUE]...
    local argument version=1.0 variant='' wanted=''
    for argument in "${@:2}"; do
        case $argument in
        version=*) version=${argument#*=} ;;
        variant=*) variant=${argument#*=} ;;
        needs=*) wanted+=${wanted:+,}${argument#*=} ;;
        esac
    done
    offer known "$1" "$variant" "$version" 1 "The package $1 for tests" "$wanted" "$(package "$@")"
}

# Takes every package of the tests off the system, by hand, and the traces of running scripts, so that
# tests share one throwaway root.
clean_repository() {
    local index path
    for index in "$repository"/fileindex/*; do
        [[ -f $index ]] || continue
        while read -r path; do rm -f "$path"; done <"$index"
    done
    rm -rf "$repository"/{installed,fileindex,stagearea,saved,left_links}
    mkdir "$repository"/{installed,fileindex,stagearea}
    rm -f "$repository"/{install.log,catalogue.*} /var/log/pvrm.log
    : >"$repository/catalogue.txt"
    : >"$repository/catalogue.known"
    # What scripts of packages and their tests signal by.
    rm -f /tmp/{started,go,out,ran,configured}
}

is_installed() { # NAME
    [[ -f $repository/installed/$1/inst.txt ]]
}

# Nothing of the package is in the inventory. A test does not fail at a command with "!".
refute_installed() { # NAME
    [[ ! -e $repository/installed/$1 && ! -e $repository/fileindex/$1 ]]
}

version_of() { # NAME
    sed -n 's/^evrkVersion: //p' "$repository/installed/$1/desc.txt"
}

# After `run`: the change of a package was refused for the sake of the backups of one that was killed.
assert_backups_in_the_way() { # ID
    assert_line "pvrm: cannot begin with $1: $repository/stagearea/$1 holds backups of a change that was cut off; put them back as \"Recovering\" in the administrator's guide describes and delete the directory, or only delete the directory when that change had come to its end, and try again"
}

# What the guide says to do then.
put_backups_back() { # ID
    (cd "$repository/stagearea/$1/old" &&
        while read -r path; do cp -a ".$path" "$path"; done <index.txt)
    rm -r "$repository/stagearea/$1"
}

# The history without its dates; a line with none stays as it is and so is noticed.
history_lines() {
    sed -E 's/^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}: //' "$repository/install.log"
}

install_type() { # NAME
    sed -n 's/^evrkInstallType: //p' "$repository/installed/$1/inst.txt"
}

# --- Terminals and processes ----------------------------------------------------------------------

# Runs a command line on a pseudo terminal on which nobody types. The output, in which lines end as on
# a terminal, comes without their carriage returns.
#
# script takes its shell from SHELL, and /bin/sh when that is unset. The keyboard's signals reach that
# shell too: dash then ends with 130 whatever the command did, bash with the command's own status.
on_terminal() { # COMMAND-LINE
    SHELL=/bin/bash script -qec "$1" /dev/null | tr -d '\r'
    return "${PIPESTATUS[0]}"
}

# Starts a command line on a pseudo terminal, as process $terminal. await_text, type_in and
# end_on_terminal go on with it.
start_on_terminal() { # COMMAND-LINE
    terminal_shown=$BATS_TEST_TMPDIR/terminal
    terminal_seen=0
    : >"$terminal_shown"
    rm -f "$terminal_shown.keys"
    mkfifo "$terminal_shown.keys"
    # For reading too, so that neither side waits for the other, and the keyboard never ends.
    exec {terminal_keys}<>"$terminal_shown.keys"
    # A job in the background ignores the keyboard's signals, and so would the command.
    SHELL=/bin/bash env --default-signal=INT,QUIT script -qefc "$1" /dev/null \
        <&"$terminal_keys" >"$terminal_shown" 2>&1 3>&- {terminal_keys}>&- &
    terminal=$!
}

# A text is on the terminal after the one that was waited for last.
text_is_shown() { # TEXT
    local shown
    shown=$(<"$terminal_shown")
    shown=${shown:terminal_seen}
    [[ $shown == *"$1"* ]] || return 1
    shown=${shown%%"$1"*}
    terminal_seen=$((terminal_seen + ${#shown} + ${#1}))
}

await_text() { # TEXT
    local end=$((SECONDS + 60)) last_look=false
    until text_is_shown "$1"; do
        if $last_look || ((SECONDS >= end)); then
            printf 'the terminal does not show <%s> next, but:\n%s\n' "$1" \
                "$(<"$terminal_shown")" >&2
            kill "$terminal" 2>/dev/null || true
            return 1
        fi
        # What the command prints last is there when it has ended.
        ! has_gone "$terminal" || last_look=true
        sleep 0.05
    done
}

type_in() { # KEYS
    printf '%s' "$1" >&"$terminal_keys"
}

# Waits for the end of that command; afterwards $status, $output and $lines are its own, as after `run`.
end_on_terminal() {
    wait_until has_gone "$terminal" || {
        printf 'the command on the terminal does not end; it shows:\n%s\n' \
            "$(<"$terminal_shown")" >&2
        kill "$terminal" 2>/dev/null || true
        return 1
    }
    status=0
    wait "$terminal" || status=$?
    exec {terminal_keys}>&-
    output=$(tr -d '\r' <"$terminal_shown")
    mapfile -t lines <<<"$output"
}

# Runs a command line on a terminal, and enters each answer when its question is there; afterwards
# $status, $output and $lines are those of `run`.
answer_on_terminal() { # COMMAND-LINE [QUESTION ANSWER]...
    start_on_terminal "$1"
    shift
    while (($#)); do
        await_text "$1" || return 1
        type_in "$2"$'\n'
        shift 2
    done
    end_on_terminal
}

# Runs a changing command on a terminal, and interrupts it at a question: by a key (as ^C), or by a
# signal from elsewhere. The answers are those to the questions before; $status, $output and $lines
# are set as by answer_on_terminal.
interrupt_on_terminal() { # SIGNAL|^KEY COMMAND-LINE [QUESTION ANSWER]... QUESTION
    local interruption=$1
    start_on_terminal "$2"
    shift 2
    while (($# > 1)); do
        await_text "$1" || return 1
        type_in "$2"$'\n'
        shift 2
    done
    await_text "$1" || return 1
    case $interruption in
    ^C) type_in $'\003' ;;
    *) kill -"$interruption" "$(cat "$repository/lock")" ;;
    esac
    end_on_terminal
}

# While the tool installs foo another one, which would change something too, is refused; a dry run and
# `list` are not. Afterwards $status and $output are those of the dry run.
assert_refused_beside_change() { # ARGUMENT...
    local refused said dry
    start_pvrm install "$(package foo "init/00-add.sh=$waiting_script")"
    run pvrm "$@"
    refused=$status said=$output
    run pvrm "$@" --dry-run
    dry=$output
    assert_status 0
    run pvrm list
    assert_status 0
    finish
    assert_status 0
    is_installed foo
    status=$refused output=$said
    assert_status 4
    assert_output_has "pvrm: process $tool is changing the repository; try again when it has ended"
    status=0 output=$dry
}

# Waits until a command succeeds, for a minute at most: a test that goes well never waits so long, and
# a slow machine is not a failure.
wait_until() { # COMMAND [ARGUMENT]...
    local end=$((SECONDS + 60))
    until "$@"; do
        ((SECONDS < end)) || {
            printf 'waited in vain for: %s\n' "$*" >&2
            return 1
        }
        sleep 0.05
    done
}

# A process has ended. One of this shell's own is then still there for `wait`.
has_gone() { # PROCESS
    [[ ! -e /proc/$1 || $(sed 's/.*) //' "/proc/$1/stat" 2>/dev/null) == [ZX]* ]]
}

# A script of a package that shows by a file that it runs, and waits for another one to end.
# shellcheck disable=SC2016,SC2034
waiting_script='touch /tmp/started; n=0
while [ ! -e /tmp/go ] && [ $n -lt 1200 ]; do sleep 0.05; n=$((n+1)); done'

has_started() {
    [[ -e /tmp/started ]]
}

assert_no_lock() {
    [[ ! -e $repository/lock ]]
}

# Starts the tool in the background, as process $tool, whose output goes to /tmp/out, and waits until
# a waiting script of a package runs.
start_pvrm() { # ARGUMENT...
    pvrm "$@" >/tmp/out 2>&1 3>&- &
    tool=$!
    wait_until has_started
}

# Lets that script end; afterwards $status and $output are those of the tool, as after `run`.
finish() {
    touch /tmp/go
    status=0
    wait "$tool" || status=$?
    output=$(cat /tmp/out)
    mapfile -t lines </tmp/out
}
