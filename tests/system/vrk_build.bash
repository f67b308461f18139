# shellcheck shell=bash
# What the tests of vrk-build share: load helpers, then this.

setup_file() {
    export keys=$BATS_FILE_TMPDIR/keys
    mkdir "$keys"
    vrk-build keygen "/O=My Distribution/CN=Jane" --key "$keys/key" --cert "$keys/cert"
}

setup() {
    cd "$BATS_TEST_TMPDIR"
    mkdir -p tree/{data/usr/bin,conf/etc,dump,init,info}
    printf 'evrkName: foo\nevrkVersion: 1.2\nevrkArchitecture: any\nevrkDescription: A thing\n' \
        >tree/package.ldif
    printf '#!/bin/sh\necho foo\n' >tree/data/usr/bin/foo
    chmod 755 tree/data/usr/bin/foo
    echo 'a = 1' >tree/conf/etc/foo.conf
    echo 'kept' >tree/dump/note
    echo 'echo added' >tree/init/99-add.sh
    echo '/usr/bin/foo|4755' >tree/info/perm.txt
}

pack() {
    vrk-build pack "${tree:-tree}" --key "$keys/key" --cert "$keys/cert" "$@"
}

# After a failed `pack`: its message is this one, it was the only line, and nothing is left behind.
assert_refused() { # MESSAGE
    assert_status 1
    assert_equal "$output" "vrk-build: $1"
    assert_no_leftovers
}

# As `run wait`, whose subshell has no children.
wait_for() { # CHILD
    # shellcheck disable=SC2034
    status=0 output=
    # shellcheck disable=SC2034
    wait "$1" || status=$?
}

assert_no_leftovers() {
    assert_equal "$(find . -name '*.vrk' -o -name '.vrk-build-*')" ""
}

head_size() {
    echo $((10#$(dd if="$1" bs=1 skip=6 count=5 status=none)))
}

# take_apart FILE: leaves description, payload and tree in the directory "apart".
take_apart() {
    local size
    size=$(head_size "$1")
    rm -rf apart
    mkdir -p apart/tree
    tail -c +12 "$1" | head -c "$size" >apart/description
    tail -c +$((12 + size)) "$1" >apart/payload
    gzip -t apart/payload
    (cd apart/tree && gzip -dc ../payload | cpio -i --quiet --make-directories)
}

# attribute NAME: the value of a plain attribute, unfolded.
attribute() {
    sed -e ':a' -e 'N' -e '$!ba' -e 's/\n //g' apart/description | sed -n "s/^$1: //p"
}

encoded_attribute() {
    sed -e ':a' -e 'N' -e '$!ba' -e 's/\n //g' apart/description | sed -n "s/^$1:: //p" | base64 -d
}
