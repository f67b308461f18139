#!/usr/bin/env bats
# scripts/setup, with stand-ins for the commands that would change the machine.

setup() {
    source_dir=$(cd "$BATS_TEST_DIRNAME/../.." && pwd -P)
    cd "$BATS_TEST_TMPDIR"
    mkdir bin
    # Everything is installed but the packages in the file "missing".
    stand_in dpkg-query "! grep -qx \"\${@: -1}\" $PWD/missing || exit 1; printf installed"
    stand_in apt-get "printf '%s\n' \"\$*\" >>$PWD/called"
    : >missing
    PATH=$PWD/bin:$PATH
}

stand_in() { # NAME BODY
    printf '#!/bin/bash\n%s\n' "$2" >"bin/$1"
    chmod +x "bin/$1"
}

@test "nothing is called when nothing is missing" {
    run "$source_dir/scripts/setup"
    [[ $status == 0 ]]
    [[ $output == "" ]]
    [[ ! -e called ]]
}

@test "what is missing is installed, and nothing else" {
    printf 'cpio\nshellcheck\n' >missing
    run "$source_dir/scripts/setup"
    [[ $status == 0 ]]
    [[ $output == "setup: installing cpio shellcheck" ]]
    [[ $(sed -n 1p called) == *" update" ]]
    [[ $(sed -n 2p called) == *" install --no-install-recommends cpio shellcheck" ]]
    [[ $(wc -l <called) == 2 ]]
}

@test "a package that can't be had is a failure" {
    echo cpio >missing
    stand_in apt-get '[[ $* != *install* ]]'
    run "$source_dir/scripts/setup"
    [[ $status != 0 ]]
}

@test "without root and without sudo it says so" {
    directory=$(mktemp -d /tmp/setup_test.XXXXXX)
    mkdir "$directory/bin"
    # A PATH with no sudo in it.
    for command in bash dpkg-query; do
        cp "$(command -v "$command")" "$directory/bin/"
    done
    : >"$directory/missing"
    printf '#!/bin/bash\nexit 1\n' >"$directory/bin/dpkg-query"
    cp "$source_dir/scripts/setup" "$directory/setup"
    chmod -R a+rX "$directory"
    PATH=$directory/bin run "$(command -v setpriv)" --reuid 65534 --regid 65534 --clear-groups \
        "$directory/setup"
    rm -r "$directory"
    [[ $status == 1 ]]
    [[ ${lines[0]} == "setup: missing: g++ cmake "* ]]
    [[ ${lines[1]} == "setup: only root can install packages, and there is no sudo; run this as root" ]]
}
